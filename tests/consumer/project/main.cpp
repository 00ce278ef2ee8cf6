#include <ZrUtils/ZrUtils.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonObject>
#include <cstdio>

// Which shared objects the process loaded, where the system tells (Linux).
static QByteArray loadedObjects()
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    return maps.open(QIODevice::ReadOnly) ? maps.readAll() : QByteArray();
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QJsonObject params;
    params.insert(QStringLiteral("a"), 1);
    const QString signature = ZrUtils::ZrHttpRequest::SignObject(params, QStringLiteral("s"));
    if (signature != ZrUtils::ZrHttpRequest::GetStringMd5(QStringLiteral("a=1s")))
        return 1;

    // A package that hands a Qt 6 consumer the Qt 5 library (or the reverse) loads
    // both Qt cores into one process.
    const QByteArray objects = loadedObjects();
    const QByteArray otherCore = QT_VERSION_MAJOR == 5 ? "libQt6Core" : "libQt5Core";
    if (!objects.isEmpty() && (objects.contains(otherCore) || !objects.contains("/" ZRUTILS_PACKAGE_FILE))) {
        std::printf("wrong libraries loaded:\n%s", objects.constData());
        return 1;
    }
    std::printf("consumer ok\n");
    return 0;
}

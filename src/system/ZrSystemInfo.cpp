#include "SystemInternal.h"

#include <ZrUtils/COperateSystem.h>
#include <ZrUtils/ZrSystem.h>

#include <QCoreApplication>
#include <QFile>
#include <QSysInfo>
#include <QTextStream>

namespace ZrUtils
{

namespace Internal
{

QString linuxOsInfo(const QString& osReleasePath)
{
    const QString unknown = QStringLiteral("Unknown");
    QFile file(osReleasePath);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return unknown;
    QTextStream stream(&file);
    // os-release is UTF-8 whatever the locale says (Qt 6 streams read UTF-8 unless told otherwise).
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    stream.setCodec("UTF-8");
#else
    stream.setEncoding(QStringConverter::Utf8);
#endif
    QString line;
    while (stream.readLineInto(&line)) {
        // Case-sensitive and anchored, so PRETTY_NAME= never matches.
        if (line.startsWith(QLatin1String("NAME=")))
            return line.mid(line.indexOf(QLatin1Char('=')) + 1).remove(QLatin1Char('"'));
    }
    return unknown;
}

bool isKylinName(const QString& distributionName)
{
    return distributionName.contains(QLatin1String("Kylin"), Qt::CaseInsensitive);
}

bool isUosName(const QString& distributionName)
{
    return distributionName.contains(QLatin1String("UnionTech"), Qt::CaseInsensitive)
        || distributionName.contains(QLatin1String("UOS"), Qt::CaseInsensitive);
}

} // namespace Internal

QString ZrSystem::GetSystemVersion()
{
    return QSysInfo::prettyProductName();
}

void ZrSystem::EnableHighDPISupport(bool)
{
    // The argument is ignored on purpose: callers pass false and still expect scaling.
    // Qt 6 always scales and always uses high-DPI pixmaps, so there is nothing to set.
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling, true);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps, true);
#endif
}

bool ZrSystem::IsDarkTheme()
{
    return COperateSystem::IsDarkTheme();
}

void ZrSystem::SleepComputer()
{
    COperateSystem::SleepComputer();
}

void ZrSystem::ShutdownComputer()
{
    COperateSystem::ShutdownComputer();
}

void ZrSystem::SetAutoStart(bool)
{
    // Start-up registration belongs to the installer on every platform we ship.
}

QString ZrSystem::GetBundleIdentifier()
{
    return QString::fromStdString(COperateSystem::GetBundleIdentifier());
}

QString ZrSystem::GetLinuxOsInfo()
{
    return Internal::linuxOsInfo(QStringLiteral("/etc/os-release"));
}

bool ZrSystem::IsKylinOs()
{
    return Internal::isKylinName(GetLinuxOsInfo());
}

bool ZrSystem::IsUOS()
{
    return Internal::isUosName(GetLinuxOsInfo());
}

} // namespace ZrUtils

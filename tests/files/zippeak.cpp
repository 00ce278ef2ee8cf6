// zippeak pack <folder>            zipWriter(folder)
// zippeak unpack <archive> <dest>  zipReader(archive, dest)
// Prints "<true|false> <peak resident KiB over the resident size before the call>".
#include <ZrUtils/ZrZip.h>

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>
#include <cstdio>

static qint64 statusKiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QRegularExpression line(
        QStringLiteral("^%1:\\s+(\\d+) kB$").arg(QLatin1String(field)), QRegularExpression::MultilineOption);
    return line.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong();
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const qint64 idle = statusKiB("VmRSS");
    bool done = false;
    if (args.size() == 3 && args.at(1) == QLatin1String("pack"))
        done = ZrUtils::zipWriter(args.at(2), {});
    else if (args.size() == 4 && args.at(1) == QLatin1String("unpack"))
        done = ZrUtils::zipReader(args.at(2), args.at(3));
    else
        return 2;
    std::printf("%s %lld\n", done ? "true" : "false", static_cast<long long>(statusKiB("VmHWM") - idle));
    return 0;
}

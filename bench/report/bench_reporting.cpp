// What reporting costs the caller's thread, and the process, with the spool and the
// audit log on against the default (a thread per event).
//   bench_reporting [events per burst, default 1000]
// Each mode runs in a child process of its own: it reports one burst to the loopback
// log service, timing every ReportZrData() call, and reports the median and 99th
// percentile, the peak thread count and the peak resident size over idle.
// Target: the spool and the audit log add under 50 us per event (median).
#include "LoopbackLogService.h"

#include <ZrUtils/CZrReport.h>
#include <ZrUtils/ReportAudit.h>
#include <ZrUtils/ReportSpool.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

namespace
{

qint64 status(const char* field)
{
    QFile file(QStringLiteral("/proc/self/status"));
    file.open(QIODevice::ReadOnly);
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(int(std::strlen(field)) + 1).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

int child(bool spooled, int events)
{
    ZrLoopback::LoopbackLogService service("id", "key");
    QTemporaryDir folder;
    if (spooled) {
        ZrUtils::ReportSpool::enable(folder.filePath(QStringLiteral("spool")));
        ZrUtils::ReportAudit::enable(folder.filePath(QStringLiteral("audit")));
    }
    ZrUtils::CZrReport report;
    report.InitData(QStringLiteral("bench"), QString::fromLatin1(service.endpoint()), QStringLiteral("id"),
        QStringLiteral("key"), QStringLiteral("p"), QStringLiteral("l"),
        {{QStringLiteral("k"), QStringLiteral("v")}});
    // Warm up: the first post sets up libcurl and the TLS library.
    report.ReportZrData(QStringLiteral("warm"));
    for (QDeadlineTimer deadline(10000); service.receivedCount() < 1 && !deadline.hasExpired();)
        QThread::msleep(1);
    service.clearReceived();

    const qint64 idle = status("VmRSS");
    std::atomic<bool> sampling {true};
    std::atomic<int> peakThreads {0};
    std::thread sampler([&] {
        while (sampling) {
            peakThreads = std::max<int>(peakThreads, int(status("Threads")));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    std::vector<double> micros;
    micros.reserve(events);
    for (int i = 0; i < events; ++i) {
        const auto start = std::chrono::steady_clock::now();
        report.ReportZrData(QString::number(i));
        micros.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    for (QDeadlineTimer deadline(120000); service.receivedCount() < events && !deadline.hasExpired();)
        QThread::msleep(5);
    sampling = false;
    sampler.join();
    std::sort(micros.begin(), micros.end());
    std::printf("%.2f %.2f %d %lld %d\n", micros[micros.size() / 2], micros[micros.size() * 99 / 100],
        peakThreads.load(), status("VmHWM") - idle, service.receivedCount());
    return service.receivedCount() == events ? 0 : 1;
}

QList<QByteArray> runChild(const QString& self, const char* mode, int events)
{
    QProcess process;
    process.start(self, {QStringLiteral("--child"), QLatin1String(mode), QString::number(events)});
    process.waitForFinished(-1);
    return process.readAllStandardOutput().trimmed().split(' ');
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.value(1) == QLatin1String("--child"))
        return child(args.value(2) == QLatin1String("spooled"), args.value(3).toInt());
    const int events = args.size() > 1 ? args.at(1).toInt() : 1000;
    std::printf("%d events in one burst to the loopback log service\n", events);
    std::printf("%-22s %12s %12s %12s %14s %9s\n", "mode", "median us", "p99 us", "peak threads", "peak +MiB",
        "arrived");
    for (const char* mode : {"plain", "spooled"}) {
        const QList<QByteArray> f = runChild(app.applicationFilePath(), mode, events);
        if (f.size() != 5) {
            std::fprintf(stderr, "bench_reporting: the %s run failed\n", mode);
            return 1;
        }
        std::printf("%-22s %12s %12s %12s %14.1f %9s\n",
            std::strcmp(mode, "plain") == 0 ? "thread per event" : "spool and audit log", f[0].constData(),
            f[1].constData(), f[2].constData(), f[3].toDouble() / 1024, f[4].constData());
    }
    return 0;
}

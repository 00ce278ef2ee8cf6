// Download throughput and memory of the two downloaders, each against the curl
// command line in the same run, all from an nginx on 127.0.0.1 to the same disk.
// Many transfers at once: bench_transfer_scale.
//
//   bench_transfer [--big-mib N] [--runs N] [--dir PATH]
//
// Each of our downloads runs in a child process of this program so that its peak
// resident memory can be read on its own.
#include <ZrUtils/CurlDownloader.h>
#include <ZrUtils/ZrDownloader.h>

#include "ChildRuns.h"
#include "NginxServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

namespace
{

using namespace BenchChild;

// Child: one download with a downloader; prints "<ms> <idle KiB> <peak KiB>".
int runDownload(const QString& kind, const QUrl& url, const QString& dir)
{
    std::unique_ptr<QObject> downloader;
    bool ok = false;
    QEventLoop loop;
    auto finish = [&](bool success) {
        ok = success;
        loop.quit();
    };
    const qint64 idle = statusKiB("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    if (kind == QLatin1String("curl")) {
        auto* d = new ZrUtils::CurlDownloader;
        downloader.reset(d);
        QObject::connect(d, &ZrUtils::CurlDownloader::signalDownloadFinished, &loop, finish);
        QObject::connect(d, &ZrUtils::CurlDownloader::signalDownloadAborted, &loop, [&] { finish(false); });
        if (!d->StartDownload(url, dir))
            return 1;
    } else {
        auto* d = new ZrUtils::ZrDownloader;
        downloader.reset(d);
        QObject::connect(d, &ZrUtils::ZrDownloader::signalDownloadFinished, &loop, finish);
        if (!d->StartDownload(url, dir))
            return 1;
    }
    loop.exec();
    std::printf("%lld %lld %lld\n", timer.elapsed(), idle, statusKiB("VmHWM:"));
    return ok ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments();
    if (args.value(1) == QLatin1String("--child-download"))
        return runDownload(args.value(2), QUrl(args.value(3)), args.value(4));

    int bigMiB = 1024;
    int runs = 5;
    QString base = QDir::tempPath();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--big-mib"))
            bigMiB = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--runs"))
            runs = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--dir"))
            base = args[i + 1];
    }

    QTemporaryDir scratch(QDir(base).filePath(QStringLiteral("bench_transfer-XXXXXX")));
    const QString served = scratch.filePath(QStringLiteral("served"));
    const QString out = scratch.filePath(QStringLiteral("out"));
    QDir().mkpath(served);
    std::printf("writing %d MiB and 100 MiB files in %s\n", bigMiB, qPrintable(scratch.path()));
    if (!ZrLoopback::writePatternFile(served + QStringLiteral("/big.bin"), qint64(bigMiB) << 20)
        || !ZrLoopback::writePatternFile(served + QStringLiteral("/mid.bin"), qint64(100) << 20))
        return 1;
    ZrLoopback::NginxServer nginx(served);
    if (!nginx.start()) {
        std::fprintf(stderr, "nginx: %s\n", qPrintable(nginx.errorString()));
        return 1;
    }
    const QString self = app.applicationFilePath();
    const QString curl = QStringLiteral("curl");

    // One big file: best wall time of each, child processes alike.
    const QUrl big = nginx.url(QStringLiteral("/big.bin"));
    double curlBest = 1e300, curlDlBest = 1e300, zrBest = 1e300;
    qint64 curlDlGrowth = 0, zrGrowth = 0;
    for (int run = 0; run < runs; ++run) {
        clearFolder(out);
        const Run c = runProcess(curl,
            {QStringLiteral("-s"), QStringLiteral("-o"), out + QStringLiteral("/big.bin"), big.toString()});
        clearFolder(out);
        const Run ours = runProcess(
            self, {QStringLiteral("--child-download"), QStringLiteral("curl"), big.toString(), out});
        clearFolder(out);
        const Run zr = runProcess(
            self, {QStringLiteral("--child-download"), QStringLiteral("qt"), big.toString(), out});
        if (!c.ok || !ours.ok || !zr.ok)
            return 1;
        curlBest = std::min(curlBest, c.wallMs);
        curlDlBest = std::min(curlDlBest, ours.wallMs);
        zrBest = std::min(zrBest, zr.wallMs);
        curlDlGrowth
            = std::max(curlDlGrowth, ours.fields.value(2).toLongLong() - ours.fields.value(1).toLongLong());
        zrGrowth = std::max(zrGrowth, zr.fields.value(2).toLongLong() - zr.fields.value(1).toLongLong());
    }
    const double mib = bigMiB;
    std::printf("\n%d MiB download, best of %d (wall time of the process):\n", bigMiB, runs);
    std::printf("  curl command line   %8.0f ms  %7.0f MiB/s\n", curlBest, mib * 1000 / curlBest);
    std::printf("  CurlDownloader      %8.0f ms  %7.0f MiB/s  %.2fx curl  peak RSS +%.1f MiB over idle\n",
        curlDlBest, mib * 1000 / curlDlBest, curlBest / curlDlBest, curlDlGrowth / 1024.0);
    std::printf("  ZrDownloader        %8.0f ms  %7.0f MiB/s  %.2fx curl  peak RSS +%.1f MiB over idle\n",
        zrBest, mib * 1000 / zrBest, curlBest / zrBest, zrGrowth / 1024.0);

    // The same growth for a 100 MiB file: it must not depend on the size.
    qint64 curlDlMid = 0, zrMid = 0;
    for (const char* kind : {"curl", "qt"}) {
        clearFolder(out);
        const Run r = runProcess(self,
            {QStringLiteral("--child-download"), QString::fromLatin1(kind),
                nginx.url(QStringLiteral("/mid.bin")).toString(), out});
        if (!r.ok)
            return 1;
        (qstrcmp(kind, "curl") == 0 ? curlDlMid : zrMid)
            = r.fields.value(2).toLongLong() - r.fields.value(1).toLongLong();
    }
    std::printf("  peak RSS over idle for 100 MiB: CurlDownloader +%.1f MiB, ZrDownloader +%.1f MiB\n",
        curlDlMid / 1024.0, zrMid / 1024.0);

    return 0;
}

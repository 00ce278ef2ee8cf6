// Many transfers at once on one thread's multi, from an nginx on 127.0.0.1:
//  - against curl --parallel in the same run: 100 x 1 MiB and 1,000 x 64 KiB, each
//    transfer into a file of its own, wall and CPU time of the whole process;
//  - how the cost grows with the number of transfers: N = 10 to 5,000 small files, and
//    N slow (rate-limited) ones held open all at once, bodies counted and dropped;
// each with a notifier per socket (the default) and with the multi's event set.
//
//   bench_transfer_scale [--runs N] [--max N] [--dir PATH] [--only peers|scale]
//
// Each measured run is a child process of this program, so that its CPU time and
// peak resident size are its own. The file-descriptor limit is raised to the hard
// limit first: 5,000 transfers hold 5,000 sockets (and nginx, a child too, as many).
#include <ZrUtils/CurlEasy.h>
#include <ZrUtils/CurlMulti.h>

#include "ChildRuns.h"
#include "NginxServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include <sys/resource.h>

namespace
{

using namespace BenchChild;

constexpr qint64 SmallSize = 64 << 10;
constexpr qint64 SlowSize = 32 << 10;
// nginx sends each slow body at this rate after a first burst: about a second each.
constexpr int SlowRate = 16 << 10;
// The receive buffer the curl command line asks libcurl for.
constexpr long CurlToolBuffer = 100 * 1024;

bool raiseDescriptorLimit()
{
    rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    limit.rlim_cur = limit.rlim_max;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

// What a child does: count transfers of url, at most live of them running at once.
struct Job {
    QUrl url;
    int count = 0;
    int live = 0;
    qint64 size = 0; // of each body
    QString outDir; // empty: bodies are counted and dropped
    bool eventSet = false;
    long buffer = 0; // CURLOPT_BUFFERSIZE, 0 for libcurl's default

    QStringList arguments() const
    {
        QStringList args {QStringLiteral("--child"), url.toString(), QString::number(count),
            QString::number(live), QString::number(size), QString::number(eventSet), QString::number(buffer)};
        if (!outDir.isEmpty())
            args << outDir;
        return args;
    }
    static Job fromArguments(const QStringList& args)
    {
        Job job;
        job.url = QUrl(args.value(2));
        job.count = args.value(3).toInt();
        job.live = args.value(4).toInt();
        job.size = args.value(5).toLongLong();
        job.eventSet = args.value(6).toInt() != 0;
        job.buffer = args.value(7).toLong();
        job.outDir = args.value(8);
        return job;
    }
};

// Child: runs the job on this thread's multi and prints
// "<wall ms> <cpu ms> <idle KiB> <peak KiB> <bytes>".
int runJob(const Job& job)
{
    std::vector<std::unique_ptr<QFile>> files(static_cast<size_t>(job.count));
    std::vector<qint64> received(static_cast<size_t>(job.count), 0);
    int started = 0;
    int finished = 0;
    int failed = 0;
    QEventLoop loop;
    // Made before the idle size is read, so that both forms count the same.
    CurlMulti* multi = CurlMulti::threadInstance();
    if (job.eventSet && !multi->setSocketWatching(CurlMulti::SocketWatching::EventSet))
        return 1;
    const qint64 idle = statusKiB("VmRSS:");
    const double cpuStart = cpuMs(RUSAGE_SELF);
    QElapsedTimer timer;
    timer.start();
    std::function<void()> startNext = [&] {
        const int i = started++;
        auto* easy = new CurlEasy;
        easy->set(CURLOPT_URL, QUrl(job.url.toString() + QStringLiteral("?n=%1").arg(i)));
        if (job.buffer > 0)
            curl_easy_setopt(easy->handle(), CURLOPT_BUFFERSIZE, job.buffer);
        qint64* bytes = &received[size_t(i)];
        QFile* file = nullptr;
        if (job.outDir.isEmpty()) {
            easy->setWriteFunction([bytes](char*, size_t size) {
                *bytes += qint64(size);
                return size;
            });
        } else {
            files[size_t(i)]
                = std::make_unique<QFile>(QDir(job.outDir).filePath(QStringLiteral("t%1.bin").arg(i)));
            file = files[size_t(i)].get();
            // Made on the first data, as curl does, and written without a second copy
            // in QFile's buffer: libcurl hands over whole buffers.
            easy->setWriteFunction([file, bytes](char* data, size_t size) {
                if (!file->isOpen() && !file->open(QIODevice::WriteOnly | QIODevice::Unbuffered))
                    return size_t(0);
                *bytes += qint64(size);
                return size_t(file->write(data, qint64(size)));
            });
        }
        // A finished transfer goes at once, as in any application: its buffers are
        // reused by the ones still running.
        QObject::connect(easy, &CurlEasy::done, &loop, [&, easy, file, bytes](CURLcode result) {
            easy->deleteLater();
            if (file)
                file->close();
            failed += result != CURLE_OK || *bytes != job.size;
            if (++finished == job.count)
                loop.quit();
            else if (started < job.count)
                startNext();
        });
        easy->perform();
    };
    while (started < std::min(job.count, job.live))
        startNext();
    loop.exec();
    const qint64 wall = timer.elapsed();
    const double cpu = cpuMs(RUSAGE_SELF) - cpuStart;
    qint64 total = 0;
    for (qint64 bytes : received)
        total += bytes;
    std::printf("%lld %.1f %lld %lld %lld\n", wall, cpu, idle, statusKiB("VmHWM:"), total);
    if (failed)
        std::fprintf(stderr, "%d of %d transfers failed\n", failed, job.count);
    return failed == 0 ? 0 : 1;
}

// curl --parallel against our child in a few forms, alternating, each transfer into a
// file; the best wall time of each, with the CPU time of that run.
bool comparePeers(const QString& self, const QUrl& url, int count, qint64 size, const QString& out, int runs)
{
    QStringList curlArgs = {QStringLiteral("-s"), QStringLiteral("--fail"), QStringLiteral("--parallel"),
        QStringLiteral("--parallel-max"), QString::number(count)};
    for (int i = 0; i < count; ++i)
        curlArgs << QStringLiteral("-o") << out + QStringLiteral("/c%1.bin").arg(i)
                 << url.toString() + QStringLiteral("?n=%1").arg(i);
    // The curl command line runs at most 300 transfers at once, whatever it is asked.
    const int curlLive = std::min(count, 300);
    struct Form {
        QString name;
        Job job;
        Run best;
    };
    std::vector<Form> forms;
    for (bool eventSet : {false, true}) {
        for (int live : {count, curlLive}) {
            if (live == curlLive && curlLive == count && !forms.empty()
                && forms.back().job.eventSet == eventSet)
                continue;
            Form form;
            form.job = {url, count, live, size, out, eventSet, CurlToolBuffer};
            form.name = QStringLiteral("%1, %2 at once")
                            .arg(eventSet ? QStringLiteral("event set") : QStringLiteral("notifiers"))
                            .arg(live);
            form.best.wallMs = 1e300;
            forms.push_back(form);
        }
    }
    // Each program's start-up and exit, with a single small transfer, so that the
    // transfers can also be compared on their own.
    const QStringList curlAlone = {QStringLiteral("-s"), QStringLiteral("--fail"), QStringLiteral("-o"),
        out + QStringLiteral("/alone.bin"), url.toString() + QStringLiteral("?alone")};
    const Job oursAlone {url, 1, 1, size, out, false, CurlToolBuffer};
    Run curlBest, curlStart, oursStart;
    curlBest.wallMs = curlStart.wallMs = oursStart.wallMs = 1e300;
    for (int run = 0; run < runs; ++run) {
        clearFolder(out);
        const Run c = runProcess(QStringLiteral("curl"), curlArgs);
        const Run ca = runProcess(QStringLiteral("curl"), curlAlone);
        const Run oa = runProcess(self, oursAlone.arguments());
        if (!c.ok || !ca.ok || !oa.ok)
            return false;
        if (c.wallMs < curlBest.wallMs)
            curlBest = c;
        if (ca.wallMs < curlStart.wallMs)
            curlStart = ca;
        if (oa.wallMs < oursStart.wallMs)
            oursStart = oa;
        for (Form& form : forms) {
            clearFolder(out);
            const Run ours = runProcess(self, form.job.arguments());
            if (!ours.ok)
                return false;
            if (ours.wallMs < form.best.wallMs)
                form.best = ours;
        }
    }
    const double mib = double(count) * double(size) / (1 << 20);
    std::printf("\n%d x %lld KiB into files, best of %d (wall and CPU time of the process):\n", count,
        size >> 10, runs);
    std::printf("  %-42s %6.0f ms  %5.0f MiB/s  CPU %5.0f ms\n",
        qPrintable(QStringLiteral("curl --parallel --parallel-max %1").arg(count)), curlBest.wallMs,
        mib * 1000 / curlBest.wallMs, curlBest.cpuMs);
    for (const Form& form : forms) {
        std::printf("  %-42s %6.0f ms  %5.0f MiB/s  CPU %5.0f ms  %.2fx curl, %.2fx without start-up\n",
            qPrintable(QStringLiteral("CurlMulti, ") + form.name), form.best.wallMs,
            mib * 1000 / form.best.wallMs, form.best.cpuMs, curlBest.wallMs / form.best.wallMs,
            (curlBest.wallMs - curlStart.wallMs) / (form.best.wallMs - oursStart.wallMs));
    }
    std::printf(
        "  start-up with one transfer: curl %.1f ms, ours %.1f ms\n", curlStart.wallMs, oursStart.wallMs);
    std::fflush(stdout);
    return true;
}

// Median of runs of our child for one row of the scale table; returns the CPU time
// per transfer in µs, or -1.
double scaleRow(const QString& self, const char* kind, const Job& job, int runs)
{
    std::vector<Run> results;
    for (int run = 0; run < runs; ++run) {
        const Run r = runProcess(self, job.arguments());
        if (!r.ok)
            return -1;
        results.push_back(r);
    }
    std::sort(results.begin(), results.end(), [](const Run& a, const Run& b) {
        return a.fields.value(1).toDouble() < b.fields.value(1).toDouble();
    });
    const Run& median = results[results.size() / 2];
    const double wall = median.fields.value(0).toDouble();
    const double cpu = median.fields.value(1).toDouble();
    const double peakGrowth = median.fields.value(3).toDouble() - median.fields.value(2).toDouble();
    const double mib = double(median.fields.value(4).toLongLong()) / (1 << 20);
    const double perTransfer = cpu * 1000 / job.count;
    std::printf("  %-10s %-6s %5d  %7.0f ms  %8.1f ms  %6.2f ms  %7.1f µs  %6.1f KiB\n",
        job.eventSet ? "event set" : "notifiers", kind, job.count, wall, cpu, cpu / mib, perTransfer,
        peakGrowth / job.count);
    std::fflush(stdout);
    return perTransfer;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments();
    if (args.value(1) == QLatin1String("--child")) {
        raiseDescriptorLimit();
        return runJob(Job::fromArguments(args));
    }

    int runs = 5;
    int maxCount = 5000;
    QString only;
    QString base = QDir::tempPath();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--runs"))
            runs = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--max"))
            maxCount = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--only"))
            only = args[i + 1];
        else if (args[i] == QLatin1String("--dir"))
            base = args[i + 1];
    }
    if (!raiseDescriptorLimit())
        std::fprintf(stderr, "could not raise the file-descriptor limit\n");
    rlimit limit {};
    getrlimit(RLIMIT_NOFILE, &limit);
    std::printf("file-descriptor limit raised to %llu\n", static_cast<unsigned long long>(limit.rlim_cur));

    QTemporaryDir scratch(QDir(base).filePath(QStringLiteral("bench_transfer_scale-XXXXXX")));
    const QString served = scratch.filePath(QStringLiteral("served"));
    const QString out = scratch.filePath(QStringLiteral("out"));
    QDir().mkpath(served + QStringLiteral("/slow"));
    if (!ZrLoopback::writePatternFile(served + QStringLiteral("/1m.bin"), 1 << 20)
        || !ZrLoopback::writePatternFile(served + QStringLiteral("/64k.bin"), SmallSize)
        || !ZrLoopback::writePatternFile(served + QStringLiteral("/slow/32k.bin"), SlowSize))
        return 1;
    ZrLoopback::NginxServer nginx(served);
    if (!nginx.start(QStringLiteral("location /slow/ { limit_rate %1; }").arg(SlowRate))) {
        std::fprintf(stderr, "nginx: %s\n", qPrintable(nginx.errorString()));
        return 1;
    }
    const QString self = app.applicationFilePath();

    if (only.isEmpty() || only == QLatin1String("peers")) {
        std::printf("\nour transfers ask for curl's %ld KiB receive buffer here\n", CurlToolBuffer / 1024);
        if (!comparePeers(self, nginx.url(QStringLiteral("/1m.bin")), 100, 1 << 20, out, runs * 2)
            || !comparePeers(self, nginx.url(QStringLiteral("/64k.bin")), 1000, SmallSize, out, runs))
            return 1;
    }
    if (only.isEmpty() || only == QLatin1String("scale")) {
        std::printf(
            "\nN transfers at once, libcurl's default buffer, bodies dropped, median by CPU time of %d runs "
            "(more below 500 transfers):\n",
            runs);
        std::printf(
            "  watching   kind       N     wall        CPU     CPU/MiB  CPU/transfer  peak RSS/transfer\n");
        const struct {
            const char* kind;
            QString path;
            qint64 size;
        } kinds[] = {{"small", QStringLiteral("/64k.bin"), SmallSize},
            {"slow", QStringLiteral("/slow/32k.bin"), SlowSize}};
        for (const auto& kind : kinds) {
            for (bool eventSet : {false, true}) {
                double at100 = 0;
                double atMax = 0;
                for (int count : {10, 100, 1000, 5000}) {
                    if (count > maxCount)
                        break;
                    const Job job {nginx.url(kind.path), count, count, kind.size, QString(), eventSet, 0};
                    // The small rows take a few ms each: more runs, so that their
                    // median is as steady as that of the large ones.
                    const int rowRuns = std::max(runs, std::min(50, 2500 / count));
                    const double perTransfer = scaleRow(self, kind.kind, job, rowRuns);
                    if (perTransfer < 0)
                        return 1;
                    if (count == 100)
                        at100 = perTransfer;
                    atMax = perTransfer;
                }
                if (at100 > 0)
                    std::printf(
                        "  CPU per transfer at the largest N: %.2fx that at N = 100\n", atMax / at100);
            }
        }
    }
    return 0;
}

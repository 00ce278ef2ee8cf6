// Packing and unpacking a folder against the zip and unzip command lines.
//   bench_zip [size in MiB, default 1024] [folder, default the system temp folder] [--big GiB]
// The folder holds one big file and 10,000 small ones, text much like a log (deflate
// shrinks it about fourfold); both sides use deflate at level 6, zip's default. Each
// call of ours runs in a child process of its own, so the peak resident size it reports
// belongs to that call. --big also packs and unpacks one sparse file of that many GiB
// and reports only the peak memory.
// Targets: at least 1.0x the throughput of zip -r and unzip.
#include <ZrUtils/ZrZip.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace
{

constexpr int Runs = 3;
constexpr int SmallFiles = 10000;
constexpr int SmallFileSize = 4096;

qint64 statusKiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(int(std::strlen(field)) + 1).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

// Child mode: one call, then "<ok> <ms> <peak KiB over idle>".
int child(const QStringList& args)
{
    const qint64 idle = statusKiB("VmRSS");
    QElapsedTimer clock;
    clock.start();
    const bool ok = args.at(2) == QLatin1String("pack") ? ZrUtils::zipWriter(args.at(3), {})
                                                        : ZrUtils::zipReader(args.at(3), args.at(4));
    std::printf("%d %.1f %lld\n", ok ? 1 : 0, clock.nsecsElapsed() / 1e6, statusKiB("VmHWM") - idle);
    return ok ? 0 : 1;
}

struct Run {
    double ms = 0;
    qint64 peakKiB = 0;
};

Run runOurs(const QString& self, const QStringList& args)
{
    QProcess process;
    process.start(self, QStringList {QStringLiteral("--child")} + args);
    process.waitForFinished(-1);
    const QList<QByteArray> fields = process.readAllStandardOutput().trimmed().split(' ');
    if (fields.size() != 3 || fields[0] != "1") {
        std::fprintf(stderr, "bench_zip: %s failed\n", qPrintable(args.join(QLatin1Char(' '))));
        std::exit(1);
    }
    return {fields[1].toDouble(), fields[2].toLongLong()};
}

double runTool(const QString& program, const QStringList& args, const QString& cwd = QString())
{
    QElapsedTimer clock;
    clock.start();
    QProcess process;
    process.setWorkingDirectory(cwd);
    process.start(program, args);
    process.waitForFinished(-1);
    if (process.exitCode() != 0) {
        std::fprintf(stderr, "bench_zip: %s failed\n", qPrintable(program));
        std::exit(1);
    }
    return clock.nsecsElapsed() / 1e6;
}

// Log-like lines: a fixed shape with changing numbers.
void writeText(const QString& path, qint64 size, QRandomGenerator& random)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    static const char* const Levels[] = {"INFO ", "DEBUG", "WARN ", "ERROR"};
    QByteArray block;
    for (qint64 written = 0; written < size;) {
        block.clear();
        while (block.size() < (1 << 20)) {
            char line[160];
            const int n = std::snprintf(line, sizeof line,
                "2026-11-%02u %02u:%02u:%02u.%03u %s [worker-%u] request %u done in %u ms, %u bytes\n",
                random.bounded(1, 29), random.bounded(24), random.bounded(60), random.bounded(60),
                random.bounded(1000), Levels[random.bounded(4)], random.bounded(64), random.generate(),
                random.bounded(5000), random.bounded(1 << 20));
            block.append(line, n);
        }
        const qint64 n = qMin<qint64>(block.size(), size - written);
        file.write(block.constData(), n);
        written += n;
    }
}

void warmCache(const QString& folder)
{
    runTool(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("cat * > /dev/null")}, folder);
}

void report(const char* what, double bytes, const std::vector<double>& ours, const std::vector<double>& peer,
    const char* peerName, qint64 peakKiB)
{
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    const double oursMs = median(ours), peerMs = median(peer);
    const double mib = bytes / (1 << 20);
    std::printf("%-7s ZrUtils %7.1f ms %6.1f MiB/s  %-5s %7.1f ms %6.1f MiB/s  ratio %.2fx  peak +%.1f MiB\n",
        what, oursMs, mib / (oursMs / 1000), peerName, peerMs, mib / (peerMs / 1000), peerMs / oursMs,
        peakKiB / 1024.0);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments();
    if (args.value(1) == QLatin1String("--child"))
        return child(args);
    qint64 bigGiB = 0;
    if (const int at = args.indexOf(QStringLiteral("--big")); at > 0) {
        bigGiB = args.value(at + 1).toLongLong();
        args.erase(args.begin() + at, args.begin() + at + 2);
    }
    const qint64 totalMiB = args.size() > 1 ? args.at(1).toLongLong() : 1024;
    QTemporaryDir temp(args.size() > 2 ? args.at(2) + QStringLiteral("/bench_zip-XXXXXX") : QString());
    const QString self = app.applicationFilePath();

    const QString folder = temp.filePath(QStringLiteral("data"));
    QDir().mkpath(folder);
    QRandomGenerator random(2026);
    const qint64 total = totalMiB << 20;
    writeText(folder + QStringLiteral("/big.log"), total - qint64(SmallFiles) * SmallFileSize, random);
    for (int i = 0; i < SmallFiles; ++i)
        writeText(
            folder + QStringLiteral("/small%1.log").arg(i, 5, 10, QLatin1Char('0')), SmallFileSize, random);
    std::printf("folder: one file of %lld MiB and %d files of %d bytes\n",
        static_cast<long long>((total - qint64(SmallFiles) * SmallFileSize) >> 20), SmallFiles,
        SmallFileSize);

    const QString ourArchive = folder + QStringLiteral("/data.zip");
    const QString keptArchive = temp.filePath(QStringLiteral("ours.zip"));
    const QString zipArchive = temp.filePath(QStringLiteral("by-zip.zip"));
    std::vector<double> ours, peer;
    qint64 peak = 0;
    for (int i = 0; i < Runs; ++i) {
        QFile::remove(ourArchive);
        QFile::remove(zipArchive);
        warmCache(folder);
        const Run run = runOurs(self, {QStringLiteral("pack"), folder});
        ours.push_back(run.ms);
        peak = qMax(peak, run.peakKiB);
        // Our archive is written inside the folder; zip's beside it, from the same files.
        if (i + 1 < Runs)
            QFile::remove(ourArchive);
        else
            QFile::rename(ourArchive, keptArchive);
        warmCache(folder);
        peer.push_back(
            runTool(QStringLiteral("zip"), {QStringLiteral("-qr"), zipArchive, QStringLiteral(".")}, folder));
    }
    report("pack", double(total), ours, peer, "zip", peak);
    std::printf("archive sizes: ZrUtils %lld bytes, zip %lld bytes\n",
        static_cast<long long>(QFileInfo(keptArchive).size()),
        static_cast<long long>(QFileInfo(zipArchive).size()));

    ours.clear();
    peer.clear();
    peak = 0;
    const QString out = temp.filePath(QStringLiteral("out"));
    for (int i = 0; i < Runs; ++i) {
        QDir(out).removeRecursively();
        runTool(QStringLiteral("cat"), {keptArchive}); // into the page cache
        const Run run = runOurs(self, {QStringLiteral("unpack"), keptArchive, out});
        ours.push_back(run.ms);
        peak = qMax(peak, run.peakKiB);
        QDir(out).removeRecursively();
        peer.push_back(
            runTool(QStringLiteral("unzip"), {QStringLiteral("-q"), keptArchive, QStringLiteral("-d"), out}));
    }
    report("unpack", double(total), ours, peer, "unzip", peak);

    if (bigGiB > 0) {
        QDir(folder).removeRecursively();
        QDir(out).removeRecursively();
        QDir().mkpath(folder);
        QFile big(folder + QStringLiteral("/sparse.bin"));
        big.open(QIODevice::WriteOnly);
        big.resize(bigGiB << 30);
        big.close();
        const Run pack = runOurs(self, {QStringLiteral("pack"), folder});
        const Run unpack = runOurs(self, {QStringLiteral("unpack"), ourArchive, out});
        std::printf("%lld GiB sparse file: pack %.1f s, peak +%.1f MiB; unpack %.1f s, peak +%.1f MiB\n",
            static_cast<long long>(bigGiB), pack.ms / 1000, pack.peakKiB / 1024.0, unpack.ms / 1000,
            unpack.peakKiB / 1024.0);
    }
    return 0;
}

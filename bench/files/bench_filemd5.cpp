// File MD5 throughput and memory against md5sum on the same file.
//   bench_filemd5 [size in MiB, default 1024] [folder, default the system temp folder]
// Targets: getBigFileMd5 at least 0.8x md5sum's throughput; its peak memory does not
// grow with the file size. Each measurement runs in a child process of its own, so
// the peak resident size it reports belongs to that one call. The file is read once
// beforehand so every contender starts with it in the page cache.
#include <ZrUtils/ZrFilePath.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sys/resource.h>
#include <vector>

namespace
{

constexpr int Runs = 3;

long peakKiB()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Child mode: one call, then "<hex digest> <ms> <peak KiB> <baseline KiB>".
int child(const char* which, const char* path)
{
    const QString file = QString::fromLocal8Bit(path);
    const long baseline = peakKiB();
    QElapsedTimer clock;
    clock.start();
    QByteArray hex;
    if (std::strcmp(which, "big") == 0)
        hex = getBigFileMd5(file).toHex();
    else
        hex = ZrUtils::ZrFilePath::GetFileMd5(file).toLatin1();
    const double ms = clock.nsecsElapsed() / 1e6;
    std::printf("%s %.1f %ld %ld\n", hex.constData(), ms, peakKiB(), baseline);
    return hex.isEmpty() ? 1 : 0;
}

struct Result {
    QByteArray digest;
    double ms = 0;
    long peakKiB = 0;
    long baselineKiB = 0;
};

Result runChild(const QString& self, const char* which, const QString& file)
{
    QProcess process;
    process.start(self, {QStringLiteral("--child"), QLatin1String(which), file});
    process.waitForFinished(-1);
    const QList<QByteArray> fields = process.readAllStandardOutput().trimmed().split(' ');
    Result result;
    if (fields.size() == 4) {
        result.digest = fields[0];
        result.ms = fields[1].toDouble();
        result.peakKiB = fields[2].toLong();
        result.baselineKiB = fields[3].toLong();
    }
    return result;
}

Result runMd5sum(const QString& file)
{
    QElapsedTimer clock;
    clock.start();
    QProcess process;
    process.start(QStringLiteral("md5sum"), {file});
    process.waitForFinished(-1);
    Result result;
    result.ms = clock.nsecsElapsed() / 1e6;
    result.digest = process.readAllStandardOutput().left(32);
    return result;
}

template<typename Body> Result median(Body body)
{
    std::vector<Result> results;
    for (int i = 0; i < Runs; ++i)
        results.push_back(body());
    std::sort(results.begin(), results.end(), [](const Result& a, const Result& b) { return a.ms < b.ms; });
    return results[results.size() / 2];
}

bool makeFile(const QString& path, qint64 mib)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // Incompressible-looking content from a cheap generator; MD5 cost does not depend on it.
    std::vector<quint64> block(1 << 17);
    quint64 state = 0x9e3779b97f4a7c15ull;
    for (qint64 i = 0; i < mib; ++i) {
        for (quint64& word : block) {
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            word = state;
        }
        if (file.write(reinterpret_cast<const char*>(block.data()), qint64(block.size() * 8))
            != qint64(block.size() * 8))
            return false;
    }
    return true;
}

void warm(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    std::vector<char> buffer(1 << 20);
    while (file.read(buffer.data(), qint64(buffer.size())) > 0) { }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--child") == 0) {
        QCoreApplication app(argc, argv);
        return child(argv[2], argv[3]);
    }
    QCoreApplication app(argc, argv);
    const qint64 mib = argc > 1 ? QByteArray(argv[1]).toLongLong() : 1024;
    QTemporaryDir dir(argc > 2 ? QString::fromLocal8Bit(argv[2]) + QStringLiteral("/zr-bench-XXXXXX")
                               : QDir::tempPath() + QStringLiteral("/zr-bench-XXXXXX"));
    const QString self = QCoreApplication::applicationFilePath();
    const QString big = dir.filePath(QStringLiteral("big.bin"));
    const QString small = dir.filePath(QStringLiteral("small.bin"));
    if (!dir.isValid() || !makeFile(big, mib) || !makeFile(small, 16)) {
        std::fprintf(stderr, "cannot write the test files\n");
        return 1;
    }

    std::printf("File MD5 of a %lld MiB file, median of %d runs, page cache warm\n\n", mib, Runs);
    warm(big);
    const Result reference = median([&] { return runMd5sum(big); });
    const Result chunked = median([&] { return runChild(self, "big", big); });
    const Result whole = runChild(self, "whole", big);
    const Result chunkedSmall = runChild(self, "big", small);
    const bool same = chunked.digest == reference.digest && whole.digest == reference.digest;

    const double bytes = double(mib) * 1024 * 1024;
    auto rate = [&](const Result& r) { return bytes / (1024.0 * 1024.0) / (r.ms / 1000.0); };
    std::printf("%-28s %10s %12s %14s\n", "", "ms", "MiB/s", "peak RSS KiB");
    std::printf("%-28s %10.0f %12.0f %14s\n", "md5sum", reference.ms, rate(reference), "-");
    std::printf("%-28s %10.0f %12.0f %14ld\n", "getBigFileMd5", chunked.ms, rate(chunked), chunked.peakKiB);
    std::printf(
        "%-28s %10.0f %12.0f %14ld\n", "GetFileMd5 (reads it whole)", whole.ms, rate(whole), whole.peakKiB);
    std::printf("%-28s %10s %12s %14ld\n", "getBigFileMd5, 16 MiB file", "", "", chunkedSmall.peakKiB);
    std::printf("\ngetBigFileMd5 / md5sum throughput: %.2fx (target >= 0.80x)\n", reference.ms / chunked.ms);
    std::printf(
        "getBigFileMd5 peak RSS above the process baseline: %ld KiB for %lld MiB, %ld KiB for 16 MiB\n",
        chunked.peakKiB - chunked.baselineKiB, mib, chunkedSmall.peakKiB - chunkedSmall.baselineKiB);
    std::printf("digests agree with md5sum: %s\n", same ? "yes" : "NO");
    return same ? 0 : 1;
}

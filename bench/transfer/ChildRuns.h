// What the transfer benchmarks share: each measured download runs in a child
// process of the benchmark, so that its time, CPU time and peak resident size are
// its own.
#ifndef ZRUTILS_BENCH_CHILDRUNS_H
#define ZRUTILS_BENCH_CHILDRUNS_H

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QList>
#include <QProcess>

#include <cstdio>

#include <sys/resource.h>

namespace BenchChild
{

// A field of /proc/self/status in KiB ("VmRSS", "VmHWM").
inline qint64 statusKiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(int(qstrlen(field)) + 1).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

// User and system CPU time of RUSAGE_SELF or RUSAGE_CHILDREN, in ms.
inline double cpuMs(int who)
{
    rusage usage {};
    getrusage(who, &usage);
    const auto ms = [](const timeval& t) { return double(t.tv_sec) * 1e3 + double(t.tv_usec) / 1e3; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

struct Run {
    double wallMs = 0; // of the whole process
    double cpuMs = 0; // of the whole process, user and system
    QList<QByteArray> fields; // what the child printed
    bool ok = false;
};

inline Run runProcess(const QString& program, const QStringList& arguments)
{
    QProcess process;
    QElapsedTimer timer;
    const double cpuBefore = cpuMs(RUSAGE_CHILDREN);
    timer.start();
    process.start(program, arguments);
    Run run;
    run.ok = process.waitForFinished(600000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0;
    run.wallMs = double(timer.nsecsElapsed()) / 1e6;
    run.cpuMs = cpuMs(RUSAGE_CHILDREN) - cpuBefore;
    run.fields = process.readAllStandardOutput().trimmed().split(' ');
    if (!run.ok)
        std::fprintf(stderr, "failed: %s %s\n%s\n", qPrintable(program),
            qPrintable(arguments.mid(0, 8).join(QLatin1Char(' '))),
            process.readAllStandardError().constData());
    return run;
}

// Empties the output folder and writes back dirty pages, so each run starts alike.
inline void clearFolder(const QString& dir)
{
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    QProcess::execute(QStringLiteral("sync"), {});
}

} // namespace BenchChild

#endif

#include "Tour.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <cstdio>

Tour::Tour() = default;

void Tour::section(const QString& title)
{
    std::printf("\n== %d. %s\n", ++m_section, qPrintable(title));
    std::fflush(stdout);
}

void Tour::say(const QString& text)
{
    std::printf("   %s\n", qPrintable(text));
    std::fflush(stdout);
}

bool Tour::check(bool ok, const QString& what)
{
    std::printf("   [%s] %s\n", ok ? "ok" : "FAILED", qPrintable(what));
    std::fflush(stdout);
    if (!ok)
        ++m_failures;
    return ok;
}

QString Tour::scratchPath(const QString& name) const
{
    return QDir(m_scratch.path()).filePath(name);
}

bool waitUntil(const std::function<bool()>& done, int limitMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < limitMs) {
        QEventLoop loop;
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return done();
}

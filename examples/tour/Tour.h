// The tour: a walk through the library for application developers. Every step
// runs against loopback servers the tour starts itself and prints what happened.
#ifndef ZRUTILS_TOUR_H
#define ZRUTILS_TOUR_H

#include <QString>
#include <QTemporaryDir>

#include <functional>

class Tour
{
public:
    Tour();

    // Starts a numbered section.
    void section(const QString& title);
    // Prints one line of narration.
    void say(const QString& text);
    // Prints the outcome of one check and counts failures.
    bool check(bool ok, const QString& what);

    // A path inside the tour's scratch folder (removed when the tour ends).
    QString scratchPath(const QString& name) const;
    int failures() const { return m_failures; }

private:
    QTemporaryDir m_scratch;
    int m_section = 0;
    int m_failures = 0;
};

// Lets the event loop run until @p done holds or @p limitMs have passed; whether it holds.
bool waitUntil(const std::function<bool()>& done, int limitMs);

// The steps, one per subsystem, in the order the tour runs them.
void tourLogging(Tour& tour);
void tourHttp(Tour& tour);
void tourDownloads(Tour& tour);
void tourLogService(Tour& tour);
void tourLogAdmin(Tour& tour);
void tourReporting(Tour& tour);
void tourReportingPrivacy(Tour& tour);
void tourSystem(Tour& tour);
void tourFiles(Tour& tour);
void tourCrypto(Tour& tour);

#endif

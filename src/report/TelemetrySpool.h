// The offline spool behind ReportSpool: telemetry events written to a journal on disk
// before they are sent, and sent one at a time, oldest first, by one thread.
//
// The journal is one JSON line per change: {"v":1,"id":N,...event...} when an event
// is spooled, {"v":1,"done":N} when it has been delivered, refused or dropped. A
// kill at any moment leaves a journal that reads back: a line cut short is set
// aside, and an event is sent again only when the kill came between its delivery
// and its "done" line, which is why only one is ever sent at a time.
#ifndef ZRUTILS_REPORT_TELEMETRYSPOOL_H
#define ZRUTILS_REPORT_TELEMETRYSPOOL_H

#include "report/TelemetryPost.h"

#include <ZrUtils/zrutils_export.h>

#include <QFile>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace ZrUtils
{
namespace Internal
{

class ZRUTILS_TESTS_EXPORT TelemetrySpool
{
public:
    static TelemetrySpool& instance();

    bool enable(const QString& folder, int maxEvents, qint64 maxBytes);
    void disable();
    bool enabled() const;
    QString filePath() const;

    // The credentials and endpoint every spooled event is sent with, from the last
    // configured report; events wait for them after a restart.
    void setDestination(const TelemetryDestination& destination);
    // Writes @p event to the journal and wakes the sender; false when the spool is off
    // or the journal cannot be written (the caller then posts it itself).
    bool add(const TelemetryEvent& event);

    void flush(); // tries now, whatever the back-off
    void clear();
    int pending() const;
    qint64 dropped() const;
    // Until nothing is pending and nothing is being sent, at most @p timeoutMs.
    bool waitIdle(int timeoutMs) const;
    // The process is exiting: no new post starts.
    void stopForExit();
    // Tests shorten the back-off.
    void setBackoff(std::chrono::milliseconds first, std::chrono::milliseconds longest);

private:
    struct Entry {
        quint64 id = 0;
        qint64 bytes = 0;
        TelemetryEvent event;
    };

    TelemetrySpool();
    void run();
    bool canSend() const;
    void load(); // with m_mutex held
    bool appendLine(const QByteArray& line);
    void markDone(quint64 id);
    void compact();
    void wake();

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_wake;
    mutable std::condition_variable m_idle;
    std::deque<Entry> m_pending;
    qint64 m_pendingBytes = 0;
    quint64 m_nextId = 1;
    quint64 m_doneLines = 0;
    qint64 m_dropped = 0;
    int m_maxEvents = 0;
    qint64 m_maxBytes = 0;
    bool m_enabled = false;
    bool m_sending = false;
    bool m_stopping = false;
    bool m_flushNow = false;
    bool m_saidUnwritable = false;
    QString m_path;
    QFile m_journal;
    TelemetryDestination m_destination;
    std::chrono::milliseconds m_firstBackoff {1000};
    std::chrono::milliseconds m_longestBackoff {300000};
    std::chrono::milliseconds m_backoff {0};
    std::chrono::steady_clock::time_point m_retryAt;
    std::thread m_thread;
};

} // namespace Internal
} // namespace ZrUtils

#endif

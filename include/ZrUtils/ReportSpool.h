#ifndef ZRUTILS_REPORTSPOOL_H
#define ZRUTILS_REPORTSPOOL_H

#include <ZrUtils/zrutils_export.h>

#include <QString>

namespace ZrUtils
{

/**
 * An offline spool for the application's own telemetry (CZrReport and
 * CReportManager::SendZrReport()). Off until the application turns it on; while off,
 * every event is posted on a thread of its own and lost when the post fails.
 *
 * While on, each event is first written to "telemetry-spool.jsonl" and then sent by
 * one thread, one event at a time, oldest first. An event that gets no answer (no
 * connection, a reset, a time-out) or a 5xx answer stays spooled and is tried again
 * after a back-off (1 s, doubling up to 5 minutes) or at once on flush(); any other
 * refusal (a wrong key, say) would fail again and is dropped. The spool survives a
 * crash or a restart: what was not delivered is sent once the application configures
 * its report again, and an event is sent twice only if the process was killed while
 * that event was being delivered. It is bounded in events and bytes; the oldest
 * events give way first. Spooled events are sent with the endpoint and keys of the
 * last configured report, never written to disk, and nothing is sent while
 * ReportConsent denies it. Every function is thread-safe.
 */
class ZRUTILS_EXPORT ReportSpool
{
public:
    /**
     * Turns the spool on in @p folder (the application's data folder when empty),
     * keeping at most @p maxEvents events and @p maxBytes bytes. Events spooled by an
     * earlier run are read back. False when the folder or the file cannot be written;
     * the spool then stays off.
     */
    static bool enable(const QString& folder = QString(), int maxEvents = 10000, qint64 maxBytes = 16 << 20);
    /** Turns it off: nothing more is spooled or sent; what is on disk stays for the next enable(). */
    static void disable();
    static bool isEnabled();
    /** The spool file; empty while the spool is off. */
    static QString filePath();
    /** Events waiting to be delivered; 0 while the spool is off. */
    static int pendingCount();
    /** Events dropped to keep within the bounds since the process started. */
    static qint64 droppedCount();
    /** Tries to send the spooled events now, whatever the back-off. */
    static void flush();
    /** Forgets every spooled event. */
    static void clear();
};

} // namespace ZrUtils

#endif

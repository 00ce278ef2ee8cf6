#ifndef ZRUTILS_REPORTAUDIT_H
#define ZRUTILS_REPORTAUDIT_H

#include <ZrUtils/zrutils_export.h>

#include <QJsonObject>
#include <QList>
#include <QString>

namespace ZrUtils
{

/**
 * A local record of every usage report that leaves the process, for the application
 * to show its user. Off until the application turns it on.
 *
 * Each report sent to GA4 (CGoogleAnalytics, and so CGaReport and CReportManager) or
 * to the log service (CZrReport) appends one JSON line to "report-audit.jsonl":
 * {"v": 1, "time": UTC ISO 8601 with milliseconds, "channel": "ga4" or "logservice",
 * "host": destination host[:port], "event": event name, "fields": what was sent,
 * "outcome": {"delivered": true, "status": HTTP status} or {"delivered": false,
 * "status": HTTP status or 0, "error": code, "message": text}}. API secrets, access
 * keys, security tokens and signatures are never written, nor any URL that holds one.
 *
 * Lines are written by a thread of the audit log's own, so a report never waits on
 * the disk; if the file cannot be written the report still goes out, and Qt's log
 * says so once. The file is renamed to "report-audit.1.jsonl" when it reaches its
 * size limit, older generations moving up, and only a few are kept.
 */
class ZRUTILS_EXPORT ReportAudit
{
public:
    /**
     * Turns the audit log on in @p folder (the application's data folder when empty),
     * rolling the file at @p maxBytes and keeping @p generations older files. False
     * when the folder cannot be created; the log then stays off.
     */
    static bool enable(const QString& folder = QString(), qint64 maxBytes = 1 << 20, int generations = 3);
    /** Turns it off; lines already queued are still written. */
    static void disable();
    static bool isEnabled();
    /** The file being written; empty while the log is off. */
    static QString filePath();
    /**
     * Every entry still kept, oldest first, once the lines queued so far are written.
     * Lines that cannot be read (cut short, damaged, from a newer version) are left
     * out; empty when the log is off or holds nothing.
     */
    static QList<QJsonObject> entries();
    /** Waits until every queued line is written, at most @p timeoutMs; false on time-out. */
    static bool waitWritten(int timeoutMs = 5000);
};

} // namespace ZrUtils

#endif

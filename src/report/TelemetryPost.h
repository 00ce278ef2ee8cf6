// One telemetry event posted to the log service: shared by the detached workers of
// CZrReport and by the spool's sender, and reported to the audit log.
#ifndef ZRUTILS_REPORT_TELEMETRYPOST_H
#define ZRUTILS_REPORT_TELEMETRYPOST_H

#include <QPair>
#include <QString>
#include <QVector>

namespace ZrUtils
{
namespace Internal
{

struct TelemetryEvent {
    QString project;
    QString logstore;
    QString source;
    QString topic; // the event
    quint32 time = 0; // seconds since the epoch, when it was reported
    QVector<QPair<QString, QString>> contents;
};

// Held in memory only: never written to the spool or anywhere else.
struct TelemetryDestination {
    QString endpoint;
    QString accessKeyId;
    QString accessKey;
    bool https = false; // plain HTTP unless the report asked for HTTPS
    QString caBundle; // with https: the only CAs trusted; empty for the system store
    bool isValid() const { return !endpoint.isEmpty() && !accessKeyId.isEmpty() && !accessKey.isEmpty(); }
};

enum class PostOutcome {
    Delivered,
    Retry, // no answer (refused, reset, timed out) or a 5xx: worth trying again later
    Refused, // any other refusal: it would fail again
};

// Posts @p event, writes the debug line of a failure and the audit line, and says how
// it went. Never throws.
PostOutcome postTelemetry(const TelemetryEvent& event, const TelemetryDestination& destination);

} // namespace Internal
} // namespace ZrUtils

#endif

// What the reporting classes hand to the audit log after each post.
#ifndef ZRUTILS_REPORT_AUDITTRAIL_H
#define ZRUTILS_REPORT_AUDITTRAIL_H

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace ZrUtils
{
namespace Internal
{

struct AuditRecord {
    QString channel; // "ga4" or "logservice"
    QString host;
    QString event;
    QJsonObject fields;
    bool delivered = false;
    int status = 0;
    QString errorCode;
    QString errorMessage;
    // Replaced by "***" wherever they occur: a service may echo a key in its message.
    QStringList secrets;
};

bool auditEnabled();
// Queues the line and returns at once; nothing happens while the log is off.
void audit(const AuditRecord& record);

} // namespace Internal
} // namespace ZrUtils

#endif

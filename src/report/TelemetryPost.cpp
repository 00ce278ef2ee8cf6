#include "report/TelemetryPost.h"

#include "report/AuditTrail.h"

#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogConstants.h>

#include <QFile>
#include <QJsonObject>
#include <QtDebug>

#include <string>
#include <vector>

namespace ZrUtils
{
namespace Internal
{

namespace
{

constexpr int32_t PostTimeoutSeconds = 20;

std::string utf8(const QString& text)
{
    return text.toUtf8().toStdString();
}

bool worthRetrying(const cloudlog_sdk_v6::LOGException& error)
{
    if (error.GetHttpCode() >= 500)
        return true;
    return error.GetHttpCode() == 0
        && (error.GetErrorCode() == cloudlog_sdk_v6::LOGE_CLIENT_NETWORK_ERROR
            || error.GetErrorCode() == cloudlog_sdk_v6::LOGE_REQUEST_TIMEOUT);
}

void auditPost(const TelemetryEvent& event, const TelemetryDestination& destination, bool delivered,
    int status, const QString& code, const QString& message)
{
    if (!auditEnabled())
        return;
    QJsonObject contents;
    for (const auto& pair : event.contents)
        contents.insert(pair.first, pair.second);
    AuditRecord record;
    record.channel = QStringLiteral("logservice");
    record.host = destination.endpoint;
    record.event = event.topic;
    record.fields = QJsonObject {{QStringLiteral("project"), event.project},
        {QStringLiteral("logstore"), event.logstore}, {QStringLiteral("source"), event.source},
        {QStringLiteral("topic"), event.topic}, {QStringLiteral("time"), qint64(event.time)},
        {QStringLiteral("contents"), contents}};
    record.delivered = delivered;
    record.status = status;
    record.errorCode = code;
    record.errorMessage = message;
    record.secrets = QStringList {destination.accessKey, destination.accessKeyId};
    audit(record);
}

} // namespace

PostOutcome postTelemetry(const TelemetryEvent& event, const TelemetryDestination& destination)
{
    try {
        cloudlog_sdk_v6::LOGClient client(utf8(destination.endpoint), utf8(destination.accessKeyId),
            utf8(destination.accessKey), PostTimeoutSeconds, utf8(event.source), false);
        if (destination.https) {
            cloudlog_sdk_v6::LogTransportSecurity security;
            security.https = true;
            security.caBundle = QFile::encodeName(destination.caBundle).toStdString();
            client.SetTransportSecurity(security);
        }
        cloudlog_sdk_v6::LogItem item;
        item.timestamp = event.time;
        item.source = utf8(event.source);
        item.topic = utf8(event.topic);
        for (const auto& pair : event.contents)
            item.contents.emplace_back(utf8(pair.first), utf8(pair.second));
        const std::vector<cloudlog_sdk_v6::LogItem> items {item};
        client.PostLogStoreLogs(
            utf8(event.project), utf8(event.logstore), utf8(event.topic), items, std::string());
        auditPost(event, destination, true, 200, QString(), QString());
        return PostOutcome::Delivered;
    } catch (const cloudlog_sdk_v6::LOGException& error) {
        // A service may quote the key or the signature back: neither goes into the log.
        // The key id stays: it is no secret, and it is what tells which key was refused.
        const QStringList secrets {destination.accessKey};
        const QString code = withoutSecrets(QString::fromUtf8(error.GetErrorCode().c_str()), secrets);
        const QString message = withoutSecrets(QString::fromUtf8(error.GetErrorMessage().c_str()), secrets);
        qDebug() << code << ":" << message;
        auditPost(event, destination, false, error.GetHttpCode(), code, message);
        return worthRetrying(error) ? PostOutcome::Retry : PostOutcome::Refused;
    }
}

} // namespace Internal
} // namespace ZrUtils

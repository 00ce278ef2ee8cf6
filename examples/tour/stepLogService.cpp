#include "Tour.h"

#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>

#include "LoopbackLogService.h"

using namespace cloudlog_sdk_v6;

void tourLogService(Tour& tour)
{
    tour.section(QStringLiteral("Log-service client: one signed, LZ4-compressed log post"));

    // The loopback service checks the signature, the body hash and size with code
    // of its own and decodes the log group it receives.
    ZrLoopback::LoopbackLogService service("tour-key-id", "tour-key-secret");
    const std::string endpoint = service.endpoint().toStdString();
    tour.say(QStringLiteral("log service listening at %1").arg(QString::fromStdString(endpoint)));

    LOGClient client(endpoint, "tour-key-id", "tour-key-secret", 10, "192.0.2.7", true);
    LogItem item;
    item.timestamp = 1700000000;
    item.contents = {{"event", "tour_started"}, {"version", "1.0.0"}, {"city", "Z\xc3\xbcrich"}};
    try {
        const PostLogStoreLogsResponse response
            = client.PostLogStoreLogs("tour-project", "app-events", "tour", {item}, "");
        tour.say(QStringLiteral("posted: status %1, request id %2")
                     .arg(response.statusCode)
                     .arg(QString::fromStdString(response.requestId)));
    } catch (const LOGException& e) {
        tour.say(
            QStringLiteral("post failed: %1 %2")
                .arg(QString::fromStdString(e.GetErrorCode()), QString::fromStdString(e.GetErrorMessage())));
    }

    const QList<ZrLoopback::ReceivedLogGroup> received = service.received();
    tour.check(
        received.size() == 1, QStringLiteral("the service accepted the signature and stored one log group"));
    if (received.isEmpty())
        return;
    const ZrLoopback::ReceivedLogGroup& group = received.first();
    tour.say(QStringLiteral("received %1 bytes on the wire (%2 uncompressed) for project %3, log store %4")
                 .arg(group.request.body.size())
                 .arg(group.rawBody.size())
                 .arg(QString::fromUtf8(group.project), QString::fromUtf8(group.logstore)));
    tour.say(QStringLiteral("topic %1, source %2")
                 .arg(QString::fromUtf8(group.topic), QString::fromUtf8(group.source)));
    for (const ZrLoopback::ReceivedLog& log : group.logs) {
        tour.say(QStringLiteral("log at %1:").arg(log.time));
        for (const auto& content : log.contents)
            tour.say(QStringLiteral("  %1 = %2")
                         .arg(QString::fromUtf8(content.first), QString::fromUtf8(content.second)));
    }
    tour.check(group.logs.size() == 1 && group.logs.first().contents.size() == 3 && group.compressed,
        QStringLiteral("one log with its three contents arrived, LZ4-compressed"));

    // A wrong secret is refused by the service and comes back as a LOGException.
    client.SetAccessKey("wrong-secret");
    try {
        client.PostLogStoreLogs("tour-project", "app-events", "tour", {item}, "");
        tour.check(false, QStringLiteral("a post signed with a wrong secret is refused"));
    } catch (const LOGException& e) {
        tour.say(QStringLiteral("wrong secret: %1 (HTTP %2): %3")
                     .arg(QString::fromStdString(e.GetErrorCode()))
                     .arg(e.GetHttpCode())
                     .arg(QString::fromStdString(e.GetErrorMessage())));
        tour.check(e.GetErrorCode() == "SignatureNotMatch" && e.GetHttpCode() == 401,
            QStringLiteral("a post signed with a wrong secret is refused"));
    }
}

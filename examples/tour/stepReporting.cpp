#include "Tour.h"

#include "LoopbackHttpServer.h"
#include "LoopbackLogService.h"

#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>

#include <functional>

using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using ZrUtils::CGoogleAnalytics;
using ZrUtils::CReportManager;

namespace
{

QString gaEventText(const HttpRequest& request)
{
    const QJsonObject body = QJsonDocument::fromJson(request.body).object();
    const QJsonObject event = body.value(QLatin1String("events")).toArray().at(0).toObject();
    const QJsonObject params = event.value(QLatin1String("params")).toObject();
    return QStringLiteral("client_id %1, event %2, event_category \"%3\", event_label \"%4\"")
        .arg(body.value(QLatin1String("client_id")).toString(), event.value(QLatin1String("name")).toString(),
            params.value(QLatin1String("event_category")).toString(),
            params.value(QLatin1String("event_label")).toString());
}

} // namespace

void tourReporting(Tour& tour)
{
    tour.section(
        QStringLiteral("Reporting: GA4 events from a catalogue, and the application's own telemetry"));

    // A GA4 collection endpoint on loopback; the application points the library at it.
    ZrLoopback::LoopbackHttpServer collector(
        [](const HttpRequest&) { return HttpResponse(204, QByteArray()); });
    CGoogleAnalytics::SetCollectionHost(QStringLiteral("http://127.0.0.1:%1").arg(collector.port()));
    tour.say(QStringLiteral("GA4 events go to %1").arg(CGoogleAnalytics::CollectionUrl()));

    const QString catalogue = tour.scratchPath(QStringLiteral("ga-events.json"));
    QFile file(catalogue);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(R"([{"event_key": "open_file", "event_name": "file_open",
                        "event_category": "files", "event_label": "toolbar"}])");
        file.close();
    }
    CReportManager* reports = CReportManager::getInstance();
    reports->InitGaData(catalogue, QStringLiteral("555.1700000000"), QStringLiteral("G-TOUR0001"),
        QStringLiteral("tour-secret"));
    tour.say(QStringLiteral("the catalogue maps \"open_file\" to %1")
                 .arg(QString::fromUtf8(QJsonDocument(reports->GetGaData(QStringLiteral("open_file")))
                                            .toJson(QJsonDocument::Compact))));

    reports->SendGaReport(QStringLiteral("open_file"), QString(), true);
    reports->SendGaReport(QStringLiteral("open_file"), QStringLiteral("context-menu"), false);
    reports->SendGaReport(QStringLiteral("not_in_catalogue"), QString(), false);
    waitUntil([&] { return collector.requestCount() >= 2; }, 5000);
    const QList<HttpRequest> gaRequests = collector.requests();
    for (const HttpRequest& request : gaRequests) {
        tour.say(QStringLiteral("collector got %1 %2?%3")
                     .arg(QString::fromLatin1(request.method), QString::fromLatin1(request.path),
                         QString::fromLatin1(request.query)));
        tour.say(QStringLiteral("  %1").arg(gaEventText(request)));
    }
    tour.check(gaRequests.size() == 2 && gaEventText(gaRequests.at(0)).endsWith(QLatin1String("\"toolbar\""))
            && gaEventText(gaRequests.value(1)).endsWith(QLatin1String("\"context-menu\"")),
        QStringLiteral(
            "two events arrived (catalogue label, then the caller's); the unknown key sent nothing"));

    // The telemetry store, played by a loopback log service that checks the signature.
    ZrLoopback::LoopbackLogService service("tour-key-id", "tour-key-secret");
    reports->InitZrData(QStringLiteral("tour-client"), QString::fromLatin1(service.endpoint()),
        QStringLiteral("tour-key-id"), QStringLiteral("tour-key-secret"), QStringLiteral("desktop"),
        QStringLiteral("usage"), {{"version", "1.0.0"}, {"channel", "tour"}, {"screens", 2}});
    tour.say(QStringLiteral("telemetry goes to project \"desktop\", log store \"usage\" at %1")
                 .arg(QString::fromLatin1(service.endpoint())));
    reports->SendZrReport(QStringLiteral("app_start"));
    const bool arrived = waitUntil([&] { return service.receivedCount() >= 1; }, 10000);
    if (arrived) {
        const ZrLoopback::ReceivedLogGroup group = service.received().at(0);
        tour.say(QStringLiteral("log service got POST %1: topic \"%2\", source \"%3\"")
                     .arg(QString::fromLatin1(group.request.path), QString::fromUtf8(group.topic),
                         QString::fromUtf8(group.source)));
        for (const ZrLoopback::ReceivedLog& log : group.logs) {
            tour.say(QStringLiteral("  log item, time %1:").arg(log.time));
            for (const auto& pair : log.contents)
                tour.say(QStringLiteral("    %1 = \"%2\"")
                             .arg(QString::fromUtf8(pair.first), QString::fromUtf8(pair.second)));
        }
    }
    tour.check(arrived && service.received().at(0).topic == "app_start",
        QStringLiteral(
            "the telemetry event arrived signed, with sorted string fields (the number went out empty)"));

    CGoogleAnalytics::SetCollectionHost(QString());
}

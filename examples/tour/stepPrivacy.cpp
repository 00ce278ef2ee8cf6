#include "Tour.h"

#include "LoopbackHttpServer.h"
#include "LoopbackLogService.h"

#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>
#include <ZrUtils/ReportAudit.h>
#include <ZrUtils/ReportConsent.h>
#include <ZrUtils/ReportSpool.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QTimer>

#include <functional>

using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using namespace ZrUtils;

void tourReportingPrivacy(Tour& tour)
{
    tour.section(QStringLiteral("Reporting the user can see and stop: consent, audit log, offline spool"));

    ZrLoopback::LoopbackHttpServer collector(
        [](const HttpRequest&) { return HttpResponse(204, QByteArray()); });
    CGoogleAnalytics::SetCollectionHost(QStringLiteral("http://127.0.0.1:%1").arg(collector.port()));
    ZrLoopback::LoopbackLogService service("tour-key-id", "tour-key-secret");
    const QString catalogue = tour.scratchPath(QStringLiteral("privacy-events.json"));
    QFile file(catalogue);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(R"([{"event_key": "export", "event_name": "file_export", "event_category": "files",
                        "event_label": "menu"}])");
        file.close();
    }
    CReportManager* reports = CReportManager::getInstance();
    reports->InitGaData(catalogue, QStringLiteral("555.1700000000"), QStringLiteral("G-TOUR0001"),
        QStringLiteral("tour-secret"));
    reports->InitZrData(QStringLiteral("tour-client"), QString::fromLatin1(service.endpoint()),
        QStringLiteral("tour-key-id"), QStringLiteral("tour-key-secret"), QStringLiteral("desktop"),
        QStringLiteral("usage"), {{"version", "1.0.0"}});

    // 1. The user says no: nothing leaves, by any path.
    ReportConsent::setState(ReportConsent::Denied);
    reports->SendGaReport(QStringLiteral("export"), QString(), true);
    reports->SendGaReport(QStringLiteral("export"), QString(), false);
    reports->SendZrReport(QStringLiteral("denied_event"));
    waitUntil([] { return false; }, 300); // anything sent would have arrived by now
    tour.say(QStringLiteral("consent denied: the collector got %1 requests, the log service %2")
                 .arg(collector.requestCount())
                 .arg(service.http().requestCount()));
    tour.check(collector.requestCount() == 0 && service.http().requestCount() == 0,
        QStringLiteral("while consent is denied, no report leaves the process"));
    ReportConsent::setState(ReportConsent::Allowed);

    // 2. The audit log: one line per report that left, without the secrets.
    ReportAudit::enable(tour.scratchPath(QStringLiteral("audit")));
    reports->SendGaReport(QStringLiteral("export"), QString(), true);
    reports->SendZrReport(QStringLiteral("export_done"));
    waitUntil([&] { return service.receivedCount() >= 1; }, 10000);
    QElapsedTimer clock;
    clock.start();
    QList<QJsonObject> entries;
    while (entries.size() < 2 && clock.elapsed() < 10000)
        entries = ReportAudit::entries();
    for (const QJsonObject& entry : entries)
        tour.say(QStringLiteral("audit: %1")
                     .arg(QString::fromUtf8(QJsonDocument(entry).toJson(QJsonDocument::Compact))));
    QFile audit(ReportAudit::filePath());
    const QByteArray written = audit.open(QIODevice::ReadOnly) ? audit.readAll() : QByteArray();
    tour.check(
        entries.size() == 2 && !written.contains("tour-secret") && !written.contains("tour-key-secret"),
        QStringLiteral("the audit log shows both reports with their outcome, and no secret"));
    ReportAudit::disable();

    // 3. The spool: the service is away, the events wait on disk, then arrive in order.
    service.clearReceived();
    ReportSpool::enable(tour.scratchPath(QStringLiteral("spool")));
    service.setOverride([](const HttpRequest&) -> std::optional<HttpResponse> {
        return HttpResponse(503, R"({"errorCode":"ServerBusy","errorMessage":"down for the tour"})");
    });
    for (const char* event : {"offline_1", "offline_2", "offline_3"})
        reports->SendZrReport(QLatin1String(event));
    waitUntil([&] { return service.http().requestCount() >= 1; }, 5000);
    tour.say(QStringLiteral("service answers 503: %1 events wait in %2")
                 .arg(ReportSpool::pendingCount())
                 .arg(ReportSpool::filePath()));
    service.setOverride(nullptr);
    ReportSpool::flush();
    waitUntil([&] { return ReportSpool::pendingCount() == 0 && service.receivedCount() == 3; }, 15000);
    QStringList topics;
    for (const ZrLoopback::ReceivedLogGroup& group : service.received())
        topics.append(QString::fromUtf8(group.topic));
    tour.say(QStringLiteral("service back: arrived %1").arg(topics.join(QStringLiteral(", "))));
    tour.check(topics == QStringList {"offline_1", "offline_2", "offline_3"}
            && QFile(ReportSpool::filePath()).size() == 0,
        QStringLiteral("the spooled events arrived once each, in order, and the spool is empty"));
    ReportSpool::disable();
    CGoogleAnalytics::SetCollectionHost(QString());
}

// A GA4 collection endpoint on 127.0.0.1 for the reporting tests: only "POST /mp/collect"
// with a JSON body of exactly the library's shape (client_id, one event, exactly the two
// string params) gets 204, anything else 400. The measurement id picks a fault:
// "status-<n>" answers <n> (3xx with a location that answers 204), "slow" answers after
// 11 s, "hang" never answers.
#ifndef ZRUTILS_TESTS_GA4COLLECTOR_H
#define ZRUTILS_TESTS_GA4COLLECTOR_H

#include "LoopbackHttpServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

struct Ga4Event {
    QString measurementId, apiSecret, clientId, name, category, label;
    bool wellFormed = false;

    // The secret is everything after "&api_secret=", so a split query shows as built.
    explicit Ga4Event(const ZrLoopback::HttpRequest& request)
    {
        const QString query = QString::fromUtf8(request.query);
        const int secretAt = query.indexOf("&api_secret=");
        measurementId = query.mid(15, secretAt - 15);
        apiSecret = query.mid(secretAt + 12);
        const QJsonObject body = QJsonDocument::fromJson(request.body).object();
        const QJsonValue event = body["events"][0];
        clientId = body["client_id"].toString();
        name = event["name"].toString();
        category = event["params"]["event_category"].toString();
        label = event["params"]["event_label"].toString();
        // Rebuilt from the strings read: any extra, missing or non-string member differs.
        const QJsonObject params {{"event_category", category}, {"event_label", label}};
        const QJsonArray events {QJsonObject {{"name", name}, {"params", params}}};
        wellFormed = request.method == "POST" && request.path == "/mp/collect"
            && request.header("Content-Type") == "application/json" && query.startsWith("measurement_id=")
            && secretAt > 0 && body == QJsonObject {{"client_id", clientId}, {"events", events}};
    }
};

class Ga4Collector : public ZrLoopback::LoopbackHttpServer
{
public:
    Ga4Collector()
        : LoopbackHttpServer(&Ga4Collector::collect)
    {
    }
    // For CGoogleAnalytics::SetCollectionHost().
    QString host() const { return QStringLiteral("http://127.0.0.1:%1").arg(port()); }

private:
    static ZrLoopback::HttpResponse collect(const ZrLoopback::HttpRequest& request)
    {
        using ZrLoopback::HttpResponse;
        const Ga4Event event(request);
        const QString id = event.measurementId;
        if (!event.wellFormed)
            return HttpResponse(400, "not a collection request", "text/plain");
        if (id.startsWith("status-")) {
            HttpResponse response(id.mid(7).toInt(), "says " + id.toUtf8());
            if (response.status / 100 == 3) // to a collection request that succeeds
                response.withHeader("Location", "/mp/collect?measurement_id=moved&api_secret=s");
            return response;
        }
        HttpResponse response(204, QByteArray());
        response.delayMs = id == "slow" ? 11000 : 0;
        response.fault = id == "hang" ? HttpResponse::Fault::NeverAnswer : HttpResponse::Fault::None;
        return response;
    }
};

#endif

// A GA4 collection endpoint on 127.0.0.1 for the reporting tests. It accepts only
// "POST /mp/collect" with a JSON body of exactly the shape the library sends
// (client_id, one event, exactly the two string params) and answers 204; anything
// else gets 400. The measurement id picks a fault: "status-<n>" answers <n>, "slow"
// answers after 11 s, "hang" never answers.
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
        const int secretAt = query.indexOf(QLatin1String("&api_secret="));
        measurementId = query.mid(15, secretAt - 15);
        apiSecret = query.mid(secretAt + 12);
        const QJsonObject body = QJsonDocument::fromJson(request.body).object();
        const QJsonObject event = body[QLatin1String("events")].toArray().at(0).toObject();
        const QJsonObject params = event[QLatin1String("params")].toObject();
        clientId = body[QLatin1String("client_id")].toString();
        name = event[QLatin1String("name")].toString();
        category = params[QLatin1String("event_category")].toString();
        label = params[QLatin1String("event_label")].toString();
        // Rebuilt from the strings read: any extra, missing or non-string member differs.
        const QJsonObject rebuilt {{"client_id", clientId},
            {"events",
                QJsonArray {QJsonObject {{"name", name},
                    {"params", QJsonObject {{"event_category", category}, {"event_label", label}}}}}}};
        wellFormed = request.method == "POST" && request.path == "/mp/collect"
            && request.header("Content-Type") == "application/json"
            && query.startsWith(QLatin1String("measurement_id=")) && secretAt > 0 && body == rebuilt;
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
    QList<Ga4Event> events() const
    {
        QList<Ga4Event> result;
        for (const ZrLoopback::HttpRequest& request : requests())
            result.append(Ga4Event(request));
        return result;
    }

private:
    static ZrLoopback::HttpResponse collect(const ZrLoopback::HttpRequest& request)
    {
        using ZrLoopback::HttpResponse;
        const Ga4Event event(request);
        if (!event.wellFormed)
            return HttpResponse(400, "not a collection request", "text/plain");
        HttpResponse response(204, QByteArray());
        if (event.measurementId.startsWith(QLatin1String("status-")))
            response
                = HttpResponse(event.measurementId.mid(7).toInt(), "says " + event.measurementId.toUtf8());
        else if (event.measurementId == QLatin1String("slow"))
            response.delayMs = 11000;
        else if (event.measurementId == QLatin1String("hang"))
            response.fault = HttpResponse::Fault::NeverAnswer;
        return response;
    }
};

#endif

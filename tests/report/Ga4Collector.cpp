#include "Ga4Collector.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrlQuery>

using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;

namespace
{

bool hasExactKeys(const QJsonObject& object, QStringList keys)
{
    QStringList present = object.keys();
    keys.sort();
    present.sort();
    return present == keys;
}

HttpResponse collect(const HttpRequest& request)
{
    const QString why = Ga4Collector::verdict(request);
    if (!why.isEmpty())
        return HttpResponse(400, why.toUtf8(), "text/plain");
    const QString id = Ga4Collector::parse(request).measurementId;
    HttpResponse response(204, QByteArray());
    if (id.startsWith(QLatin1String("status-")))
        response = HttpResponse(id.mid(7).toInt(), "collector says " + id.mid(7).toUtf8(), "text/plain");
    else if (id == QLatin1String("slow"))
        response.delayMs = 11000;
    else if (id == QLatin1String("hang"))
        response.fault = HttpResponse::Fault::NeverAnswer;
    return response;
}

} // namespace

Ga4Collector::Ga4Collector()
    : m_server(collect)
{
}

QString Ga4Collector::host() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_server.port());
}

QString Ga4Collector::verdict(const HttpRequest& request)
{
    if (request.method != "POST" || request.path != "/mp/collect")
        return QStringLiteral("not POST /mp/collect");
    if (request.header("Content-Type") != "application/json")
        return QStringLiteral("content type is not application/json");
    if (!request.query.startsWith("measurement_id=") || !request.query.contains("&api_secret="))
        return QStringLiteral("query lacks measurement_id or api_secret");
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(request.body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return QStringLiteral("body is not a JSON object");
    const QJsonObject body = document.object();
    if (!hasExactKeys(body, {QStringLiteral("client_id"), QStringLiteral("events")})
        || !body.value(QLatin1String("client_id")).isString())
        return QStringLiteral("body members are not exactly client_id and events");
    const QJsonArray events = body.value(QLatin1String("events")).toArray();
    if (events.size() != 1 || !events.at(0).isObject())
        return QStringLiteral("not exactly one event");
    const QJsonObject event = events.at(0).toObject();
    if (!hasExactKeys(event, {QStringLiteral("name"), QStringLiteral("params")})
        || !event.value(QLatin1String("name")).isString())
        return QStringLiteral("event members are not exactly name and params");
    const QJsonObject params = event.value(QLatin1String("params")).toObject();
    if (!hasExactKeys(params, {QStringLiteral("event_category"), QStringLiteral("event_label")})
        || !params.value(QLatin1String("event_category")).isString()
        || !params.value(QLatin1String("event_label")).isString())
        return QStringLiteral("params are not exactly the two strings");
    return QString();
}

Ga4Event Ga4Collector::parse(const HttpRequest& request)
{
    Ga4Event event;
    event.query = QString::fromUtf8(request.query);
    // The secret is everything after "&api_secret=", so a split query shows as it was built.
    const int secretAt = event.query.indexOf(QLatin1String("&api_secret="));
    event.measurementId = event.query.mid(15, secretAt - 15);
    event.apiSecret = event.query.mid(secretAt + 12);
    const QJsonObject body = QJsonDocument::fromJson(request.body).object();
    const QJsonObject first = body.value(QLatin1String("events")).toArray().at(0).toObject();
    const QJsonObject params = first.value(QLatin1String("params")).toObject();
    event.clientId = body.value(QLatin1String("client_id")).toString();
    event.name = first.value(QLatin1String("name")).toString();
    event.category = params.value(QLatin1String("event_category")).toString();
    event.label = params.value(QLatin1String("event_label")).toString();
    return event;
}

QList<Ga4Event> Ga4Collector::events() const
{
    QList<Ga4Event> result;
    for (const HttpRequest& request : m_server.requests()) {
        if (verdict(request).isEmpty())
            result.append(parse(request));
    }
    return result;
}

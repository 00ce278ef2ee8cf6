#include "Tour.h"

#include "LoopbackHttpServer.h"

#include <ZrUtils/ZrHttpRequest.h>

#include <QEventLoop>
#include <QJsonDocument>
#include <QTimer>

using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using ZrUtils::ZrHttpRequest;

namespace
{

// The application's web API, played on loopback: echoes what it received.
HttpResponse webApi(const HttpRequest& request)
{
    QJsonObject echo {{"method", QString::fromLatin1(request.method)},
        {"path", QString::fromLatin1(request.path)},
        {"x-sign", QString::fromLatin1(request.header("X-Sign"))}, {"body", QString::fromUtf8(request.body)}};
    return HttpResponse(request.path == "/missing" ? 404 : 200,
        QJsonDocument(echo).toJson(QJsonDocument::Compact), "application/json");
}

// Runs an Async request and waits for its one outcome signal.
QString awaitOutcome(ZrHttpRequest& request, const std::function<void()>& start)
{
    QString outcome = QStringLiteral("no outcome");
    QEventLoop loop;
    QObject::connect(
        &request, &ZrHttpRequest::SignalRequestResult, &loop, [&](const QByteArray& body, int code) {
            outcome = QStringLiteral("result %1: %2").arg(code).arg(QString::fromUtf8(body));
            loop.quit();
        });
    QObject::connect(&request, &ZrHttpRequest::SignalRequestTimeout, &loop, [&] {
        outcome = QStringLiteral("timeout");
        loop.quit();
    });
    QObject::connect(&request, &ZrHttpRequest::SignalRequestCancel, &loop, [&] {
        outcome = QStringLiteral("cancel");
        loop.quit();
    });
    QTimer::singleShot(15000, &loop, &QEventLoop::quit);
    start();
    loop.exec();
    request.disconnect(&loop);
    return outcome;
}

} // namespace

void tourHttp(Tour& tour)
{
    tour.section(QStringLiteral("JSON over HTTP, signed"));
    ZrLoopback::LoopbackHttpServer server(webApi);
    tour.say(QStringLiteral("the web API listens on %1").arg(server.url().toString()));

    const QJsonObject params {{"uid", "42"}, {"ts", 17}, {"vip", false}};
    const QString signature = ZrHttpRequest::SignObject(params, QStringLiteral("k3y"));
    tour.say(QStringLiteral("SignObject(%1, \"k3y\") = %2")
                 .arg(QString::fromUtf8(QJsonDocument(params).toJson(QJsonDocument::Compact)), signature));
    tour.check(signature == ZrHttpRequest::GetStringMd5(QStringLiteral("ts=17&uid=42&vip=falsek3y")),
        QStringLiteral("the signature is the MD5 of \"ts=17&uid=42&vip=falsek3y\""));

    ZrHttpRequest request;
    QByteArray reply;
    int code = request.StartGetRequestSync(server.url(QStringLiteral("/profile")), reply);
    tour.say(QStringLiteral("blocking GET /profile -> %1 %2").arg(code).arg(QString::fromUtf8(reply)));
    tour.check(code == 200, QStringLiteral("blocking GET answered 200"));

    QJsonObject signedBody = params;
    signedBody.insert(QStringLiteral("sign"), signature);
    code = request.StartPostRequestSync(server.url(QStringLiteral("/missing")), signedBody, reply);
    tour.say(QStringLiteral("blocking POST /missing -> %1 %2").arg(code).arg(QString::fromUtf8(reply)));
    tour.check(code == 404, QStringLiteral("an HTTP error status is a result like any other"));

    QString outcome = awaitOutcome(request, [&] {
        request.StartGetRequestAsync(
            server.url(QStringLiteral("/news")), QStringLiteral("X-Sign"), signature);
    });
    tour.say(QStringLiteral("non-blocking GET /news with X-Sign -> %1").arg(outcome));
    tour.check(outcome.startsWith(QStringLiteral("result 200")) && outcome.contains(signature),
        QStringLiteral("non-blocking GET delivered its result signal with the header seen by the server"));

    outcome = awaitOutcome(request, [&] {
        request.StartPostRequestAsync(
            server.url(QStringLiteral("/events")), signedBody, QString(), QString());
    });
    tour.say(QStringLiteral("non-blocking POST /events -> %1").arg(outcome));
    tour.check(outcome.startsWith(QStringLiteral("result 200")),
        QStringLiteral("non-blocking POST delivered its result"));
}

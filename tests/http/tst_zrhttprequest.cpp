#include <ZrUtils/ZrHttpRequest.h>

#include "FreePort.h"
#include "LoopbackHttpServer.h"
#include "RequestOutcome.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QNetworkProxy>
#include <QTest>
#include <QTimer>

#include <memory>

using ZrLoopback::freePort;
using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using ZrLoopback::LoopbackHttpServer;
using ZrUtils::ZrHttpRequest;

namespace
{

const QByteArray BrowserUserAgent
    = "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) "
      "Chrome/60.0.3100.0 Safari/537.36";

// Routes of the test server: "/status/<code>" answers that code with a body naming
// it (a 3xx code also names "/status/200" as the new location), "/huge" 32 MiB after
// 200 ms; the rest answer a JSON object, "/slow" after 11 s, "/late" after 200 ms, "/hang" never,
// and "/drop" closes the connection without an answer.
HttpResponse route(const HttpRequest& request)
{
    const QByteArray& path = request.path;
    if (path.startsWith("/status/")) {
        const int code = path.mid(8).toInt();
        HttpResponse response(code, "body of " + QByteArray::number(code), "text/plain");
        if (code / 100 == 3)
            response.withHeader("Location", "/status/200");
        return response;
    }
    HttpResponse response = path == "/huge"
        ? HttpResponse(200, QByteArray(32 * 1024 * 1024, 'x'), "application/octet-stream")
        : HttpResponse(200, "{\"ok\":true}", "application/json");
    response.delayMs = path == "/slow" ? 11000 : path == "/late" || path == "/huge" ? 200 : 0;
    if (path == "/hang")
        response.fault = HttpResponse::Fault::NeverAnswer;
    else if (path == "/drop")
        response.fault = HttpResponse::Fault::DropBeforeAnswer;
    return response;
}

} // namespace

class ZrHttpRequestTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_server = std::make_unique<LoopbackHttpServer>(route); }

    // Each row is named after the string it signs; the expected digest is Python's
    // hashlib MD5 of that string, so a fault in our MD5 use cannot hide a fault in it.
    void signObject_data()
    {
        QTest::addColumn<QJsonObject>("object");
        QTest::addColumn<QString>("secret");
        QTest::addColumn<QString>("expected");
        auto row = [](const char* name, const char* secret, const char* md5, const QJsonObject& object) {
            QTest::newRow(name) << object << QString::fromUtf8(secret) << QString::fromLatin1(md5);
        };
        row("ts=17&uid=42&vip=falsek3y", "k3y", "3e1b1a672b2faa827afb7d4fffbedef5",
            {{"uid", "42"}, {"ts", 17}, {"vip", false}});
        row("secret: an empty object", "secret", "5ebe2294ecd0e0f08eab7690d2a6ee69", {});
        row("a=&b=x: no secret, empty string", "", "55a2e24c272250ed039ce0124aa0af13",
            {{"a", ""}, {"b", "x"}});
        // Case-sensitive, and U+1D11E is the surrogate pair D834 DD1E, which sorts before U+FFFF.
        row("Name=B&Z=1&a=2&name=a&U+1D11E=3&U+FFFF=4s", "s", "ac01b3e39c5892cb22d8ede26178b88d",
            {{"name", "a"}, {"Name", "B"}, {QStringLiteral("\uFFFF"), 4},
                {QString::fromUtf8("\xF0\x9D\x84\x9E"), 3}, {"a", 2}, {"Z", 1}});
        row("arr=&n=&obj=&z=1s", "s", "5dc43e74a62f5c9d5ec592768ab588a8",
            {{"z", 1}, {"arr", QJsonArray {1, 2}}, {"obj", QJsonObject {{"k", "v"}}},
                {"n", QJsonValue::Null}});
        row("a=3&b=-7&c=0&d=0.5&e=1e+20&f=0.1&g=-2.5e-07s", "s", "e130d0aef330574f7f249d2f3807b593",
            {{"a", 3.0}, {"b", -7.0}, {"c", 0.0}, {"d", 0.5}, {"e", 1e20}, {"f", 0.1}, {"g", -2.5e-7}});
        // 2^63 passes the inclusive bound and wraps to the lowest 64-bit value; 2^64 does not.
        row("big=-9223372036854775808&huge=1.84467440737096e+19&neg=-9223372036854775808s", "s",
            "10f5acdaf69ce76dbac955f9c5a8971b",
            {{"big", 9223372036854775808.0}, {"neg", -9223372036854775808.0},
                {"huge", 18446744073709551616.0}});
        row("city=Zürich&name=张三密钥", "密钥", "ff4656bbf84b6da472fb1e8586b06fcd",
            {{"name", QStringLiteral("张三")}, {"city", QStringLiteral("Zürich")}});
    }
    void signObject()
    {
        QFETCH(QJsonObject, object);
        QFETCH(QString, secret);
        QTEST(ZrHttpRequest::SignObject(object, secret), "expected");
    }
    void cleanup() { m_server->clearRequests(); }
    // The status is the result code and the body is delivered, 3xx, 4xx and 5xx included;
    // a network failure is -1, with the reply emptied: the request ended in time.
    void resultCodeWrong_data()
    {
        QTest::addColumn<bool>("post");
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<int>("code");
        const QList<QPair<const char*, QUrl>> failures {
            {"refusedPort", QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(freePort()))},
            {"unknownScheme", QUrl(QStringLiteral("gopher://127.0.0.1/"))},
            {"droppedConnection", m_server->url(QStringLiteral("/drop"))}};
        for (const char* method : {"get", "post"}) {
            const bool post = method[0] == 'p';
            // A redirect is an answer like any other: Qt 6 would follow it unless told not to.
            for (int status : {200, 302, 307, 404, 500})
                QTest::addRow("%s-%d", method, status)
                    << post << m_server->url(QStringLiteral("/status/%1").arg(status)) << status;
            for (const auto& failure : failures)
                QTest::addRow("%s-%s", method, failure.first) << post << failure.second << -1;
        }
    }
    void resultCodeWrong()
    {
        QFETCH(bool, post);
        QFETCH(QUrl, url);
        QFETCH(int, code);
        const QByteArray body = code == -1 ? QByteArray() : "body of " + QByteArray::number(code);

        ZrHttpRequest request;
        QByteArray reply = "untouched";
        QCOMPARE(post ? request.StartPostRequestSync(url, {{"k", 1}}, reply)
                      : request.StartGetRequestSync(url, reply),
            code);
        QCOMPARE(reply, body);

        Outcome outcome(&request);
        if (post)
            request.StartPostRequestAsync(url, {{"k", 1}}, QString(), QString());
        else
            request.StartGetRequestAsync(url, QString(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.total(), 1, 5000);
        QCOMPARE(outcome.results.size(), 1);
        QCOMPARE(outcome.results.at(0), qMakePair(body, code));
    }
    // GET goes out as a browser, POST as JSON, from either call; an Async request adds the
    // raw header only when both its name and its value are set.
    void requestShape_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("sent");
        QTest::newRow("utf8Value") << QStringLiteral("X-Sign") << QStringLiteral("zürich") << true;
        QTest::newRow("emptyName") << QString() << QStringLiteral("abc") << false;
        QTest::newRow("emptyValue") << QStringLiteral("X-Sign") << QString() << false;
    }
    void requestShape()
    {
        QFETCH(QString, name);
        QFETCH(QString, value);
        QFETCH(bool, sent);
        const QUrl getUrl = m_server->url(QStringLiteral("/get")),
                   postUrl = m_server->url(QStringLiteral("/post"));
        // Numbers as Qt 5 writes them, on either build: Qt 6 alone would send 1e-04.
        const QJsonObject body {{"name", "zr"}, {"n", 2}, {"ratio", 0.0001}};
        ZrHttpRequest request;
        Outcome outcome(&request);
        QByteArray reply;
        QCOMPARE(request.StartGetRequestSync(getUrl, reply), 200);
        QCOMPARE(request.StartPostRequestSync(postUrl, body, reply), 200);
        request.StartGetRequestAsync(getUrl, name, value);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.results.size(), 1, 5000);
        request.StartPostRequestAsync(postUrl, body, name, value);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.results.size(), 2, 5000);

        const QList<HttpRequest> seen = m_server->requests();
        QCOMPARE(seen.size(), 4);
        for (int i = 0; i < seen.size(); ++i) {
            const HttpRequest& r = seen[i];
            const bool get = i % 2 == 0, async = i >= 2;
            QCOMPARE(r.method, QByteArray(get ? "GET" : "POST"));
            QCOMPARE(r.header("User-Agent") == BrowserUserAgent, get);
            QCOMPARE(r.hasHeader("Content-Type"), !get);
            if (!get) {
                QCOMPARE(r.header("Content-Type"), QByteArray("application/json"));
                QCOMPARE(r.body, QByteArray("{\"n\":2,\"name\":\"zr\",\"ratio\":0.0001}"));
            }
            QCOMPARE(r.hasHeader("X-Sign"), sent && async);
            if (sent && async)
                QCOMPARE(r.header("X-Sign"), value.toUtf8());
        }
    }
    // Sync and Async run side by side so the test waits the ten seconds only once.
    void answerAfterElevenSecondsTimesOut()
    {
        const QUrl url = m_server->url(QStringLiteral("/slow"));
        ZrHttpRequest asyncRequest;
        Outcome outcome(&asyncRequest);
        asyncRequest.StartPostRequestAsync(url, {}, QString(), QString());

        ZrHttpRequest syncRequest;
        QByteArray reply = "untouched";
        QElapsedTimer elapsed;
        elapsed.start();
        QCOMPARE(syncRequest.StartGetRequestSync(url, reply), -1);
        // The limit is 10 s from the start; the upper bound leaves room for a loaded machine.
        QVERIFY2(
            elapsed.elapsed() >= 9900 && elapsed.elapsed() < 15000, QByteArray::number(elapsed.elapsed()));
        QCOMPARE(reply, QByteArray("untouched"));

        QTRY_COMPARE_WITH_TIMEOUT(outcome.timeouts, 1, 3000);
        QCOMPARE(outcome.total(), 1);
        m_server->closeConnections();
    }
    void stopRequestCancelsEveryRunningRequest()
    {
        ZrHttpRequest request;
        Outcome outcome(&request);
        request.StartGetRequestAsync(m_server->url(QStringLiteral("/hang")), QString(), QString());
        request.StartPostRequestAsync(m_server->url(QStringLiteral("/hang")), {}, QString(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(), 2, 5000);

        Q_EMIT request.SignalStopRequest();
        QTRY_COMPARE_WITH_TIMEOUT(outcome.cancels, 2, 5000);
        QCOMPARE(outcome.total(), 2);
        m_server->closeConnections();
    }
    // The worker finds the object gone when its answer arrives: no signal, no crash.
    void deleteDuringAsyncRequest()
    {
        auto* doomed = new ZrHttpRequest;
        Outcome doomedOutcome(doomed);
        doomed->StartGetRequestAsync(m_server->url(QStringLiteral("/late")), QString(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(), 1, 5000);
        delete doomed;

        // A witness started afterwards answers later than the doomed request.
        ZrHttpRequest witness;
        Outcome witnessOutcome(&witness);
        m_server->setHandler([](const HttpRequest&) {
            HttpResponse response(200, "witness");
            response.delayMs = 500;
            return response;
        });
        witness.StartGetRequestAsync(m_server->url(QStringLiteral("/witness")), QString(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(witnessOutcome.results.size(), 1, 5000);
        m_server->setHandler(route);
        QCOMPARE(doomedOutcome.total(), 0);
    }
    // A Sync call runs the caller's events while it waits.
    void syncCallDeliversHugeBodyAndOtherEvents()
    {
        bool fired = false;
        QTimer::singleShot(50, this, [&fired] { fired = true; });
        QByteArray reply;
        QCOMPARE(ZrHttpRequest().StartGetRequestSync(m_server->url(QStringLiteral("/huge")), reply), 200);
        QVERIFY(fired);
        QCOMPARE(reply.size(), 32 * 1024 * 1024);
        QCOMPARE(reply.count('x'), reply.size());
    }
    // Qt never proxies loopback hosts, so the request names a host that does not
    // resolve: through the proxy (a loopback server) it succeeds, without it it fails.
    void disableProxyBypassesApplicationProxy()
    {
        LoopbackHttpServer proxy([](const HttpRequest&) { return HttpResponse(200, "proxied"); });
        QNetworkProxy::setApplicationProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), proxy.port()));
        const QUrl url(QStringLiteral("http://app.invalid/api"));
        ZrHttpRequest request;
        QByteArray reply;
        QCOMPARE(request.StartGetRequestSync(url, reply), 200);
        QCOMPARE(reply, QByteArray("proxied"));
        QCOMPARE(proxy.requests().value(0).target, QByteArray("http://app.invalid/api"));

        ZrHttpRequest::disableProxy();
        QCOMPARE(request.StartGetRequestSync(url, reply), -1);
        QCOMPARE(proxy.requestCount(), 1);
    }

private:
    std::unique_ptr<LoopbackHttpServer> m_server;
};

QTEST_GUILESS_MAIN(ZrHttpRequestTest)
#include "tst_zrhttprequest.moc"

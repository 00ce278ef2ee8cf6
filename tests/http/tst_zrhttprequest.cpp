#include <ZrUtils/ZrHttpRequest.h>

#include "FreePort.h"
#include "LoopbackHttpServer.h"
#include "OpensslServer.h"
#include "RequestOutcome.h"
#include "TestCertificates.h"

#include <QElapsedTimer>
#include <QNetworkProxy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

using ZrLoopback::freePort;
using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using ZrLoopback::LoopbackHttpServer;
using ZrLoopback::OpensslServer;
using ZrUtils::ZrHttpRequest;

namespace
{

const QByteArray BrowserUserAgent
    = "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) "
      "Chrome/60.0.3100.0 Safari/537.36";

// Routes of the test server: "/status/<code>" answers that code with a body naming
// it (a 3xx code also names "/status/200" as the new location), "/huge" 32 MiB; the
// rest answer a JSON object, "/slow" after 11 s, "/late" after 200 ms, "/hang" never,
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
    if (path == "/huge")
        return HttpResponse(200, QByteArray(32 * 1024 * 1024, 'x'), "application/octet-stream");
    HttpResponse response(200, "{\"ok\":true}", "application/json");
    response.delayMs = path == "/slow" ? 11000 : path == "/late" ? 200 : 0;
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
            {"unknownScheme", QUrl(QStringLiteral("gopher://127.0.0.1/"))}, {"emptyUrl", QUrl()},
            {"unresolvableHost", QUrl(QStringLiteral("http://host.invalid/"))},
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
    void requestShape()
    {
        ZrHttpRequest request;
        QByteArray reply;
        QCOMPARE(request.StartGetRequestSync(m_server->url(QStringLiteral("/get")), reply), 200);
        // Numbers as Qt 5 writes them, on either build: Qt 6 alone would send 1e-04.
        const QJsonObject body {{"name", "zr"}, {"n", 2}, {"ratio", 0.0001}};
        QCOMPARE(request.StartPostRequestSync(m_server->url(QStringLiteral("/post")), body, reply), 200);

        const QList<HttpRequest> seen = m_server->requests();
        QCOMPARE(seen.size(), 2);
        const HttpRequest& get = seen[0];
        QCOMPARE(get.method, QByteArray("GET"));
        QCOMPARE(get.header("User-Agent"), BrowserUserAgent);
        QVERIFY(!get.hasHeader("Content-Type"));

        const HttpRequest& postRequest = seen[1];
        QCOMPARE(postRequest.method, QByteArray("POST"));
        QCOMPARE(postRequest.header("Content-Type"), QByteArray("application/json"));
        QVERIFY(postRequest.header("User-Agent") != BrowserUserAgent);
        QCOMPARE(postRequest.body, QByteArray("{\"n\":2,\"name\":\"zr\",\"ratio\":0.0001}"));
    }
    void asyncRawHeader_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("sent");

        QTest::newRow("utf8Value") << QStringLiteral("X-Sign") << QStringLiteral("zürich") << true;
        QTest::newRow("emptyName") << QString() << QStringLiteral("abc") << false;
        QTest::newRow("emptyValue") << QStringLiteral("X-Sign") << QString() << false;
    }
    void asyncRawHeader()
    {
        QFETCH(QString, name);
        QFETCH(QString, value);
        QFETCH(bool, sent);

        ZrHttpRequest request;
        Outcome outcome(&request);
        request.StartGetRequestAsync(m_server->url(QStringLiteral("/get")), name, value);
        request.StartPostRequestAsync(m_server->url(QStringLiteral("/post")), {}, name, value);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.results.size(), 2, 5000);

        const QList<HttpRequest> seen = m_server->requests();
        QCOMPARE(seen.size(), 2);
        for (const HttpRequest& r : seen) {
            QCOMPARE(r.hasHeader("X-Sign"), sent);
            if (sent)
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
    void syncCallDeliversOtherEvents()
    {
        bool fired = false;
        QTimer::singleShot(50, this, [&fired] { fired = true; });
        ZrHttpRequest request;
        QByteArray reply;
        QCOMPARE(request.StartGetRequestSync(m_server->url(QStringLiteral("/late")), reply), 200);
        QVERIFY(fired);
    }
    void hugeBodyDeliveredWhole()
    {
        ZrHttpRequest request;
        QByteArray reply;
        QCOMPARE(request.StartGetRequestSync(m_server->url(QStringLiteral("/huge")), reply), 200);
        QCOMPARE(reply.size(), 32 * 1024 * 1024);
        QCOMPARE(reply.count('x'), reply.size());
    }
    void tlsServer_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("unknownCaAndHostAccepted") << QStringList() << 200 << QByteArray("hello");
        // The client pins TLS 1.2, so a server that speaks only TLS 1.3 is never reached.
        QTest::newRow("tls13OnlyServerNotReached")
            << QStringList {QStringLiteral("-tls1_3")} << -1 << QByteArray();
        // The request stays HTTP/1.1 when the server offers HTTP/2 (Qt 6 would take it).
        QTest::newRow("http2OfferedNotTaken")
            << QStringList {QStringLiteral("-alpn"), QStringLiteral("h2,http/1.1")} << 200
            << QByteArray("hello");
    }
    void tlsServer()
    {
        QFETCH(QStringList, options);
        QTemporaryDir folder;
        const ZrLoopback::TestCertificates pki(folder.path());
        QVERIFY2(pki.isValid(), qPrintable(pki.errorString()));
        // Signed by a CA the client does not know, for a host other than 127.0.0.1. Without
        // -HTTP, s_server hands its standard input to the client once the handshake is done.
        OpensslServer server(pki.otherHost().certificate, pki.otherHost().key, options);
        QVERIFY(server.waitUntilListening());
        server.process().write("HTTP/1.1 200 OK\r\nContent-Length: 5\r\nConnection: close\r\n\r\nhello");
        QVERIFY(server.process().waitForBytesWritten(5000));
        QByteArray received;
        QTEST(ZrHttpRequest().StartGetRequestSync(server.url(), received), "code");
        QTEST(received, "reply");
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

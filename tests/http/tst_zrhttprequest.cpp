#include <ZrUtils/ZrHttpRequest.h>

#include "FreePort.h"
#include "LoopbackHttpServer.h"
#include "OpensslServer.h"

#include <QJsonDocument>
#include <QNetworkProxy>
#include <QNetworkProxyFactory>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using ZrLoopback::freePort;
using ZrLoopback::LoopbackHttpServer;
using ZrLoopback::OpensslServer;
using ZrUtils::ZrHttpRequest;

namespace
{

const QByteArray BrowserUserAgent
    = "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) "
      "Chrome/60.0.3100.0 Safari/537.36";

// Routes of the test server: "/status/<code>" answers that code with a body naming
// it (a 3xx code also names "/status/200" as the new location), "/slow" answers after 11 s, "/hang" never
// answers, "/late" after 200 ms, "/drop" closes the connection without an answer.
HttpResponse route(const HttpRequest& request)
{
    if (request.path.startsWith("/status/")) {
        const int code = request.path.mid(8).toInt();
        HttpResponse response(code, "body of " + QByteArray::number(code), "text/plain");
        if (code / 100 == 3)
            response.withHeader("Location", "/status/200");
        return response;
    }
    if (request.path == "/slow") {
        HttpResponse response(200, "too late");
        response.delayMs = 11000;
        return response;
    }
    if (request.path == "/hang") {
        HttpResponse response;
        response.fault = HttpResponse::Fault::NeverAnswer;
        return response;
    }
    if (request.path == "/late") {
        HttpResponse response(200, "late");
        response.delayMs = 200;
        return response;
    }
    if (request.path == "/drop") {
        HttpResponse response;
        response.fault = HttpResponse::Fault::DropBeforeAnswer;
        return response;
    }
    if (request.path == "/huge")
        return HttpResponse(200, QByteArray(32 * 1024 * 1024, 'x'), "application/octet-stream");
    return HttpResponse(200, "{\"ok\":true}", "application/json");
}

// Records the outcome signals of one object. The worker thread emits them; like an
// application's GUI object, the recorder receives them queued on the test's thread
// (a QSignalSpy would be appended to from the worker and could miss its wait()).
struct Outcome {
    explicit Outcome(ZrHttpRequest* request)
    {
        QObject::connect(request, &ZrHttpRequest::SignalRequestTimeout, &context, [this] { ++timeouts; });
        QObject::connect(request, &ZrHttpRequest::SignalRequestCancel, &context, [this] { ++cancels; });
        QObject::connect(
            request, &ZrHttpRequest::SignalRequestResult, &context, [this](const QByteArray& body, int code) {
                results.append({body, code});
            });
    }
    int total() const { return timeouts + cancels + results.size(); }

    QObject context;
    int timeouts = 0;
    int cancels = 0;
    QList<QPair<QByteArray, int>> results;
};

// An "openssl s_server" with a fresh self-signed certificate. Once a client has
// completed the handshake it sends that client a canned HTTP answer (from stdin).
class TlsServer
{
public:
    explicit TlsServer(const QStringList& protocolOptions)
    {
        const QString cert = m_dir.filePath(QStringLiteral("cert.pem"));
        const QString key = m_dir.filePath(QStringLiteral("key.pem"));
        if (QProcess::execute(QStringLiteral("openssl"),
                {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                    QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-keyout"), key,
                    QStringLiteral("-out"), cert, QStringLiteral("-subj"), QStringLiteral("/CN=localhost"),
                    QStringLiteral("-days"), QStringLiteral("1")})
            == 0)
            m_server = std::make_unique<OpensslServer>(cert, key, protocolOptions);
    }

    // Waits until the server listens and queues the answer for the first client.
    bool waitUntilListening()
    {
        if (!m_server || !m_server->waitUntilListening())
            return false;
        m_server->process().write("HTTP/1.1 200 OK\r\nContent-Length: 5\r\nConnection: close\r\n\r\nhello");
        return m_server->process().waitForBytesWritten(5000);
    }
    QUrl url() const { return m_server->url(); }

private:
    QTemporaryDir m_dir;
    std::unique_ptr<OpensslServer> m_server;
};

} // namespace

class ZrHttpRequestTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_server = std::make_unique<LoopbackHttpServer>(route); }
    void cleanup() { m_server->clearRequests(); }
    void resultCode_data()
    {
        QTest::addColumn<bool>("post");
        QTest::addColumn<int>("status");

        // A redirect is an answer like any other: Qt 6 would follow it unless told not to.
        for (int status : {200, 302, 307, 404, 500}) {
            QTest::addRow("get-%d", status) << false << status;
            QTest::addRow("post-%d", status) << true << status;
        }
    }
    // The status is the result code and the body is delivered, 3xx, 4xx and 5xx included.
    void resultCode()
    {
        QFETCH(bool, post);
        QFETCH(int, status);
        const QUrl url = m_server->url(QStringLiteral("/status/%1").arg(status));
        const QByteArray expectedBody = "body of " + QByteArray::number(status);

        ZrHttpRequest request;
        QByteArray reply;
        const int code = post ? request.StartPostRequestSync(url, {{"k", 1}}, reply)
                              : request.StartGetRequestSync(url, reply);
        QCOMPARE(code, status);
        QCOMPARE(reply, expectedBody);

        Outcome outcome(&request);
        if (post)
            request.StartPostRequestAsync(url, {{"k", 1}}, QString(), QString());
        else
            request.StartGetRequestAsync(url, QString(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.total(), 1, 5000);
        QCOMPARE(outcome.results.size(), 1);
        QCOMPARE(outcome.results.at(0).first, expectedBody);
        QCOMPARE(outcome.results.at(0).second, status);
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

        QTest::newRow("bothSet") << QStringLiteral("X-Sign") << QStringLiteral("abc") << true;
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
    void networkFailureIsMinusOne_data()
    {
        QTest::addColumn<QUrl>("url");

        QTest::newRow("refusedPort") << QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(freePort()));
        QTest::newRow("unknownScheme") << QUrl(QStringLiteral("gopher://127.0.0.1/"));
        QTest::newRow("emptyUrl") << QUrl();
        QTest::newRow("unresolvableHost") << QUrl(QStringLiteral("http://host.invalid/"));
        QTest::newRow("droppedConnection") << m_server->url(QStringLiteral("/drop"));
    }
    void networkFailureIsMinusOne()
    {
        QFETCH(QUrl, url);

        ZrHttpRequest request;
        QByteArray reply = "untouched";
        QCOMPARE(request.StartGetRequestSync(url, reply), -1);
        QVERIFY(reply.isEmpty()); // assigned, although empty: the request ended in time
        QCOMPARE(request.StartPostRequestSync(url, {}, reply), -1);

        Outcome outcome(&request);
        request.StartGetRequestAsync(url, QString(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.total(), 1, 5000);
        QCOMPARE(outcome.results.size(), 1);
        QCOMPARE(outcome.results.at(0).second, -1);
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
        QTest::newRow("selfSignedCertificateAccepted") << QStringList() << 200 << QByteArray("hello");
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
        QFETCH(int, code);
        QFETCH(QByteArray, reply);
        TlsServer server(options);
        QVERIFY(server.waitUntilListening());
        QByteArray received;
        QCOMPARE(ZrHttpRequest().StartGetRequestSync(server.url(), received), code);
        QCOMPARE(received, reply);
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

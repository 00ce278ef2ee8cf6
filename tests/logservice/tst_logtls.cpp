// The log-service client over HTTPS: posts and administration calls against the
// loopback log service serving TLS with certificates made for the run by a test
// CA, and the plain HTTP that stays the default.
#include <ZrUtils/LOGAdapter.h>
#include <ZrUtils/LogTransportSecurity.h>

#include "LogTestClient.h"
#include "TestCertificates.h"

#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <map>
#include <memory>

using namespace cloudlog_sdk_v6;
using ZrLoopback::LoopbackLogService;
using ZrLoopback::TestCertificates;

namespace
{

// The service a row talks to: HTTPS with a good, an expired or a wrong-host
// certificate, or plain HTTP.
enum class Peer { Good, Expired, OtherHost, Plain };
// How the client is set up: left as constructed (plain HTTP), or HTTPS checked
// against the system store, the test CA, the CA that signed none of the servers,
// or a bundle file that does not exist.
enum class Transport { Default, HttpsSystem, HttpsTestCa, HttpsOtherCa, HttpsMissingBundle };

} // namespace

Q_DECLARE_METATYPE(Peer)
Q_DECLARE_METATYPE(Transport)

class LogTlsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_pkiFolder;
    std::unique_ptr<TestCertificates> m_pki;
    std::map<Peer, std::unique_ptr<LoopbackLogService>> m_services;

    LogTransportSecurity transport(Transport transport) const
    {
        LogTransportSecurity security;
        security.https = transport != Transport::Default;
        if (transport == Transport::HttpsTestCa)
            security.caBundle = stdBytes(m_pki->caFile().toLocal8Bit());
        else if (transport == Transport::HttpsOtherCa)
            security.caBundle = stdBytes(m_pki->otherCaFile().toLocal8Bit());
        else if (transport == Transport::HttpsMissingBundle)
            security.caBundle = stdBytes(m_pkiFolder.filePath("no-such.pem").toLocal8Bit());
        return security;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_pkiFolder.isValid());
        m_pki = std::make_unique<TestCertificates>(m_pkiFolder.path());
        QVERIFY2(m_pki->isValid(), qPrintable(m_pki->errorString()));
        const std::map<Peer, TestCertificates::ServerFiles> tls {{Peer::Good, m_pki->good()},
            {Peer::Expired, m_pki->expired()}, {Peer::OtherHost, m_pki->otherHost()}};
        for (Peer peer : {Peer::Good, Peer::Expired, Peer::OtherHost, Peer::Plain}) {
            m_services[peer] = std::make_unique<LoopbackLogService>("id", "key");
            if (peer != Peer::Plain)
                QVERIFY(m_services[peer]->enableTls(tls.at(peer).certificate, tls.at(peer).key));
        }
    }
    void init()
    {
        for (auto& service : m_services) {
            service.second->clearReceived();
            service.second->state().clear();
            service.second->http().clearRequests();
            service.second->http().closeConnections();
        }
    }

    // Every row expects success or the failure "code|message|status"; a failure
    // never reaches the service's HTTP side.
    void callNotAsExpected_data()
    {
        QTest::addColumn<Call>("call");
        QTest::addColumn<Peer>("peer");
        QTest::addColumn<Transport>("transport");
        QTest::addColumn<QString>("endpointScheme"); // put before the endpoint, and dropped
        QTest::addColumn<QString>("failure"); // a pattern; empty: the call succeeds
        const QString verification = QStringLiteral("^ClientNetworkError\\|Request operation "
                                                    "failed\\.CURL_ERROR_CODE:60\\|0$");
        // A post, and an administration call with a query: both take the one transport.
        const std::pair<const char*, Call> operations[] = {
            {"post",
                [](LOGClient& c) {
                    c.PostLogStoreLogs("p", "l", "topic", {{1700000000, "", "", {{"k", "v"}}}}, "");
                }},
            {"listLogStores", [](LOGClient& c) { c.ListLogStores("p", "s", 0, 10); }},
        };
        for (const auto& [name, call] : operations) {
            const auto row = [&, name = name, call = call](const char* tail) -> QTestData& {
                return QTest::newRow((name + QByteArray(tail)).constData()) << call;
            };
            row("/httpsTestCaTrusted") << Peer::Good << Transport::HttpsTestCa << QString() << QString();
            row("/httpsEndpointSchemeStillDropped")
                << Peer::Good << Transport::HttpsTestCa << "https://" << QString();
            row("/httpsSystemStoreDoesNotKnowTestCa")
                << Peer::Good << Transport::HttpsSystem << QString() << verification;
            row("/httpsOtherCaUntrusted")
                << Peer::Good << Transport::HttpsOtherCa << QString() << verification;
            row("/httpsExpiredRefused")
                << Peer::Expired << Transport::HttpsTestCa << QString() << verification;
            row("/httpsOtherHostRefused")
                << Peer::OtherHost << Transport::HttpsTestCa << QString() << verification;
            row("/httpsMissingBundleTrustsNothing")
                << Peer::Good << Transport::HttpsMissingBundle << QString()
                << "^ClientNetworkError\\|Request operation failed\\.CURL_ERROR_CODE:77\\|0$";
            // Plain HTTP to the TLS port gets no HTTP answer: the server hangs up.
            row("/plainHttpToTlsPortFails")
                << Peer::Good << Transport::Default << QString()
                << "^ClientNetworkError\\|Request operation failed\\.CURL_ERROR_CODE:(52|56)\\|0$";
            // The default, as it has always been: plain HTTP, whatever scheme the endpoint names.
            row("/plainHttpAsBefore") << Peer::Plain << Transport::Default << "https://" << QString();
        }
    }
    void callNotAsExpected()
    {
        QFETCH(Call, call);
        QFETCH(Peer, peer);
        QFETCH(Transport, transport);
        QFETCH(QString, endpointScheme);
        QFETCH(QString, failure);
        LoopbackLogService& service = *m_services.at(peer);

        LOGClient client(
            stdBytes(endpointScheme.toLatin1() + service.endpoint()), "id", "key", 10, "src", false);
        if (transport != Transport::Default)
            client.SetTransportSecurity(this->transport(transport));
        const QByteArray outcome = logFailure([&] { call(client); }, false);
        if (failure.isEmpty()) {
            QCOMPARE(outcome, QByteArray("no exception"));
            QCOMPARE(service.http().requestCount(), 1);
            const bool post = QByteArray(QTest::currentDataTag()).startsWith("post/");
            QCOMPARE(service.receivedCount(), post ? 1 : 0);
            if (post)
                QCOMPARE(service.received().at(0).logs.value(0).contents.value(0).second, QByteArray("v"));
        } else {
            QVERIFY2(QRegularExpression(failure).match(QString::fromUtf8(outcome)).hasMatch(), outcome);
            QCOMPARE(service.http().requestCount(), 0);
            QCOMPARE(service.receivedCount(), 0);
        }
    }

    // LOGAdapter::Send with and without the transport argument, straight to the
    // TLS service: the service answers the unsigned request with its refusal.
    void adapterSendNotAsAsked_data()
    {
        QTest::addColumn<bool>("withTransport");
        QTest::addColumn<int>("status"); // 0: no answer
        QTest::newRow("httpsReachesService") << true << 401;
        QTest::newRow("oldSignatureStaysPlainHttp") << false << 0;
    }
    void adapterSendNotAsAsked()
    {
        QFETCH(bool, withTransport);
        QFETCH(int, status);
        LoopbackLogService& service = *m_services.at(Peer::Good);
        const std::string host = stdBytes(service.endpoint());
        const std::map<std::string, std::string> header {{"Host", host}};
        HttpMessage message;
        const QByteArray outcome = logFailure([&] {
            if (withTransport) {
                LOGAdapter::Send("GET", host, 80, "/logstores", "", header, "", 10, message, 1 << 20,
                    transport(Transport::HttpsTestCa));
            } else {
                LOGAdapter::Send("GET", host, 80, "/logstores", "", header, "", 10, message, 1 << 20);
            }
        });
        QCOMPARE(message.statusCode, status);
        QCOMPARE(outcome.startsWith("ClientNetworkError|"), status == 0);
    }

    // A replaced transport takes the whole transfer over, HTTPS or not: the seam
    // the tests and benchmarks use keeps working.
    void replacedTransportBypassed()
    {
        LogTestClient client("10.0.0.1:1", "id", "key", 10, "src", false);
        std::vector<std::string> sent;
        client.setTransport(
            [&sent](const std::string&, const std::string& host, int32_t, const std::string& url,
                const std::string&, const std::map<std::string, std::string>&, const std::string&, int32_t,
                HttpMessage& message, int64_t) {
                sent.push_back(host + url);
                message.statusCode = 200;
                message.content = R"({"count":0,"total":0,"logstores":[]})";
            });
        client.SetTransportSecurity(transport(Transport::HttpsSystem));
        client.ListLogStores("p", "s", 0, 10);
        QCOMPARE(sent, std::vector<std::string> {"10.0.0.1:1/logstores"});
    }
};

QTEST_GUILESS_MAIN(LogTlsTest)
#include "tst_logtls.moc"

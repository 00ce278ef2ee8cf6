// The log-service client over HTTPS: posts and administration calls against the
// loopback log service serving TLS with certificates made for the run by a test
// CA, and the plain HTTP that stays the default.
#include <ZrUtils/LOGAdapter.h>
#include <ZrUtils/LogConstants.h>
#include <ZrUtils/LogStore.h>
#include <ZrUtils/LogTransportSecurity.h>

#include "LogAdminFixture.h"
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
// How the client is set up: plain HTTP (the default), or HTTPS checked against the
// system store, the test CA, the CA that signed none of the servers, or a bundle
// file that does not exist.
enum class Transport { PlainHttp, HttpsSystem, HttpsTestCa, HttpsOtherCa, HttpsMissingBundle };

// A post, and administration calls with a JSON body, with a query, and without a
// body (a log store is made first, so that there is one to delete).
enum class Operation { Post, CreateLogStore, ListLogStores, DeleteLogStore };

} // namespace

Q_DECLARE_METATYPE(Peer)
Q_DECLARE_METATYPE(Transport)
Q_DECLARE_METATYPE(Operation)

namespace
{

void run(LOGClient& client, Operation operation)
{
    switch (operation) {
    case Operation::Post: {
        LogItem item;
        item.timestamp = 1700000000;
        item.contents.emplace_back("k", "v");
        client.PostLogStoreLogs("p", "l", "topic", {item}, "");
        break;
    }
    case Operation::CreateLogStore:
        client.CreateLogStore("p", LogStore("s", 1, 2));
        break;
    case Operation::ListLogStores:
        client.ListLogStores("p", "s", 0, 10);
        break;
    case Operation::DeleteLogStore:
        client.CreateLogStore("p", LogStore("s", 1, 2));
        client.DeleteLogStore("p", "s");
        break;
    }
}

int requestsOf(Operation operation)
{
    return operation == Operation::DeleteLogStore ? 2 : 1;
}

QString operationName(Operation operation)
{
    switch (operation) {
    case Operation::Post:
        return QStringLiteral("post");
    case Operation::CreateLogStore:
        return QStringLiteral("createLogStore");
    case Operation::ListLogStores:
        return QStringLiteral("listLogStores");
    case Operation::DeleteLogStore:
        return QStringLiteral("deleteLogStore");
    }
    return QString();
}

} // namespace

class LogTlsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_pkiFolder;
    std::unique_ptr<TestCertificates> m_pki;
    std::map<Peer, std::unique_ptr<LoopbackLogService>> m_services;

    LogTransportSecurity transport(Transport transport) const
    {
        LogTransportSecurity security;
        security.https = transport != Transport::PlainHttp;
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

    void transportNotPlainByDefault()
    {
        LOGClient client("https://127.0.0.1:1/path", "id", "key", 10, "src", false);
        QVERIFY(client.GetTransportSecurity() == LogTransportSecurity());
        QCOMPARE(client.GetTransportSecurity().https, false);
        QCOMPARE(client.GetTransportSecurity().caBundle, std::string());
        LogTransportSecurity security;
        security.https = true;
        security.caBundle = "/ca.pem";
        client.SetTransportSecurity(security);
        QVERIFY(client.GetTransportSecurity() == security);
        // The endpoint stays without its scheme: the setting, not the endpoint, chooses.
        QCOMPARE(client.GetLogHost(), std::string("127.0.0.1:1"));
    }

    // Every row expects success or the failure "code|message|status"; a failure
    // never reaches the service's HTTP side.
    void callNotAsExpected_data()
    {
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<Peer>("peer");
        QTest::addColumn<Transport>("transport");
        QTest::addColumn<QString>("endpointScheme"); // put before the endpoint, and dropped
        QTest::addColumn<QString>("failure"); // a pattern; empty: the call succeeds
        const QString verification = QStringLiteral("^ClientNetworkError\\|Request operation "
                                                    "failed\\.CURL_ERROR_CODE:60\\|0$");
        for (Operation operation : {Operation::Post, Operation::CreateLogStore, Operation::ListLogStores,
                 Operation::DeleteLogStore}) {
            const QString name = operationName(operation);
            const auto row = [&](const char* tail) -> QTestData& {
                return QTest::newRow(qPrintable(name + tail)) << operation;
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
                << Peer::Good << Transport::PlainHttp << QString()
                << "^ClientNetworkError\\|Request operation failed\\.CURL_ERROR_CODE:(52|56)\\|0$";
            // The default, as it has always been: plain HTTP, whatever scheme the endpoint names.
            row("/plainHttpAsBefore") << Peer::Plain << Transport::PlainHttp << "https://" << QString();
        }
    }
    void callNotAsExpected()
    {
        QFETCH(Operation, operation);
        QFETCH(Peer, peer);
        QFETCH(Transport, transport);
        QFETCH(QString, endpointScheme);
        QFETCH(QString, failure);
        LoopbackLogService& service = *m_services.at(peer);

        LOGClient client(
            stdBytes(endpointScheme.toLatin1() + service.endpoint()), "id", "key", 10, "src", false);
        client.SetTransportSecurity(this->transport(transport));
        const QByteArray outcome = failureOf([&] { run(client, operation); });
        if (failure.isEmpty()) {
            QCOMPARE(outcome, QByteArray("no exception"));
            QCOMPARE(service.http().requestCount(), requestsOf(operation));
            if (operation == Operation::Post) {
                QCOMPARE(service.receivedCount(), 1);
                QCOMPARE(service.received().at(0).logs.value(0).contents.value(0).second, QByteArray("v"));
            }
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
        const QByteArray outcome = failureOf([&] {
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
        struct RecordingClient : LOGClient {
            using LOGClient::LOGClient;
            void record()
            {
                sendFunc
                    = [this](const std::string&, const std::string& host, int32_t, const std::string& url,
                          const std::string&, const std::map<std::string, std::string>&, const std::string&,
                          int32_t, HttpMessage& message, int64_t) {
                          sent.push_back(host + url);
                          message.statusCode = 200;
                          message.content = R"({"count":0,"total":0,"logstores":[]})";
                      };
            }
            std::vector<std::string> sent;
        };
        RecordingClient client("10.0.0.1:1", "id", "key", 10, "src", false);
        client.record();
        LogTransportSecurity security;
        security.https = true;
        client.SetTransportSecurity(security);
        run(client, Operation::ListLogStores);
        QCOMPARE(client.sent.size(), size_t(1));
        QCOMPARE(client.sent.at(0), std::string("10.0.0.1:1/logstores"));
    }
};

QTEST_GUILESS_MAIN(LogTlsTest)
#include "tst_logtls.moc"

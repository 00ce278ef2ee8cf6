// The certificate-checking switch across the classes it governs: the JSON client
// (ZrHttpRequest), the libcurl transfers (CurlEasy, CurlDownloader) and the Qt
// downloader (ZrDownloader), each against "openssl s_server" peers on 127.0.0.1
// with certificates made for the run by a test CA.
#include <ZrUtils/CertificateChecking.h>
#include <ZrUtils/CurlDownloader.h>
#include <ZrUtils/CurlEasy.h>
#include <ZrUtils/ZrDownloader.h>
#include <ZrUtils/ZrHttpRequest.h>

#include "LoopbackHttpServer.h"
#include "OpensslServer.h"
#include "RequestOutcome.h"
#include "TestCertificates.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <map>
#include <memory>
#include <thread>
#include <vector>

using ZrLoopback::OpensslServer;
using ZrLoopback::TestCertificates;
using ZrUtils::CertificateChecking;

namespace
{

enum class Client { JsonSync, JsonAsync, CurlDownloader, ZrDownloader };
enum class Server { Good, Expired, OtherHost, GoodTls13Only, GoodHttp2 };
// What setCaBundle() is given: nothing (the system store), the test CA, the CA that
// signed none of the servers, or a copy of the test CA deleted after it was set.
enum class Bundle { System, TestCa, OtherCa, Deleted };

} // namespace

Q_DECLARE_METATYPE(Client)
Q_DECLARE_METATYPE(Server)
Q_DECLARE_METATYPE(Bundle)

namespace
{

const QByteArray Payload = QByteArray("certificate checking payload\n").repeated(2000);
const QString PayloadName = QStringLiteral("payload.bin");

// Each server is "openssl s_server -HTTP" serving the files of one folder: GET /name
// answers with the bytes of ./name, which hold the status line and headers too. It
// takes one connection after the other and goes on when a client hangs up on its
// certificate. (-WWW would write the head itself, but without a length: Qt 5 then
// misses the end of a body over TLS and waits for its time limit.)

// How one request or download ended.
struct Fetched {
    bool succeeded = false;
    // Failed the way a network error fails in that class: -1 for the JSON client,
    // a failed signalDownloadFinished() with an empty path and no file left behind
    // for the downloaders.
    bool networkFailure = false;
    QByteArray body;
};

const char* const ClientNames[] = {"jsonSync", "jsonAsync", "curlDownloader", "zrDownloader"};

template<typename Downloader> void download(const QUrl& url, const QString& folder, Fetched& fetched)
{
    Downloader downloader;
    QSignalSpy finished(&downloader, &Downloader::signalDownloadFinished);
    QVERIFY(downloader.StartDownload(url, folder));
    QVERIFY(finished.wait(30000));
    QCOMPARE(finished.count(), 1);
    const bool success = finished.at(0).at(0).toBool();
    const QString path = finished.at(0).at(1).toString();
    const QStringList left = QDir(folder).entryList(QDir::Files);
    fetched.succeeded = success;
    fetched.networkFailure = !success && path.isEmpty() && left.isEmpty();
    if (success) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        fetched.body = file.readAll();
    }
}

void expectZrDownloaderLog(bool success)
{
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^ZrDownloader: downloading ")));
    if (success)
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^ZrDownloader: succeeded ")));
    else
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^ZrDownloader: failed: ")));
}

// Fetches @p url as @p client does; @p expectSuccess only picks the log lines to expect.
void fetch(Client client, const QUrl& url, bool expectSuccess, Fetched& fetched)
{
    QTemporaryDir folder;
    QVERIFY(folder.isValid());
    if (client == Client::CurlDownloader)
        return download<ZrUtils::CurlDownloader>(url, folder.path(), fetched);
    if (client == Client::ZrDownloader) {
        // It logs its start and its end; a refused certificate ends as a network failure.
        expectZrDownloaderLog(expectSuccess);
        return download<ZrUtils::ZrDownloader>(url, folder.path(), fetched);
    }
    ZrUtils::ZrHttpRequest request;
    Outcome outcome(&request);
    int code = 0;
    if (client == Client::JsonSync) {
        code = request.StartGetRequestSync(url, fetched.body);
    } else {
        request.StartGetRequestAsync(url, QString(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.total(), 1, 30000);
        QCOMPARE(outcome.results.size(), 1);
        fetched.body = outcome.results.at(0).first;
        code = outcome.results.at(0).second;
    }
    fetched.succeeded = code == 200;
    fetched.networkFailure = code == -1;
}

} // namespace

class CertificateCheckingTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_pkiFolder;
    QTemporaryDir m_wwwFolder;
    std::unique_ptr<TestCertificates> m_pki;
    std::map<Server, std::unique_ptr<OpensslServer>> m_servers;

    // Sets the bundle a row asks for; false when that was refused.
    bool useBundle(Bundle bundle)
    {
        switch (bundle) {
        case Bundle::System:
            return CertificateChecking::setCaBundle(QString());
        case Bundle::TestCa:
            return CertificateChecking::setCaBundle(m_pki->caFile());
        case Bundle::OtherCa:
            return CertificateChecking::setCaBundle(m_pki->otherCaFile());
        case Bundle::Deleted: {
            const QString copy = QDir(m_pkiFolder.path()).filePath(QStringLiteral("deleted-ca.pem"));
            QFile::remove(copy);
            return QFile::copy(m_pki->caFile(), copy) && CertificateChecking::setCaBundle(copy)
                && QFile::remove(copy);
        }
        }
        return false;
    }

    QUrl urlOf(Server server) const { return m_servers.at(server)->url(PayloadName); }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_pkiFolder.isValid() && m_wwwFolder.isValid());
        m_pki = std::make_unique<TestCertificates>(m_pkiFolder.path());
        QVERIFY2(m_pki->isValid(), qPrintable(m_pki->errorString()));
        QFile payload(QDir(m_wwwFolder.path()).filePath(PayloadName));
        QVERIFY(payload.open(QIODevice::WriteOnly));
        const QByteArray answer = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                                  "Content-Length: "
            + QByteArray::number(Payload.size()) + "\r\nConnection: close\r\n\r\n" + Payload;
        QCOMPARE(payload.write(answer), qint64(answer.size()));
        payload.close();

        const auto serve = [this](const TestCertificates::ServerFiles& files, const QStringList& options) {
            return std::make_unique<OpensslServer>(files.certificate, files.key,
                QStringList {QStringLiteral("-HTTP")} + options, m_wwwFolder.path());
        };
        m_servers[Server::Good] = serve(m_pki->good(), {});
        m_servers[Server::Expired] = serve(m_pki->expired(), {});
        m_servers[Server::OtherHost] = serve(m_pki->otherHost(), {});
        m_servers[Server::GoodTls13Only] = serve(m_pki->good(), {QStringLiteral("-tls1_3")});
        m_servers[Server::GoodHttp2]
            = serve(m_pki->good(), {QStringLiteral("-alpn"), QStringLiteral("h2,http/1.1")});
        for (auto& server : m_servers)
            QVERIFY(server.second->waitUntilListening());
    }
    void cleanup()
    {
        CertificateChecking::setEnabled(false);
        QVERIFY(CertificateChecking::setCaBundle(QString()));
    }

    // Runs first: nothing has touched the switch yet.
    void offWithoutBundleByDefault()
    {
        QVERIFY(!CertificateChecking::isEnabled());
        QCOMPARE(CertificateChecking::caBundle(), QString());
    }

    void caBundleNotAsSet_data()
    {
        QTest::addColumn<QString>("file"); // relative to the certificates' folder
        QTest::addColumn<bool>("accepted");
        QTest::newRow("testCaAccepted") << "ca.pem" << true;
        QTest::newRow("missingFileRefused") << "no-such.pem" << false;
        QTest::newRow("keyWithoutCertificateRefused") << "ca.key" << false;
    }
    void caBundleNotAsSet()
    {
        QFETCH(QString, file);
        QFETCH(bool, accepted);
        // A refusal leaves the earlier bundle in place.
        QVERIFY(CertificateChecking::setCaBundle(m_pki->otherCaFile()));
        const QString path = QDir(m_pkiFolder.path()).filePath(file);
        QCOMPARE(CertificateChecking::setCaBundle(path), accepted);
        QCOMPARE(CertificateChecking::caBundle(), accepted ? path : m_pki->otherCaFile());
        // An empty name always goes back to the system store.
        QVERIFY(CertificateChecking::setCaBundle(QString()));
        QCOMPARE(CertificateChecking::caBundle(), QString());
    }

    void relativeBundleNotMadeAbsolute()
    {
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_pkiFolder.path()));
        const bool accepted = CertificateChecking::setCaBundle(QStringLiteral("ca.pem"));
        QVERIFY(QDir::setCurrent(before));
        QVERIFY(accepted);
        const QFileInfo bundle(CertificateChecking::caBundle());
        QVERIFY(bundle.isAbsolute());
        QCOMPARE(bundle.canonicalFilePath(), QFileInfo(m_pki->caFile()).canonicalFilePath());
    }

    // Readers on several threads always see one of the values written, whole.
    void settingsTornAcrossThreads()
    {
        const QString bundles[] = {m_pki->caFile(), m_pki->otherCaFile()};
        std::atomic<bool> stop {false};
        std::atomic<int> torn {0};
        QVERIFY(CertificateChecking::setCaBundle(bundles[0]));
        std::vector<std::thread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                while (!stop) {
                    const QString bundle = CertificateChecking::caBundle();
                    if (bundle != bundles[0] && bundle != bundles[1])
                        ++torn;
                    CertificateChecking::isEnabled();
                }
            });
        }
        for (int i = 0; i < 200; ++i) {
            CertificateChecking::setEnabled(i % 2 == 0);
            QVERIFY(CertificateChecking::setCaBundle(bundles[i % 2]));
        }
        stop = true;
        for (std::thread& reader : readers)
            reader.join();
        QCOMPARE(torn.load(), 0);
    }

    // With checking on, every class reaches the server whose certificate the bundle
    // vouches for, and fails as on a network error otherwise. With checking off every
    // class behaves as it always has, whatever bundle is set: the JSON client takes any
    // certificate; the downloaders keep their stacks' defaults, which check against the
    // system store (which does not know the test CA).
    void requestNotAsSwitchSays_data()
    {
        QTest::addColumn<bool>("checking");
        QTest::addColumn<Client>("client");
        QTest::addColumn<Server>("server");
        QTest::addColumn<Bundle>("bundle");
        QTest::addColumn<bool>("succeeds");
        const auto row = [](bool checking, Client client, const char* tail) -> QTestData& {
            return QTest::addRow("%s/%s%s", checking ? "on" : "off", ClientNames[int(client)], tail)
                << checking << client;
        };
        for (Client client :
            {Client::JsonSync, Client::JsonAsync, Client::CurlDownloader, Client::ZrDownloader}) {
            row(true, client, "/testCaTrusted") << Server::Good << Bundle::TestCa << true;
            row(true, client, "/systemStoreDoesNotKnowTestCa") << Server::Good << Bundle::System << false;
            row(true, client, "/otherCaUntrusted") << Server::Good << Bundle::OtherCa << false;
            row(true, client, "/expiredRefused") << Server::Expired << Bundle::TestCa << false;
            row(true, client, "/otherHostRefused") << Server::OtherHost << Bundle::TestCa << false;
            row(true, client, "/deletedBundleTrustsNothing") << Server::Good << Bundle::Deleted << false;
        }
        // The JSON client pins TLS 1.2, checking or not; the libcurl downloader has no pin.
        row(false, Client::JsonSync, "/tls13OnlyServerNotReached")
            << Server::GoodTls13Only << Bundle::System << false;
        row(true, Client::JsonSync, "/tls13OnlyServerStillNotReached")
            << Server::GoodTls13Only << Bundle::TestCa << false;
        row(true, Client::CurlDownloader, "/tls13OnlyServerReached")
            << Server::GoodTls13Only << Bundle::TestCa << true;
        // The JSON client stays on HTTP/1.1 when the server offers HTTP/2 (Qt 6 would take it):
        // this s_server answers HTTP/1.1 only.
        row(false, Client::JsonSync, "/http2OfferedNotTaken") << Server::GoodHttp2 << Bundle::System << true;
        for (Client client : {Client::JsonSync, Client::JsonAsync}) {
            row(false, client, "/unknownCaAccepted") << Server::Good << Bundle::System << true;
            row(false, client, "/bundleIgnored") << Server::OtherHost << Bundle::OtherCa << true;
        }
        for (Client client : {Client::CurlDownloader, Client::ZrDownloader}) {
            row(false, client, "/systemStoreDoesNotKnowTestCa") << Server::Good << Bundle::System << false;
            row(false, client, "/bundleIgnored") << Server::Good << Bundle::TestCa << false;
        }
    }
    void requestNotAsSwitchSays()
    {
        QFETCH(bool, checking);
        QFETCH(Client, client);
        QFETCH(Server, server);
        QFETCH(Bundle, bundle);
        QFETCH(bool, succeeds);
        QVERIFY(useBundle(bundle));
        if (checking)
            CertificateChecking::setEnabled(true);
        else
            QVERIFY(!CertificateChecking::isEnabled());
        Fetched fetched;
        fetch(client, urlOf(server), succeeds, fetched);
        if (QTest::currentTestFailed())
            return;
        QCOMPARE(fetched.succeeded, succeeds);
        QCOMPARE(fetched.networkFailure, !succeeds);
        QCOMPARE(fetched.body, succeeds ? Payload : QByteArray());
    }

    // CurlEasy reads the switch at every perform(): it applies to transfers made
    // before it was turned on, overrides what the caller set while it is on, and
    // gives libcurl's defaults back once it is off again. Each step is
    // "<on|off>:<bundle>:<expected CURLcode>".
    void curlEasyNotReadingSwitchAtPerform_data()
    {
        QTest::addColumn<bool>("callerTurnsChecksOff");
        QTest::addColumn<QStringList>("steps");
        QTest::newRow("offLeavesCallersOptions") << true << QStringList {"off:system:0"};
        QTest::newRow("onAfterConstruction") << false << QStringList {"on:testCa:0"};
        QTest::newRow("onOverridesCallersOptions") << true << QStringList {"on:otherCa:60"};
        QTest::newRow("onUsesSystemStoreWithoutBundle") << true << QStringList {"on:system:60"};
        QTest::newRow("bundleChangeTakesEffect") << false << QStringList {"on:testCa:0", "on:otherCa:60"};
        QTest::newRow("offAgainRestoresDefaults") << false << QStringList {"on:testCa:0", "off:testCa:60"};
        QTest::newRow("unreadableBundleFails") << false << QStringList {"on:deleted:77"};
    }
    void curlEasyNotReadingSwitchAtPerform()
    {
        QFETCH(bool, callerTurnsChecksOff);
        QFETCH(QStringList, steps);
        CurlEasy easy;
        QByteArray body;
        easy.setWriteFunction([&body](char* data, size_t size) {
            body.append(data, int(size));
            return size;
        });
        QVERIFY(easy.set(CURLOPT_URL, urlOf(Server::Good)));
        if (callerTurnsChecksOff) {
            curl_easy_setopt(easy.handle(), CURLOPT_SSL_VERIFYPEER, 0L);
            curl_easy_setopt(easy.handle(), CURLOPT_SSL_VERIFYHOST, 0L);
        }
        const QMap<QString, Bundle> bundles {{"system", Bundle::System}, {"testCa", Bundle::TestCa},
            {"otherCa", Bundle::OtherCa}, {"deleted", Bundle::Deleted}};
        for (const QString& step : steps) {
            const QStringList parts = step.split(QLatin1Char(':'));
            QVERIFY(useBundle(bundles.value(parts.at(1))));
            CertificateChecking::setEnabled(parts.at(0) == QLatin1String("on"));
            body.clear();
            QSignalSpy done(&easy, &CurlEasy::done);
            easy.perform();
            QVERIFY(done.wait(30000));
            QCOMPARE(int(easy.lastResult()), parts.at(2).toInt());
            QCOMPARE(body, easy.lastResult() == CURLE_OK ? Payload : QByteArray());
        }
    }

    // ZrDownloader keeps its manager, and with it open connections, between
    // downloads. A connection made under earlier rules is not reused once they
    // changed: the second download, with a bundle that does not know the server's
    // CA, needs a handshake of its own and fails. (The loopback server keeps
    // connections open, unlike s_server.)
    void zrDownloaderReusingConnectionOfOldRules()
    {
        ZrLoopback::LoopbackHttpServer server([](const ZrLoopback::HttpRequest&) {
            return ZrLoopback::HttpResponse(200, Payload, "application/octet-stream");
        });
        QVERIFY(server.enableTls(m_pki->good().certificate, m_pki->good().key));
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        QVERIFY(useBundle(Bundle::TestCa));
        CertificateChecking::setEnabled(true);
        ZrUtils::ZrDownloader downloader;
        QSignalSpy finished(&downloader, &ZrUtils::ZrDownloader::signalDownloadFinished);
        expectZrDownloaderLog(true);
        QVERIFY(downloader.StartDownload(server.url(QLatin1Char('/') + PayloadName), folder.path()));
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.at(0).at(0).toBool(), true);

        QVERIFY(useBundle(Bundle::OtherCa));
        expectZrDownloaderLog(false);
        QVERIFY(downloader.StartDownload(server.url(QLatin1Char('/') + PayloadName), folder.path()));
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.at(1).at(0).toBool(), false);
        QCOMPARE(server.requestCount(), 1);
    }
};

QTEST_GUILESS_MAIN(CertificateCheckingTest)
#include "tst_certificatechecking.moc"

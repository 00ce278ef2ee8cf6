// LOGClient: endpoint handling, the common headers and posting to the loopback
// log service, which verifies signature, hashes and sizes with its own code and
// decodes what arrives with protobuf's generated code.
#include <ZrUtils/LOGException.h>

#include "LogTestClient.h"
#include "LoopbackLogService.h"
#include "logservice/HostIp.h"

#include <QTest>

#include <lz4.h>
#include <openssl/evp.h>

using namespace cloudlog_sdk_v6;
using ZrLoopback::LoopbackLogService;
using StringMap = std::map<std::string, std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

Q_DECLARE_METATYPE(Pairs)

namespace
{

QByteArray md5Hex(const QByteArray& data)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.constData(), size_t(data.size()), out, &length, EVP_md5(), nullptr);
    return QByteArray(reinterpret_cast<const char*>(out), int(length)).toHex().toUpper();
}

LogItem item(uint32_t time, Pairs contents)
{
    LogItem i;
    i.timestamp = time;
    i.contents = std::move(contents);
    return i;
}

// Runs @p call and returns the LOGException it throws as "code|message|id|status".
template<typename Call> QByteArray failureOf(Call call)
{
    try {
        call();
    } catch (const LOGException& e) {
        return qBytes(e.GetErrorCode() + '|' + e.GetErrorMessage() + '|' + e.GetRequestId() + '|'
            + std::to_string(e.GetHttpCode()));
    }
    return "no exception";
}

} // namespace

class LogPostingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endpointMisread_data();
    void endpointMisread();
    void timeoutNotDefaulted_data();
    void timeoutNotDefaulted();
    void commonHeadersWrong();
    void postedLogsAltered_data();
    void postedLogsAltered();
    void hashKeyNotRouted();
    void groupSourceOverwritten();
    void emptyItemsReachNetwork();
    void wrongCredentialsAccepted();
    void securityTokenMissing();
    void unusableEndpointCrashes_data();
    void unusableEndpointCrashes();
    void hostIpWrong_data();
    void hostIpWrong();
};

void LogPostingTest::endpointMisread_data()
{
    QTest::addColumn<QByteArray>("endpoint");
    QTest::addColumn<QByteArray>("logHost");
    QTest::addColumn<bool>("rawIp");
    QTest::addColumn<QByteArray>("host"); // where a request for project "p" goes
    QTest::addColumn<QByteArray>("hostHeader"); // and the "Host" it names
    QTest::newRow("schemeAndPathDropped")
        << QByteArray("https://log.example.com/a/b") << QByteArray("log.example.com") << false
        << QByteArray("p.log.example.com") << QByteArray("p.log.example.com");
    QTest::newRow("rawIpWithPort") << QByteArray("192.168.1.10:8080") << QByteArray("192.168.1.10:8080")
                                   << true << QByteArray("192.168.1.10:8080")
                                   << QByteArray("p.192.168.1.10:8080");
    QTest::newRow("namedHostWithPort") << QByteArray("localhost:81/") << QByteArray("localhost:81") << false
                                       << QByteArray("p.localhost:81") << QByteArray("p.localhost:81");
    QTest::newRow("firstSchemeMarkOnly")
        << QByteArray("a://b://c") << QByteArray("b:") << false << QByteArray("p.b:") << QByteArray("p.b:");
    QTest::newRow("empty") << QByteArray() << QByteArray() << true << QByteArray() << QByteArray("p.");
    QTest::newRow("schemeOnly") << QByteArray("http://") << QByteArray() << true << QByteArray()
                                << QByteArray("p.");
}

void LogPostingTest::endpointMisread()
{
    QFETCH(QByteArray, endpoint);
    QFETCH(QByteArray, logHost);
    QFETCH(bool, rawIp);
    QFETCH(QByteArray, host);
    QFETCH(QByteArray, hostHeader);
    LogTestClient client("first.example.com", "id", "key", 5, "src", false);
    client.SetLogHost(stdBytes(endpoint));
    QCOMPARE(qBytes(client.GetLogHost()), logHost);
    QCOMPARE(qBytes(client.GetHostFieldSuffix()), "." + logHost);
    QCOMPARE(client.hostIsRawIp(), rawIp);
    QCOMPARE(qBytes(client.GetHost("p")), host);
    QCOMPARE(qBytes(client.GetHost("")), logHost);
    StringMap header;
    client.SetCommonHeader(header, 0, "p");
    QCOMPARE(qBytes(header["Host"]), hostHeader);
    header.clear();
    client.SetCommonHeader(header, 0, "");
    QCOMPARE(qBytes(header["Host"]), logHost);
}

void LogPostingTest::timeoutNotDefaulted_data()
{
    QTest::addColumn<int>("given");
    QTest::addColumn<int>("used");
    QTest::newRow("negative") << -5 << 20;
    QTest::newRow("zero") << 0 << 20;
    QTest::newRow("one") << 1 << 1;
}

void LogPostingTest::timeoutNotDefaulted()
{
    QFETCH(int, given);
    QFETCH(int, used);
    LogTestClient client("h.example.com", "id", "key", given, "src", false);
    QCOMPARE(client.timeoutSeconds(), used);
}

void LogPostingTest::commonHeadersWrong()
{
    LogTestClient client("h.example.com", "id", "key", "token", 5, "src", false);
    client.setDate("Thu, 01 Jan 1970 00:00:00 GMT");
    StringMap header {{"Host", "caller's"}, {"Content-Type", "kept"}};
    client.SetCommonHeader(header, -1, "p");
    const StringMap expected {{"Host", "p.h.example.com"}, {"User-Agent", "numozul v0.6.2"},
        {"x-log-apiversion", "0.6.0"}, {"x-log-signaturemethod", "hmac-sha1"},
        {"Date", "Thu, 01 Jan 1970 00:00:00 GMT"}, {"Content-Length", "4294967295"}, {"Content-Type", "kept"},
        {"x-acs-security-token", "token"}};
    QCOMPARE(header, expected);

    LogTestClient noToken("h.example.com", "id", "key", 5, "src", false);
    header.clear();
    noToken.SetCommonHeader(header, 0, "p");
    QCOMPARE(header.count("x-acs-security-token"), size_t(0));
}

void LogPostingTest::postedLogsAltered_data()
{
    QTest::addColumn<bool>("compress");
    QTest::addColumn<QByteArray>("topic");
    QTest::addColumn<Pairs>("contents");
    QTest::newRow("plain") << false << QByteArray("login") << Pairs {{"user", "ann"}, {"action", "open"}};
    QTest::newRow("lz4") << true << QByteArray("login") << Pairs {{"user", "ann"}, {"action", "open"}};
    QTest::newRow("nonAsciiKeysAndValues")
        << true << QByteArray("\xe4\xb8\xbb\xe9\xa2\x98")
        << Pairs {{"\xe5\x90\x8d\xe5\xad\x97", "Z\xc3\xbcrich"}, {std::string("\0\xff", 2), "bin"}};
    QTest::newRow("oneMiBValuePlain") << false << QByteArray() << Pairs {{"big", std::string(1 << 20, 'v')}};
    QTest::newRow("oneMiBValueLz4") << true << QByteArray() << Pairs {{"big", std::string(1 << 20, 'v')}};
    QTest::newRow("emptyContents") << false << QByteArray("t") << Pairs();
}

void LogPostingTest::postedLogsAltered()
{
    QFETCH(bool, compress);
    QFETCH(QByteArray, topic);
    QFETCH(Pairs, contents);
    LoopbackLogService service("id", "key");
    LogTestClient client(stdBytes(service.endpoint()), "id", "key", 10, "10.1.2.3", compress);
    const PostLogStoreLogsResponse response = client.PostLogStoreLogs(
        "proj", "store", stdBytes(topic), {item(1700000000, contents), item(1700000001, {{"n", "2"}})}, "");
    QCOMPARE(response.statusCode, 200);

    QCOMPARE(service.receivedCount(), 1);
    const ZrLoopback::ReceivedLogGroup group = service.received().first();
    QCOMPARE(qBytes(response.requestId), group.requestId);
    QCOMPARE(group.project, QByteArray("proj"));
    QCOMPARE(group.logstore, QByteArray("store"));
    QCOMPARE(group.topic, topic);
    QCOMPARE(group.source, QByteArray("10.1.2.3"));
    QCOMPARE(group.compressed, compress);
    QCOMPARE(group.logs.size(), 2);
    QCOMPARE(group.logs[0].time, 1700000000u);
    QVERIFY(!group.logs[0].hasTimeNs);
    QCOMPARE(group.logs[0].contents.size(), int(contents.size()));
    for (int i = 0; i < group.logs[0].contents.size(); ++i) {
        QCOMPARE(group.logs[0].contents[i].first, qBytes(contents[size_t(i)].first));
        QVERIFY(group.logs[0].contents[i].second == qBytes(contents[size_t(i)].second));
    }
    QCOMPARE(group.logs[1].contents.first().second, QByteArray("2"));

    const ZrLoopback::HttpRequest& request = group.request;
    QCOMPARE(request.target, QByteArray("/logstores/store"));
    QCOMPARE(request.header("Host"), "proj." + service.endpoint());
    QCOMPARE(request.header("Content-Type"), QByteArray("application/x-protobuf"));
    QCOMPARE(request.header("x-log-bodyrawsize"), QByteArray::number(group.rawBody.size()));
    QCOMPARE(request.header("Content-MD5"), md5Hex(request.body));
    // One framing only: the announced length, never chunks on top of it.
    QCOMPARE(request.header("Content-Length"), QByteArray::number(request.body.size()));
    QVERIFY(!request.hasHeader("Transfer-Encoding"));
    QCOMPARE(request.hasHeader("x-log-compresstype"), compress);
    QCOMPARE(request.header("Authorization"),
        "LOG id:" + LoopbackLogService::signature(LoopbackLogService::stringToSign(request), "key"));
    QCOMPARE(request.body == group.rawBody, !compress);
}

void LogPostingTest::hashKeyNotRouted()
{
    LoopbackLogService service("id", "key");
    LogTestClient client(stdBytes(service.endpoint()), "id", "key", 10, "src", true);
    client.PostLogStoreLogs("p", "store", "t", {item(1, {{"k", "v"}})}, "a b&c=d");
    QCOMPARE(service.receivedCount(), 1);
    const ZrLoopback::ReceivedLogGroup group = service.received().first();
    // Sent percent-encoded, signed raw: the service accepted the signature.
    QCOMPARE(group.request.target, QByteArray("/logstores/store/shards/route?key=a%20b%26c%3Dd"));
    QCOMPARE(group.hashKey, QByteArray("a b&c=d"));
    QCOMPARE(group.logstore, QByteArray("store"));
}

void LogPostingTest::groupSourceOverwritten()
{
    LoopbackLogService service("id", "key");
    LogTestClient client(stdBytes(service.endpoint()), "id", "key", 10, "client-source", false);
    pb::LogGroup group;
    group.logs.push_back(pb::Log {7, {{"k", "v"}}, true, 123});
    group.logTags.push_back({"tag", "value"});
    group.source = "own-source";
    client.PostLogStoreLogs("p", "store", group, "");
    group.source.clear();
    client.PostLogStoreLogs("p", "store", group, "");
    // An empty group is posted as it is: a zero-length body.
    client.PostLogStoreLogs("p", "store", pb::LogGroup {{}, {}, "", "s"}, "");

    const QList<ZrLoopback::ReceivedLogGroup> received = service.received();
    QCOMPARE(received.size(), 3);
    QCOMPARE(received[0].source, QByteArray("own-source"));
    QCOMPARE(received[1].source, QByteArray("client-source"));
    QCOMPARE(received[0].logs.first().timeNs, 123u);
    QCOMPARE(received[0].tags.first(), qMakePair(QByteArray("tag"), QByteArray("value")));
    QVERIFY(received[2].logs.isEmpty());
}

void LogPostingTest::emptyItemsReachNetwork()
{
    LoopbackLogService service("id", "key");
    LogTestClient client(stdBytes(service.endpoint()), "id", "key", 10, "src", true);
    QCOMPARE(failureOf([&] { client.PostLogStoreLogs("p", "store", "t", {}, ""); }),
        QByteArray("ParameterInvalid|Empty LogItem.||0"));
    QCOMPARE(service.http().requestCount(), 0);
}

void LogPostingTest::wrongCredentialsAccepted()
{
    LoopbackLogService service("id", "key");
    LogTestClient client(stdBytes(service.endpoint()), "id", "wrong", 10, "src", false);
    QVERIFY(failureOf([&] {
        client.PostLogStoreLogs("p", "s", "", {LogItem {}}, "");
    }).startsWith("SignatureNotMatch|signature "));
    client.SetAccessKeyId("other");
    QVERIFY(failureOf([&] {
        client.PostLogStoreLogs("p", "s", "", {LogItem {}}, "");
    }).startsWith("InvalidAccessKeyId|access key id other does not exist|"));
    client.SetAccessKeyId("id");
    client.SetAccessKey("key");
    QCOMPARE(qBytes(client.GetAccessKeyId() + client.GetAccessKey()), QByteArray("idkey"));
    client.PostLogStoreLogs("p", "s", "", {LogItem {}}, "");
    QCOMPARE(service.receivedCount(), 1);
}

void LogPostingTest::securityTokenMissing()
{
    LoopbackLogService service("id", "key");
    service.addAccessKey("tempId", "tempKey", "token-1");
    LogTestClient withToken(stdBytes(service.endpoint()), "tempId", "tempKey", "token-1", 10, "src", false);
    withToken.PostLogStoreLogs("p", "s", "", {LogItem {}}, "");
    QCOMPARE(service.received().first().request.header("x-acs-security-token"), QByteArray("token-1"));
    LogTestClient withoutToken(stdBytes(service.endpoint()), "tempId", "tempKey", 10, "src", false);
    QCOMPARE(failureOf([&] { withoutToken.PostLogStoreLogs("p", "s", "", {LogItem {}}, ""); }),
        QByteArray("Unauthorized|security token does not match|000000000000000000000002|401"));
}

void LogPostingTest::unusableEndpointCrashes_data()
{
    QTest::addColumn<QByteArray>("endpoint");
    QTest::addColumn<QByteArray>("failure");
    QTest::newRow("empty") << QByteArray()
                           << QByteArray("ClientNetworkError|Request operation failed.CURL_ERROR_CODE:3||0");
    QTest::newRow("schemeOnly") << QByteArray(
        "http://") << QByteArray("ClientNetworkError|Request operation failed.CURL_ERROR_CODE:3||0");
    QTest::newRow("portOne") << QByteArray("127.0.0.1:1")
                             << QByteArray("ClientNetworkError|Can not connect to server.||0");
}

void LogPostingTest::unusableEndpointCrashes()
{
    QFETCH(QByteArray, endpoint);
    QFETCH(QByteArray, failure);
    LogTestClient client(stdBytes(endpoint), "id", "key", 2, "src", true);
    QCOMPARE(failureOf([&] { client.PostLogStoreLogs("p", "s", "", {item(1, {{"k", "v"}})}, ""); }), failure);
}

void LogPostingTest::hostIpWrong_data()
{
    QTest::addColumn<QByteArray>("hostName");
    QTest::addColumn<QByteArray>("interfaceName");
    QTest::addColumn<QByteArray>("ip");
    QTest::newRow("addressKept") << QByteArray("10.20.30.40") << QByteArray("lo")
                                 << QByteArray("10.20.30.40");
    QTest::newRow("shortTextNotLoopbackChecked")
        << QByteArray("1.2.3.4") << QByteArray("none0") << QByteArray("1.2.3.4");
    QTest::newRow("loopbackFallsBackToInterface")
        << QByteArray("localhost") << QByteArray("lo") << QByteArray("127.0.0.1");
    QTest::newRow("loopbackPrefixFallsBack")
        << QByteArray("127.0.0.10") << QByteArray("lo") << QByteArray("127.0.0.1");
    QTest::newRow("noInterfaceEmpty") << QByteArray("localhost") << QByteArray("none0") << QByteArray();
    QTest::newRow("noHostName") << QByteArray() << QByteArray("none0") << QByteArray();
}

void LogPostingTest::hostIpWrong()
{
    QFETCH(QByteArray, hostName);
    QFETCH(QByteArray, interfaceName);
    QFETCH(QByteArray, ip);
    QCOMPARE(qBytes(GetHostIpFor(hostName.constData(), interfaceName.constData())), ip);
}

QTEST_GUILESS_MAIN(LogPostingTest)
#include "tst_logposting.moc"

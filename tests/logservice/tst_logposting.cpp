// LOGClient: endpoint handling, the common headers and posting to the loopback
// log service, which verifies signature, hashes and sizes with its own code and
// decodes what arrives with protobuf's generated code.
#include "LogTestClient.h"
#include "LoopbackLogService.h"
#include "logservice/HostIp.h"

#include <QTest>

using namespace cloudlog_sdk_v6;
using ZrLoopback::LoopbackLogService;
using StringMap = std::map<std::string, std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

Q_DECLARE_METATYPE(Pairs)

namespace
{

// What @p endpoint sets: the host, "raw" or "named", where project "p" goes and the "Host" it names.
std::string endpointOf(const char* endpoint)
{
    LogTestClient client("first.example.com", "id", "key", 5, "src", false);
    client.SetLogHost(endpoint);
    StringMap header, noProject;
    client.SetCommonHeader(header, 0, "p");
    client.SetCommonHeader(noProject, 0, "");
    const std::string host = client.GetLogHost();
    // Without a project, everything names the host itself.
    const bool plain = client.GetHostFieldSuffix() == "." + host && client.GetHost("") == host
        && noProject["Host"] == host;
    return host + (client.hostIsRawIp() ? " raw " : " named ") + client.GetHost("p")
        + " Host:" + header["Host"] + (plain ? "" : " inconsistent");
}

} // namespace

class LogPostingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clientSettingWrong_data();
    void clientSettingWrong();
    void commonHeadersWrong();
    void postedLogsAltered_data();
    void postedLogsAltered();
    void groupSourceOverwritten();
    void credentialsMisapplied();
    void unusablePostNotRejected();
};

void LogPostingTest::clientSettingWrong_data()
{
    QTest::addColumn<QByteArray>("actual");
    QTest::addColumn<QByteArray>("expected");
    auto row = [](const char* name, const std::string& actual, const char* expected) {
        QTest::newRow(name) << qBytes(actual) << QByteArray(expected);
    };
    // The "Host" header names the project even where the request goes to a raw address.
    row("endpointSchemeAndPathDropped", endpointOf("https://log.example.com/a/b"),
        "log.example.com named p.log.example.com Host:p.log.example.com");
    row("endpointRawIpWithPort", endpointOf("192.168.1.10:8080"),
        "192.168.1.10:8080 raw 192.168.1.10:8080 Host:p.192.168.1.10:8080");
    row("endpointNamedHostWithPort", endpointOf("localhost:81/"),
        "localhost:81 named p.localhost:81 Host:p.localhost:81");
    row("endpointFirstSchemeMarkOnly", endpointOf("a://b://c"), "b: named p.b: Host:p.b:");
    row("endpointEmpty", endpointOf(""), " raw  Host:p.");
    row("endpointSchemeOnly", endpointOf("http://"), " raw  Host:p.");
    auto timeout = [](int given) {
        return std::to_string(LogTestClient("h", "id", "key", given, "src", false).timeoutSeconds());
    };
    row("timeoutNegativeDefaulted", timeout(-5), "20");
    row("timeoutZeroDefaulted", timeout(0), "20");
    row("timeoutOneKept", timeout(1), "1");
    row("hostIpAddressKept", GetHostIpFor("10.20.30.40", "lo"), "10.20.30.40");
    row("hostIpShortTextNotLoopbackChecked", GetHostIpFor("1.2.3.4", "none0"), "1.2.3.4");
    row("hostIpLoopbackFallsBackToInterface", GetHostIpFor("localhost", "lo"), "127.0.0.1");
    row("hostIpLoopbackPrefixFallsBack", GetHostIpFor("127.0.0.10", "lo"), "127.0.0.1");
    row("hostIpNoInterfaceEmpty", GetHostIpFor("localhost", "none0"), "");
    row("hostIpNoHostName", GetHostIpFor("", "none0"), "");
}

void LogPostingTest::clientSettingWrong()
{
    QFETCH(QByteArray, actual);
    QFETCH(QByteArray, expected);
    QCOMPARE(actual, expected);
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

    header.clear();
    LogTestClient("h.example.com", "id", "key", 5, "src", false).SetCommonHeader(header, 0, "p");
    QCOMPARE(header.count("x-acs-security-token"), size_t(0));
}

void LogPostingTest::postedLogsAltered_data()
{
    QTest::addColumn<bool>("compress");
    QTest::addColumn<QByteArray>("topic");
    QTest::addColumn<Pairs>("contents");
    QTest::addColumn<QByteArray>("hashKey");
    const Pairs login {{"user", "ann"}, {"action", "open"}};
    const Pairs big {{"big", std::string(1 << 20, 'v')}};
    QTest::newRow("plain") << false << QByteArray("login") << login << QByteArray();
    QTest::newRow("lz4") << true << QByteArray("login") << login << QByteArray();
    QTest::newRow("nonAsciiKeysAndValues")
        << true << QByteArray("\xe4\xb8\xbb\xe9\xa2\x98")
        << Pairs {{"\xe5\x90\x8d\xe5\xad\x97", "Z\xc3\xbcrich"}, {std::string("\0\xff", 2), "bin"}}
        << QByteArray();
    QTest::newRow("oneMiBValuePlain") << false << QByteArray() << big << QByteArray();
    QTest::newRow("oneMiBValueLz4") << true << QByteArray() << big << QByteArray();
    QTest::newRow("emptyContents") << false << QByteArray("t") << Pairs() << QByteArray();
    // Sent percent-encoded, signed raw: the service accepts the signature only so.
    QTest::newRow("hashKeyRouted") << true << QByteArray("t") << login << QByteArray("a b&c=d");
}

void LogPostingTest::postedLogsAltered()
{
    QFETCH(bool, compress);
    QFETCH(QByteArray, topic);
    QFETCH(Pairs, contents);
    QFETCH(QByteArray, hashKey);
    LoopbackLogService service("id", "key");
    LogTestClient client(stdBytes(service.endpoint()), "id", "key", 10, "10.1.2.3", compress);
    const PostLogStoreLogsResponse response = client.PostLogStoreLogs("proj", "store", stdBytes(topic),
        {{1700000000, "ignored", "ignored", contents}, {1700000001, "", "", {{"n", "2"}}}},
        stdBytes(hashKey));
    QCOMPARE(response.statusCode, 200);

    // The service has checked signature, Content-Length, Content-MD5 and x-log-bodyrawsize.
    QCOMPARE(service.receivedCount(), 1);
    const ZrLoopback::ReceivedLogGroup group = service.received().first();
    QCOMPARE(qBytes(response.requestId), group.requestId);
    QCOMPARE(
        group.project + '|' + group.logstore + '|' + group.hashKey + '|' + group.topic + '|' + group.source,
        "proj|store|" + hashKey + '|' + topic + "|10.1.2.3");
    QCOMPARE(group.compressed, compress);
    QCOMPARE(group.logs.size(), 2);
    QCOMPARE(group.logs[0].time, 1700000000u);
    QVERIFY(!group.logs[0].hasTimeNs);
    ZrLoopback::KeyValueList expected;
    for (const auto& [key, value] : contents)
        expected.append({qBytes(key), qBytes(value)});
    QVERIFY(group.logs[0].contents == expected);
    QCOMPARE(group.logs[1].contents, (ZrLoopback::KeyValueList {{"n", "2"}}));

    const ZrLoopback::HttpRequest& request = group.request;
    QCOMPARE(request.target,
        hashKey.isEmpty() ? QByteArray("/logstores/store")
                          : "/logstores/store/shards/route?key=" + hashKey.toPercentEncoding());
    QCOMPARE(request.header("Host"), "proj." + service.endpoint());
    // One framing only: the announced length, never chunks on top of it.
    QVERIFY(!request.hasHeader("Transfer-Encoding"));
}

void LogPostingTest::groupSourceOverwritten()
{
    LoopbackLogService service("id", "key");
    LogTestClient client(stdBytes(service.endpoint()), "id", "key", 10, "client-source", false);
    pb::LogGroup group {{pb::Log {7, {{"k", "v"}}, true, 123}}, {{"tag", "value"}}, "", "own-source"};
    client.PostLogStoreLogs("p", "store", group, "");
    group.source.clear();
    client.PostLogStoreLogs("p", "store", group, "");
    // An empty group is posted as it is: a zero-length body.
    client.PostLogStoreLogs("p", "store", pb::LogGroup {{}, {}, "", "s"}, "");

    const QList<ZrLoopback::ReceivedLogGroup> received = service.received();
    QCOMPARE(received.size(), 3);
    QCOMPARE(received[0].source + ' ' + received[1].source, QByteArray("own-source client-source"));
    QCOMPARE(received[0].logs.first().timeNs, 123u);
    QCOMPARE(received[0].tags.first(), qMakePair(QByteArray("tag"), QByteArray("value")));
    QVERIFY(received[2].logs.isEmpty());
}

void LogPostingTest::credentialsMisapplied()
{
    LoopbackLogService service("id", "key");
    service.addAccessKey("tempId", "tempKey", "token-1");
    LogTestClient client(stdBytes(service.endpoint()), "id", "wrong", 10, "src", false);
    auto post = [](LogTestClient& client) {
        return logFailure([&client] { client.PostLogStoreLogs("p", "s", "", {LogItem {}}, ""); });
    };
    QVERIFY(post(client).startsWith("SignatureNotMatch|"));
    client.SetAccessKeyId("tempId");
    client.SetAccessKey("tempKey");
    QVERIFY(post(client).startsWith("Unauthorized|security token does not match|"));
    client.SetAccessKeyId("id");
    client.SetAccessKey("key");
    QCOMPARE(post(client), QByteArray("no exception"));
    LogTestClient withToken(stdBytes(service.endpoint()), "tempId", "tempKey", "token-1", 10, "src", false);
    QCOMPARE(post(withToken), QByteArray("no exception"));
    QCOMPARE(service.received().last().request.header("x-acs-security-token"), QByteArray("token-1"));
}

void LogPostingTest::unusablePostNotRejected()
{
    LoopbackLogService service("id", "key");
    LogTestClient client(stdBytes(service.endpoint()), "id", "key", 10, "src", true);
    QCOMPARE(logFailure([&] { client.PostLogStoreLogs("p", "store", "t", {}, ""); }),
        QByteArray("ParameterInvalid|Empty LogItem.||0"));
    QCOMPARE(service.http().requestCount(), 0);
    // An empty endpoint fails in the transport, not with a crash.
    for (const char* endpoint : {"", "http://"}) {
        client.SetLogHost(endpoint);
        QCOMPARE(logFailure([&] {
            client.PostLogStoreLogs("p", "s", "", {{1, "", "", {{"k", "v"}}}}, "");
        }),
            QByteArray("ClientNetworkError|Request operation failed.CURL_ERROR_CODE:3||0"));
    }
}

QTEST_GUILESS_MAIN(LogPostingTest)
#include "tst_logposting.moc"

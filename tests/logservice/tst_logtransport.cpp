// LOGClient's requests and answers: endpoints, common headers, signature and query
// string, posts checked by the loopback log service (OpenSSL, protobuf's generated
// code), the readers of answers and the LOGException of every failure.
#include <ZrUtils/LOGAdapter.h>
#include <ZrUtils/LogACL.h>

#include "LogTestClient.h"
#include "logservice/AdminParsing.h"
#include "logservice/HeaderParser.h"
#include "logservice/HostIp.h"
#include "logservice/JsonExtract.h"

#include <QTcpServer>
#include <QTest>

#include <memory>

using namespace cloudlog_sdk_v6;
using ZrLoopback::HttpResponse;
using ZrLoopback::LoopbackLogService;
using StringMap = std::map<std::string, std::string>;
using ResourcePtr = std::shared_ptr<Resource>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

Q_DECLARE_METATYPE(ZrLoopback::HttpResponse)
Q_DECLARE_METATYPE(ResourcePtr)
Q_DECLARE_METATYPE(Pairs)

namespace
{

const std::string kDate = "Thu, 01 Jan 1970 00:00:00 GMT";

// The signature of @p method on /logstores, then "|" and whether a "Date" entry is
// there afterwards: a missing one is looked up, not skipped, leaving an empty entry.
QByteArray signatureOf(
    const char* method, const char* body, StringMap header, const StringMap& parameters, bool dated = true)
{
    if (dated)
        header.emplace("Date", kDate);
    const std::string signature
        = LOGAdapter::GetUrlSignature(method, "/logstores", header, parameters, body, "key", 0);
    return qBytes(signature) + '|' + QByteArray::number(int(header.count("Date")));
}

QByteArray signedAs(const QByteArray& toSign)
{
    return LoopbackLogService::signature(toSign, "key") + "|1";
}

QByteArray queryOf(const StringMap& parameters)
{
    std::string out = "stale";
    LOGAdapter::GetQueryString(parameters, out);
    return qBytes(out);
}

// "name=value;" per entry.
QByteArray joined(const StringMap& header)
{
    QByteArray out;
    for (const auto& [name, value] : header)
        out += qBytes(name) + '=' + qBytes(value) + ';';
    return out;
}

// What the parser stores of one response header line.
QByteArray headerOf(const QByteArray& line)
{
    StringMap header;
    ParseResponseHeaderLine(line.constData(), size_t(line.size()), header);
    return joined(header);
}

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

// What SetCommonHeader() makes of a caller's "Host" and "Content-Type".
QByteArray commonHeaders(LogTestClient&& client)
{
    client.setDate(kDate);
    StringMap header {{"Host", "caller's"}, {"Content-Type", "kept"}};
    client.SetCommonHeader(header, -1, "p");
    return joined(header);
}

// Extracts member "m" of @p json as a @p T (a rapidjson::Value standing for the object
// form); returns the JsonException as "code|message", or "extracted".
template<typename T> QByteArray extracted(const char* json)
{
    try {
        rapidjson::Document document;
        ExtractJsonResult(json, document);
        if constexpr (std::is_same_v<T, rapidjson::Value>) {
            GetJsonValue(document, "m");
        } else {
            T value;
            ExtractJsonResult(document, "m", value);
        }
    } catch (const JsonException& e) {
        return qBytes(e.GetErrorCode() + '|' + e.GetErrorMessage());
    }
    return "extracted";
}

// "X-Log-Count" @p value read as 64 and 32 bits over a default of 7: "wide|narrow", "-" where refused.
QByteArray headerNumbers(const char* value)
{
    HttpMessage message;
    if (value)
        message.header["X-Log-Count"] = value; // found in any case
    const auto extract = [&](auto result) {
        try {
            ExtractHeaderNumber(message, "x-log-count", result);
        } catch (const JsonException&) {
            return QByteArray("-");
        }
        return QByteArray::number(qint64(result));
    };
    return extract(int64_t(7)) + '|' + extract(int32_t(7));
}

// A log of a query answer as text(), or the message.
QByteArray queriedLog(const char* json)
{
    rapidjson::Document document;
    document.Parse(json);
    try {
        return text(ParseQueriedLog(document));
    } catch (const JsonException& e) {
        return qBytes(e.GetErrorMessage());
    }
}

// A row reading @p json into a model of type T, which must write it back as @p full
// (by default @p json itself) and, when given, @p request as its request form.
template<typename T>
void modelRow(const char* name, const char* json, const char* request = "", bool isUpdate = false,
    const char* full = nullptr)
{
    QTest::newRow(name) << ResourcePtr(std::make_shared<T>()) << QByteArray(json)
                        << QByteArray(full ? full : json) << isUpdate << QByteArray(request);
}

// A row whose @p json a model of type T refuses with @p message.
template<typename T> void malformedRow(const char* name, const char* json, const char* message)
{
    QTest::newRow(name) << ResourcePtr(std::make_shared<T>()) << QByteArray(json)
                        << "BadResponse|" + QByteArray(message) + "||0" << false << QByteArray();
}

} // namespace

class LogTransportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textWrong_data();
    void textWrong();
    void modelMisread_data();
    void modelMisread();
    void requestOrResponseLost();
    void postedLogsAltered_data();
    void postedLogsAltered();
    void groupSourceOverwritten();
    void credentialsMisapplied();
    void emptyPostNotRejected();
    void failureMappedWrong_data();
    void failureMappedWrong();
};

void LogTransportTest::textWrong_data()
{
    QTest::addColumn<QByteArray>("actual");
    QTest::addColumn<QByteArray>("expected");
    // Takes a std::string or a QByteArray.
    auto row = [](const char* name, const auto& actual, const QByteArray& expected) {
        QTest::newRow(name) << QByteArray(actual.data(), int(actual.size())) << expected;
    };
    // The "Host" header names the project even where the request goes to a raw address.
    row("endpointSchemeAndPathDropped", endpointOf("https://log.example.com/a/b"),
        "log.example.com named p.log.example.com Host:p.log.example.com");
    row("endpointRawIpWithPort", endpointOf("192.168.1.10:8080"),
        "192.168.1.10:8080 raw 192.168.1.10:8080 Host:p.192.168.1.10:8080");
    row("endpointFirstSchemeMarkOnly", endpointOf("a://b://c"), "b: named p.b: Host:p.b:");
    row("endpointSchemeOnly", endpointOf("http://"), " raw  Host:p.");
    auto timeout = [](int given) {
        return std::to_string(LogTestClient("h", "id", "key", given, "src", false).timeoutSeconds());
    };
    row("timeoutNegativeDefaulted", timeout(-5), "20");
    row("timeoutZeroDefaulted", timeout(0), "20");
    row("timeoutOneKept", timeout(1), "1");
    row("hostIpAddressKept", GetHostIpFor("10.20.30.40", "lo"), "10.20.30.40");
    row("hostIpShortTextNotLoopbackChecked", GetHostIpFor("1.2.3.4", "none0"), "1.2.3.4");
    row("hostIpLoopbackPrefixFallsBack", GetHostIpFor("127.0.0.10", "lo"), "127.0.0.1");
    row("hostIpNoInterfaceEmpty", GetHostIpFor("localhost", "none0"), "");
    const QByteArray common = "Content-Length=4294967295;Content-Type=kept;Date="
        + QByteArray::fromStdString(kDate) + ";Host=p.h.example.com;User-Agent=numozul v0.6.2;";
    const QByteArray version = "x-log-apiversion=0.6.0;x-log-signaturemethod=hmac-sha1;";
    row("commonHeadersHostReplacedTypeKept",
        commonHeaders(LogTestClient("h.example.com", "id", "key", "token", 5, "src", false)),
        common + "x-acs-security-token=token;" + version);
    row("commonHeadersNoTokenHeaderWithoutToken",
        commonHeaders(LogTestClient("h.example.com", "id", "key", 5, "src", false)), common + version);

    const QByteArray date = QByteArray::fromStdString(kDate) + '\n';
    row("signMd5FromBodyNotHeader", signatureOf("POST", "abc", {{"Content-MD5", "WRONG"}}, {}),
        signedAs("POST\n900150983CD24FB0D6963F7D28E17F72\n\n" + date + "/logstores"));
    row("signMissingDateEmpty", signatureOf("GET", "", {}, {}, false), signedAs("GET\n\n\n\n/logstores"));
    row("signContentTypeExactCaseOnly", signatureOf("GET", "", {{"content-type", "a/b"}}, {}),
        signedAs("GET\n\n\n" + date + "/logstores"));
    row("signContentTypeLine", signatureOf("GET", "", {{"Content-Type", "a/b"}}, {}),
        signedAs("GET\n\na/b\n" + date + "/logstores"));
    row("signCanonicalHeadersSortedLowerCaseOnly",
        signatureOf("GET", "",
            {{"x-log-b", "2"}, {"x-acs-a", "1"}, {"x-log-a", " spaced "}, {"X-Log-Upper", "u"},
                {"x-log-", "p"}, {"x-lo", "short"}, {"User-Agent", "ua"}},
            {}),
        signedAs("GET\n\n\n" + date + "x-acs-a:1\nx-log-:p\nx-log-a: spaced \nx-log-b:2\n/logstores"));
    const StringMap parameters {{"type", "log"}, {"query", "a b&c=d+e/"}, {"k y", ""}};
    row("signParametersRawInKeyOrder", signatureOf("GET", "", {}, parameters),
        signedAs("GET\n\n\n" + date + "/logstores?k y=&query=a b&c=d+e/&type=log"));
    row("signVersionOneRejected", logFailure([] {
        StringMap header;
        LOGAdapter::GetUrlSignature("GET", "/", header, {}, "", "key", 1);
    }),
        "NotImplemented|Signature Version does not support.||0");
    row("queryValuesEncodedKeysNot", queryOf(parameters), "k y=&query=a%20b%26c%3Dd%2Be%2F&type=log");
    row("queryNone", queryOf({}), "");

    row("headerBlanksAroundColon", headerOf("X-Spaced \t :  \tv a l \r\n"), "X-Spaced=v a l ;");
    row("headerColonInValue", headerOf("Date: " + date.trimmed() + "\r\n"), "Date=" + date.trimmed() + ';');
    row("headerEmptyValue", headerOf("a:\r\n"), "a=;");
    row("headerThreeBytesSkipped", headerOf("a:\n"), "");
    row("headerLeadingColonSkipped", headerOf(":ab\r\n"), "");
    row("headerColonOnlyInCrlfSkipped", headerOf("abc:\n"), "");
    row("headerLastTwoBytesDropped", headerOf("k: vx\n"), "k=v;");

    row("jsonNotString", extracted<std::string>("{\"m\":1}"),
        "ValueTypeException|Member m is not string type");
    row("jsonMissing", extracted<int32_t>("{\"n\":1}"), "NoMemberException|Member m does not exist");
    row("jsonIntTooBig", extracted<int32_t>("{\"m\":4294967295}"),
        "ValueTypeException|Member m is not int type");
    row("jsonUintNegative", extracted<uint32_t>("{\"m\":-1}"),
        "ValueTypeException|Member m is not uint type");
    row("jsonBoolAsText", extracted<bool>("{\"m\":\"true\"}"),
        "ValueTypeException|Member m is not boolean type");
    row("jsonObjectAsArray", extracted<rapidjson::Value>("{\"m\":[]}"),
        "ValueTypeException|Member m is not json value type");
    row("jsonNotJson", extracted<std::string>("{\"m\":"), "ParseException|Fail to parse from json string");
    row("jsonNotObject", extracted<std::string>("\"m\""),
        "InvalidObjectException|response is not valid JSON object");

    row("headerNumberNegative", headerNumbers("-3"), "-3|-3");
    row("headerNumberBeyondInt32", headerNumbers("3000000000"), "3000000000|-");
    row("headerNumberSuffix", headerNumbers("12a"), "-|-");
    row("headerNumberLeadingBlank", headerNumbers(" 12"), "-|-");
    row("headerNumberPlusSign", headerNumbers("+1"), "-|-");
    row("headerNumberBeyondInt64", headerNumbers("99999999999999999999"), "-|-");
    row("headerNumberLoneMinus", headerNumbers("-"), "-|-");
    row("headerNumberAbsentKeepsDefault", headerNumbers(nullptr), "7|7");

    row("queriedLogAllMembers",
        queriedLog(R"({"__time__":"17","k":"v","__topic__":"t","__source__":"s","__tag__:host":"h","z":""})"),
        "17 t s host=h ;k=v z= ;");
    row("queriedLogNumericTime", queriedLog(R"({"__time__":4294967295})"), "4294967295   ;;");
    row("queriedLogTimeMissing", queriedLog(R"({"k":"v"})"), "Member __time__ does not exist");
    row("queriedLogNegativeTime", queriedLog(R"({"__time__":"-1"})"), "Member __time__ is not uint type");
    row("queriedLogTimeBeyond32Bits", queriedLog(R"({"__time__":"4294967296"})"),
        "Member __time__ is not uint type");
    row("queriedLogNumberValue", queriedLog(R"({"__time__":"1","k":5})"), "Member k is not string type");
    row("queriedLogNotObject", queriedLog("[1]"), "log is not valid JSON object");
}

void LogTransportTest::textWrong()
{
    QFETCH(QByteArray, actual);
    QFETCH(QByteArray, expected);
    QCOMPARE(actual, expected);
}

void LogTransportTest::modelMisread_data()
{
    QTest::addColumn<ResourcePtr>("model");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("full"); // or the failure
    QTest::addColumn<bool>("isUpdate");
    QTest::addColumn<QByteArray>("request"); // empty: not checked
    modelRow<LogStore>("logStoreWithEscapes",
        R"({"logstoreName":"s\"\\中","ttl":30,"shardCount":2,"createTime":3,"lastModifyTime":0})",
        R"({"logstoreName":"s\"\\中","ttl":30,"shardCount":2})");
    modelRow<LogStore>("logStoreUpdateKeepsShards",
        R"({"logstoreName":"s","ttl":7,"shardCount":2,"createTime":0,"lastModifyTime":0})",
        R"({"logstoreName":"s","ttl":7})", true);
    modelRow<Config>("config",
        R"({"configName":"nginx","inputType":"file","inputDetail":{"logType":"common_reg_log",)"
        R"("logPath":"/var/log/nginx","filePattern":"access*.log","localStorage":true,"timeFormat":"",)"
        R"j("logBeginRegex":".*","regex":"(.*)","key":["ip","url"],"filterKey":["ip"],"filterRegex":["^10\\."],)j"
        R"("topicFormat":"none"},"outputType":"LogService","outputDetail":{"logstoreName":"access",)"
        R"("endpoint":"127.0.0.1:1"},"createTime":5,"lastModifyTime":0})");
    modelRow<Index>("index",
        R"({"line":{"token":[","," "],"caseSensitive":false,"include_keys":["msg"],"chn":false},"keys":{)"
        R"("level":{"type":"text","token":[";"],"caseSensitive":true,"alias":"lvl","doc_value":false,"chn":true},)"
        R"("latency":{"type":"long","doc_value":true,"chn":false},"payload":{"type":"json","token":[],)"
        R"("caseSensitive":false,"doc_value":false,"chn":false,"json_keys":{"user.id":{"type":"long",)"
        R"("doc_value":false,"chn":false}},"index_all":true,"max_depth":3}},"ttl":7,"log_reduce":true,)"
        R"("lastModifyTime":1700000000})");
    modelRow<Index>("indexWithoutLineOrTime",
        R"({"keys":{"n":{"type":"long","doc_value":true,"chn":false}},"ttl":30,"log_reduce":false,"lastModifyTime":5})",
        R"({"keys":{"n":{"type":"long","doc_value":true,"chn":false}},"ttl":30,"log_reduce":false})");
    modelRow<KeyContent>("numberKeyWithoutTokens",
        R"({"type":"long","token":["x"],"doc_value":false,"chn":false})",
        R"({"type":"long","doc_value":false,"chn":false})", false,
        R"({"type":"long","doc_value":false,"chn":false})");
    // "json" keys are kept apart from the others, whose order stays.
    modelRow<AllKeys>("jsonKeysFiledApart",
        R"({"a":{"type":"text","token":[","]},"j":{"type":"json","json_keys":{"x":{"type":"long"}},)"
        R"("index_all":false},"b":{"type":"double","doc_value":true}})",
        "", false,
        R"({"a":{"type":"text","token":[","],"caseSensitive":false,"doc_value":false,"chn":false},)"
        R"("b":{"type":"double","doc_value":true,"chn":false},"j":{"type":"json","token":[],)"
        R"("caseSensitive":false,"doc_value":false,"chn":false,"json_keys":{"x":{"type":"long",)"
        R"("doc_value":false,"chn":false}},"index_all":false,"max_depth":-1}})");
    modelRow<MachineGroup>("machineGroup",
        R"({"groupName":"web","machineIdentifyType":"ip","groupType":"","groupAttribute":{"groupTopic":"front"},)"
        R"("machineList":["10.0.0.1","10.0.0.2"],"createTime":0,"lastModifyTime":9})");
    modelRow<ConsumerGroup>("consumerGroupNamedForRequest", R"({"name":"g","timeout":30,"order":true})",
        R"({"consumerGroup":"g","timeout":30,"order":true})");
    modelRow<ConsumerGroupCheckpoint>("checkpointWithoutServiceFields",
        R"({"shard":2,"checkpoint":"MTA=","updateTime":77,"consumer":"c1"})",
        R"({"shard":2,"checkpoint":"MTA="})");
    modelRow<Heartbeat>("heartbeatBareArray", "[0,5]", "[0,5]");
    modelRow<ShardItem>("shard",
        R"({"shardID":3,"status":"readonly","inclusiveBeginKey":"00000000000000000000000000000000",)"
        R"("exclusiveEndKey":"ffffffffffffffffffffffffffffffff","createTime":12})");
    modelRow<SqlInstance>(
        "sqlInstanceCuOnly", R"({"name":"p","cu":4,"createTime":1,"updateTime":2})", R"({"cu":4})");
    modelRow<ACL>("aclWords",
        R"({"action":"grant","principle":"ANONYMOUS","privilege":["LIST","WRITE","ADMIN"]})",
        R"({"action":"grant","principle":"ANONYMOUS","privilege":["LIST","WRITE","ADMIN"]})");
    malformedRow<LogStore>("notJson", "{", "Fail to parse from json string");
    malformedRow<LogStore>("arrayForObject", "[]", "LogStore is not valid JSON object");
    malformedRow<LogStore>("ttlAsText", R"({"logstoreName":"s","ttl":"7"})", "Member ttl is not int type");
    malformedRow<MachineGroup>("numberInMachineList",
        R"({"groupName":"g","machineIdentifyType":"ip","machineList":[1]})",
        "Member machineList is not string type");
    malformedRow<MachineGroup>("machineListNotArray",
        R"({"groupName":"g","machineIdentifyType":"ip","machineList":"a"})",
        "Member machineList is not array type");
    malformedRow<ACL>("unknownPrivilege", R"({"action":"grant","principle":"x","privilege":["ROOT"]})",
        "Member privilege holds unknown privilege ROOT");
    malformedRow<Heartbeat>("heartbeatOfText", R"(["a"])", "Member shard is not int type");
    malformedRow<Index>("indexOfNothing", R"({"ttl":3})", "Member line or keys does not exist");
    malformedRow<Index>("keyWithoutType", R"({"keys":{"k":{"token":[]}}})", "Member type does not exist");
}

void LogTransportTest::modelMisread()
{
    QFETCH(ResourcePtr, model);
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, full);
    QFETCH(bool, isUpdate);
    QFETCH(QByteArray, request);
    const QByteArray failure = logFailure([&] { model->FromJsonString(stdBytes(json)); });
    QCOMPARE(failure == "no exception" ? qBytes(model->ToJsonString()) : failure, full);
    if (!request.isEmpty())
        QCOMPARE(qBytes(model->ToRequestJsonString(isUpdate)), request);
}

// Other methods and bodies go through here from the administration calls; a large
// upload and the reading of the answer are checked here.
void LogTransportTest::requestOrResponseLost()
{
    const QByteArray body(100000, 'x');
    ZrLoopback::LoopbackHttpServer server([](const ZrLoopback::HttpRequest&) {
        return HttpResponse(200, "body bytes").withHeader("x-log-count", "1").withHeader("x-log-count", "2");
    });
    HttpMessage message;
    const StringMap header {{"Content-Length", std::to_string(body.size())}, {"x-log-a", "1"}};
    LOGAdapter::Send("PUT", "127.0.0.1:" + std::to_string(server.port()), 80, "/logstores/a", "b=%20", header,
        stdBytes(body), 5, message, 1 << 30);
    QCOMPARE(server.requestCount(), 1);
    const ZrLoopback::HttpRequest request = server.requests().first();
    QCOMPARE(request.method + ' ' + request.target + ' ' + request.header("x-log-a"),
        QByteArray("PUT /logstores/a?b=%20 1"));
    QCOMPARE(request.body, body);
    QCOMPARE(message.statusCode, 200);
    QCOMPARE(message.content, std::string("body bytes"));
    // A repeated header keeps its last value.
    QCOMPARE(message.header["x-log-count"], std::string("2"));
    QCOMPARE(message.header.count("Content-Length"), size_t(1));
}

void LogTransportTest::postedLogsAltered_data()
{
    QTest::addColumn<bool>("compress");
    QTest::addColumn<QByteArray>("topic");
    QTest::addColumn<Pairs>("contents");
    QTest::addColumn<QByteArray>("hashKey");
    const Pairs login {{"user", "ann"}, {"action", "open"}};
    QTest::newRow("plain") << false << QByteArray("login") << login << QByteArray();
    QTest::newRow("nonAsciiKeysAndValues")
        << true << QByteArray("\xe4\xb8\xbb\xe9\xa2\x98")
        << Pairs {{"\xe5\x90\x8d\xe5\xad\x97", "Z\xc3\xbcrich"}, {std::string("\0\xff", 2), "bin"}}
        << QByteArray();
    QTest::newRow("oneMiBValuePlain")
        << false << QByteArray() << Pairs {{"big", std::string(1 << 20, 'v')}} << QByteArray();
    // Sent percent-encoded, signed raw: the service accepts the signature only so.
    QTest::newRow("hashKeyRouted") << true << QByteArray("t") << login << QByteArray("a b&c=d");
}

void LogTransportTest::postedLogsAltered()
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

void LogTransportTest::groupSourceOverwritten()
{
    LogAdminFixture f;
    pb::LogGroup group {{pb::Log {7, {{"k", "v"}}, true, 123}}, {{"tag", "value"}}, "", "own-source"};
    f.client.PostLogStoreLogs("p", "store", group, "");
    group.source.clear();
    f.client.PostLogStoreLogs("p", "store", group, "");
    // An empty group is posted as it is: a zero-length body.
    f.client.PostLogStoreLogs("p", "store", pb::LogGroup {{}, {}, "", "s"}, "");

    const QList<ZrLoopback::ReceivedLogGroup> received = f.service.received();
    QCOMPARE(received.size(), 3);
    QCOMPARE(received[0].source + ' ' + received[1].source, QByteArray("own-source 10.0.0.9"));
    QCOMPARE(received[0].logs.first().timeNs, 123u);
    QCOMPARE(received[0].tags.first(), qMakePair(QByteArray("tag"), QByteArray("value")));
    QVERIFY(received[2].logs.isEmpty());
}

void LogTransportTest::credentialsMisapplied()
{
    LogAdminFixture f;
    f.service.addAccessKey("tempId", "tempKey", "token-1");
    auto post = [](LogTestClient& client) {
        return logFailure([&client] { client.PostLogStoreLogs("p", "s", "", {LogItem {}}, ""); });
    };
    // The service checks the token before the signature: the key is proven by going back.
    f.client.SetAccessKeyId("tempId");
    f.client.SetAccessKey("tempKey");
    QVERIFY(post(f.client).startsWith("Unauthorized|security token does not match|"));
    f.client.SetAccessKeyId("id");
    f.client.SetAccessKey("key");
    QCOMPARE(post(f.client), QByteArray("no exception"));
    // Accepted only with the token in the request.
    LogTestClient withToken(stdBytes(f.service.endpoint()), "tempId", "tempKey", "token-1", 10, "src", false);
    QCOMPARE(post(withToken), QByteArray("no exception"));
}

void LogTransportTest::emptyPostNotRejected()
{
    LogAdminFixture f;
    QCOMPARE(logFailure([&] { f.client.PostLogStoreLogs("p", "store", "t", {}, ""); }),
        QByteArray("ParameterInvalid|Empty LogItem.||0"));
    QCOMPARE(f.service.http().requestCount(), 0);
}

void LogTransportTest::failureMappedWrong_data()
{
    QTest::addColumn<HttpResponse>("answer");
    QTest::addColumn<QByteArray>("endpoint"); // null: the service's
    QTest::addColumn<QByteArray>("failure"); // code|message|requestId|status
    auto row = [](const char* name, const HttpResponse& answer, const QByteArray& failure,
                   const QByteArray& endpoint = QByteArray()) {
        QTest::newRow(name) << answer << endpoint << failure;
    };
    auto answer = [](int status, const QByteArray& body, const QByteArray& id = "ID1") {
        HttpResponse r(status, body);
        return id.isEmpty() ? r : r.withHeader("x-log-requestid", id);
    };
    auto fault = [](HttpResponse::Fault fault) {
        HttpResponse r(200, QByteArray(1000, 'x'));
        r.fault = fault;
        return r;
    };
    const QByteArray html = "<html><body>oops</body></html>";
    const QByteArray json = "{\"errorCode\":\"WriteQuotaExceed\",\"errorMessage\":\"slow down\"}";
    row("html500", answer(500, html), "InternalServerError|" + html + "|ID1|500");
    row("html502", answer(502, html), "BadResponse|Unextractable error:" + html + "|ID1|502");
    row("json500KeepsServiceCode", answer(500, json), "WriteQuotaExceed|slow down|ID1|500");
    row("created201IsFailure", answer(201, json), "WriteQuotaExceed|slow down|ID1|201");
    row("noContent204", answer(204, {}), "BadResponse|Unextractable error:|ID1|204");
    row("jsonErrorWithoutRequestId", answer(403, json, {}), "WriteQuotaExceed|slow down||403");
    row("memberNotString", answer(400, "{\"errorCode\":1,\"errorMessage\":\"m\"}"),
        "BadResponse|Unextractable error:{\"errorCode\":1,\"errorMessage\":\"m\"}|ID1|400");
    row("deeplyNestedBody", answer(400, QByteArray(100000, '[')),
        "BadResponse|Unextractable error:" + QByteArray(100000, '[') + "|ID1|400");
    row("neverAnswers", fault(HttpResponse::Fault::NeverAnswer),
        "RequestTimeout|Request operation timeout.||0");
    row("closedWithoutAnswer", fault(HttpResponse::Fault::DropBeforeAnswer),
        "ClientNetworkError|Request operation failed.CURL_ERROR_CODE:52||0");
    row("closedMidBody", fault(HttpResponse::Fault::DropMidBody),
        "ClientNetworkError|Request operation failed.CURL_ERROR_CODE:18||0");
    QTcpServer probe; // a port that was free a moment ago
    QVERIFY(probe.listen(QHostAddress::LocalHost));
    const QByteArray refused = "127.0.0.1:" + QByteArray::number(probe.serverPort());
    probe.close();
    row("refusedPort", {}, "ClientNetworkError|Can not connect to server.||0", refused);
    // An empty endpoint fails in the transport, not with a crash.
    row("emptyEndpoint", {}, "ClientNetworkError|Request operation failed.CURL_ERROR_CODE:3||0", "");
}

void LogTransportTest::failureMappedWrong()
{
    QFETCH(HttpResponse, answer);
    QFETCH(QByteArray, endpoint);
    QFETCH(QByteArray, failure);
    LoopbackLogService service("id", "key");
    service.setOverride([answer](const ZrLoopback::HttpRequest&) { return answer; });
    LogTestClient client(
        stdBytes(endpoint.isNull() ? service.endpoint() : endpoint), "id", "key", 1, "src", false);
    QCOMPARE(logFailure([&] { client.PostLogStoreLogs("p", "store", "", {LogItem {}}, ""); }), failure);
    service.http().closeConnections();
}

QTEST_GUILESS_MAIN(LogTransportTest)
#include "tst_logtransport.moc"

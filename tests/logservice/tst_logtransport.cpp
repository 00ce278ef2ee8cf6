// The request signature, the query string, the response header parser and the
// mapping of every transport and service failure to its LOGException. Signatures
// are checked with the loopback service's OpenSSL HMAC over the expected text.
#include <ZrUtils/LOGAdapter.h>

#include "LogTestClient.h"
#include "LoopbackLogService.h"
#include "logservice/HeaderParser.h"
#include "logservice/JsonExtract.h"

#include <QTcpServer>
#include <QTest>

using namespace cloudlog_sdk_v6;
using ZrLoopback::HttpResponse;
using ZrLoopback::LoopbackLogService;
using StringMap = std::map<std::string, std::string>;

Q_DECLARE_METATYPE(ZrLoopback::HttpResponse)

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

// What the parser stores of one response header line, as "name=value;" per entry.
QByteArray headerOf(const QByteArray& line)
{
    StringMap header;
    ParseResponseHeaderLine(line.constData(), size_t(line.size()), header);
    QByteArray out;
    for (const auto& [name, value] : header)
        out += qBytes(name) + '=' + qBytes(value) + ';';
    return out;
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

} // namespace

class LogTransportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textWrong_data();
    void textWrong();
    void requestOrResponseLost_data();
    void requestOrResponseLost();
    void failureMappedWrong_data();
    void failureMappedWrong();
};

void LogTransportTest::textWrong_data()
{
    QTest::addColumn<QByteArray>("actual");
    QTest::addColumn<QByteArray>("expected");
    auto row = [](const char* name, const QByteArray& actual, const QByteArray& expected) {
        QTest::newRow(name) << actual << expected;
    };
    const QByteArray date = QByteArray::fromStdString(kDate) + '\n';
    row("signEmptyBodyEmptyMd5Line", signatureOf("GET", "", {}, {}),
        signedAs("GET\n\n\n" + date + "/logstores"));
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
    row("headerStatusLineSkipped", headerOf("HTTP/1.1 200 OK\r\n"), "");
    row("headerThreeBytesSkipped", headerOf("a:\n"), "");
    row("headerLeadingColonSkipped", headerOf(":ab\r\n"), "");
    row("headerColonOnlyInCrlfSkipped", headerOf("abc:\n"), "");
    row("headerLastTwoBytesDropped", headerOf("k: vx\n"), "k=v;");

    row("jsonString", extracted<std::string>("{\"m\":\"v\"}"), "extracted");
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
}

void LogTransportTest::textWrong()
{
    QFETCH(QByteArray, actual);
    QFETCH(QByteArray, expected);
    QCOMPARE(actual, expected);
}

void LogTransportTest::requestOrResponseLost_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("get") << QByteArray("GET") << QByteArray();
    QTest::newRow("delete") << QByteArray("DELETE") << QByteArray();
    QTest::newRow("post") << QByteArray("POST") << QByteArray("{\"a\":1}");
    QTest::newRow("postEmpty") << QByteArray("POST") << QByteArray();
    QTest::newRow("putLarge") << QByteArray("PUT") << QByteArray(100000, 'x');
}

void LogTransportTest::requestOrResponseLost()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, body);
    ZrLoopback::LoopbackHttpServer server([](const ZrLoopback::HttpRequest&) {
        return HttpResponse(200, "body bytes")
            .withHeader("X-Spaced  ", "  v")
            .withHeader("x-log-count", "1")
            .withHeader("x-log-count", "2");
    });
    HttpMessage message;
    const StringMap header {{"Content-Length", std::to_string(body.size())}, {"x-log-a", "1"}};
    LOGAdapter::Send(stdBytes(method), "127.0.0.1:" + std::to_string(server.port()), 80, "/logstores/a",
        "b=%20", header, stdBytes(body), 5, message, 1 << 30);
    QCOMPARE(server.requestCount(), 1);
    const ZrLoopback::HttpRequest request = server.requests().first();
    QCOMPARE(request.method + ' ' + request.target + ' ' + request.header("x-log-a"),
        method + " /logstores/a?b=%20 1");
    QCOMPARE(request.body, body);
    QCOMPARE(message.statusCode, 200);
    QCOMPARE(message.content, std::string("body bytes"));
    // Names trimmed, a repeated header keeps its last value.
    QCOMPARE(message.header["X-Spaced"], std::string("v"));
    QCOMPARE(message.header["x-log-count"], std::string("2"));
    QCOMPARE(message.header.count("Content-Length"), size_t(1));
}

void LogTransportTest::failureMappedWrong_data()
{
    QTest::addColumn<HttpResponse>("answer");
    QTest::addColumn<bool>("refused");
    QTest::addColumn<QByteArray>("failure"); // code|message|requestId|status
    auto row = [](const char* name, const HttpResponse& answer, const QByteArray& failure,
                   bool refused = false) { QTest::newRow(name) << answer << refused << failure; };
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
    row("truncatedBodyTimesOut", fault(HttpResponse::Fault::ShortBody),
        "RequestTimeout|Request operation timeout.||0");
    row("closedWithoutAnswer", fault(HttpResponse::Fault::DropBeforeAnswer),
        "ClientNetworkError|Request operation failed.CURL_ERROR_CODE:52||0");
    row("closedMidBody", fault(HttpResponse::Fault::DropMidBody),
        "ClientNetworkError|Request operation failed.CURL_ERROR_CODE:18||0");
    row("refusedPort", {}, "ClientNetworkError|Can not connect to server.||0", true);
}

void LogTransportTest::failureMappedWrong()
{
    QFETCH(HttpResponse, answer);
    QFETCH(bool, refused);
    QFETCH(QByteArray, failure);
    LoopbackLogService service("id", "key");
    service.setOverride([answer](const ZrLoopback::HttpRequest&) { return answer; });
    QByteArray endpoint = service.endpoint();
    if (refused) { // a port that was free a moment ago
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        endpoint = "127.0.0.1:" + QByteArray::number(probe.serverPort());
    }
    LogTestClient client(stdBytes(endpoint), "id", "key", 1, "src", false);
    QCOMPARE(logFailure([&] { client.PostLogStoreLogs("p", "store", "", {LogItem {}}, ""); }), failure);
    service.http().closeConnections();
}

QTEST_GUILESS_MAIN(LogTransportTest)
#include "tst_logtransport.moc"

// The request signature, the query string, the response header parser and the
// mapping of every transport and service failure to its LOGException. Signatures
// are checked with the loopback service's OpenSSL HMAC over the expected text.
#include <ZrUtils/LOGAdapter.h>
#include <ZrUtils/LOGException.h>

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

Q_DECLARE_METATYPE(StringMap)
Q_DECLARE_METATYPE(ZrLoopback::HttpResponse)

namespace
{

const char kDate[] = "Thu, 01 Jan 1970 00:00:00 GMT";

// A port nothing listens on.
quint16 closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    const quint16 port = server.serverPort();
    server.close();
    return port;
}

} // namespace

class LogTransportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signatureCoversWrongText_data();
    void signatureCoversWrongText();
    void missingDateNotAdded();
    void signatureVersionOneAccepted();
    void queryStringWrong_data();
    void queryStringWrong();
    void headerLineMisparsed_data();
    void headerLineMisparsed();
    void responseHeadersLost();
    void methodOrBodyNotSent_data();
    void methodOrBodyNotSent();
    void failureMappedWrong_data();
    void failureMappedWrong();
    void jsonMemberMisjudged_data();
    void jsonMemberMisjudged();
};

void LogTransportTest::signatureCoversWrongText_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<StringMap>("header");
    QTest::addColumn<StringMap>("parameters");
    QTest::addColumn<QByteArray>("toSign");

    const StringMap date {{"Date", kDate}};
    auto with = [&date](StringMap extra) {
        extra.insert(date.begin(), date.end());
        return extra;
    };
    QTest::newRow("emptyBodyEmptyMd5Line")
        << QByteArray("GET") << QByteArray() << date << StringMap()
        << QByteArray("GET\n\n\nThu, 01 Jan 1970 00:00:00 GMT\n/logstores");
    QTest::newRow("md5FromBodyNotHeader")
        << QByteArray("POST") << QByteArray("abc") << with({{"Content-MD5", "WRONG"}}) << StringMap()
        << QByteArray("POST\n900150983CD24FB0D6963F7D28E17F72\n\nThu, 01 Jan 1970 00:00:00 GMT\n/logstores");
    QTest::newRow("contentTypeExactCaseOnly")
        << QByteArray("GET") << QByteArray() << with({{"content-type", "a/b"}}) << StringMap()
        << QByteArray("GET\n\n\nThu, 01 Jan 1970 00:00:00 GMT\n/logstores");
    QTest::newRow("contentTypeLine") << QByteArray("GET") << QByteArray() << with({{"Content-Type", "a/b"}})
                                     << StringMap()
                                     << QByteArray("GET\n\na/b\nThu, 01 Jan 1970 00:00:00 GMT\n/logstores");
    QTest::newRow("canonicalHeadersSortedLowerCaseOnly")
        << QByteArray("GET") << QByteArray()
        << with({{"x-log-b", "2"}, {"x-acs-a", "1"}, {"x-log-a", " spaced "}, {"X-Log-Upper", "u"},
               {"x-log-", "p"}, {"x-lo", "short"}, {"User-Agent", "ua"}})
        << StringMap()
        << QByteArray("GET\n\n\nThu, 01 Jan 1970 00:00:00 GMT\n"
                      "x-acs-a:1\nx-log-:p\nx-log-a: spaced \nx-log-b:2\n/logstores");
    QTest::newRow("parametersSignedRawInKeyOrder")
        << QByteArray("GET") << QByteArray() << date << StringMap {{"type", "log"}, {"query", "a b&c=d"}}
        << QByteArray("GET\n\n\nThu, 01 Jan 1970 00:00:00 GMT\n/logstores?query=a b&c=d&type=log");
}

void LogTransportTest::signatureCoversWrongText()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, body);
    QFETCH(StringMap, header);
    QFETCH(StringMap, parameters);
    QFETCH(QByteArray, toSign);
    const std::string signature = LOGAdapter::GetUrlSignature(
        stdBytes(method), "/logstores", header, parameters, stdBytes(body), "key", 0);
    QCOMPARE(qBytes(signature), LoopbackLogService::signature(toSign, "key"));
}

void LogTransportTest::missingDateNotAdded()
{
    StringMap header;
    const std::string signature = LOGAdapter::GetUrlSignature("GET", "/", header, {}, "", "key", 0);
    QCOMPARE(header, (StringMap {{"Date", ""}}));
    QCOMPARE(qBytes(signature), LoopbackLogService::signature("GET\n\n\n\n/", "key"));
}

void LogTransportTest::signatureVersionOneAccepted()
{
    StringMap header;
    try {
        LOGAdapter::GetUrlSignature("GET", "/", header, {}, "", "key", 1);
        QFAIL("no exception");
    } catch (const LOGException& e) {
        QCOMPARE(e.GetErrorCode(), std::string("NotImplemented"));
        QCOMPARE(e.GetErrorMessage(), std::string("Signature Version does not support."));
        QCOMPARE(e.GetRequestId(), std::string());
        QCOMPARE(e.GetHttpCode(), 0);
    }
}

void LogTransportTest::queryStringWrong_data()
{
    QTest::addColumn<StringMap>("parameters");
    QTest::addColumn<QByteArray>("query");
    QTest::newRow("none") << StringMap() << QByteArray();
    QTest::newRow("keyOrderValuesEncoded") << StringMap {{"type", "log"}, {"query", "a b&c=d+e/"}}
                                           << QByteArray("query=a%20b%26c%3Dd%2Be%2F&type=log");
    QTest::newRow("keyNotEncoded") << StringMap {{"k y", "~"}} << QByteArray("k y=~");
    QTest::newRow("emptyValue") << StringMap {{"a", ""}, {"b", "1"}} << QByteArray("a=&b=1");
}

void LogTransportTest::queryStringWrong()
{
    QFETCH(StringMap, parameters);
    QFETCH(QByteArray, query);
    std::string out = "stale";
    LOGAdapter::GetQueryString(parameters, out);
    QCOMPARE(qBytes(out), query);
}

void LogTransportTest::headerLineMisparsed_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<StringMap>("stored");
    QTest::newRow("plain") << QByteArray("x-log-requestid: 5F3A\r\n")
                           << StringMap {{"x-log-requestid", "5F3A"}};
    QTest::newRow("blanksAroundColon")
        << QByteArray("X-Spaced \t :  \tv a l \r\n") << StringMap {{"X-Spaced", "v a l "}};
    QTest::newRow("colonInValue") << QByteArray("Date: Thu, 01 Jan 1970 00:00:00 GMT\r\n")
                                  << StringMap {{"Date", "Thu, 01 Jan 1970 00:00:00 GMT"}};
    QTest::newRow("emptyValue") << QByteArray("a:\r\n") << StringMap {{"a", ""}};
    QTest::newRow("statusLineSkipped") << QByteArray("HTTP/1.1 200 OK\r\n") << StringMap();
    QTest::newRow("blankLineSkipped") << QByteArray("\r\n") << StringMap();
    QTest::newRow("threeBytesSkipped") << QByteArray("a:\n") << StringMap();
    QTest::newRow("leadingColonSkipped") << QByteArray(":ab\r\n") << StringMap();
    QTest::newRow("colonOnlyInCrlfSkipped") << QByteArray("abc:\n") << StringMap();
    QTest::newRow("lastTwoBytesDropped") << QByteArray("k: vx\n") << StringMap {{"k", "v"}};
}

void LogTransportTest::headerLineMisparsed()
{
    QFETCH(QByteArray, line);
    QFETCH(StringMap, stored);
    StringMap header;
    ParseResponseHeaderLine(line.constData(), size_t(line.size()), header);
    QCOMPARE(header, stored);
}

void LogTransportTest::responseHeadersLost()
{
    LoopbackLogService service("id", "key");
    service.setOverride([](const ZrLoopback::HttpRequest&) {
        HttpResponse answer(200, "body bytes");
        answer.withHeader("X-Spaced  ", "  v").withHeader("x-log-count", "1").withHeader("x-log-count", "2");
        return answer;
    });
    LogTestClient client(stdBytes(service.endpoint()), "id", "key", 5, "src", false);
    StringMap header;
    HttpMessage message;
    client.SendRequest("p", "GET", "/", "", {}, header, message);
    QCOMPARE(message.statusCode, 200);
    QCOMPARE(message.content, std::string("body bytes"));
    QCOMPARE(message.header["X-Spaced"], std::string("v"));
    QCOMPARE(message.header["x-log-count"], std::string("2"));
    QCOMPARE(message.header.count("Content-Length"), size_t(1));
}

void LogTransportTest::methodOrBodyNotSent_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("received");
    QTest::newRow("get") << QByteArray("GET") << QByteArray() << QByteArray();
    QTest::newRow("delete") << QByteArray("DELETE") << QByteArray() << QByteArray();
    QTest::newRow("post") << QByteArray("POST") << QByteArray("{\"a\":1}") << QByteArray("{\"a\":1}");
    QTest::newRow("put") << QByteArray("PUT") << QByteArray(100000, 'x') << QByteArray(100000, 'x');
    QTest::newRow("postEmpty") << QByteArray("POST") << QByteArray() << QByteArray();
}

void LogTransportTest::methodOrBodyNotSent()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, received);
    ZrLoopback::LoopbackHttpServer server(
        [](const ZrLoopback::HttpRequest&) { return HttpResponse(200, "ok"); });
    HttpMessage message;
    const StringMap header {{"Content-Length", std::to_string(body.size())}, {"x-log-a", "1"}};
    LOGAdapter::Send(stdBytes(method), "127.0.0.1:" + std::to_string(server.port()), 80, "/logstores/a",
        "b=%20", header, stdBytes(body), 5, message, 1 << 30);
    QCOMPARE(message.statusCode, 200);
    QCOMPARE(message.content, std::string("ok"));
    QCOMPARE(server.requestCount(), 1);
    const ZrLoopback::HttpRequest request = server.requests().first();
    QCOMPARE(request.method, method);
    QCOMPARE(request.target, QByteArray("/logstores/a?b=%20"));
    QCOMPARE(request.header("x-log-a"), QByteArray("1"));
    QCOMPARE(request.body, received);
}

void LogTransportTest::failureMappedWrong_data()
{
    QTest::addColumn<HttpResponse>("answer");
    QTest::addColumn<bool>("refused");
    QTest::addColumn<QByteArray>("errorCode");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("requestId");
    QTest::addColumn<int>("httpCode");

    const QByteArray html = "<html><body>oops</body></html>";
    const QByteArray json = "{\"errorCode\":\"WriteQuotaExceed\",\"errorMessage\":\"slow down\"}";
    auto answer = [](int status, const QByteArray& body, const QByteArray& id = "ID1") {
        HttpResponse r(status, body);
        if (!id.isEmpty())
            r.withHeader("x-log-requestid", id);
        return r;
    };
    QTest::newRow("html500") << answer(500, html) << false << QByteArray("InternalServerError") << html
                             << QByteArray("ID1") << 500;
    QTest::newRow("html502") << answer(502, html) << false << QByteArray("BadResponse")
                             << "Unextractable error:" + html << QByteArray("ID1") << 502;
    QTest::newRow("json500KeepsServiceCode") << answer(500, json) << false << QByteArray("WriteQuotaExceed")
                                             << QByteArray("slow down") << QByteArray("ID1") << 500;
    QTest::newRow("created201IsFailure") << answer(201, json) << false << QByteArray("WriteQuotaExceed")
                                         << QByteArray("slow down") << QByteArray("ID1") << 201;
    QTest::newRow("noContent204") << answer(204, QByteArray()) << false << QByteArray("BadResponse")
                                  << QByteArray("Unextractable error:") << QByteArray("ID1") << 204;
    QTest::newRow("jsonErrorWithoutRequestId")
        << answer(403, json, QByteArray()) << false << QByteArray("WriteQuotaExceed")
        << QByteArray("slow down") << QByteArray() << 403;
    QTest::newRow("jsonNotObject") << answer(400, "[1]") << false << QByteArray("BadResponse")
                                   << QByteArray("Unextractable error:[1]") << QByteArray("ID1") << 400;
    QTest::newRow("memberMissing") << answer(400, "{\"errorCode\":\"X\"}") << false
                                   << QByteArray("BadResponse")
                                   << QByteArray("Unextractable error:{\"errorCode\":\"X\"}")
                                   << QByteArray("ID1") << 400;
    QTest::newRow("memberNotString") << answer(400, "{\"errorCode\":1,\"errorMessage\":\"m\"}") << false
                                     << QByteArray("BadResponse")
                                     << QByteArray(
                                            "Unextractable error:{\"errorCode\":1,\"errorMessage\":\"m\"}")
                                     << QByteArray("ID1") << 400;
    QTest::newRow("deeplyNestedBody")
        << answer(400, QByteArray(100000, '[')) << false << QByteArray("BadResponse")
        << "Unextractable error:" + QByteArray(100000, '[') << QByteArray("ID1") << 400;

    HttpResponse fault;
    fault.fault = HttpResponse::Fault::NeverAnswer;
    QTest::newRow("neverAnswers") << fault << false << QByteArray("RequestTimeout")
                                  << QByteArray("Request operation timeout.") << QByteArray() << 0;
    fault = HttpResponse(200, QByteArray(1000, 'x'));
    fault.fault = HttpResponse::Fault::ShortBody;
    QTest::newRow("truncatedBodyTimesOut") << fault << false << QByteArray("RequestTimeout")
                                           << QByteArray("Request operation timeout.") << QByteArray() << 0;
    fault.fault = HttpResponse::Fault::DropBeforeAnswer;
    QTest::newRow("closedWithoutAnswer")
        << fault << false << QByteArray("ClientNetworkError")
        << QByteArray("Request operation failed.CURL_ERROR_CODE:52") << QByteArray() << 0;
    fault.fault = HttpResponse::Fault::DropMidBody;
    QTest::newRow("closedMidBody") << fault << false << QByteArray("ClientNetworkError")
                                   << QByteArray("Request operation failed.CURL_ERROR_CODE:18")
                                   << QByteArray() << 0;
    QTest::newRow("refusedPort") << HttpResponse() << true << QByteArray("ClientNetworkError")
                                 << QByteArray("Can not connect to server.") << QByteArray() << 0;
}

void LogTransportTest::failureMappedWrong()
{
    QFETCH(HttpResponse, answer);
    QFETCH(bool, refused);
    QFETCH(QByteArray, errorCode);
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, requestId);
    QFETCH(int, httpCode);

    LoopbackLogService service("id", "key");
    service.setOverride([answer](const ZrLoopback::HttpRequest&) { return answer; });
    const std::string endpoint
        = refused ? "127.0.0.1:" + std::to_string(closedPort()) : stdBytes(service.endpoint());
    LogTestClient client(endpoint, "id", "key", 1, "src", false);
    try {
        client.PostLogStoreLogs("p", "store", "", {LogItem {}}, "");
        QFAIL("no exception");
    } catch (const LOGException& e) {
        QCOMPARE(qBytes(e.GetErrorCode()), errorCode);
        QCOMPARE(qBytes(e.GetErrorMessage()), message);
        QCOMPARE(qBytes(e.GetRequestId()), requestId);
        QCOMPARE(e.GetHttpCode(), httpCode);
    }
    service.http().closeConnections();
}

void LogTransportTest::jsonMemberMisjudged_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("failure"); // empty: extracted
    QTest::newRow("string") << QByteArray("{\"m\":\"v\"}") << QByteArray("string") << QByteArray();
    QTest::newRow("notString") << QByteArray("{\"m\":1}") << QByteArray("string")
                               << QByteArray("ValueTypeException|Member m is not string type");
    QTest::newRow("missing") << QByteArray("{\"n\":1}") << QByteArray("int")
                             << QByteArray("NoMemberException|Member m does not exist");
    QTest::newRow("intTooBig") << QByteArray("{\"m\":4294967295}") << QByteArray("int")
                               << QByteArray("ValueTypeException|Member m is not int type");
    QTest::newRow("uintNegative") << QByteArray("{\"m\":-1}") << QByteArray("uint")
                                  << QByteArray("ValueTypeException|Member m is not uint type");
    QTest::newRow("boolAsText") << QByteArray("{\"m\":\"true\"}") << QByteArray("bool")
                                << QByteArray("ValueTypeException|Member m is not boolean type");
    QTest::newRow("objectAsArray") << QByteArray("{\"m\":[]}") << QByteArray("object")
                                   << QByteArray("ValueTypeException|Member m is not json value type");
    QTest::newRow("notJson") << QByteArray("{\"m\":") << QByteArray("string")
                             << QByteArray("ParseException|Fail to parse from json string");
    QTest::newRow("notObject") << QByteArray("\"m\"") << QByteArray("string")
                               << QByteArray("InvalidObjectException|response is not valid JSON object");
}

void LogTransportTest::jsonMemberMisjudged()
{
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, failure);
    try {
        rapidjson::Document document;
        ExtractJsonResult(stdBytes(json), document);
        std::string text;
        int32_t i;
        uint32_t u;
        bool b;
        if (type == "string")
            ExtractJsonResult(document, "m", text);
        else if (type == "int")
            ExtractJsonResult(document, "m", i);
        else if (type == "uint")
            ExtractJsonResult(document, "m", u);
        else if (type == "bool")
            ExtractJsonResult(document, "m", b);
        else
            GetJsonValue(document, "m");
        QCOMPARE(QByteArray(), failure);
    } catch (const JsonException& e) {
        QCOMPARE(qBytes(e.GetErrorCode() + '|' + e.GetErrorMessage()), failure);
    }
}

QTEST_GUILESS_MAIN(LogTransportTest)
#include "tst_logtransport.moc"

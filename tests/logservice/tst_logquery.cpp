// Queries, histograms, topics, SQL, cursors and batch pulls over logs posted to
// the loopback log service, and the refusal of spoilt batches and answers.
#include <ZrUtils/CompressAlgorithm.h>

#include "LogAdminFixture.h"

#include <QTest>

#include <lz4.h>

#include <functional>

using namespace cloudlog_sdk_v6;
using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using Filter = std::function<void(HttpResponse&)>;

Q_DECLARE_METATYPE(Filter)

namespace
{

LogItem item(uint32_t time, std::vector<std::pair<std::string, std::string>> contents)
{
    LogItem i;
    i.timestamp = time;
    i.contents = std::move(contents);
    return i;
}

// Logs at 100, 110 (topic "web", tagged) and 120 (topic "db") in one shard,
// as three groups.
void postSample(LogAdminFixture& f)
{
    f.client.CreateLogStore("p", LogStore("s", 1, 1));
    pb::LogGroup web;
    web.topic = "web";
    web.logTags.push_back({"host", "h1"});
    web.logs.push_back({100, {{"level", "info"}, {"msg", "hello world"}}});
    f.client.PostLogStoreLogs("p", "s", web, "");
    f.client.PostLogStoreLogs("p", "s", "web", {item(110, {{"level", "error"}, {"msg", "disk full"}})}, "");
    f.client.PostLogStoreLogs("p", "s", "db", {item(120, {{"level", "error"}, {"msg", "slow query"}})}, "");
}

QByteArray messages(const std::vector<LogMetaItem>& logs)
{
    QByteArray out;
    for (const LogMetaItem& log : logs) {
        for (const auto& content : log.contents) {
            if (content.first == "msg")
                out += (out.isEmpty() ? "" : ",") + qBytes(content.second);
        }
    }
    return out;
}

QByteArray rowsText(const std::vector<SqlRow>& rows)
{
    QByteArray out;
    for (const SqlRow& row : rows) {
        for (const auto& column : row)
            out += qBytes(column.first + '=' + column.second + ' ');
        out += ';';
    }
    return out;
}

QByteArray cursorAt(int position)
{
    return QByteArray::number(position).toBase64();
}

bool isPull(const HttpRequest& request)
{
    return request.path.contains("/shards/") && request.query.contains("type=log");
}

} // namespace

class LogQueryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wrongLogsReturned_data();
    void wrongLogsReturned();
    void histogramMiscounted();
    void topicsMislisted();
    void sqlRowsWrong_data();
    void sqlRowsWrong();
    void cursorMisplaced_data();
    void cursorMisplaced();
    void batchPullWrong();
    void spoiltBatchAccepted_data();
    void spoiltBatchAccepted();
    void refusedPullLost_data();
    void refusedPullLost();
};

void LogQueryTest::wrongLogsReturned_data()
{
    QTest::addColumn<uint>("from");
    QTest::addColumn<uint>("to");
    QTest::addColumn<QByteArray>("topic");
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<int>("lines");
    QTest::addColumn<int>("offset");
    QTest::addColumn<bool>("reverse");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("all") << 0u << 200u << QByteArray() << QByteArray("*") << 100 << 0 << false
                         << QByteArray("hello world,disk full,slow query");
    QTest::newRow("newestFirst") << 0u << 200u << QByteArray() << QByteArray() << 100 << 0 << true
                                 << QByteArray("slow query,disk full,hello world");
    QTest::newRow("page") << 0u << 200u << QByteArray() << QByteArray() << 1 << 1 << false
                          << QByteArray("disk full");
    QTest::newRow("topic") << 0u << 200u << QByteArray("db") << QByteArray() << 100 << 0 << false
                           << QByteArray("slow query");
    QTest::newRow("keyValue") << 0u << 200u << QByteArray() << QByteArray("level:error") << 100 << 0 << false
                              << QByteArray("disk full,slow query");
    QTest::newRow("termsAnded") << 0u << 200u << QByteArray() << QByteArray("level: error and slow") << 100
                                << 0 << false << QByteArray("slow query");
    QTest::newRow("endExcluded") << 105u << 120u << QByteArray() << QByteArray() << 100 << 0 << false
                                 << QByteArray("disk full");
    QTest::newRow("nothing") << 0u << 200u << QByteArray() << QByteArray("absent") << 100 << 0 << false
                             << QByteArray();
}

void LogQueryTest::wrongLogsReturned()
{
    QFETCH(uint, from);
    QFETCH(uint, to);
    QFETCH(QByteArray, topic);
    QFETCH(QByteArray, query);
    QFETCH(int, lines);
    QFETCH(int, offset);
    QFETCH(bool, reverse);
    QFETCH(QByteArray, expected);
    LogAdminFixture f;
    postSample(f);
    const GetLogStoreLogsResponse logs = f.client.GetLogStoreLogs(
        "p", "s", from, to, stdBytes(topic), stdBytes(query), lines, offset, reverse);
    QCOMPARE(messages(logs.logs), expected);
    QCOMPARE(logs.count, int64_t(logs.logs.size()));
    QCOMPARE(qBytes(logs.progress), QByteArray("Complete"));
    if (QByteArray(QTest::currentDataTag()) == "all") {
        const LogMetaItem& first = logs.logs.front();
        QCOMPARE(first.timestamp, 100u);
        QCOMPARE(qBytes(first.topic), QByteArray("web"));
        QCOMPARE(qBytes(first.source), QByteArray("10.0.0.9"));
        QCOMPARE(first.tags, (std::vector<std::pair<std::string, std::string>> {{"host", "h1"}}));
        QCOMPARE(qBytes(first.contents.front().first), QByteArray("level"));
    }
}

void LogQueryTest::histogramMiscounted()
{
    LogAdminFixture f;
    postSample(f);
    const GetLogStoreHistogramResponse histogram = f.client.GetLogStoreHistogram("p", "s", 60, 200, "", "");
    QByteArray text;
    for (const LogStoreHistogramInfo& bucket : histogram.histograms)
        text += QByteArray::number(bucket.from) + '-' + QByteArray::number(bucket.to) + ':'
            + QByteArray::number(qint64(bucket.count)) + qBytes(bucket.progress).left(1) + ' ';
    QCOMPARE(text, QByteArray("60-120:2C 120-180:1C 180-200:0C "));
    QCOMPARE(histogram.count, int64_t(3));
    QCOMPARE(f.client.GetLogStoreHistogram("p", "s", 60, 200, "web", "level:error").count, int64_t(1));
    QCOMPARE(failureOf([&] { f.client.GetLogStoreHistogram("p", "s", 200, 60, "", ""); }),
        QByteArray("InvalidTimeRange|from and to must give a range|400"));
}

void LogQueryTest::topicsMislisted()
{
    LogAdminFixture f;
    postSample(f);
    ListLogStoreTopicsResponse topics = f.client.ListLogStoreTopics("p", "s");
    QCOMPARE(topics.topics, (std::vector<std::string> {"db", "web"}));
    QCOMPARE(topics.count, int64_t(2));
    QCOMPARE(f.client.ListLogStoreTopics("p", "s", 100, "db").topics, std::vector<std::string> {"web"});
    QCOMPARE(f.client.ListLogStoreTopics("p", "s", 1).topics, std::vector<std::string> {"db"});
}

void LogQueryTest::sqlRowsWrong_data()
{
    QTest::addColumn<bool>("project");
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QByteArray>("rows"); // or code|message|status
    QTest::newRow("count") << false << QByteArray("level:error | select count(*) as c")
                           << QByteArray("c=2 ;");
    QTest::newRow("columnsInQueryOrder")
        << false << QByteArray("* | select msg, level, none")
        << QByteArray("msg=hello world level=info none=null ;msg=disk full level=error none=null ;"
                      "msg=slow query level=error none=null ;");
    QTest::newRow("projectWhere") << true << QByteArray("select count(*) as n from s where level = 'error'")
                                  << QByteArray("n=2 ;");
    QTest::newRow("projectUnknownStore") << true << QByteArray("select msg from t")
                                         << QByteArray("LogStoreNotExist|logstore t does not exist|404");
    QTest::newRow("notUnderstood") << false << QByteArray("* | delete everything")
                                   << QByteArray(
                                          "ParameterInvalid|sql not understood:  delete everything|400");
}

void LogQueryTest::sqlRowsWrong()
{
    QFETCH(bool, project);
    QFETCH(QByteArray, query);
    QFETCH(QByteArray, rows);
    LogAdminFixture f;
    postSample(f);
    LogStoreSqlResponse answer;
    const QByteArray failure = failureOf([&] {
        answer = project ? f.client.ExecuteProjectSql("p", stdBytes(query), true)
                         : f.client.ExecuteLogStoreSql("p", "s", 0, 1000, stdBytes(query));
    });
    if (failure != "no exception") {
        QCOMPARE(failure, rows);
        return;
    }
    QCOMPARE(rowsText(answer.rows), rows);
    QCOMPARE(answer.count, int64_t(answer.rows.size()));
    QCOMPARE(answer.processedRows, int64_t(3));
    QCOMPARE(answer.elapsedMilliSecond, int64_t(3));
    QCOMPARE(answer.cpuSec, 0.25);
    QCOMPARE(answer.cpuCores, int64_t(2));
}

void LogQueryTest::cursorMisplaced_data()
{
    QTest::addColumn<int>("mode"); // -1: by time
    QTest::addColumn<uint>("time");
    QTest::addColumn<int>("position");
    QTest::newRow("begin") << int(CURSOR_MODE_BEGIN) << 0u << 0;
    QTest::newRow("end") << int(CURSOR_MODE_END) << 0u << 3;
    QTest::newRow("exactTime") << -1 << 110u << 1;
    QTest::newRow("betweenGroups") << -1 << 111u << 2;
    QTest::newRow("afterAll") << -1 << 500u << 3;
}

void LogQueryTest::cursorMisplaced()
{
    QFETCH(int, mode);
    QFETCH(uint, time);
    QFETCH(int, position);
    LogAdminFixture f;
    postSample(f);
    const GetCursorResponse cursor = mode < 0 ? f.client.GetCursor("p", "s", 0, time)
                                              : f.client.GetCursor("p", "s", 0, LOG_Cursor_Mode(mode));
    QCOMPARE(qBytes(cursor.cursor), cursorAt(position));
}

void LogQueryTest::batchPullWrong()
{
    LogAdminFixture f;
    postSample(f);
    const GetLogGroupListResponse first
        = f.client.GetLogGroupList("p", "s", 0, "MA==", stdBytes(cursorAt(2)), 10);
    QCOMPARE(first.count, 2);
    QCOMPARE(qBytes(first.nextCursor), cursorAt(2));
    QCOMPARE(first.logGroupList.logGroups.size(), size_t(2));
    const pb::LogGroup& web = first.logGroupList.logGroups[0];
    QCOMPARE(qBytes(web.topic), QByteArray("web"));
    QCOMPARE(qBytes(web.logTags.at(0).value), QByteArray("h1"));
    QCOMPARE(qBytes(web.logs.at(0).contents.at(1).value), QByteArray("hello world"));
    QVERIFY(first.rawSize > 0);

    const GetPbBatchLogResponse one = f.client.GetPbBatchLog("p", "s", 0, 1, stdBytes(cursorAt(1)));
    QCOMPARE(
        qBytes(one.logGroupList.logGroups.at(0).logs.at(0).contents.at(1).value), QByteArray("disk full"));
    QCOMPARE(qBytes(one.nextCursor), cursorAt(2));

    const GetBatchLogResponse logs = f.client.GetBatchLog("p", "s", 0, 100, "MA==");
    QCOMPARE(messages(logs.logs), QByteArray("hello world,disk full,slow query"));
    QCOMPARE(qBytes(logs.logs[0].tags.at(0).first), QByteArray("host"));
    QCOMPARE(qBytes(logs.logs[2].topic + logs.logs[2].source), QByteArray("db10.0.0.9"));
    QCOMPARE(logs.logs[2].timestamp, 120u);

    // At the end: nothing, and the same cursor back.
    const GetLogGroupListResponse end = f.client.GetPbBatchLog("p", "s", 0, 10, stdBytes(cursorAt(3)));
    QCOMPARE(end.count, 0);
    QVERIFY(end.logGroupList.logGroups.empty());
    QCOMPARE(qBytes(end.nextCursor), cursorAt(3));
}

void LogQueryTest::spoiltBatchAccepted_data()
{
    QTest::addColumn<Filter>("spoil");
    QTest::addColumn<QByteArray>("message"); // its beginning
    auto setHeader = [](HttpResponse& r, const QByteArray& name, const QByteArray& value) {
        for (auto& header : r.headers) {
            if (header.first == name)
                header.second = value;
        }
    };
    QTest::newRow("truncatedLz4") << Filter([](HttpResponse& r) { r.body.chop(3); })
                                  << QByteArray("Fail to uncompress lz4 body to ");
    QTest::newRow("rawSizeTooLarge") << Filter([setHeader](HttpResponse& r) {
        setHeader(r, "x-log-bodyrawsize", "100000");
    }) << QByteArray("Fail to uncompress lz4 body to 100000 bytes");
    QTest::newRow("rawSizeTooSmall") << Filter([setHeader](HttpResponse& r) {
        setHeader(r, "x-log-bodyrawsize", "5");
    }) << QByteArray("Fail to uncompress lz4 body to 5 bytes");
    QTest::newRow("rawSizeBeyond32Bits")
        << Filter([setHeader](HttpResponse& r) { setHeader(r, "x-log-bodyrawsize", "4294967296"); })
        << QByteArray("Header x-log-bodyrawsize is missing or invalid");
    QTest::newRow("rawSizeNotNumber")
        << Filter([setHeader](HttpResponse& r) { setHeader(r, "x-log-bodyrawsize", "12k"); })
        << QByteArray("Header x-log-bodyrawsize is not a number");
    QTest::newRow("rawSizeMissing") << Filter([setHeader](HttpResponse& r) {
        setHeader(r, "x-log-bodyrawsize", "");
    }) << QByteArray("Header x-log-bodyrawsize is missing or invalid");
    QTest::newRow("countNotNumber") << Filter([setHeader](HttpResponse& r) {
        setHeader(r, "x-log-count", "two");
    }) << QByteArray("Header x-log-count is not a number");
    QTest::newRow("otherCompression")
        << Filter([setHeader](HttpResponse& r) { setHeader(r, "x-log-compresstype", "deflate"); })
        << QByteArray("Unsupported compress type deflate");
    QTest::newRow("notLogGroups") << Filter([setHeader](HttpResponse& r) {
        // A log group list cut inside its first group.
        std::string raw(2, '\x0a');
        std::string packed;
        CompressAlgorithm::CompressLz4(raw, packed);
        r.body = qBytes(packed);
        setHeader(r, "x-log-bodyrawsize", "2");
    }) << QByteArray("Parse LogGroupLddist from string fail");
}

void LogQueryTest::spoiltBatchAccepted()
{
    QFETCH(Filter, spoil);
    QFETCH(QByteArray, message);
    LogAdminFixture f;
    postSample(f);
    f.service.setResponseFilter([spoil](const HttpRequest& request, HttpResponse& response) {
        if (isPull(request) && response.status == 200)
            spoil(response);
    });
    for (const auto& pull : std::vector<std::function<void()>> {
             [&] { f.client.GetLogGroupList("p", "s", 0, "MA==", "", 10); },
             [&] { f.client.GetBatchLog("p", "s", 0, 10, "MA=="); },
         }) {
        const QByteArray failure = failureOf(pull);
        QVERIFY2(
            failure.startsWith("BadResponse|" + message) && failure.endsWith("|200"), failure.constData());
    }
}

void LogQueryTest::refusedPullLost_data()
{
    QTest::addColumn<int>("shard");
    QTest::addColumn<QByteArray>("cursor");
    QTest::addColumn<QByteArray>("endCursor");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("failure");
    QTest::newRow("cursorNotBase64") << 0 << QByteArray("bad!") << QByteArray() << 10
                                     << QByteArray("InvalidCursor|cursor bad! is invalid|400");
    QTest::newRow("cursorPastEnd") << 0 << cursorAt(4) << QByteArray() << 10
                                   << "InvalidCursor|cursor " + cursorAt(4) + " is invalid|400";
    QTest::newRow("endBeforeStart") << 0 << cursorAt(2) << cursorAt(1) << 10
                                    << "InvalidCursor|end_cursor " + cursorAt(1) + " is invalid|400";
    QTest::newRow("unknownShard") << 7 << cursorAt(0) << QByteArray() << 10
                                  << QByteArray("ShardNotExist|shard 7 does not exist|404");
    QTest::newRow("zeroCount") << 0 << cursorAt(0) << QByteArray() << 0
                               << QByteArray("ParameterInvalid|count must be 1 to 1000|400");
}

void LogQueryTest::refusedPullLost()
{
    QFETCH(int, shard);
    QFETCH(QByteArray, cursor);
    QFETCH(QByteArray, endCursor);
    QFETCH(int, count);
    QFETCH(QByteArray, failure);
    LogAdminFixture f;
    postSample(f);
    QCOMPARE(failureOf([&] {
        f.client.GetLogGroupList("p", "s", shard, stdBytes(cursor), stdBytes(endCursor), count);
    }),
        failure);
}

QTEST_GUILESS_MAIN(LogQueryTest)
#include "tst_logquery.moc"

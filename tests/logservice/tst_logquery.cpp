// Queries, histograms, topics, SQL, cursors and batch pulls over logs posted to
// the loopback log service, and the refusal of spoilt batch pulls.
#include <ZrUtils/CompressAlgorithm.h>

#include "LogAdminFixture.h"

#include <QTest>

using namespace cloudlog_sdk_v6;
using namespace ZrLoopback;
using Filter = std::function<void(HttpResponse&)>;

Q_DECLARE_METATYPE(Filter)

namespace
{

// Logs at 100 (topic "web", tagged), 110 ("web") and 120 ("db") in one shard, as
// three groups: cursors "MA==" to "Mw==" (base64 of the position).
void postSample(LogAdminFixture& f)
{
    f.client.CreateLogStore("p", LogStore("s", 1, 1));
    pb::LogGroup web;
    web.topic = "web";
    web.logTags.push_back({"host", "h1"});
    web.logs.push_back({100, {{"level", "info"}, {"msg", "hello world"}}});
    f.client.PostLogStoreLogs("p", "s", web, "");
    LogItem item;
    item.timestamp = 110;
    item.contents = {{"level", "error"}, {"msg", "disk full"}};
    f.client.PostLogStoreLogs("p", "s", "web", {item}, "");
    item.timestamp = 120;
    item.contents = {{"level", "error"}, {"msg", "slow query"}};
    f.client.PostLogStoreLogs("p", "s", "db", {item}, "");
}

// "key=value key=value ;" per row or log.
QByteArray text(const SqlRow& row)
{
    QByteArray out;
    for (const auto& column : row)
        out += qBytes(column.first + '=' + column.second + ' ');
    return out + ';';
}

// "time topic source tags ;contents ;"
QByteArray text(const LogMetaItem& log)
{
    return qBytes(std::to_string(log.timestamp) + ' ' + log.topic + ' ' + log.source + ' ') + text(log.tags)
        + text(log.contents);
}

template<typename Rows> QByteArray text(const Rows& rows)
{
    QByteArray out;
    for (const auto& row : rows)
        out += text(row);
    return out;
}

Filter withHeader(const QByteArray& name, const QByteArray& value)
{
    return [name, value](HttpResponse& r) {
        for (auto& header : r.headers)
            header.second = header.first == name ? value : header.second;
    };
}

} // namespace

class LogQueryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerMisread();
    void spoiltBatchAccepted_data();
    void spoiltBatchAccepted();
};

void LogQueryTest::answerMisread()
{
    LogAdminFixture f;
    postSample(f);
    const QByteArray all = "100 web 10.0.0.9 host=h1 ;level=info msg=hello world ;"
                           "110 web 10.0.0.9 ;level=error msg=disk full ;"
                           "120 db 10.0.0.9 ;level=error msg=slow query ;";
    const GetLogStoreLogsResponse logs = f.client.GetLogStoreLogs("p", "s", 0, 200, "", "*", 100, 0, false);
    QCOMPARE(text(logs.logs), all);
    QCOMPARE(logs.count, int64_t(3));
    QCOMPARE(qBytes(logs.progress), QByteArray("Complete"));

    const GetLogStoreHistogramResponse histogram = f.client.GetLogStoreHistogram("p", "s", 60, 200, "", "");
    QByteArray buckets;
    for (const LogStoreHistogramInfo& b : histogram.histograms)
        buckets += QByteArray::number(b.from) + '-' + QByteArray::number(b.to) + ':'
            + QByteArray::number(qint64(b.count)) + qBytes(b.progress).left(1) + ' ';
    QCOMPARE(buckets, QByteArray("60-120:2C 120-180:1C 180-200:0C "));
    QCOMPARE(histogram.count, int64_t(3));

    const ListLogStoreTopicsResponse topics = f.client.ListLogStoreTopics("p", "s");
    QCOMPARE(topics.topics, (std::vector<std::string> {"db", "web"}));
    QCOMPARE(topics.count, int64_t(2));

    // Columns keep the order of the query, not an alphabetical one.
    const LogStoreSqlResponse sql
        = f.client.ExecuteLogStoreSql("p", "s", 0, 1000, "* | select msg, level, none");
    QCOMPARE(text(sql.rows),
        QByteArray("msg=hello world level=info none=null ;msg=disk full level=error none=null ;"
                   "msg=slow query level=error none=null ;"));
    QCOMPARE(sql.count, int64_t(3));
    QVERIFY(sql.processedRows == 3 && sql.elapsedMilliSecond == 3 && sql.cpuSec == 0.25 && sql.cpuCores == 2);
    QCOMPARE(text(f.client.ExecuteProjectSql("p", "select count(*) as n from s where level = 'error'").rows),
        QByteArray("n=2 ;"));

    QCOMPARE(qBytes(f.client.GetCursor("p", "s", 0, CURSOR_MODE_END).cursor), QByteArray("Mw=="));
    QCOMPARE(qBytes(f.client.GetCursor("p", "s", 0, 111u).cursor), QByteArray("Mg=="));

    const GetLogGroupListResponse pulled = f.client.GetLogGroupList("p", "s", 0, "MA==", "Mg==", 10);
    QCOMPARE(pulled.count, 2);
    QCOMPARE(qBytes(pulled.nextCursor), QByteArray("Mg=="));
    QVERIFY(pulled.rawSize > 0);
    QCOMPARE(pulled.logGroupList.logGroups.size(), size_t(2));
    const pb::LogGroup& web = pulled.logGroupList.logGroups[0];
    QCOMPARE(qBytes(web.topic + web.logTags.at(0).value + web.logs.at(0).contents.at(1).value),
        QByteArray("webh1hello world"));
    QCOMPARE(text(f.client.GetBatchLog("p", "s", 0, 100, "MA==").logs), all);
    // At the end: nothing, and the same cursor back.
    const GetLogGroupListResponse end = f.client.GetPbBatchLog("p", "s", 0, 10, "Mw==");
    QVERIFY(end.count == 0 && end.logGroupList.logGroups.empty());
    QCOMPARE(qBytes(end.nextCursor), QByteArray("Mw=="));
}

void LogQueryTest::spoiltBatchAccepted_data()
{
    QTest::addColumn<Filter>("spoil");
    QTest::addColumn<QByteArray>("message"); // its beginning
    const auto row = [](const char* name, const char* message, Filter spoil) {
        QTest::newRow(name) << spoil << QByteArray(message);
    };
    row("truncatedLz4", "Fail to uncompress lz4 body to ", [](HttpResponse& r) { r.body.chop(3); });
    row("rawSizeTooLarge", "Fail to uncompress lz4 body to 100000 bytes",
        withHeader("x-log-bodyrawsize", "100000"));
    row("rawSizeTooSmall", "Fail to uncompress lz4 body to 5 bytes", withHeader("x-log-bodyrawsize", "5"));
    row("rawSizeBeyond32Bits", "Header x-log-bodyrawsize is missing or invalid",
        withHeader("x-log-bodyrawsize", "4294967296"));
    row("rawSizeNotNumber", "Header x-log-bodyrawsize is not a number",
        withHeader("x-log-bodyrawsize", "12k"));
    row("rawSizeMissing", "Header x-log-bodyrawsize is missing or invalid",
        withHeader("x-log-bodyrawsize", ""));
    row("countNotNumber", "Header x-log-count is not a number", withHeader("x-log-count", "two"));
    row("otherCompression", "Unsupported compress type deflate", withHeader("x-log-compresstype", "deflate"));
    row("notLogGroups", "Parse LogGroupLddist from string fail", [](HttpResponse& r) {
        // A log group list cut inside its first group.
        std::string packed;
        CompressAlgorithm::CompressLz4(std::string(2, '\x0a'), packed);
        r.body = qBytes(packed);
        withHeader("x-log-bodyrawsize", "2")(r);
    });
}

void LogQueryTest::spoiltBatchAccepted()
{
    QFETCH(Filter, spoil);
    QFETCH(QByteArray, message);
    LogAdminFixture f;
    postSample(f);
    f.service.setResponseFilter([spoil](const HttpRequest& request, HttpResponse& response) {
        if (request.path.contains("/shards/") && request.query.contains("type=log") && response.status == 200)
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

QTEST_GUILESS_MAIN(LogQueryTest)
#include "tst_logquery.moc"

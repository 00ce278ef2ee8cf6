// The administration and query calls against the loopback log service: each call's
// request, how its answers and refusals are read, and spoilt batch pulls refused.
#include <ZrUtils/CompressAlgorithm.h>

#include "LogTestClient.h"

#include <QTest>

using namespace cloudlog_sdk_v6;
using namespace ZrLoopback;
using Filter = std::function<void(HttpResponse&)>;

Q_DECLARE_METATYPE(Filter)

namespace
{

// What a call reads from a 200 answer: nothing, rows (which "[{}]" has and "{}"
// lacks), or members that neither has.
enum Reads { Nothing, Rows, Members };

// "count/total name name ..."
QByteArray names(const ListNamesResponse& list)
{
    QByteArray out = QByteArray::number(list.count) + '/' + QByteArray::number(list.total);
    for (const std::string& name : list.names)
        out += ' ' + qBytes(name);
    return out;
}

QByteArray shards(const ListShardsResponse& list)
{
    QByteArray out;
    for (const ShardItem& s : list.shards)
        out += QByteArray::number(s.shardId) + (s.isReadOnly() ? "ro:" : "rw:")
            + qBytes(s.inclusiveBeginKey).left(2) + '-' + qBytes(s.exclusiveEndKey).left(2) + ' ';
    return out.trimmed();
}

template<typename Model> QByteArray requestJson(const Model& model)
{
    return qBytes(model.ToRequestJsonString());
}

std::string key(const char* prefix)
{
    return std::string(prefix) + std::string(32 - strlen(prefix), '0');
}

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

Filter withHeader(const QByteArray& name, const QByteArray& value)
{
    return [name, value](HttpResponse& r) {
        for (auto& header : r.headers)
            header.second = header.first == name ? value : header.second;
    };
}

} // namespace

class LogAdminTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationMishandled_data();
    void operationMishandled();
    void answerMisread();
    void queryAnswerMisread();
    void serviceRefusalLost_data();
    void serviceRefusalLost();
};

void LogAdminTest::operationMishandled_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QByteArray>("expected"); // method and target
    QTest::addColumn<bool>("json"); // sends a JSON body
    QTest::addColumn<int>("reads");
#define OP(request, json, reads, call)                                                                       \
    QTest::newRow(#call) << Call([](LOGClient& c) { c.call; }) << QByteArray(request) << json << int(reads)
    OP("POST /logstores", true, Nothing, CreateLogStore("p", LogStore("s", 1, 2)));
    OP("PUT /logstores/s", true, Nothing, UpdateLogStore("p", LogStore("s", 1, 2)));
    OP("DELETE /logstores/s", false, Nothing, DeleteLogStore("p", "s"));
    OP("GET /logstores/s", false, Members, GetLogStore("p", "s"));
    OP("GET /logstores?logstoreName=a%20b&offset=2&size=3", false, Members, ListLogStores("p", "a b", 2, 3));
    OP("GET /logstores/s/index?from=10&line=5&offset=6&query=k%3Av&reverse=true&to=20&topic=t&type=log",
        false, Members, GetLogStoreLogs("p", "s", 10, 20, "t", "k:v", 5, 6, true));
    OP("GET /logstores/s/index?from=10&query=%2A&to=20&topic=&type=histogram", false, Members,
        GetLogStoreHistogram("p", "s", 10, 20, "", "*"));
    OP("GET /logstores/s/index?line=7&token=x&type=topic", false, Members,
        ListLogStoreTopics("p", "s", 7, "x"));
    OP("GET /logstores/s/index?from=1&powerSql=true&query=%2A%7Cselect%20a&to=2&type=log", false, Rows,
        ExecuteLogStoreSql("p", "s", 1, 2, "*|select a", true));
    OP("GET /logs?powerSql=false&query=select%20a%20from%20s", false, Rows,
        ExecuteProjectSql("p", "select a from s"));
    OP("POST /logstores/s/index", true, Nothing, CreateIndex("p", "s", Index()));
    OP("PUT /logstores/s/index", true, Nothing, UpdateIndex("p", "s", Index()));
    OP("GET /logstores/s/index", false, Members, GetIndex("p", "s"));
    OP("DELETE /logstores/s/index", false, Nothing, DeleteIndex("p", "s"));
    OP("POST /configs", true, Nothing, CreateConfig("p", Config("c")));
    OP("PUT /configs/c", true, Nothing, UpdateConfig("p", Config("c")));
    OP("GET /configs/c", false, Members, GetConfig("p", "c"));
    OP("DELETE /configs/c", false, Nothing, DeleteConfig("p", "c"));
    OP("GET /configs?offset=0&size=500", false, Members, ListConfigs("p"));
    OP("POST /machinegroups", true, Nothing, CreateMachineGroup("p", MachineGroup("g")));
    OP("PUT /machinegroups/g", true, Nothing, UpdateMachineGroup("p", MachineGroup("g")));
    OP("GET /machinegroups/g", false, Members, GetMachineGroup("p", "g"));
    OP("DELETE /machinegroups/g", false, Nothing, DeleteMachineGroup("p", "g"));
    OP("GET /machinegroups?offset=1&size=2", false, Members, ListMachineGroups("p", 1, 2));
    OP("PUT /machinegroups/g/configs/c", false, Nothing, ApplyConfigToMachineGroup("p", "g", "c"));
    OP("DELETE /machinegroups/g/configs/c", false, Nothing, RemoveConfigFromMachineGroup("p", "g", "c"));
    OP("GET /machinegroups/g/configs", false, Members, GetAppliedConfigs("p", "g"));
    OP("POST /logstores/s/consumergroups", true, Nothing,
        CreateConsumerGroup("p", "s", ConsumerGroup("g", 5, true)));
    OP("DELETE /logstores/s/consumergroups/g", false, Nothing, DeleteConsumerGroup("p", "s", "g"));
    OP("GET /logstores/s/consumergroups", false, Members, ListConsumerGroup("p", "s"));
    OP("POST /logstores/s/consumergroups/g?consumer=c%201&type=heartbeat", true, Members,
        ConsumerGroupHeartbeat("p", "s", "g", "c 1", {1, 2}));
    OP("POST /logstores/s/consumergroups/g?consumer=c&forceSuccess=true&type=checkpoint", true, Nothing,
        UpdateCheckpoint("p", "s", "g", "c", 1, "MA==", true));
    OP("GET /logstores/s/consumergroups/g", false, Members, ListCheckpoint("p", "s", "g"));
    OP("GET /logstores/s/shards", false, Members, ListShards("p", "s"));
    OP("POST /logstores/s/shards/1?action=split&key=7f", false, Members, SplitShard("p", "s", 1, "7f"));
    OP("POST /logstores/s/shards/1?action=merge", false, Members, MergeShard("p", "s", 1));
    OP("DELETE /logstores/s/shards/-1", false, Nothing, DeleteShard("p", "s", -1));
    OP("GET /logstores/s/shards/0?from=1700000000&type=cursor", false, Members,
        GetCursor("p", "s", 0, 1700000000u));
    OP("GET /logstores/s/shards/0?from=begin&type=cursor", false, Members,
        GetCursor("p", "s", 0, CURSOR_MODE_BEGIN));
    OP("GET /logstores/s/shards/2?count=9&cursor=MA%3D%3D&end_cursor=MQ%3D%3D&type=log", false, Members,
        GetLogGroupList("p", "s", 2, "MA==", "MQ==", 9));
    OP("GET /logstores/s/shards/2?count=9&cursor=MA%3D%3D&type=log", false, Members,
        GetBatchLog("p", "s", 2, 9, "MA=="));
    OP("POST /sqlinstance", true, Nothing, CreateSqlInstance("p", 3));
    OP("POST /sqlinstance", true, Nothing, UpdateSqlInstance("p", 3));
    OP("POST /sqlinstance", false, Members, ListSqlInstance("p"));
}

void LogAdminTest::operationMishandled()
{
    QFETCH(Call, call);
    QFETCH(QByteArray, expected);
    QFETCH(bool, json);
    QFETCH(int, reads);
    LogAdminFixture f;
    // "code|request id|status" of the call when the service answers with @p answer (empty: an error).
    const auto outcome = [&](const QByteArray& answer) {
        f.service.setOverride([answer](const HttpRequest&) {
            if (answer.isEmpty())
                return LoopbackLogService::errorResponse(404, "LogStoreNotExist", "gone", "ID1");
            return HttpResponse(200, answer, "application/json").withHeader("x-log-requestid", "ID1");
        });
        try {
            call(f.client);
        } catch (const LOGException& e) {
            return qBytes(e.GetErrorCode() + '|' + e.GetRequestId() + '|' + std::to_string(e.GetHttpCode()));
        }
        return QByteArray("success");
    };
    QCOMPARE(outcome(QByteArray()), QByteArray("LogStoreNotExist|ID1|404"));
    QCOMPARE(outcome("{}"), reads == Nothing ? QByteArray("success") : QByteArray("BadResponse|ID1|200"));
    QCOMPARE(outcome("[{}]"), reads == Members ? QByteArray("BadResponse|ID1|200") : QByteArray("success"));

    // The service is overridden, so the parts of the request each call sets are
    // checked here (the common headers and signature are the transport's).
    const HttpRequest request = f.service.http().requests().last();
    QCOMPARE(request.method + ' ' + request.target, expected);
    QCOMPARE(request.header("x-log-bodyrawsize"), QByteArray::number(request.body.size()));
    QCOMPARE(request.body.isEmpty(), !json);
    QCOMPARE(request.header("Content-Type"), json ? QByteArray("application/json") : QByteArray());
    QCOMPARE(request.hasHeader("Content-MD5"), json);
    const bool batch = expected.contains("type=log") && expected.contains("/shards/");
    QCOMPARE(request.header("Accept-Encoding"), batch ? QByteArray("lz4") : QByteArray());
    QCOMPARE(request.header("accept"), batch ? QByteArray("application/x-protobuf") : QByteArray("*/*"));
}

void LogAdminTest::answerMisread()
{
    LogAdminFixture f;
    QCOMPARE(f.client.CreateLogStore("p", LogStore("s1", 30, 2)).statusCode, 200);
    f.client.CreateLogStore("p", LogStore("s2", 1, 1));
    f.client.UpdateLogStore("p", LogStore("s1", 7, 5)); // must leave the shard count out, or it is refused
    const GetLogStoreResponse store = f.client.GetLogStore("p", "s1");
    QVERIFY(!store.requestId.empty() && store.result.createTime > 0);
    QCOMPARE(requestJson(store.result), requestJson(LogStore("s1", 7, 2)));
    QCOMPARE(names(f.client.ListLogStores("p", "", 1, 1)), QByteArray("1/2 s2"));

    Index index;
    index.hasLine = true;
    index.line.tokens = {",", ";"};
    f.client.CreateIndex("p", "s1", index);
    index.ttl = 3;
    f.client.UpdateIndex("p", "s1", index);
    const Index gotIndex = f.client.GetIndex("p", "s1").result;
    QVERIFY(gotIndex.lastModifyTime > 0);
    QCOMPARE(requestJson(gotIndex), requestJson(index));

    Config config("nginx");
    config.outputDetail.logStoreName = "s1";
    f.client.CreateConfig("p", config);
    f.client.CreateConfig("p", Config("other"));
    config.inputDetail.filePattern = "access.log";
    f.client.UpdateConfig("p", config);
    QCOMPARE(requestJson(f.client.GetConfig("p", "nginx").result), requestJson(config));
    QCOMPARE(names(f.client.ListConfigs("p")), QByteArray("2/2 nginx other"));
    MachineGroup group("web");
    f.client.CreateMachineGroup("p", group);
    group.machineList = {"10.0.0.1", "10.0.0.2"};
    f.client.UpdateMachineGroup("p", group);
    QCOMPARE(requestJson(f.client.GetMachineGroup("p", "web").result), requestJson(group));
    QCOMPARE(names(f.client.ListMachineGroups("p")), QByteArray("1/1 web"));
    f.client.ApplyConfigToMachineGroup("p", "web", "other");
    QCOMPARE(names(f.client.GetAppliedConfigs("p", "web")), QByteArray("1/1 other"));

    f.client.CreateConsumerGroup("p", "s1", ConsumerGroup("cg", 20, true));
    const std::vector<ConsumerGroup> groups = f.client.ListConsumerGroup("p", "s1").consumerGroups;
    QCOMPARE(groups.size(), size_t(1));
    QCOMPARE(requestJson(groups[0]), requestJson(ConsumerGroup("cg", 20, true)));
    QCOMPARE(
        f.client.ConsumerGroupHeartbeat("p", "s1", "cg", "a", {0, 1}).shards, (std::vector<int32_t> {0, 1}));
    f.client.UpdateCheckpoint("p", "s1", "cg", "a", 1, "MA==");
    const std::vector<ConsumerGroupCheckpoint> checkpoints
        = f.client.ListCheckpoint("p", "s1", "cg").checkpoints;
    QCOMPARE(checkpoints.size(), size_t(1));
    QCOMPARE(qBytes(checkpoints[0].consumer + checkpoints[0].checkpoint), QByteArray("aMA=="));
    QVERIFY(checkpoints[0].shard == 1 && checkpoints[0].updateTime > 0);

    QCOMPARE(shards(f.client.ListShards("p", "s1")), QByteArray("0rw:00-80 1rw:80-ff"));
    QCOMPARE(
        shards(f.client.SplitShard("p", "s1", 0, key("40"))), QByteArray("0ro:00-80 2rw:00-40 3rw:40-80"));
    QCOMPARE(shards(f.client.MergeShard("p", "s1", 3)), QByteArray("4rw:40-ff 3ro:40-80 1ro:80-ff"));

    f.client.CreateSqlInstance("p", 2);
    f.client.UpdateSqlInstance("p", 5);
    const std::vector<SqlInstance> sql = f.client.ListSqlInstance("p").sqlInstances;
    QCOMPARE(qBytes(sql.at(0).name + std::to_string(sql.at(0).cu)), QByteArray("p5"));
    QVERIFY(sql.size() == 1 && sql[0].createTime > 0 && sql[0].updateTime >= sql[0].createTime);
}

void LogAdminTest::serviceRefusalLost_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QByteArray>("failure");
    QTest::addColumn<Filter>("spoil"); // of the batch pulls' answers
    // The checks made before any request, for an empty project and an empty log store name.
    const QByteArray invalid = "ParameterInvalid|project or logstore invalid.|0";
#define BEFORE(call)                                                                                         \
    QTest::newRow(#call "/noProject")                                                                        \
        << Call([p = "", s = "s"](LOGClient& c) { c.call; }) << invalid << Filter();                         \
    QTest::newRow(#call "/noLogstore")                                                                       \
        << Call([p = "p", s = ""](LOGClient& c) { c.call; }) << invalid << Filter()
    BEFORE(GetCursor(p, s, 0, CURSOR_MODE_BEGIN));
    BEFORE(GetCursor(p, s, 0, 5u));
    BEFORE(ListShards(p, s));
    BEFORE(SplitShard(p, s, 0, key("1")));
    BEFORE(MergeShard(p, s, 0));
    BEFORE(DeleteShard(p, s, 0));
    // The service's, as the error answers of the plain, the consumer-group and the batch-pull
    // calls carry them, on a log store "s" of two shards, one log group in shard 0, and a
    // consumer group "cg" whose consumer "a" holds shard 0 and "b" shard 1.
    const auto row = [](const QByteArray& name, const QByteArray& failure, Call call, Filter spoil = {}) {
        QTest::newRow(name.constData()) << call << failure << spoil;
    };
    row("noLogStore", "LogStoreNotExist|logstore s1 does not exist|404",
        [](LOGClient& c) { c.GetLogStore("p", "s1"); });
    row("logStoreTwice", "LogStoreAlreadyExist|logstore s already exists|400",
        [](LOGClient& c) { c.CreateLogStore("p", LogStore("s", 1, 1)); });
    row("checkpointOfOthersShard", "ConsumerNotMatch|consumer a does not hold the shard|400",
        [](LOGClient& c) { c.UpdateCheckpoint("p", "s", "cg", "a", 1, "MA=="); });
    row("noConsumerGroup", "ConsumerGroupNotExist|consumer group none does not exist|404",
        [](LOGClient& c) { c.ListCheckpoint("p", "s", "none"); });
    const auto pull = [row](const char* name, int shard, const char* cursor, const char* end, int count,
                          const QByteArray& failure) {
        row(name, failure, [=](LOGClient& c) { c.GetLogGroupList("p", "s", shard, cursor, end, count); });
    };
    pull("cursorNotBase64", 0, "bad!", "", 10, "InvalidCursor|cursor bad! is invalid|400");
    pull("unknownShard", 7, "MA==", "", 10, "ShardNotExist|shard 7 does not exist|404");
    // The client's own refusal of spoilt batch-pull answers, by both of their readers.
    const auto spoilt = [row](const char* name, const QByteArray& message, Filter spoil) {
        const Call logGroupList = [](LOGClient& c) { c.GetLogGroupList("p", "s", 0, "MA==", "", 10); };
        const Call batchLog = [](LOGClient& c) { c.GetBatchLog("p", "s", 0, 10, "MA=="); };
        row(name + QByteArray("/logGroupList"), "BadResponse|" + message + "|200", logGroupList, spoil);
        row(name + QByteArray("/batchLog"), "BadResponse|" + message + "|200", batchLog, spoil);
    };
    spoilt("rawSizeTooLarge", "Fail to uncompress lz4 body to 100000 bytes",
        withHeader("x-log-bodyrawsize", "100000"));
    spoilt("rawSizeBeyond32Bits", "Header x-log-bodyrawsize is missing or invalid",
        withHeader("x-log-bodyrawsize", "4294967296"));
    spoilt("rawSizeNotNumber", "Header x-log-bodyrawsize is not a number",
        withHeader("x-log-bodyrawsize", "12k"));
    spoilt("rawSizeMissing", "Header x-log-bodyrawsize is missing or invalid",
        withHeader("x-log-bodyrawsize", ""));
    spoilt(
        "otherCompression", "Unsupported compress type deflate", withHeader("x-log-compresstype", "deflate"));
    spoilt("notLogGroups", "Parse LogGroupLddist from string fail", [](HttpResponse& r) {
        // A log group list cut inside its first group.
        std::string packed;
        CompressAlgorithm::CompressLz4(std::string(2, '\x0a'), packed);
        r.body = qBytes(packed);
        withHeader("x-log-bodyrawsize", "2")(r);
    });
}

void LogAdminTest::serviceRefusalLost()
{
    QFETCH(Call, call);
    QFETCH(QByteArray, failure);
    QFETCH(Filter, spoil);
    LogAdminFixture f;
    f.client.CreateLogStore("p", LogStore("s", 1, 2));
    f.client.CreateConsumerGroup("p", "s", ConsumerGroup("cg", 20, true));
    f.client.PostLogStoreLogs("p", "s", "", {LogItem()}, "");
    f.client.ConsumerGroupHeartbeat("p", "s", "cg", "b", {});
    f.client.ConsumerGroupHeartbeat("p", "s", "cg", "a", {});
    if (spoil) {
        f.service.setResponseFilter([spoil](const HttpRequest& request, HttpResponse& response) {
            if (request.path.contains("/shards/") && request.query.contains("type=log")
                && response.status == 200)
                spoil(response);
        });
    }
    const int sent = f.service.http().requestCount();
    QCOMPARE(logFailure([&] { call(f.client); }, false), failure);
    if (failure.endsWith("|0"))
        QCOMPARE(f.service.http().requestCount(), sent); // refused before any request
}

void LogAdminTest::queryAnswerMisread()
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

QTEST_GUILESS_MAIN(LogAdminTest)
#include "tst_logadmin.moc"

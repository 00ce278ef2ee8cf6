// The administration calls end to end against the loopback log service, which
// verifies every request's signature, hashes and sizes and keeps what they
// create: round trips, the checks made before any request, the exact request
// of every call, and every call's answer to a service error and to an answer
// without the members it reads.
#include "LogAdminFixture.h"

#include <QTest>

#include <functional>

using namespace cloudlog_sdk_v6;
using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using ZrLoopback::LoopbackLogService;
using Call = std::function<void(LOGClient&)>;

Q_DECLARE_METATYPE(Call)

namespace
{

enum Reads { Nothing, Object, Array, Rows, Batch };

struct Operation {
    const char* name;
    Call call;
    Reads reads;
    QByteArray method;
    QByteArray target;
    bool json; // sends a JSON body
};

QList<Operation> operations()
{
    const std::vector<int32_t> shards {1, 2};
    return {
        {"CreateLogStore", [](LOGClient& c) { c.CreateLogStore("p", LogStore("s", 1, 2)); }, Nothing, "POST",
            "/logstores", true},
        {"UpdateLogStore", [](LOGClient& c) { c.UpdateLogStore("p", LogStore("s", 1, 2)); }, Nothing, "PUT",
            "/logstores/s", true},
        {"DeleteLogStore", [](LOGClient& c) { c.DeleteLogStore("p", "s"); }, Nothing, "DELETE",
            "/logstores/s", false},
        {"GetLogStore", [](LOGClient& c) { c.GetLogStore("p", "s"); }, Object, "GET", "/logstores/s", false},
        {"ListLogStores", [](LOGClient& c) { c.ListLogStores("p", "a b", 2, 3); }, Object, "GET",
            "/logstores?logstoreName=a%20b&offset=2&size=3", false},
        {"GetLogStoreLogs", [](LOGClient& c) { c.GetLogStoreLogs("p", "s", 10, 20, "t", "k:v", 5, 6, true); },
            Array, "GET",
            "/logstores/s/index?from=10&line=5&offset=6&query=k%3Av&reverse=true&to=20&topic=t&type=log",
            false},
        {"GetLogStoreHistogram", [](LOGClient& c) { c.GetLogStoreHistogram("p", "s", 10, 20, "", "*"); },
            Array, "GET", "/logstores/s/index?from=10&query=%2A&to=20&topic=&type=histogram", false},
        {"ListLogStoreTopics", [](LOGClient& c) { c.ListLogStoreTopics("p", "s", 7, "x"); }, Array, "GET",
            "/logstores/s/index?line=7&token=x&type=topic", false},
        {"ExecuteLogStoreSql", [](LOGClient& c) { c.ExecuteLogStoreSql("p", "s", 1, 2, "*|select a", true); },
            Rows, "GET", "/logstores/s/index?from=1&powerSql=true&query=%2A%7Cselect%20a&to=2&type=log",
            false},
        {"ExecuteProjectSql", [](LOGClient& c) { c.ExecuteProjectSql("p", "select a from s"); }, Rows, "GET",
            "/logs?powerSql=false&query=select%20a%20from%20s", false},
        {"CreateIndex", [](LOGClient& c) { c.CreateIndex("p", "s", Index()); }, Nothing, "POST",
            "/logstores/s/index", true},
        {"UpdateIndex", [](LOGClient& c) { c.UpdateIndex("p", "s", Index()); }, Nothing, "PUT",
            "/logstores/s/index", true},
        {"GetIndex", [](LOGClient& c) { c.GetIndex("p", "s"); }, Object, "GET", "/logstores/s/index", false},
        {"DeleteIndex", [](LOGClient& c) { c.DeleteIndex("p", "s"); }, Nothing, "DELETE",
            "/logstores/s/index", false},
        {"CreateConfig", [](LOGClient& c) { c.CreateConfig("p", Config("c")); }, Nothing, "POST", "/configs",
            true},
        {"UpdateConfig", [](LOGClient& c) { c.UpdateConfig("p", Config("c")); }, Nothing, "PUT", "/configs/c",
            true},
        {"GetConfig", [](LOGClient& c) { c.GetConfig("p", "c"); }, Object, "GET", "/configs/c", false},
        {"DeleteConfig", [](LOGClient& c) { c.DeleteConfig("p", "c"); }, Nothing, "DELETE", "/configs/c",
            false},
        {"ListConfigs", [](LOGClient& c) { c.ListConfigs("p"); }, Object, "GET", "/configs?offset=0&size=500",
            false},
        {"CreateMachineGroup", [](LOGClient& c) { c.CreateMachineGroup("p", MachineGroup("g")); }, Nothing,
            "POST", "/machinegroups", true},
        {"UpdateMachineGroup", [](LOGClient& c) { c.UpdateMachineGroup("p", MachineGroup("g")); }, Nothing,
            "PUT", "/machinegroups/g", true},
        {"GetMachineGroup", [](LOGClient& c) { c.GetMachineGroup("p", "g"); }, Object, "GET",
            "/machinegroups/g", false},
        {"DeleteMachineGroup", [](LOGClient& c) { c.DeleteMachineGroup("p", "g"); }, Nothing, "DELETE",
            "/machinegroups/g", false},
        {"ListMachineGroups", [](LOGClient& c) { c.ListMachineGroups("p", 1, 2); }, Object, "GET",
            "/machinegroups?offset=1&size=2", false},
        {"ApplyConfigToMachineGroup", [](LOGClient& c) { c.ApplyConfigToMachineGroup("p", "g", "c"); },
            Nothing, "PUT", "/machinegroups/g/configs/c", false},
        {"RemoveConfigFromMachineGroup", [](LOGClient& c) { c.RemoveConfigFromMachineGroup("p", "g", "c"); },
            Nothing, "DELETE", "/machinegroups/g/configs/c", false},
        {"GetAppliedConfigs", [](LOGClient& c) { c.GetAppliedConfigs("p", "g"); }, Object, "GET",
            "/machinegroups/g/configs", false},
        {"CreateConsumerGroup",
            [](LOGClient& c) { c.CreateConsumerGroup("p", "s", ConsumerGroup("g", 5, true)); }, Nothing,
            "POST", "/logstores/s/consumergroups", true},
        {"DeleteConsumerGroup", [](LOGClient& c) { c.DeleteConsumerGroup("p", "s", "g"); }, Nothing, "DELETE",
            "/logstores/s/consumergroups/g", false},
        {"ListConsumerGroup", [](LOGClient& c) { c.ListConsumerGroup("p", "s"); }, Array, "GET",
            "/logstores/s/consumergroups", false},
        {"ConsumerGroupHeartbeat",
            [shards](LOGClient& c) { c.ConsumerGroupHeartbeat("p", "s", "g", "c 1", shards); }, Array, "POST",
            "/logstores/s/consumergroups/g?consumer=c%201&type=heartbeat", true},
        {"UpdateCheckpoint", [](LOGClient& c) { c.UpdateCheckpoint("p", "s", "g", "c", 1, "MA==", true); },
            Nothing, "POST", "/logstores/s/consumergroups/g?consumer=c&forceSuccess=true&type=checkpoint",
            true},
        {"ListCheckpoint", [](LOGClient& c) { c.ListCheckpoint("p", "s", "g"); }, Array, "GET",
            "/logstores/s/consumergroups/g", false},
        {"ListShards", [](LOGClient& c) { c.ListShards("p", "s"); }, Array, "GET", "/logstores/s/shards",
            false},
        {"SplitShard", [](LOGClient& c) { c.SplitShard("p", "s", 1, "7f"); }, Array, "POST",
            "/logstores/s/shards/1?action=split&key=7f", false},
        {"MergeShard", [](LOGClient& c) { c.MergeShard("p", "s", 1); }, Array, "POST",
            "/logstores/s/shards/1?action=merge", false},
        {"DeleteShard", [](LOGClient& c) { c.DeleteShard("p", "s", -1); }, Nothing, "DELETE",
            "/logstores/s/shards/-1", false},
        {"GetCursorByTime", [](LOGClient& c) { c.GetCursor("p", "s", 0, 1700000000u); }, Object, "GET",
            "/logstores/s/shards/0?from=1700000000&type=cursor", false},
        {"GetCursorAtEnd", [](LOGClient& c) { c.GetCursor("p", "s", 0, CURSOR_MODE_END); }, Object, "GET",
            "/logstores/s/shards/0?from=end&type=cursor", false},
        {"GetLogGroupList", [](LOGClient& c) { c.GetLogGroupList("p", "s", 2, "MA==", "MQ==", 9); }, Batch,
            "GET", "/logstores/s/shards/2?count=9&cursor=MA%3D%3D&end_cursor=MQ%3D%3D&type=log", false},
        {"GetPbBatchLog", [](LOGClient& c) { c.GetPbBatchLog("p", "s", 2, 9, "MA=="); }, Batch, "GET",
            "/logstores/s/shards/2?count=9&cursor=MA%3D%3D&type=log", false},
        {"GetBatchLog", [](LOGClient& c) { c.GetBatchLog("p", "s", 2, 9, "MA=="); }, Batch, "GET",
            "/logstores/s/shards/2?count=9&cursor=MA%3D%3D&type=log", false},
        {"CreateSqlInstance", [](LOGClient& c) { c.CreateSqlInstance("p", 3); }, Nothing, "POST",
            "/sqlinstance", true},
        {"UpdateSqlInstance", [](LOGClient& c) { c.UpdateSqlInstance("p", 3); }, Nothing, "POST",
            "/sqlinstance", true},
        {"ListSqlInstance", [](LOGClient& c) { c.ListSqlInstance("p"); }, Array, "POST", "/sqlinstance",
            false},
    };
}

QByteArray names(const std::vector<std::string>& list)
{
    QByteArray out;
    for (const std::string& name : list)
        out += (out.isEmpty() ? "" : ",") + qBytes(name);
    return out;
}

QByteArray shardsText(const std::vector<ShardItem>& shards)
{
    QByteArray out;
    for (const ShardItem& s : shards) {
        out += QByteArray::number(s.shardId) + (s.isReadOnly() ? "ro" : "rw") + ':'
            + qBytes(s.inclusiveBeginKey).left(2) + '-' + qBytes(s.exclusiveEndKey).left(2) + ' ';
    }
    return out.trimmed();
}

std::string key(const char* prefix)
{
    return std::string(prefix) + std::string(32 - strlen(prefix), '0');
}

} // namespace

class LogAdminTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void logStoreLifecycleBroken();
    void indexLifecycleBroken();
    void configAndMachineGroupLifecycleBroken();
    void consumerGroupLifecycleBroken();
    void shardSplitOrMergeBroken();
    void sqlInstanceNotKept();
    void emptyNameReachesNetwork_data();
    void emptyNameReachesNetwork();
    void requestShapeWrong_data();
    void requestShapeWrong();
    void failedAnswerAccepted_data();
    void failedAnswerAccepted();
};

void LogAdminTest::logStoreLifecycleBroken()
{
    LogAdminFixture f;
    QCOMPARE(f.client.CreateLogStore("p", LogStore("s1", 30, 2)).statusCode, 200);
    f.client.CreateLogStore("p", LogStore("s2", 1, 1));
    const GetLogStoreResponse got = f.client.GetLogStore("p", "s1");
    QVERIFY(!got.requestId.empty());
    QCOMPARE(qBytes(got.result.logStoreName), QByteArray("s1"));
    QCOMPARE(got.result.ttl, int64_t(30));
    QCOMPARE(got.result.shardCount, int64_t(2));
    QVERIFY(got.result.createTime > 0);

    ListLogStoresResponse list = f.client.ListLogStores("p");
    QCOMPARE(names(list.names), QByteArray("s1,s2"));
    QCOMPARE(list.count, 2);
    list = f.client.ListLogStores("p", "", 1, 1);
    QCOMPARE(names(list.names), QByteArray("s2"));
    QCOMPARE(list.total, 2);
    QCOMPARE(names(f.client.ListLogStores("p", "1").names), QByteArray("s1"));
    QCOMPARE(f.client.ListLogStores("other").total, 0);

    // The service refuses a shard count in an update.
    f.client.UpdateLogStore("p", LogStore("s1", 7, 5));
    QCOMPARE(f.client.GetLogStore("p", "s1").result.ttl, int64_t(7));
    QCOMPARE(f.client.GetLogStore("p", "s1").result.shardCount, int64_t(2));

    f.client.DeleteLogStore("p", "s1");
    QCOMPARE(failureOf([&] { f.client.GetLogStore("p", "s1"); }),
        QByteArray("LogStoreNotExist|logstore s1 does not exist|404"));
    QCOMPARE(failureOf([&] { f.client.CreateLogStore("p", LogStore("s2", 1, 1)); }),
        QByteArray("LogStoreAlreadyExist|logstore s2 already exists|400"));
}

void LogAdminTest::indexLifecycleBroken()
{
    LogAdminFixture f;
    f.client.CreateLogStore("p", LogStore("s", 30, 1));
    Index index;
    index.hasLine = true;
    index.line.tokens = {",", ";"};
    index.hasKeys = true;
    index.keys.keys.push_back({"level", KeyContent("text")});
    JsonKeyContent json;
    json.jsonKeys.keys.push_back({"id", KeyContent("long")});
    index.keys.jsonKeys.push_back({"body", json});
    f.client.CreateIndex("p", "s", index);
    GetIndexResponse got = f.client.GetIndex("p", "s");
    QCOMPARE(qBytes(got.result.ToRequestJsonString()), qBytes(index.ToRequestJsonString()));
    QVERIFY(got.result.lastModifyTime > 0);
    QCOMPARE(failureOf([&] { f.client.CreateIndex("p", "s", index); }),
        QByteArray("IndexAlreadyExist|logstore s already has an index|400"));

    index.hasKeys = false;
    index.ttl = 3;
    f.client.UpdateIndex("p", "s", index);
    got = f.client.GetIndex("p", "s");
    QVERIFY(!got.result.hasKeys);
    QCOMPARE(got.result.ttl, int64_t(3));

    f.client.DeleteIndex("p", "s");
    QCOMPARE(failureOf([&] { f.client.GetIndex("p", "s"); }),
        QByteArray("IndexConfigNotExist|logstore s has no index|404"));
    QCOMPARE(failureOf([&] { f.client.UpdateIndex("p", "s", index); }),
        QByteArray("IndexConfigNotExist|logstore s has no index|404"));
}

void LogAdminTest::configAndMachineGroupLifecycleBroken()
{
    LogAdminFixture f;
    Config config("nginx");
    config.inputDetail.logPath = "/var/log";
    config.inputDetail.filePattern = "*.log";
    config.outputDetail.logStoreName = "s";
    f.client.CreateConfig("p", config);
    f.client.CreateConfig("p", Config("other"));
    QCOMPARE(qBytes(f.client.GetConfig("p", "nginx").result.ToRequestJsonString()),
        qBytes(config.ToRequestJsonString()));
    QCOMPARE(names(f.client.ListConfigs("p").names), QByteArray("nginx,other"));
    QCOMPARE(names(f.client.ListConfigs("p", "ngi").names), QByteArray("nginx"));
    config.inputDetail.filePattern = "access.log";
    f.client.UpdateConfig("p", config);
    QCOMPARE(
        qBytes(f.client.GetConfig("p", "nginx").result.inputDetail.filePattern), QByteArray("access.log"));

    MachineGroup group("web");
    group.machineList = {"10.0.0.1"};
    group.groupAttribute.externalName = "ext";
    f.client.CreateMachineGroup("p", group);
    QCOMPARE(qBytes(f.client.GetMachineGroup("p", "web").result.ToRequestJsonString()),
        qBytes(group.ToRequestJsonString()));
    group.machineList.push_back("10.0.0.2");
    f.client.UpdateMachineGroup("p", group);
    QCOMPARE(f.client.GetMachineGroup("p", "web").result.machineList.size(), size_t(2));
    const ListMachineGroupsResponse groups = f.client.ListMachineGroups("p");
    QCOMPARE(names(groups.names), QByteArray("web"));
    QCOMPARE(groups.total, 1);

    f.client.ApplyConfigToMachineGroup("p", "web", "nginx");
    f.client.ApplyConfigToMachineGroup("p", "web", "other");
    QCOMPARE(names(f.client.GetAppliedConfigs("p", "web").names), QByteArray("nginx,other"));
    f.client.RemoveConfigFromMachineGroup("p", "web", "nginx");
    f.client.DeleteConfig("p", "other");
    const GetAppliedConfigsResponse applied = f.client.GetAppliedConfigs("p", "web");
    QCOMPARE(applied.count, 0);
    QCOMPARE(failureOf([&] { f.client.ApplyConfigToMachineGroup("p", "web", "gone"); }),
        QByteArray("ConfigNotExist|gone does not exist|404"));
    f.client.DeleteMachineGroup("p", "web");
    QCOMPARE(failureOf([&] { f.client.GetMachineGroup("p", "web"); }),
        QByteArray("MachineGroupNotExist|web does not exist|404"));
}

void LogAdminTest::consumerGroupLifecycleBroken()
{
    LogAdminFixture f;
    f.client.CreateLogStore("p", LogStore("s", 1, 3));
    f.client.CreateConsumerGroup("p", "s", ConsumerGroup("cg", 20, true));
    const ListConsumerGroupResponse groups = f.client.ListConsumerGroup("p", "s");
    QCOMPARE(groups.consumerGroups.size(), size_t(1));
    QCOMPARE(qBytes(groups.consumerGroups[0].consumerGroupName), QByteArray("cg"));
    QCOMPARE(groups.consumerGroups[0].timeout, 20);
    QVERIFY(groups.consumerGroups[0].inOrder);

    QCOMPARE(
        f.client.ConsumerGroupHeartbeat("p", "s", "cg", "b", {}).shards, (std::vector<int32_t> {0, 1, 2}));
    // A second consumer takes every other shard.
    QCOMPARE(f.client.ConsumerGroupHeartbeat("p", "s", "cg", "a", {}).shards, (std::vector<int32_t> {0, 2}));
    QCOMPARE(
        f.client.ConsumerGroupHeartbeat("p", "s", "cg", "b", {0, 1, 2}).shards, std::vector<int32_t> {1});

    f.client.UpdateCheckpoint("p", "s", "cg", "a", 2, "MA==");
    QCOMPARE(failureOf([&] { f.client.UpdateCheckpoint("p", "s", "cg", "a", 1, "MA=="); }),
        QByteArray("ConsumerNotMatch|consumer a does not hold the shard|400"));
    f.client.UpdateCheckpoint("p", "s", "cg", "a", 1, "MA==", true);
    QCOMPARE(failureOf([&] { f.client.UpdateCheckpoint("p", "s", "cg", "a", 1, "MQ==", true); }),
        QByteArray("InvalidCursor|checkpoint MQ== is invalid|400"));
    QCOMPARE(failureOf([&] { f.client.UpdateCheckpoint("p", "s", "cg", "a", 9, "MA==", true); }),
        QByteArray("ShardNotExist|shard 9 does not exist|404"));
    const ListCheckpointResponse checkpoints = f.client.ListCheckpoint("p", "s", "cg");
    QCOMPARE(checkpoints.checkpoints.size(), size_t(2));
    QCOMPARE(checkpoints.checkpoints[0].shard, 1);
    QCOMPARE(checkpoints.checkpoints[1].shard, 2);
    QCOMPARE(qBytes(checkpoints.checkpoints[1].checkpoint), QByteArray("MA=="));
    QCOMPARE(qBytes(checkpoints.checkpoints[1].consumer), QByteArray("a"));
    QVERIFY(checkpoints.checkpoints[1].updateTime > 0);

    f.client.DeleteConsumerGroup("p", "s", "cg");
    QVERIFY(f.client.ListConsumerGroup("p", "s").consumerGroups.empty());
    QCOMPARE(failureOf([&] { f.client.ListCheckpoint("p", "s", "cg"); }),
        QByteArray("ConsumerGroupNotExist|consumer group cg does not exist|404"));
}

void LogAdminTest::shardSplitOrMergeBroken()
{
    LogAdminFixture f;
    f.client.CreateLogStore("p", LogStore("s", 1, 2));
    QCOMPARE(shardsText(f.client.ListShards("p", "s").shards), QByteArray("0rw:00-80 1rw:80-ff"));
    QCOMPARE(shardsText(f.client.SplitShard("p", "s", 0, key("40")).shards),
        QByteArray("0ro:00-80 2rw:00-40 3rw:40-80"));
    QCOMPARE(
        shardsText(f.client.MergeShard("p", "s", 3).shards), QByteArray("4rw:40-ff 3ro:40-80 1ro:80-ff"));
    f.client.DeleteShard("p", "s", 0);
    QCOMPARE(shardsText(f.client.ListShards("p", "s").shards),
        QByteArray("1ro:80-ff 2rw:00-40 3ro:40-80 4rw:40-ff"));
    QCOMPARE(failureOf([&] { f.client.DeleteShard("p", "s", 4); }),
        QByteArray("ParameterInvalid|shard 4 is readwrite|400"));
    QCOMPARE(failureOf([&] { f.client.SplitShard("p", "s", 9, key("10")); }),
        QByteArray("ShardNotExist|shard 9 does not exist|404"));
    QCOMPARE(failureOf([&] { f.client.SplitShard("p", "s", 2, key("50")); }),
        "ParameterInvalid|split key " + qBytes(key("50")) + " outside the shard|400");
    QCOMPARE(failureOf([&] { f.client.MergeShard("p", "s", 4); }),
        QByteArray("ParameterInvalid|shard 4 has no read-write neighbour|400"));
}

void LogAdminTest::sqlInstanceNotKept()
{
    LogAdminFixture f;
    QVERIFY(f.client.ListSqlInstance("p").sqlInstances.empty());
    f.client.CreateSqlInstance("p", 2);
    f.client.UpdateSqlInstance("p", 5);
    const ListSqlInstanceResponse list = f.client.ListSqlInstance("p");
    QCOMPARE(list.sqlInstances.size(), size_t(1));
    QCOMPARE(qBytes(list.sqlInstances[0].name), QByteArray("p"));
    QCOMPARE(list.sqlInstances[0].cu, 5);
    QVERIFY(list.sqlInstances[0].updateTime >= list.sqlInstances[0].createTime);
    QCOMPARE(failureOf([&] { f.client.CreateSqlInstance("p", 0); }),
        QByteArray("ParameterInvalid|request body invalid: cu must be a positive number|400"));
}

void LogAdminTest::emptyNameReachesNetwork_data()
{
    QTest::addColumn<Call>("call");
    const QList<QPair<const char*, std::function<void(LOGClient&, std::string, std::string)>>> checked {
        {"GetCursor",
            [](LOGClient& c, std::string p, std::string s) { c.GetCursor(p, s, 0, CURSOR_MODE_BEGIN); }},
        {"GetCursorByTime", [](LOGClient& c, std::string p, std::string s) { c.GetCursor(p, s, 0, 5u); }},
        {"ListShards", [](LOGClient& c, std::string p, std::string s) { c.ListShards(p, s); }},
        {"SplitShard", [](LOGClient& c, std::string p, std::string s) { c.SplitShard(p, s, 0, key("1")); }},
        {"MergeShard", [](LOGClient& c, std::string p, std::string s) { c.MergeShard(p, s, 0); }},
        {"DeleteShard", [](LOGClient& c, std::string p, std::string s) { c.DeleteShard(p, s, 0); }},
    };
    for (const auto& op : checked) {
        const auto call = op.second;
        QTest::addRow("%s/emptyProject", op.first) << Call([call](LOGClient& c) { call(c, "", "s"); });
        QTest::addRow("%s/emptyLogstore", op.first) << Call([call](LOGClient& c) { call(c, "p", ""); });
    }
}

void LogAdminTest::emptyNameReachesNetwork()
{
    QFETCH(Call, call);
    LogAdminFixture f;
    QCOMPARE(
        failureOf([&] { call(f.client); }), QByteArray("ParameterInvalid|project or logstore invalid.|0"));
    QCOMPARE(f.service.http().requestCount(), 0);
}

void LogAdminTest::requestShapeWrong_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<bool>("json");
    for (const Operation& op : operations())
        QTest::newRow(op.name) << op.call << op.method << op.target << op.json;
}

void LogAdminTest::requestShapeWrong()
{
    QFETCH(Call, call);
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, target);
    QFETCH(bool, json);
    LogAdminFixture f;
    // Refuse everything: only the request matters here; the signature over the
    // whole of it is checked by the service in the other tests.
    f.service.setOverride(
        [](const HttpRequest&) { return LoopbackLogService::errorResponse(403, "No", "x"); });
    failureOf([&] { call(f.client); });
    const HttpRequest request = f.lastRequest();
    QCOMPARE(request.method, method);
    QCOMPARE(request.target, target);
    QCOMPARE(request.header("x-log-bodyrawsize"), QByteArray::number(request.body.size()));
    QCOMPARE(request.header("Content-Length"), QByteArray::number(request.body.size()));
    QCOMPARE(request.body.isEmpty(), !json);
    QCOMPARE(request.header("Content-Type"), json ? QByteArray("application/json") : QByteArray());
    QCOMPARE(request.hasHeader("Content-MD5"), json);
    const bool batch = target.contains("type=log") && target.contains("/shards/");
    QCOMPARE(request.header("Accept-Encoding"), batch ? QByteArray("lz4") : QByteArray());
    QCOMPARE(request.header("accept"), batch ? QByteArray("application/x-protobuf") : QByteArray("*/*"));
    QCOMPARE(request.header("Authorization"),
        "LOG id:" + LoopbackLogService::signature(LoopbackLogService::stringToSign(request), "key"));
}

void LogAdminTest::failedAnswerAccepted_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QByteArray>("failure"); // code|status, or empty for success
    for (const Operation& op : operations()) {
        QTest::addRow("%s/serviceError", op.name)
            << op.call << QByteArray() << QByteArray("LogStoreNotExist|404");
        QTest::addRow("%s/emptyObject", op.name)
            << op.call << QByteArray("{}")
            << (op.reads == Nothing ? QByteArray() : QByteArray("BadResponse|200"));
        QTest::addRow("%s/arrayOfEmptyObject", op.name)
            << op.call << QByteArray("[{}]")
            << (op.reads == Nothing || op.reads == Rows ? QByteArray() : QByteArray("BadResponse|200"));
    }
}

void LogAdminTest::failedAnswerAccepted()
{
    QFETCH(Call, call);
    QFETCH(QByteArray, answer);
    QFETCH(QByteArray, failure);
    LogAdminFixture f;
    f.service.setOverride([answer](const HttpRequest&) {
        if (answer.isEmpty())
            return LoopbackLogService::errorResponse(404, "LogStoreNotExist", "gone", "ID1");
        return HttpResponse(200, answer, "application/json").withHeader("x-log-requestid", "ID1");
    });
    QByteArray got = "success";
    try {
        call(f.client);
    } catch (const LOGException& e) {
        got = qBytes(e.GetErrorCode()) + '|' + QByteArray::number(e.GetHttpCode());
        QCOMPARE(qBytes(e.GetRequestId()), QByteArray("ID1"));
    }
    QCOMPARE(got, failure.isEmpty() ? QByteArray("success") : failure);
}

QTEST_GUILESS_MAIN(LogAdminTest)
#include "tst_logadmin.moc"

// The resource models' JSON forms and the readers of query answers: what a
// request carries, what survives a round trip, and which malformed answers are
// refused with which message.
#include <ZrUtils/ConsumerGroup.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogACL.h>
#include <ZrUtils/LogConfig.h>
#include <ZrUtils/LogIndex.h>
#include <ZrUtils/LogStore.h>
#include <ZrUtils/MachineGroup.h>
#include <ZrUtils/ShardItem.h>
#include <ZrUtils/SqlInstance.h>

#include "LogAdminFixture.h"
#include "logservice/AdminParsing.h"

#include <QTest>

#include <memory>

using namespace cloudlog_sdk_v6;
using ResourcePtr = std::shared_ptr<Resource>;
using StringMap = std::map<std::string, std::string>;

Q_DECLARE_METATYPE(ResourcePtr)

namespace
{

Index sampleIndex()
{
    Index index;
    index.hasLine = true;
    index.line.tokens = {",", " "};
    index.line.includeKeys = {"msg"};
    index.hasKeys = true;
    KeyContent level("text");
    level.tokens = {";"};
    level.alias = "lvl";
    index.keys.keys.push_back({"level", level});
    KeyContent latency("long");
    latency.docValue = true;
    index.keys.keys.push_back({"latency", latency});
    JsonKeyContent payload;
    payload.jsonKeys.keys.push_back({"user.id", KeyContent("long")});
    payload.maxDepth = 3;
    index.keys.jsonKeys.push_back({"payload", payload});
    index.ttl = 7;
    index.lastModifyTime = 1700000000;
    return index;
}

Config sampleConfig()
{
    Config config("nginx");
    config.inputDetail.logPath = "/var/log/nginx";
    config.inputDetail.filePattern = "access*.log";
    config.inputDetail.keys = {"ip", "url"};
    config.inputDetail.filterKeys = {"ip"};
    config.inputDetail.filterRegex = {"^10\\."};
    config.outputDetail.logStoreName = "access";
    config.outputDetail.endpoint = "127.0.0.1:1";
    config.createTime = 5;
    return config;
}

MachineGroup sampleGroup()
{
    MachineGroup group("web");
    group.machineList = {"10.0.0.1", "10.0.0.2"};
    group.groupAttribute.groupTopic = "front";
    group.lastModifyTime = 9;
    return group;
}

template<typename T> ResourcePtr make(T model)
{
    return std::make_shared<T>(std::move(model));
}

} // namespace

class LogResourcesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundTripLosesFields_data();
    void roundTripLosesFields();
    void requestFormWrong_data();
    void requestFormWrong();
    void malformedModelAccepted_data();
    void malformedModelAccepted();
    void jsonKeysMisfiled();
    void shardStatusOrPrivilegeMisnamed();
    void headerNumberMisread_data();
    void headerNumberMisread();
    void queriedLogMisread_data();
    void queriedLogMisread();
};

void LogResourcesTest::roundTripLosesFields_data()
{
    QTest::addColumn<ResourcePtr>("filled");
    QTest::addColumn<ResourcePtr>("empty");
    ShardItem shard;
    shard.shardId = 3;
    shard.status = "readonly";
    shard.inclusiveBeginKey = std::string(32, '0');
    shard.exclusiveEndKey = std::string(32, 'f');
    shard.createTime = 12;
    SqlInstance sql;
    sql.name = "p";
    sql.cu = 4;
    sql.createTime = 1;
    sql.updateTime = 2;
    ConsumerGroupCheckpoint checkpoint(2, "MTA=");
    checkpoint.updateTime = 77;
    checkpoint.consumer = "c1";
    ACL acl;
    acl.privileges = {ACL::PRIVILEGE_READ, ACL::PRIVILEGE_ADMIN};
    Heartbeat heartbeat;
    heartbeat.shards = {0, 5};
    LogStore store("s\"\\\xe4\xb8\xad", 30, 2);
    store.createTime = 3;

    QTest::newRow("logStoreWithEscapes") << make(store) << make(LogStore());
    QTest::newRow("config") << make(sampleConfig()) << make(Config());
    QTest::newRow("index") << make(sampleIndex()) << make(Index());
    QTest::newRow("machineGroup") << make(sampleGroup()) << make(MachineGroup());
    QTest::newRow("consumerGroup") << make(ConsumerGroup("g", 30, true)) << make(ConsumerGroup());
    QTest::newRow("checkpoint") << make(checkpoint) << make(ConsumerGroupCheckpoint());
    QTest::newRow("heartbeat") << make(heartbeat) << make(Heartbeat());
    QTest::newRow("shard") << make(shard) << make(ShardItem());
    QTest::newRow("sqlInstance") << make(sql) << make(SqlInstance());
    QTest::newRow("acl") << make(acl) << make(ACL());
}

void LogResourcesTest::roundTripLosesFields()
{
    QFETCH(ResourcePtr, filled);
    QFETCH(ResourcePtr, empty);
    const std::string json = filled->ToJsonString();
    empty->FromJsonString(json);
    QCOMPARE(qBytes(empty->ToJsonString()), qBytes(json));
}

void LogResourcesTest::requestFormWrong_data()
{
    QTest::addColumn<ResourcePtr>("model");
    QTest::addColumn<bool>("isUpdate");
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("logStoreCreate") << make(LogStore("s", 7, 2)) << false
                                    << QByteArray(R"({"logstoreName":"s","ttl":7,"shardCount":2})");
    QTest::newRow("logStoreUpdateKeepsShards")
        << make(LogStore("s", 7, 2)) << true << QByteArray(R"({"logstoreName":"s","ttl":7})");
    QTest::newRow("consumerGroupNamedForRequest")
        << make(ConsumerGroup("g", 30, true)) << false
        << QByteArray(R"({"consumerGroup":"g","timeout":30,"order":true})");
    QTest::newRow("checkpointWithoutServiceFields") << make(ConsumerGroupCheckpoint(1, "MA==")) << false
                                                    << QByteArray(R"({"shard":1,"checkpoint":"MA=="})");
    Heartbeat heartbeat;
    heartbeat.shards = {0, 3};
    QTest::newRow("heartbeatBareArray") << make(heartbeat) << false << QByteArray("[0,3]");
    SqlInstance sql;
    sql.name = "ignored";
    sql.cu = 2;
    QTest::newRow("sqlInstanceCuOnly") << make(sql) << false << QByteArray(R"({"cu":2})");
    KeyContent number("long");
    number.tokens = {"x"};
    QTest::newRow("numberKeyWithoutTokens")
        << make(number) << false << QByteArray(R"({"type":"long","doc_value":false,"chn":false})");
    Index bare;
    bare.lastModifyTime = 5;
    QTest::newRow("indexWithoutLineKeysOrTime")
        << make(bare) << false << QByteArray(R"({"ttl":30,"log_reduce":false})");
    ACL acl;
    acl.privileges = {ACL::PRIVILEGE_LIST, ACL::PRIVILEGE_WRITE};
    QTest::newRow("aclWords")
        << make(acl) << false
        << QByteArray(R"({"action":"grant","principle":"ANONYMOUS","privilege":["LIST","WRITE"]})");
}

void LogResourcesTest::requestFormWrong()
{
    QFETCH(ResourcePtr, model);
    QFETCH(bool, isUpdate);
    QFETCH(QByteArray, json);
    QCOMPARE(qBytes(model->ToRequestJsonString(isUpdate)), json);
}

void LogResourcesTest::malformedModelAccepted_data()
{
    QTest::addColumn<ResourcePtr>("model");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("notJson") << make(LogStore()) << QByteArray("{")
                             << QByteArray("Fail to parse from json string");
    QTest::newRow("arrayForObject") << make(LogStore()) << QByteArray("[]")
                                    << QByteArray("LogStore is not valid JSON object");
    QTest::newRow("missingTtl") << make(LogStore()) << QByteArray(R"({"logstoreName":"s","shardCount":1})")
                                << QByteArray("Member ttl does not exist");
    QTest::newRow("ttlAsText") << make(LogStore())
                               << QByteArray(R"({"logstoreName":"s","ttl":"7","shardCount":1})")
                               << QByteArray("Member ttl is not int type");
    QTest::newRow("outputDetailNotObject")
        << make(Config())
        << QByteArray(
               R"({"configName":"c","inputType":"file","inputDetail":{"logPath":"/","filePattern":"*"},)"
               R"("outputType":"LogService","outputDetail":"s"})")
        << QByteArray("Member outputDetail is not json value type");
    QTest::newRow("fractionalShardId")
        << make(ShardItem())
        << QByteArray(R"({"shardID":1.5,"status":"readwrite","inclusiveBeginKey":"","exclusiveEndKey":"",)"
                      R"("createTime":0})")
        << QByteArray("Member shardID is not int type");
    QTest::newRow("numberInMachineList")
        << make(MachineGroup())
        << QByteArray(R"({"groupName":"g","machineIdentifyType":"ip","machineList":[1]})")
        << QByteArray("Member machineList is not string type");
    QTest::newRow("machineListNotArray")
        << make(MachineGroup())
        << QByteArray(R"({"groupName":"g","machineIdentifyType":"ip","machineList":"a"})")
        << QByteArray("Member machineList is not array type");
    QTest::newRow("unknownPrivilege")
        << make(ACL()) << QByteArray(R"({"action":"grant","principle":"x","privilege":["ROOT"]})")
        << QByteArray("Member privilege holds unknown privilege ROOT");
    QTest::newRow("heartbeatOfText") << make(Heartbeat()) << QByteArray(R"(["a"])")
                                     << QByteArray("Member shard is not int type");
    QTest::newRow("indexOfNothing") << make(Index()) << QByteArray(R"({"ttl":3})")
                                    << QByteArray("Member line or keys does not exist");
    QTest::newRow("keyWithoutType") << make(Index()) << QByteArray(R"({"keys":{"k":{"token":[]}}})")
                                    << QByteArray("Member type does not exist");
    QTest::newRow("orderAsText") << make(ConsumerGroup())
                                 << QByteArray(R"({"name":"g","timeout":1,"order":"yes"})")
                                 << QByteArray("Member order is not boolean type");
    QTest::newRow("cuOverflow") << make(SqlInstance())
                                << QByteArray(R"({"name":"p","cu":4294967296,"createTime":0,"updateTime":0})")
                                << QByteArray("Member cu is not int type");
}

void LogResourcesTest::malformedModelAccepted()
{
    QFETCH(ResourcePtr, model);
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, message);
    QCOMPARE(failureOf([&] { model->FromJsonString(stdBytes(json)); }), "BadResponse|" + message + "|0");
}

void LogResourcesTest::jsonKeysMisfiled()
{
    AllKeys keys;
    keys.FromJsonString(
        R"({"a":{"type":"text","token":[","]},"j":{"type":"json","json_keys":{"x":{"type":"long"}},)"
        R"("index_all":false},"b":{"type":"double","doc_value":true}})");
    QCOMPARE(keys.keys.size(), size_t(2));
    QCOMPARE(qBytes(keys.keys[0].first + keys.keys[1].first), QByteArray("ab"));
    QCOMPARE(qBytes(keys.keys[0].second.tokens.at(0)), QByteArray(","));
    QVERIFY(keys.keys[1].second.docValue);
    QCOMPARE(keys.jsonKeys.size(), size_t(1));
    const JsonKeyContent& json = keys.jsonKeys[0].second;
    QCOMPARE(qBytes(json.type), QByteArray("json"));
    QVERIFY(!json.indexAll);
    QCOMPARE(json.maxDepth, int64_t(-1));
    QCOMPARE(json.jsonKeys.keys.size(), size_t(1));
    QCOMPARE(qBytes(json.jsonKeys.keys[0].second.type), QByteArray("long"));
}

void LogResourcesTest::shardStatusOrPrivilegeMisnamed()
{
    ShardItem shard;
    for (const auto& status : {std::make_pair("readonly", true), {"readwrite", false}, {"", false}}) {
        shard.status = status.first;
        QCOMPARE(shard.isReadOnly(), status.second);
    }
    QCOMPARE(qBytes(ACL::PrivilegeToString(ACL::PRIVILEGE_READ)), QByteArray("READ"));
    QCOMPARE(qBytes(ACL::PrivilegeToString(ACL::PRIVILEGE_ADMIN)), QByteArray("ADMIN"));
    QCOMPARE(qBytes(ACL::PrivilegeToString(ACL::Privilege(42))), QByteArray());
}

void LogResourcesTest::headerNumberMisread_data()
{
    QTest::addColumn<QByteArray>("value"); // of "X-Log-Count": any case is found
    QTest::addColumn<bool>("valid");
    QTest::addColumn<qint64>("wide");
    QTest::addColumn<bool>("fitsInt32");
    QTest::newRow("plain") << QByteArray("12") << true << qint64(12) << true;
    QTest::newRow("negative") << QByteArray("-3") << true << qint64(-3) << true;
    QTest::newRow("beyondInt32") << QByteArray("3000000000") << true << qint64(3000000000) << false;
    QTest::newRow("suffix") << QByteArray("12a") << false << qint64(0) << false;
    QTest::newRow("leadingBlank") << QByteArray(" 12") << false << qint64(0) << false;
    QTest::newRow("plusSign") << QByteArray("+1") << false << qint64(0) << false;
    QTest::newRow("beyondInt64") << QByteArray("99999999999999999999") << false << qint64(0) << false;
    QTest::newRow("loneMinus") << QByteArray("-") << false << qint64(0) << false;
}

void LogResourcesTest::headerNumberMisread()
{
    QFETCH(QByteArray, value);
    QFETCH(bool, valid);
    QFETCH(qint64, wide);
    QFETCH(bool, fitsInt32);
    HttpMessage message;
    message.header["X-Log-Count"] = stdBytes(value);
    int64_t result64 = 0;
    int32_t result32 = 0;
    bool threw64 = false;
    bool threw32 = false;
    try {
        ExtractHeaderNumber(message, "x-log-count", result64);
    } catch (const JsonException&) {
        threw64 = true;
    }
    try {
        ExtractHeaderNumber(message, "x-log-count", result32);
    } catch (const JsonException&) {
        threw32 = true;
    }
    QCOMPARE(!threw64, valid);
    QCOMPARE(!threw32, fitsInt32);
    if (valid)
        QCOMPARE(qint64(result64), wide);

    // Absent: the default stays.
    int64_t untouched = 7;
    ExtractHeaderNumber(HttpMessage(), "x-log-count", untouched);
    QCOMPARE(untouched, int64_t(7));
}

void LogResourcesTest::queriedLogMisread_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("expected"); // time|topic|source|tags|contents, or the message
    QTest::newRow("allMembers") << QByteArray(R"({"__time__":"17","k":"v","__topic__":"t","__source__":"s",)"
                                              R"("__tag__:host":"h","z":""})")
                                << QByteArray("17|t|s|host=h;|k=v;z=;");
    QTest::newRow("numericTime") << QByteArray(R"({"__time__":4294967295})") << QByteArray("4294967295||||");
    QTest::newRow("timeMissing") << QByteArray(R"({"k":"v"})")
                                 << QByteArray("Member __time__ does not exist");
    QTest::newRow("negativeTime") << QByteArray(R"({"__time__":"-1"})")
                                  << QByteArray("Member __time__ is not uint type");
    QTest::newRow("timeBeyond32Bits")
        << QByteArray(R"({"__time__":"4294967296"})") << QByteArray("Member __time__ is not uint type");
    QTest::newRow("numberValue") << QByteArray(R"({"__time__":"1","k":5})")
                                 << QByteArray("Member k is not string type");
    QTest::newRow("notObject") << QByteArray("[1]") << QByteArray("log is not valid JSON object");
}

void LogResourcesTest::queriedLogMisread()
{
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, expected);
    rapidjson::Document document;
    document.Parse(json.constData(), size_t(json.size()));
    QByteArray got;
    try {
        const LogMetaItem item = ParseQueriedLog(document);
        got = QByteArray::number(item.timestamp) + '|' + qBytes(item.topic) + '|' + qBytes(item.source) + '|';
        for (const auto& tag : item.tags)
            got += qBytes(tag.first + '=' + tag.second + ';');
        got += '|';
        for (const auto& content : item.contents)
            got += qBytes(content.first + '=' + content.second + ';');
    } catch (const JsonException& e) {
        got = qBytes(e.GetErrorMessage());
    }
    QCOMPARE(got, expected);
}

QTEST_GUILESS_MAIN(LogResourcesTest)
#include "tst_logresources.moc"

// The resource models' JSON forms and the readers of answer headers and queried
// logs: what a request carries, what survives a round trip, and which malformed
// answers are refused with which message.
#include <ZrUtils/LogACL.h>

#include "LogAdminFixture.h"
#include "logservice/AdminParsing.h"

#include <QTest>

#include <memory>

using namespace cloudlog_sdk_v6;
using ResourcePtr = std::shared_ptr<Resource>;
using Reader = std::function<QByteArray(const QByteArray&)>;

Q_DECLARE_METATYPE(ResourcePtr)
Q_DECLARE_METATYPE(Reader)

namespace
{

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
                        << "BadResponse|" + QByteArray(message) + "|0" << false << QByteArray();
}

} // namespace

class LogResourcesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void modelMisread_data();
    void modelMisread();
    void answerPartMisread_data();
    void answerPartMisread();
};

void LogResourcesTest::modelMisread_data()
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
    malformedRow<LogStore>("missingTtl", R"({"logstoreName":"s"})", "Member ttl does not exist");
    malformedRow<LogStore>("ttlAsText", R"({"logstoreName":"s","ttl":"7"})", "Member ttl is not int type");
    malformedRow<Config>("outputDetailNotObject",
        R"({"configName":"c","inputType":"file","inputDetail":{"logPath":"/","filePattern":"*"},)"
        R"("outputType":"LogService","outputDetail":"s"})",
        "Member outputDetail is not json value type");
    malformedRow<ShardItem>("fractionalShardId", R"({"shardID":1.5})", "Member shardID is not int type");
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
    malformedRow<ConsumerGroup>(
        "orderAsText", R"({"name":"g","timeout":1,"order":"yes"})", "Member order is not boolean type");
    malformedRow<SqlInstance>("cuOverflow", R"({"name":"p","cu":4294967296})", "Member cu is not int type");
}

void LogResourcesTest::modelMisread()
{
    QFETCH(ResourcePtr, model);
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, full);
    QFETCH(bool, isUpdate);
    QFETCH(QByteArray, request);
    const QByteArray failure = failureOf([&] { model->FromJsonString(stdBytes(json)); });
    QCOMPARE(failure == "no exception" ? qBytes(model->ToJsonString()) : failure, full);
    if (!request.isEmpty())
        QCOMPARE(qBytes(model->ToRequestJsonString(isUpdate)), request);
}

void LogResourcesTest::answerPartMisread_data()
{
    QTest::addColumn<Reader>("read");
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char* name, const Reader& read, const char* input, const char* expected) {
        QTest::newRow(name) << read << QByteArray(input) << QByteArray(expected);
    };
    // "X-Log-Count" read as 64 and 32 bits over a default of 7: "wide|narrow", "-" where refused.
    const Reader header = [](const QByteArray& value) {
        HttpMessage message;
        if (!value.isNull())
            message.header["X-Log-Count"] = stdBytes(value); // found in any case
        const auto extract = [&](auto result) {
            try {
                ExtractHeaderNumber(message, "x-log-count", result);
            } catch (const JsonException&) {
                return QByteArray("-");
            }
            return QByteArray::number(qint64(result));
        };
        return extract(int64_t(7)) + '|' + extract(int32_t(7));
    };
    row("plain", header, "12", "12|12");
    row("negative", header, "-3", "-3|-3");
    row("beyondInt32", header, "3000000000", "3000000000|-");
    row("suffix", header, "12a", "-|-");
    row("leadingBlank", header, " 12", "-|-");
    row("plusSign", header, "+1", "-|-");
    row("beyondInt64", header, "99999999999999999999", "-|-");
    row("loneMinus", header, "-", "-|-");
    row("absentKeepsDefault", header, nullptr, "7|7");

    // A log of a query answer: "time|topic|source|tags|contents", or the message.
    const Reader log = [](const QByteArray& json) {
        rapidjson::Document document;
        document.Parse(json.constData(), size_t(json.size()));
        try {
            const LogMetaItem item = ParseQueriedLog(document);
            QByteArray got
                = QByteArray::number(item.timestamp) + '|' + qBytes(item.topic + '|' + item.source) + '|';
            for (const auto& tag : item.tags)
                got += qBytes(tag.first + '=' + tag.second + ';');
            got += '|';
            for (const auto& content : item.contents)
                got += qBytes(content.first + '=' + content.second + ';');
            return got;
        } catch (const JsonException& e) {
            return qBytes(e.GetErrorMessage());
        }
    };
    row("allMembers", log,
        R"({"__time__":"17","k":"v","__topic__":"t","__source__":"s","__tag__:host":"h","z":""})",
        "17|t|s|host=h;|k=v;z=;");
    row("numericTime", log, R"({"__time__":4294967295})", "4294967295||||");
    row("timeMissing", log, R"({"k":"v"})", "Member __time__ does not exist");
    row("negativeTime", log, R"({"__time__":"-1"})", "Member __time__ is not uint type");
    row("timeBeyond32Bits", log, R"({"__time__":"4294967296"})", "Member __time__ is not uint type");
    row("numberValue", log, R"({"__time__":"1","k":5})", "Member k is not string type");
    row("notObject", log, "[1]", "log is not valid JSON object");
}

void LogResourcesTest::answerPartMisread()
{
    QFETCH(Reader, read);
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);
    QCOMPARE(read(input), expected);
}

QTEST_GUILESS_MAIN(LogResourcesTest)
#include "tst_logresources.moc"

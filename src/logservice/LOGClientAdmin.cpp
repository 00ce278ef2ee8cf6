// Log stores, indexes, collection configurations, machine groups, consumer
// groups, shards and SQL instances.
#include <ZrUtils/CodecTool.h>
#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogConstants.h>

#include "AdminParsing.h"
#include "ResourceJson.h"

namespace cloudlog_sdk_v6
{

namespace
{

using StringMap = std::map<std::string, std::string>;

const std::string kConsumerGroups = "/consumergroups";
const std::string kSqlInstance = "/sqlinstance";

template<typename Result> Result answerOf(const HttpMessage& message)
{
    Result result;
    static_cast<Response&>(result) = MakeResponse(message);
    return result;
}

void readModel(const HttpMessage& message, Resource& model)
{
    ReadAnswer(message, [&] {
        rapidjson::Document document;
        ExtractJsonResult(message.content, document);
        model.FromJson(JsonValue(document));
    });
}

// The answer is a JSON array of models.
template<typename Model> std::vector<Model> readModels(const HttpMessage& message)
{
    std::vector<Model> models;
    ReadAnswer(message, [&] {
        rapidjson::Document document;
        ExtractJsonArray(message.content, document);
        for (const rapidjson::Value& item : document.GetArray()) {
            Model model;
            model.FromJson(JsonValue(item));
            models.push_back(model);
        }
    });
    return models;
}

// {"count": n, "total": m, <member>: [names]}; without a total, total is count.
ListNamesResponse readNames(const HttpMessage& message, const char* member, bool hasTotal)
{
    ListNamesResponse result = answerOf<ListNamesResponse>(message);
    ReadAnswer(message, [&] {
        rapidjson::Document document;
        ExtractJsonResult(message.content, document);
        ExtractJsonResult(document, "count", result.count);
        if (hasTotal)
            ExtractJsonResult(document, "total", result.total);
        else
            result.total = result.count;
        ExtractJsonResult(document, member, result.names);
    });
    return result;
}

StringMap pageParameters(int32_t offset, int32_t size)
{
    return {{"offset", ToString(offset)}, {"size", ToString(size)}};
}

std::string logstorePath(const std::string& logstore)
{
    return LOGSTORES + "/" + logstore;
}

std::string shardPath(const std::string& logstore, int32_t shardId)
{
    return logstorePath(logstore) + SHARDS + "/" + ToString(shardId);
}

std::string consumerGroupPath(const std::string& logstore, const std::string& consumerGroup)
{
    return logstorePath(logstore) + kConsumerGroups + "/" + consumerGroup;
}

} // namespace

void CheckProjectAndLogstore(const std::string& project, const std::string& logstore)
{
    if (project.empty() || logstore.empty())
        throw LOGException(LOGE_PARAMETER_INVALID, "project or logstore invalid.", "", 0);
}

HttpMessage LOGClient::sendAdminRequest(const std::string& project, const std::string& httpMethod,
    const std::string& resource, const std::string& body, const StringMap& parameters, StringMap header)
{
    if (!body.empty()) {
        header[CONTENT_TYPE] = TYPE_LOG_JSON;
        header[CONTENT_MD5] = CodecTool::CalcMD5(body);
    } else if (httpMethod == HTTP_POST) {
        // libcurl gives a bodiless POST a form Content-Type of its own, which
        // the signature would not cover; an empty value makes it send none.
        header[CONTENT_TYPE] = std::string();
    }
    header[X_LOG_BODYRAWSIZE] = ToString(uint32_t(body.size()));
    StringMap parameterList = parameters;
    SetCommonParameter(parameterList);
    HttpMessage response;
    SendRequest(project, httpMethod, resource, body, parameterList, header, response);
    return response;
}

// ---------------------------------------------------------------- log stores

CreateLogStoreResponse LOGClient::CreateLogStore(const std::string& project, const LogStore& logStore)
{
    return MakeResponse(sendAdminRequest(project, HTTP_POST, LOGSTORES, logStore.ToRequestJsonString(), {}));
}

UpdateLogStoreResponse LOGClient::UpdateLogStore(const std::string& project, const LogStore& logStore)
{
    return MakeResponse(sendAdminRequest(
        project, HTTP_PUT, logstorePath(logStore.logStoreName), logStore.ToRequestJsonString(true), {}));
}

DeleteLogStoreResponse LOGClient::DeleteLogStore(const std::string& project, const std::string& logstore)
{
    return MakeResponse(sendAdminRequest(project, HTTP_DELETE, logstorePath(logstore), std::string(), {}));
}

GetLogStoreResponse LOGClient::GetLogStore(const std::string& project, const std::string& logstore)
{
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, logstorePath(logstore), std::string(), {});
    auto result = answerOf<GetLogStoreResponse>(message);
    readModel(message, result.result);
    return result;
}

ListLogStoresResponse LOGClient::ListLogStores(
    const std::string& project, const std::string& logstoreName, int32_t offset, int32_t size)
{
    StringMap parameters = pageParameters(offset, size);
    if (!logstoreName.empty())
        parameters["logstoreName"] = logstoreName;
    return readNames(
        sendAdminRequest(project, HTTP_GET, LOGSTORES, std::string(), parameters), "logstores", true);
}

// ---------------------------------------------------------------- indexes

CreateIndexResponse LOGClient::CreateIndex(
    const std::string& project, const std::string& logstore, const Index& index)
{
    return MakeResponse(sendAdminRequest(
        project, HTTP_POST, logstorePath(logstore) + INDEX, index.ToRequestJsonString(), {}));
}

UpdateIndexResponse LOGClient::UpdateIndex(
    const std::string& project, const std::string& logstore, const Index& index)
{
    return MakeResponse(sendAdminRequest(
        project, HTTP_PUT, logstorePath(logstore) + INDEX, index.ToRequestJsonString(true), {}));
}

GetIndexResponse LOGClient::GetIndex(const std::string& project, const std::string& logstore)
{
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, logstorePath(logstore) + INDEX, std::string(), {});
    auto result = answerOf<GetIndexResponse>(message);
    readModel(message, result.result);
    return result;
}

DeleteIndexResponse LOGClient::DeleteIndex(const std::string& project, const std::string& logstore)
{
    return MakeResponse(
        sendAdminRequest(project, HTTP_DELETE, logstorePath(logstore) + INDEX, std::string(), {}));
}

// ---------------------------------------------------------------- configurations

CreateConfigResponse LOGClient::CreateConfig(const std::string& project, const Config& config)
{
    return MakeResponse(sendAdminRequest(project, HTTP_POST, CONFIGS, config.ToRequestJsonString(), {}));
}

UpdateConfigResponse LOGClient::UpdateConfig(const std::string& project, const Config& config)
{
    return MakeResponse(sendAdminRequest(
        project, HTTP_PUT, CONFIGS + "/" + config.configName, config.ToRequestJsonString(true), {}));
}

GetConfigResponse LOGClient::GetConfig(const std::string& project, const std::string& configName)
{
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, CONFIGS + "/" + configName, std::string(), {});
    auto result = answerOf<GetConfigResponse>(message);
    readModel(message, result.result);
    return result;
}

DeleteConfigResponse LOGClient::DeleteConfig(const std::string& project, const std::string& configName)
{
    return MakeResponse(
        sendAdminRequest(project, HTTP_DELETE, CONFIGS + "/" + configName, std::string(), {}));
}

ListConfigsResponse LOGClient::ListConfigs(
    const std::string& project, const std::string& configName, int32_t offset, int32_t size)
{
    StringMap parameters = pageParameters(offset, size);
    if (!configName.empty())
        parameters["configName"] = configName;
    return readNames(
        sendAdminRequest(project, HTTP_GET, CONFIGS, std::string(), parameters), "configs", true);
}

// ---------------------------------------------------------------- machine groups

CreateMachineGroupResponse LOGClient::CreateMachineGroup(
    const std::string& project, const MachineGroup& machineGroup)
{
    return MakeResponse(
        sendAdminRequest(project, HTTP_POST, MACHINEGROUPS, machineGroup.ToRequestJsonString(), {}));
}

UpdateMachineGroupResponse LOGClient::UpdateMachineGroup(
    const std::string& project, const MachineGroup& machineGroup)
{
    return MakeResponse(sendAdminRequest(project, HTTP_PUT, MACHINEGROUPS + "/" + machineGroup.groupName,
        machineGroup.ToRequestJsonString(true), {}));
}

GetMachineGroupResponse LOGClient::GetMachineGroup(const std::string& project, const std::string& groupName)
{
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, MACHINEGROUPS + "/" + groupName, std::string(), {});
    auto result = answerOf<GetMachineGroupResponse>(message);
    readModel(message, result.result);
    return result;
}

DeleteMachineGroupResponse LOGClient::DeleteMachineGroup(
    const std::string& project, const std::string& groupName)
{
    return MakeResponse(
        sendAdminRequest(project, HTTP_DELETE, MACHINEGROUPS + "/" + groupName, std::string(), {}));
}

ListMachineGroupsResponse LOGClient::ListMachineGroups(
    const std::string& project, int32_t offset, int32_t size)
{
    return readNames(
        sendAdminRequest(project, HTTP_GET, MACHINEGROUPS, std::string(), pageParameters(offset, size)),
        "machinegroups", true);
}

ApplyConfigToMachineGroupResponse LOGClient::ApplyConfigToMachineGroup(
    const std::string& project, const std::string& groupName, const std::string& configName)
{
    return MakeResponse(sendAdminRequest(
        project, HTTP_PUT, MACHINEGROUPS + "/" + groupName + CONFIGS + "/" + configName, std::string(), {}));
}

RemoveConfigFromMachineGroupResponse LOGClient::RemoveConfigFromMachineGroup(
    const std::string& project, const std::string& groupName, const std::string& configName)
{
    return MakeResponse(sendAdminRequest(project, HTTP_DELETE,
        MACHINEGROUPS + "/" + groupName + CONFIGS + "/" + configName, std::string(), {}));
}

GetAppliedConfigsResponse LOGClient::GetAppliedConfigs(
    const std::string& project, const std::string& groupName)
{
    return readNames(
        sendAdminRequest(project, HTTP_GET, MACHINEGROUPS + "/" + groupName + CONFIGS, std::string(), {}),
        "configs", false);
}

// ---------------------------------------------------------------- consumer groups

CreateConsumerGroupResponse LOGClient::CreateConsumerGroup(
    const std::string& project, const std::string& logstore, const ConsumerGroup& consumerGroup)
{
    return MakeResponse(sendAdminRequest(project, HTTP_POST, logstorePath(logstore) + kConsumerGroups,
        consumerGroup.ToRequestJsonString(), {}));
}

DeleteConsumerGroupResponse LOGClient::DeleteConsumerGroup(
    const std::string& project, const std::string& logstore, const std::string& consumerGroup)
{
    return MakeResponse(sendAdminRequest(
        project, HTTP_DELETE, consumerGroupPath(logstore, consumerGroup), std::string(), {}));
}

ListConsumerGroupResponse LOGClient::ListConsumerGroup(
    const std::string& project, const std::string& logstore)
{
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, logstorePath(logstore) + kConsumerGroups, std::string(), {});
    auto result = answerOf<ListConsumerGroupResponse>(message);
    result.consumerGroups = readModels<ConsumerGroup>(message);
    return result;
}

ConsumerGroupHeartbeatResponse LOGClient::ConsumerGroupHeartbeat(const std::string& project,
    const std::string& logstore, const std::string& consumerGroup, const std::string& consumer,
    const std::vector<int32_t>& shards)
{
    Heartbeat heartbeat;
    heartbeat.shards = shards;
    const HttpMessage message
        = sendAdminRequest(project, HTTP_POST, consumerGroupPath(logstore, consumerGroup),
            heartbeat.ToRequestJsonString(), {{"type", "heartbeat"}, {"consumer", consumer}});
    auto result = answerOf<ConsumerGroupHeartbeatResponse>(message);
    ReadAnswer(message, [&] {
        rapidjson::Document document;
        ExtractJsonArray(message.content, document);
        Heartbeat held;
        held.FromJson(JsonValue(document));
        result.shards = held.shards;
    });
    return result;
}

UpdateCheckpointResponse LOGClient::UpdateCheckpoint(const std::string& project, const std::string& logstore,
    const std::string& consumerGroup, const std::string& consumer, int32_t shard,
    const std::string& checkpoint, bool forceSuccess)
{
    const ConsumerGroupCheckpoint body(shard, checkpoint);
    return MakeResponse(sendAdminRequest(project, HTTP_POST, consumerGroupPath(logstore, consumerGroup),
        body.ToRequestJsonString(),
        {{"type", "checkpoint"}, {"consumer", consumer}, {"forceSuccess", ToString(forceSuccess)}}));
}

ListCheckpointResponse LOGClient::ListCheckpoint(
    const std::string& project, const std::string& logstore, const std::string& consumerGroup)
{
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, consumerGroupPath(logstore, consumerGroup), std::string(), {});
    auto result = answerOf<ListCheckpointResponse>(message);
    result.checkpoints = readModels<ConsumerGroupCheckpoint>(message);
    return result;
}

// ---------------------------------------------------------------- shards

ListShardsResponse LOGClient::ListShards(const std::string& project, const std::string& logstore)
{
    CheckProjectAndLogstore(project, logstore);
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, logstorePath(logstore) + SHARDS, std::string(), {});
    auto result = answerOf<ListShardsResponse>(message);
    result.shards = readModels<ShardItem>(message);
    return result;
}

SplitShardResponse LOGClient::SplitShard(
    const std::string& project, const std::string& logstore, int32_t shardId, const std::string& splitKey)
{
    CheckProjectAndLogstore(project, logstore);
    const HttpMessage message = sendAdminRequest(project, HTTP_POST, shardPath(logstore, shardId),
        std::string(), {{"action", "split"}, {"key", splitKey}});
    auto result = answerOf<SplitShardResponse>(message);
    result.shards = readModels<ShardItem>(message);
    return result;
}

MergeShardResponse LOGClient::MergeShard(
    const std::string& project, const std::string& logstore, int32_t shardId)
{
    CheckProjectAndLogstore(project, logstore);
    const HttpMessage message = sendAdminRequest(
        project, HTTP_POST, shardPath(logstore, shardId), std::string(), {{"action", "merge"}});
    auto result = answerOf<MergeShardResponse>(message);
    result.shards = readModels<ShardItem>(message);
    return result;
}

DeleteShardResponse LOGClient::DeleteShard(
    const std::string& project, const std::string& logstore, int32_t shardId)
{
    CheckProjectAndLogstore(project, logstore);
    return MakeResponse(
        sendAdminRequest(project, HTTP_DELETE, shardPath(logstore, shardId), std::string(), {}));
}

// ---------------------------------------------------------------- SQL instances

CreateSqlInstanceResponse LOGClient::CreateSqlInstance(const std::string& project, int32_t cu)
{
    SqlInstance instance;
    instance.cu = cu;
    return MakeResponse(
        sendAdminRequest(project, HTTP_POST, kSqlInstance, instance.ToRequestJsonString(), {}));
}

UpdateSqlInstanceResponse LOGClient::UpdateSqlInstance(const std::string& project, int32_t cu)
{
    SqlInstance instance;
    instance.cu = cu;
    return MakeResponse(
        sendAdminRequest(project, HTTP_POST, kSqlInstance, instance.ToRequestJsonString(true), {}));
}

ListSqlInstanceResponse LOGClient::ListSqlInstance(const std::string& project)
{
    const HttpMessage message = sendAdminRequest(project, HTTP_POST, kSqlInstance, std::string(), {});
    auto result = answerOf<ListSqlInstanceResponse>(message);
    result.sqlInstances = readModels<SqlInstance>(message);
    return result;
}

} // namespace cloudlog_sdk_v6

#include <ZrUtils/ConsumerGroup.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogACL.h>
#include <ZrUtils/LogConfig.h>
#include <ZrUtils/LogConstants.h>
#include <ZrUtils/LogIndex.h>
#include <ZrUtils/LogStore.h>
#include <ZrUtils/MachineGroup.h>
#include <ZrUtils/ShardItem.h>
#include <ZrUtils/SqlInstance.h>

#include "ResourceJson.h"

#include <rapidjson/document.h>

namespace cloudlog_sdk_v6
{

namespace
{

const char kReadOnly[] = "readonly";

template<typename Write> std::string writeJson(Write write)
{
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    write(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

void writeObject(
    JsonWriter& writer, const std::string& name, const Resource& resource, bool full, bool isUpdate)
{
    writer.Key(name.data(), rapidjson::SizeType(name.size()));
    if (full)
        resource.SetFullValues(writer);
    else
        resource.SetRequestValues(writer, isUpdate);
}

// A nested model: member @p name, which must be an object.
void readObject(const rapidjson::Value& value, const char* name, Resource& resource)
{
    resource.FromJson(JsonValue(GetJsonValue(value, name)));
}

} // namespace

// ---------------------------------------------------------------- helpers

void RequireJsonObject(const rapidjson::Value& value, const char* what)
{
    if (!value.IsObject())
        throw JsonException("InvalidObjectException", std::string(what) + " is not valid JSON object");
}

const rapidjson::Value& GetJsonArray(const rapidjson::Value& value, const char* name)
{
    JsonMemberCheck(value, name);
    const rapidjson::Value& v = value.FindMember(name)->value;
    if (!v.IsArray())
        throw JsonException("ValueTypeException", std::string("Member ") + name + " is not array type");
    return v;
}

void ExtractJsonResult(const rapidjson::Value& value, const char* name, std::vector<std::string>& result)
{
    const rapidjson::Value& array = GetJsonArray(value, name);
    result.clear();
    for (const rapidjson::Value& item : array.GetArray()) {
        if (!item.IsString())
            throw JsonException("ValueTypeException", std::string("Member ") + name + " is not string type");
        result.emplace_back(item.GetString(), item.GetStringLength());
    }
}

// ---------------------------------------------------------------- Resource

Resource::~Resource() = default;

std::string Resource::ToJsonString() const
{
    return writeJson([this](JsonWriter& writer) { SetFullValues(writer); });
}

std::string Resource::ToRequestJsonString(bool isUpdate) const
{
    return writeJson([this, isUpdate](JsonWriter& writer) { SetRequestValues(writer, isUpdate); });
}

void Resource::FromJsonString(const std::string& json)
{
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(json.data(), json.size());
    if (document.HasParseError())
        throw LOGException(LOGE_BAD_RESPONSE, "Fail to parse from json string", "", 0);
    try {
        FromJson(JsonValue(document));
    } catch (const JsonException& e) {
        throw LOGException(LOGE_BAD_RESPONSE, e.GetErrorMessage(), "", 0);
    }
}

// ---------------------------------------------------------------- LogStore

LogStore::LogStore(const std::string& logStoreName, int64_t ttl, int64_t shardCount)
    : logStoreName(logStoreName)
    , ttl(ttl)
    , shardCount(shardCount)
{
}

void LogStore::SetRequestValues(JsonWriter& writer, bool isUpdate) const
{
    writer.StartObject();
    writer.member("logstoreName", logStoreName);
    writer.member("ttl", ttl);
    // Shards change by splitting and merging, never by an update.
    if (!isUpdate)
        writer.member("shardCount", shardCount);
    writer.EndObject();
}

void LogStore::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("logstoreName", logStoreName);
    writer.member("ttl", ttl);
    writer.member("shardCount", shardCount);
    writer.member("createTime", createTime);
    writer.member("lastModifyTime", lastModifyTime);
    writer.EndObject();
}

void LogStore::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "LogStore");
    ExtractJsonResult(value, "logstoreName", logStoreName);
    ExtractJsonResult(value, "ttl", ttl);
    ExtractJsonResult(value, "shardCount", shardCount);
    ExtractOptionalJsonResult(value, "createTime", createTime);
    ExtractOptionalJsonResult(value, "lastModifyTime", lastModifyTime);
}

// ---------------------------------------------------------------- Config

void ConfigInputDetail::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void ConfigInputDetail::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("logType", logType);
    writer.member("logPath", logPath);
    writer.member("filePattern", filePattern);
    writer.member("localStorage", localStorage);
    writer.member("timeFormat", timeFormat);
    writer.member("logBeginRegex", logBeginRegex);
    writer.member("regex", regex);
    writer.member("key", keys);
    writer.member("filterKey", filterKeys);
    writer.member("filterRegex", filterRegex);
    writer.member("topicFormat", topicFormat);
    writer.EndObject();
}

void ConfigInputDetail::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "ConfigInputDetail");
    ExtractJsonResult(value, "logPath", logPath);
    ExtractJsonResult(value, "filePattern", filePattern);
    ExtractOptionalJsonResult(value, "logType", logType);
    ExtractOptionalJsonResult(value, "localStorage", localStorage);
    ExtractOptionalJsonResult(value, "timeFormat", timeFormat);
    ExtractOptionalJsonResult(value, "logBeginRegex", logBeginRegex);
    ExtractOptionalJsonResult(value, "regex", regex);
    ExtractOptionalJsonResult(value, "key", keys);
    ExtractOptionalJsonResult(value, "filterKey", filterKeys);
    ExtractOptionalJsonResult(value, "filterRegex", filterRegex);
    ExtractOptionalJsonResult(value, "topicFormat", topicFormat);
}

void ConfigOutputDetail::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void ConfigOutputDetail::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("logstoreName", logStoreName);
    if (!endpoint.empty())
        writer.member("endpoint", endpoint);
    writer.EndObject();
}

void ConfigOutputDetail::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "ConfigOutputDetail");
    ExtractJsonResult(value, "logstoreName", logStoreName);
    ExtractOptionalJsonResult(value, "endpoint", endpoint);
}

Config::Config(const std::string& configName)
    : configName(configName)
{
}

void Config::SetRequestValues(JsonWriter& writer, bool isUpdate) const
{
    writer.StartObject();
    writer.member("configName", configName);
    writer.member("inputType", inputType);
    writeObject(writer, "inputDetail", inputDetail, false, isUpdate);
    writer.member("outputType", outputType);
    writeObject(writer, "outputDetail", outputDetail, false, isUpdate);
    writer.EndObject();
}

void Config::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("configName", configName);
    writer.member("inputType", inputType);
    writeObject(writer, "inputDetail", inputDetail, true, false);
    writer.member("outputType", outputType);
    writeObject(writer, "outputDetail", outputDetail, true, false);
    writer.member("createTime", createTime);
    writer.member("lastModifyTime", lastModifyTime);
    writer.EndObject();
}

void Config::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "Config");
    ExtractJsonResult(value, "configName", configName);
    ExtractJsonResult(value, "inputType", inputType);
    readObject(value, "inputDetail", inputDetail);
    ExtractJsonResult(value, "outputType", outputType);
    readObject(value, "outputDetail", outputDetail);
    ExtractOptionalJsonResult(value, "createTime", createTime);
    ExtractOptionalJsonResult(value, "lastModifyTime", lastModifyTime);
}

// ---------------------------------------------------------------- Index

void Line::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void Line::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("token", tokens);
    writer.member("caseSensitive", caseSensitive);
    if (!includeKeys.empty())
        writer.member("include_keys", includeKeys);
    if (!excludeKeys.empty())
        writer.member("exclude_keys", excludeKeys);
    writer.member("chn", chn);
    writer.EndObject();
}

void Line::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "Line");
    ExtractJsonResult(value, "token", tokens);
    ExtractOptionalJsonResult(value, "caseSensitive", caseSensitive);
    ExtractOptionalJsonResult(value, "include_keys", includeKeys);
    ExtractOptionalJsonResult(value, "exclude_keys", excludeKeys);
    ExtractOptionalJsonResult(value, "chn", chn);
}

KeyContent::KeyContent(const std::string& type)
    : type(type)
{
}

void KeyContent::writeMembers(JsonWriter& writer) const
{
    writer.member("type", type);
    // Numbers are not split into tokens.
    if (type == "text" || type == "json") {
        writer.member("token", tokens);
        writer.member("caseSensitive", caseSensitive);
    }
    if (!alias.empty())
        writer.member("alias", alias);
    writer.member("doc_value", docValue);
    writer.member("chn", chn);
}

void KeyContent::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void KeyContent::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writeMembers(writer);
    writer.EndObject();
}

void KeyContent::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "KeyContent");
    ExtractJsonResult(value, "type", type);
    ExtractOptionalJsonResult(value, "token", tokens);
    ExtractOptionalJsonResult(value, "caseSensitive", caseSensitive);
    ExtractOptionalJsonResult(value, "alias", alias);
    ExtractOptionalJsonResult(value, "doc_value", docValue);
    ExtractOptionalJsonResult(value, "chn", chn);
}

void Keys::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void Keys::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    for (const auto& key : keys)
        writeObject(writer, key.first, key.second, true, false);
    writer.EndObject();
}

void Keys::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "Keys");
    keys.clear();
    for (const auto& member : value.GetObject()) {
        KeyContent content;
        content.FromJson(JsonValue(member.value));
        keys.emplace_back(std::string(member.name.GetString(), member.name.GetStringLength()), content);
    }
}

JsonKeyContent::JsonKeyContent()
    : KeyContent("json")
{
}

void JsonKeyContent::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void JsonKeyContent::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writeMembers(writer);
    writeObject(writer, "json_keys", jsonKeys, true, false);
    writer.member("index_all", indexAll);
    writer.member("max_depth", maxDepth);
    writer.EndObject();
}

void JsonKeyContent::FromJson(const JsonValue& json)
{
    KeyContent::FromJson(json);
    const rapidjson::Value& value = json.get();
    jsonKeys.keys.clear();
    if (value.HasMember("json_keys"))
        readObject(value, "json_keys", jsonKeys);
    ExtractOptionalJsonResult(value, "index_all", indexAll);
    ExtractOptionalJsonResult(value, "max_depth", maxDepth);
}

void AllKeys::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void AllKeys::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    for (const auto& key : keys)
        writeObject(writer, key.first, key.second, true, false);
    for (const auto& key : jsonKeys)
        writeObject(writer, key.first, key.second, true, false);
    writer.EndObject();
}

void AllKeys::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "AllKeys");
    keys.clear();
    jsonKeys.clear();
    for (const auto& member : value.GetObject()) {
        const std::string name(member.name.GetString(), member.name.GetStringLength());
        std::string type;
        RequireJsonObject(member.value, "KeyContent");
        ExtractJsonResult(member.value, "type", type);
        if (type == "json") {
            JsonKeyContent content;
            content.FromJson(JsonValue(member.value));
            jsonKeys.emplace_back(name, content);
        } else {
            KeyContent content;
            content.FromJson(JsonValue(member.value));
            keys.emplace_back(name, content);
        }
    }
}

void Index::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    writer.StartObject();
    if (hasLine)
        writeObject(writer, "line", line, false, false);
    if (hasKeys)
        writeObject(writer, "keys", keys, false, false);
    writer.member("ttl", ttl);
    writer.member("log_reduce", logReduce);
    writer.EndObject();
}

void Index::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    if (hasLine)
        writeObject(writer, "line", line, true, false);
    if (hasKeys)
        writeObject(writer, "keys", keys, true, false);
    writer.member("ttl", ttl);
    writer.member("log_reduce", logReduce);
    writer.member("lastModifyTime", lastModifyTime);
    writer.EndObject();
}

void Index::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "Index");
    hasLine = value.HasMember("line");
    if (hasLine)
        readObject(value, "line", line);
    hasKeys = value.HasMember("keys");
    if (hasKeys)
        readObject(value, "keys", keys);
    // An index indexes something: the service refuses one without both.
    if (!hasLine && !hasKeys)
        throw JsonException("NoMemberException", "Member line or keys does not exist");
    ExtractOptionalJsonResult(value, "ttl", ttl);
    ExtractOptionalJsonResult(value, "log_reduce", logReduce);
    ExtractOptionalJsonResult(value, "lastModifyTime", lastModifyTime);
}

// ---------------------------------------------------------------- ACL

std::string ACL::PrivilegeToString(Privilege privilege)
{
    switch (privilege) {
    case PRIVILEGE_READ:
        return "READ";
    case PRIVILEGE_WRITE:
        return "WRITE";
    case PRIVILEGE_ADMIN:
        return "ADMIN";
    case PRIVILEGE_LIST:
        return "LIST";
    }
    return std::string();
}

void ACL::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void ACL::SetFullValues(JsonWriter& writer) const
{
    std::vector<std::string> words;
    for (const Privilege privilege : privileges)
        words.push_back(PrivilegeToString(privilege));
    writer.StartObject();
    writer.member("action", action);
    writer.member("principle", principle);
    writer.member("privilege", words);
    writer.EndObject();
}

void ACL::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "ACL");
    ExtractJsonResult(value, "action", action);
    ExtractJsonResult(value, "principle", principle);
    std::vector<std::string> words;
    ExtractJsonResult(value, "privilege", words);
    privileges.clear();
    for (const std::string& word : words) {
        bool known = false;
        for (const Privilege p : {PRIVILEGE_READ, PRIVILEGE_WRITE, PRIVILEGE_ADMIN, PRIVILEGE_LIST}) {
            if (word == PrivilegeToString(p)) {
                privileges.push_back(p);
                known = true;
            }
        }
        if (!known)
            throw JsonException("ValueTypeException", "Member privilege holds unknown privilege " + word);
    }
}

// ---------------------------------------------------------------- MachineGroup

void GroupAttribute::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void GroupAttribute::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    if (!externalName.empty())
        writer.member("externalName", externalName);
    if (!groupTopic.empty())
        writer.member("groupTopic", groupTopic);
    writer.EndObject();
}

void GroupAttribute::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "GroupAttribute");
    ExtractOptionalJsonResult(value, "externalName", externalName);
    ExtractOptionalJsonResult(value, "groupTopic", groupTopic);
}

MachineGroup::MachineGroup(const std::string& groupName)
    : groupName(groupName)
{
}

void MachineGroup::SetRequestValues(JsonWriter& writer, bool isUpdate) const
{
    writer.StartObject();
    writer.member("groupName", groupName);
    writer.member("machineIdentifyType", machineIdentifyType);
    writer.member("groupType", groupType);
    writeObject(writer, "groupAttribute", groupAttribute, false, isUpdate);
    writer.member("machineList", machineList);
    writer.EndObject();
}

void MachineGroup::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("groupName", groupName);
    writer.member("machineIdentifyType", machineIdentifyType);
    writer.member("groupType", groupType);
    writeObject(writer, "groupAttribute", groupAttribute, true, false);
    writer.member("machineList", machineList);
    writer.member("createTime", createTime);
    writer.member("lastModifyTime", lastModifyTime);
    writer.EndObject();
}

void MachineGroup::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "MachineGroup");
    ExtractJsonResult(value, "groupName", groupName);
    ExtractJsonResult(value, "machineIdentifyType", machineIdentifyType);
    ExtractJsonResult(value, "machineList", machineList);
    ExtractOptionalJsonResult(value, "groupType", groupType);
    groupAttribute = GroupAttribute();
    if (value.HasMember("groupAttribute"))
        readObject(value, "groupAttribute", groupAttribute);
    ExtractOptionalJsonResult(value, "createTime", createTime);
    ExtractOptionalJsonResult(value, "lastModifyTime", lastModifyTime);
}

// ---------------------------------------------------------------- consumer groups

ConsumerGroup::ConsumerGroup(const std::string& consumerGroupName, int32_t timeout, bool inOrder)
    : consumerGroupName(consumerGroupName)
    , timeout(timeout)
    , inOrder(inOrder)
{
}

void ConsumerGroup::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    writer.StartObject();
    writer.member("consumerGroup", consumerGroupName);
    writer.member("timeout", timeout);
    writer.member("order", inOrder);
    writer.EndObject();
}

void ConsumerGroup::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("name", consumerGroupName);
    writer.member("timeout", timeout);
    writer.member("order", inOrder);
    writer.EndObject();
}

void ConsumerGroup::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "ConsumerGroup");
    ExtractJsonResult(value, value.HasMember("name") ? "name" : "consumerGroup", consumerGroupName);
    ExtractJsonResult(value, "timeout", timeout);
    ExtractJsonResult(value, "order", inOrder);
}

ConsumerGroupCheckpoint::ConsumerGroupCheckpoint(int32_t shard, const std::string& checkpoint)
    : shard(shard)
    , checkpoint(checkpoint)
{
}

void ConsumerGroupCheckpoint::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    writer.StartObject();
    writer.member("shard", shard);
    writer.member("checkpoint", checkpoint);
    writer.EndObject();
}

void ConsumerGroupCheckpoint::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("shard", shard);
    writer.member("checkpoint", checkpoint);
    writer.member("updateTime", updateTime);
    writer.member("consumer", consumer);
    writer.EndObject();
}

void ConsumerGroupCheckpoint::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "ConsumerGroupCheckpoint");
    ExtractJsonResult(value, "shard", shard);
    ExtractJsonResult(value, "checkpoint", checkpoint);
    ExtractJsonResult(value, "updateTime", updateTime);
    ExtractOptionalJsonResult(value, "consumer", consumer);
}

void Heartbeat::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void Heartbeat::SetFullValues(JsonWriter& writer) const
{
    writer.StartArray();
    for (const int32_t shard : shards)
        writer.Int(shard);
    writer.EndArray();
}

void Heartbeat::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    if (!value.IsArray())
        throw JsonException("InvalidArrayException", "heartbeat is not valid JSON array");
    shards.clear();
    for (const rapidjson::Value& shard : value.GetArray()) {
        if (!shard.IsInt())
            throw JsonException("ValueTypeException", "Member shard is not int type");
        shards.push_back(shard.GetInt());
    }
}

// ---------------------------------------------------------------- ShardItem

bool ShardItem::isReadOnly() const
{
    return status == kReadOnly;
}

void ShardItem::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    SetFullValues(writer);
}

void ShardItem::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("shardID", shardId);
    writer.member("status", status);
    writer.member("inclusiveBeginKey", inclusiveBeginKey);
    writer.member("exclusiveEndKey", exclusiveEndKey);
    writer.member("createTime", createTime);
    writer.EndObject();
}

void ShardItem::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "ShardItem");
    ExtractJsonResult(value, "shardID", shardId);
    ExtractJsonResult(value, "status", status);
    ExtractJsonResult(value, "inclusiveBeginKey", inclusiveBeginKey);
    ExtractJsonResult(value, "exclusiveEndKey", exclusiveEndKey);
    ExtractJsonResult(value, "createTime", createTime);
}

// ---------------------------------------------------------------- SqlInstance

void SqlInstance::SetRequestValues(JsonWriter& writer, bool /*isUpdate*/) const
{
    writer.StartObject();
    writer.member("cu", cu);
    writer.EndObject();
}

void SqlInstance::SetFullValues(JsonWriter& writer) const
{
    writer.StartObject();
    writer.member("name", name);
    writer.member("cu", cu);
    writer.member("createTime", createTime);
    writer.member("updateTime", updateTime);
    writer.EndObject();
}

void SqlInstance::FromJson(const JsonValue& json)
{
    const rapidjson::Value& value = json.get();
    RequireJsonObject(value, "SqlInstance");
    ExtractJsonResult(value, "name", name);
    ExtractJsonResult(value, "cu", cu);
    ExtractJsonResult(value, "createTime", createTime);
    ExtractJsonResult(value, "updateTime", updateTime);
}

} // namespace cloudlog_sdk_v6

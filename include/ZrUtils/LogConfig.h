#ifndef ZRUTILS_LOGCONFIG_H
#define ZRUTILS_LOGCONFIG_H

#include <ZrUtils/LogResource.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cloudlog_sdk_v6
{

/**
 * Where a collection configuration reads logs: files matched by a path and a
 * pattern, split into lines and fields by regular expressions.
 *
 * JSON members: "logType", "logPath", "filePattern", "localStorage",
 * "timeFormat", "logBeginRegex", "regex", "key", "filterKey", "filterRegex",
 * "topicFormat". "logPath" and "filePattern" are required when parsed, the
 * others optional.
 */
class ZRUTILS_EXPORT ConfigInputDetail : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string logType = "common_reg_log";
    std::string logPath;
    std::string filePattern;
    bool localStorage = true;
    std::string timeFormat;
    std::string logBeginRegex = ".*";
    std::string regex = "(.*)";
    std::vector<std::string> keys = {"content"};
    std::vector<std::string> filterKeys;
    std::vector<std::string> filterRegex;
    std::string topicFormat = "none";
};

/**
 * Where a collection configuration delivers: a log store. JSON members
 * "logstoreName" (required when parsed) and "endpoint" (optional).
 */
class ZRUTILS_EXPORT ConfigOutputDetail : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string logStoreName;
    std::string endpoint;
};

/**
 * A log collection configuration.
 *
 * JSON members: "configName", "inputType", "inputDetail", "outputType",
 * "outputDetail" (all required when parsed), and in the full form "createTime"
 * and "lastModifyTime" (optional when parsed).
 */
class ZRUTILS_EXPORT Config : public Resource
{
public:
    Config() = default;
    explicit Config(const std::string& configName);

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string configName;
    std::string inputType = "file";
    ConfigInputDetail inputDetail;
    std::string outputType = "LogService";
    ConfigOutputDetail outputDetail;
    int64_t createTime = 0;
    int64_t lastModifyTime = 0;
};

} // namespace cloudlog_sdk_v6

#endif

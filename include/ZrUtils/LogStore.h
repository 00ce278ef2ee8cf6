#ifndef ZRUTILS_LOGSTORE_H
#define ZRUTILS_LOGSTORE_H

#include <ZrUtils/LogResource.h>

#include <cstdint>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * A log store: a name, the days logs are kept and the number of shards.
 *
 * JSON members: "logstoreName", "ttl", "shardCount" (left out of an update, the
 * shards being split and merged instead), and in the full form "createTime" and
 * "lastModifyTime" (seconds since the epoch; optional when parsed).
 */
class ZRUTILS_EXPORT LogStore : public Resource
{
public:
    LogStore() = default;
    LogStore(const std::string& logStoreName, int64_t ttl, int64_t shardCount);

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string logStoreName;
    int64_t ttl = 0; // days
    int64_t shardCount = 0;
    int64_t createTime = 0;
    int64_t lastModifyTime = 0;
};

} // namespace cloudlog_sdk_v6

#endif

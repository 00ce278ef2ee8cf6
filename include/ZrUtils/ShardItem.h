#ifndef ZRUTILS_SHARDITEM_H
#define ZRUTILS_SHARDITEM_H

#include <ZrUtils/LogResource.h>

#include <cstdint>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * One shard of a log store: the range of hash keys it owns ("inclusiveBeginKey"
 * up to "exclusiveEndKey", 32 hex digits each) and whether it still takes
 * writes. JSON members "shardID", "status", "inclusiveBeginKey",
 * "exclusiveEndKey", "createTime", all required when parsed; both forms are the
 * same.
 */
class ZRUTILS_EXPORT ShardItem : public Resource
{
public:
    /** True when the status is "readonly" (a split or merged shard); else "readwrite". */
    bool isReadOnly() const;

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    int32_t shardId = 0;
    std::string status;
    std::string inclusiveBeginKey;
    std::string exclusiveEndKey;
    int64_t createTime = 0;
};

} // namespace cloudlog_sdk_v6

#endif

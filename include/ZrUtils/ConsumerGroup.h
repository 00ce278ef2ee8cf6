#ifndef ZRUTILS_CONSUMERGROUP_H
#define ZRUTILS_CONSUMERGROUP_H

#include <ZrUtils/LogResource.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cloudlog_sdk_v6
{

/**
 * A consumer group of a log store: consumers sharing its shards, each holding
 * its shards by heartbeats at most @c timeout seconds apart; @c inOrder reads
 * split shards in order.
 *
 * JSON: a request carries "consumerGroup", "timeout" and "order"; the full form
 * (as the service lists groups) carries "name" instead of "consumerGroup".
 * Parsing takes "name", or "consumerGroup" when there is no "name", with
 * "timeout" and "order" required.
 */
class ZRUTILS_EXPORT ConsumerGroup : public Resource
{
public:
    ConsumerGroup() = default;
    ConsumerGroup(const std::string& consumerGroupName, int32_t timeout, bool inOrder);

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string consumerGroupName;
    int32_t timeout = 0; // seconds
    bool inOrder = false;
};

/**
 * Where a consumer group stands in one shard. A request carries "shard" and
 * "checkpoint" (a cursor); the full form adds "updateTime" (seconds) and
 * "consumer". Parsing requires the first three; "consumer" is optional.
 */
class ZRUTILS_EXPORT ConsumerGroupCheckpoint : public Resource
{
public:
    ConsumerGroupCheckpoint() = default;
    ConsumerGroupCheckpoint(int32_t shard, const std::string& checkpoint);

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    int32_t shard = 0;
    std::string checkpoint;
    int64_t updateTime = 0;
    std::string consumer;
};

/**
 * A consumer's heartbeat: the shards it holds. Both JSON forms are a bare array
 * of shard ids, which is also what the service answers with (the shards the
 * consumer is to hold from now on). The consumer travels in the query.
 */
class ZRUTILS_EXPORT Heartbeat : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::vector<int32_t> shards;
};

} // namespace cloudlog_sdk_v6

#endif

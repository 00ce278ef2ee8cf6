#ifndef ZRUTILS_LOGADMINRESPONSE_H
#define ZRUTILS_LOGADMINRESPONSE_H

#include <ZrUtils/ConsumerGroup.h>
#include <ZrUtils/LOGResponse.h>
#include <ZrUtils/LogConfig.h>
#include <ZrUtils/LogGroup.h>
#include <ZrUtils/LogIndex.h>
#include <ZrUtils/LogItem.h>
#include <ZrUtils/LogStore.h>
#include <ZrUtils/MachineGroup.h>
#include <ZrUtils/ShardItem.h>
#include <ZrUtils/SqlInstance.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace cloudlog_sdk_v6
{

/** Where LOGClient::GetCursor places a cursor when no time is given. */
enum LOG_Cursor_Mode {
    CURSOR_MODE_BEGIN, // before the oldest log group of the shard
    CURSOR_MODE_END, // after the newest one
};

/**
 * A log read back from the service: LogItem's time, topic, source and contents,
 * plus its tags (the members named "__tag__:" + key in a query answer, the log
 * group's tags in a batch pull).
 */
struct LogMetaItem : LogItem {
    std::vector<std::pair<std::string, std::string>> tags;
};

/** One bucket of a histogram: the logs matching in [from, to). */
struct LogStoreHistogramInfo {
    uint32_t from = 0;
    uint32_t to = 0;
    int64_t count = 0;
    std::string progress; // "Complete" once every log of the bucket was counted
};

/** A result row of an SQL query: column name and value, in the service's order. */
using SqlRow = std::vector<std::pair<std::string, std::string>>;

using CreateLogStoreResponse = Response;
using UpdateLogStoreResponse = Response;
using DeleteLogStoreResponse = Response;
using CreateIndexResponse = Response;
using UpdateIndexResponse = Response;
using DeleteIndexResponse = Response;
using CreateConfigResponse = Response;
using UpdateConfigResponse = Response;
using DeleteConfigResponse = Response;
using CreateMachineGroupResponse = Response;
using UpdateMachineGroupResponse = Response;
using DeleteMachineGroupResponse = Response;
using ApplyConfigToMachineGroupResponse = Response;
using RemoveConfigFromMachineGroupResponse = Response;
using CreateConsumerGroupResponse = Response;
using DeleteConsumerGroupResponse = Response;
using UpdateCheckpointResponse = Response;
using DeleteShardResponse = Response;
using CreateSqlInstanceResponse = Response;
using UpdateSqlInstanceResponse = Response;

struct GetLogStoreResponse : Response {
    LogStore result;
};

/** A page of names: @c count on this page, @c total in all. */
struct ListNamesResponse : Response {
    int32_t count = 0;
    int32_t total = 0;
    std::vector<std::string> names;
};
using ListLogStoresResponse = ListNamesResponse;
using ListConfigsResponse = ListNamesResponse;
using ListMachineGroupsResponse = ListNamesResponse;
using GetAppliedConfigsResponse = ListNamesResponse; // total is count

/**
 * Logs of a query. @c count is "x-log-count" and @c progress "x-log-progress"
 * ("Complete" or "Incomplete"); both stay 0 and empty when the service leaves
 * them out.
 */
struct GetLogStoreLogsResponse : Response {
    int64_t count = 0;
    std::string progress;
    std::vector<LogMetaItem> logs;
};

struct GetLogStoreHistogramResponse : Response {
    int64_t count = 0;
    std::string progress;
    std::vector<LogStoreHistogramInfo> histograms;
};

struct ListLogStoreTopicsResponse : Response {
    int64_t count = 0;
    std::vector<std::string> topics;
};

/**
 * Rows of an SQL query, with the service's accounting headers (0 when absent):
 * "x-log-processoed-rows", "x-log-elapsed-millisecond", "x-log-cpu-sec",
 * "x-log-cpu-cores", and "x-log-count" and "x-log-progress" as for logs.
 */
struct LogStoreSqlResponse : Response {
    int64_t count = 0;
    std::string progress;
    int64_t processedRows = 0;
    int64_t elapsedMilliSecond = 0;
    double cpuSec = 0;
    int64_t cpuCores = 0;
    std::vector<SqlRow> rows;
};

struct GetIndexResponse : Response {
    Index result;
};

struct GetConfigResponse : Response {
    Config result;
};

struct GetMachineGroupResponse : Response {
    MachineGroup result;
};

struct ListConsumerGroupResponse : Response {
    std::vector<ConsumerGroup> consumerGroups;
};

/** The shards the consumer is to hold from now on. */
struct ConsumerGroupHeartbeatResponse : Response {
    std::vector<int32_t> shards;
};

struct ListCheckpointResponse : Response {
    std::vector<ConsumerGroupCheckpoint> checkpoints;
};

/** The shards of a log store; after a split or merge, the shards it touched. */
struct ListShardsResponse : Response {
    std::vector<ShardItem> shards;
};
using SplitShardResponse = ListShardsResponse;
using MergeShardResponse = ListShardsResponse;

struct GetCursorResponse : Response {
    std::string cursor;
};

/**
 * A batch of log groups pulled from a shard: @c count groups ("x-log-count")
 * and the cursor to continue from ("x-log-cursor"), which equals the one given
 * when the shard holds nothing more.
 */
struct GetLogGroupListResponse : Response {
    int32_t count = 0;
    std::string nextCursor;
    uint32_t rawSize = 0; // "x-log-bodyrawsize": the decompressed size
    pb::LogGroupList logGroupList;
};
using GetPbBatchLogResponse = GetLogGroupListResponse;

/** A pulled batch as logs, each with its group's topic, source and tags. */
struct GetBatchLogResponse : Response {
    int32_t count = 0;
    std::string nextCursor;
    std::vector<LogMetaItem> logs;
};

struct ListSqlInstanceResponse : Response {
    std::vector<SqlInstance> sqlInstances;
};

} // namespace cloudlog_sdk_v6

#endif

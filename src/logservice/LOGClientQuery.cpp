// Queries, histograms, topics, SQL, cursors and batch pulls of log groups.
#include <ZrUtils/CodecTool.h>
#include <ZrUtils/CompressAlgorithm.h>
#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogConstants.h>

#include "AdminParsing.h"

namespace cloudlog_sdk_v6
{

namespace
{

using StringMap = std::map<std::string, std::string>;

const std::string kProjectLogs = "/logs";
const char kBadBatchBody[] = "Parse LogGroupLddist from string fail"; // sic: callers match this text

std::string indexPath(const std::string& logstore)
{
    return LOGSTORES + "/" + logstore + INDEX;
}

std::string shardPath(const std::string& logstore, int32_t shardId)
{
    return LOGSTORES + "/" + logstore + SHARDS + "/" + ToString(shardId);
}

void readProgress(const HttpMessage& message, int64_t& count, std::string& progress)
{
    ExtractHeaderNumber(message, X_LOG_COUNT, count);
    progress = GetHeaderValue(message, X_LOG_PROGRESS);
}

LogStoreSqlResponse readSqlAnswer(const HttpMessage& message)
{
    LogStoreSqlResponse result;
    static_cast<Response&>(result) = MakeResponse(message);
    ReadAnswer(message, [&] {
        readProgress(message, result.count, result.progress);
        ExtractHeaderNumber(message, X_LOG_PROCESSED_ROWS, result.processedRows);
        ExtractHeaderNumber(message, X_LOG_ELASPED_MILLISECOND, result.elapsedMilliSecond);
        ExtractHeaderNumber(message, X_LOG_CPU_SEC, result.cpuSec);
        ExtractHeaderNumber(message, X_LOG_CPU_CORES, result.cpuCores);
        rapidjson::Document document;
        ExtractJsonArray(message.content, document);
        for (const rapidjson::Value& row : document.GetArray()) {
            if (!row.IsObject())
                throw JsonException("InvalidObjectException", "row is not valid JSON object");
            SqlRow columns;
            for (const auto& member : row.GetObject()) {
                const std::string name(member.name.GetString(), member.name.GetStringLength());
                if (!member.value.IsString())
                    throw JsonException("ValueTypeException", "Member " + name + " is not string type");
                columns.emplace_back(
                    name, std::string(member.value.GetString(), member.value.GetStringLength()));
            }
            result.rows.push_back(std::move(columns));
        }
    });
    return result;
}

} // namespace

GetLogStoreLogsResponse LOGClient::GetLogStoreLogs(const std::string& project, const std::string& logstore,
    uint32_t beginTime, uint32_t endTime, const std::string& topic, const std::string& query, int32_t lines,
    int64_t offset, bool reverse)
{
    const StringMap parameters {{"type", "log"}, {"from", ToString(beginTime)}, {"to", ToString(endTime)},
        {"topic", topic}, {"query", query}, {"line", ToString(lines)}, {"offset", ToString(offset)},
        {"reverse", ToString(reverse)}};
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, indexPath(logstore), std::string(), parameters);
    GetLogStoreLogsResponse result;
    static_cast<Response&>(result) = MakeResponse(message);
    ReadAnswer(message, [&] {
        readProgress(message, result.count, result.progress);
        rapidjson::Document document;
        ExtractJsonArray(message.content, document);
        for (const rapidjson::Value& log : document.GetArray())
            result.logs.push_back(ParseQueriedLog(log));
    });
    return result;
}

GetLogStoreHistogramResponse LOGClient::GetLogStoreHistogram(const std::string& project,
    const std::string& logstore, uint32_t beginTime, uint32_t endTime, const std::string& topic,
    const std::string& query)
{
    const StringMap parameters {{"type", "histogram"}, {"from", ToString(beginTime)},
        {"to", ToString(endTime)}, {"topic", topic}, {"query", query}};
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, indexPath(logstore), std::string(), parameters);
    GetLogStoreHistogramResponse result;
    static_cast<Response&>(result) = MakeResponse(message);
    ReadAnswer(message, [&] {
        readProgress(message, result.count, result.progress);
        rapidjson::Document document;
        ExtractJsonArray(message.content, document);
        for (const rapidjson::Value& bucket : document.GetArray()) {
            LogStoreHistogramInfo info;
            ExtractJsonResult(bucket, "from", info.from);
            ExtractJsonResult(bucket, "to", info.to);
            ExtractJsonResult(bucket, "count", info.count);
            ExtractJsonResult(bucket, "progress", info.progress);
            result.histograms.push_back(info);
        }
    });
    return result;
}

ListLogStoreTopicsResponse LOGClient::ListLogStoreTopics(
    const std::string& project, const std::string& logstore, int32_t lines, const std::string& token)
{
    const StringMap parameters {{"type", "topic"}, {"line", ToString(lines)}, {"token", token}};
    const HttpMessage message
        = sendAdminRequest(project, HTTP_GET, indexPath(logstore), std::string(), parameters);
    ListLogStoreTopicsResponse result;
    static_cast<Response&>(result) = MakeResponse(message);
    ReadAnswer(message, [&] {
        ExtractHeaderNumber(message, X_LOG_COUNT, result.count);
        rapidjson::Document document;
        ExtractJsonArray(message.content, document);
        for (const rapidjson::Value& topic : document.GetArray()) {
            if (!topic.IsString())
                throw JsonException("ValueTypeException", "Member topic is not string type");
            result.topics.emplace_back(topic.GetString(), topic.GetStringLength());
        }
    });
    return result;
}

LogStoreSqlResponse LOGClient::ExecuteLogStoreSql(const std::string& project, const std::string& logstore,
    uint32_t beginTime, uint32_t endTime, const std::string& query, bool powerSql)
{
    const StringMap parameters {{"type", "log"}, {"from", ToString(beginTime)}, {"to", ToString(endTime)},
        {"query", query}, {"powerSql", ToString(powerSql)}};
    return readSqlAnswer(sendAdminRequest(project, HTTP_GET, indexPath(logstore), std::string(), parameters));
}

LogStoreSqlResponse LOGClient::ExecuteProjectSql(
    const std::string& project, const std::string& query, bool powerSql)
{
    const StringMap parameters {{"query", query}, {"powerSql", ToString(powerSql)}};
    return readSqlAnswer(sendAdminRequest(project, HTTP_GET, kProjectLogs, std::string(), parameters));
}

GetCursorResponse LOGClient::GetCursor(
    const std::string& project, const std::string& logstore, int32_t shardId, uint32_t time)
{
    CheckProjectAndLogstore(project, logstore);
    const HttpMessage message = sendAdminRequest(project, HTTP_GET, shardPath(logstore, shardId),
        std::string(), {{"type", "cursor"}, {"from", ToString(time)}});
    GetCursorResponse result;
    static_cast<Response&>(result) = MakeResponse(message);
    ReadAnswer(message, [&] {
        rapidjson::Document document;
        ExtractJsonResult(message.content, document);
        ExtractJsonResult(document, "cursor", result.cursor);
    });
    return result;
}

GetCursorResponse LOGClient::GetCursor(
    const std::string& project, const std::string& logstore, int32_t shardId, LOG_Cursor_Mode mode)
{
    CheckProjectAndLogstore(project, logstore);
    if (mode != CURSOR_MODE_BEGIN && mode != CURSOR_MODE_END)
        throw LOGException(LOGE_PARAMETER_INVALID, "cursor mode invalid.", "", 0);
    const HttpMessage message = sendAdminRequest(project, HTTP_GET, shardPath(logstore, shardId),
        std::string(), {{"type", "cursor"}, {"from", mode == CURSOR_MODE_BEGIN ? "begin" : "end"}});
    GetCursorResponse result;
    static_cast<Response&>(result) = MakeResponse(message);
    ReadAnswer(message, [&] {
        rapidjson::Document document;
        ExtractJsonResult(message.content, document);
        ExtractJsonResult(document, "cursor", result.cursor);
    });
    return result;
}

GetLogGroupListResponse LOGClient::pullLogGroups(const std::string& project, const std::string& logstore,
    int32_t shardId, const std::string& cursor, const std::string& endCursor, int32_t count)
{
    StringMap parameters {{"type", "log"}, {"cursor", cursor}, {"count", ToString(count)}};
    if (!endCursor.empty())
        parameters["end_cursor"] = endCursor;
    StringMap header {{ACCEPT_ENCODING, LOG_LZ4}, {HTTP_ACCEPT, TYPE_LOG_PROTOBUF}};
    const HttpMessage message = sendAdminRequest(
        project, HTTP_GET, shardPath(logstore, shardId), std::string(), parameters, header);

    GetLogGroupListResponse result;
    static_cast<Response&>(result) = MakeResponse(message);
    ReadAnswer(message, [&] {
        ExtractHeaderNumber(message, X_LOG_COUNT, result.count);
        int64_t rawSize = -1;
        ExtractHeaderNumber(message, X_LOG_BODYRAWSIZE, rawSize);
        if (rawSize < 0 || rawSize > int64_t(uint32_t(-1)))
            throw JsonException(
                "ValueTypeException", "Header " + X_LOG_BODYRAWSIZE + " is missing or invalid");
        result.rawSize = uint32_t(rawSize);
    });
    result.nextCursor = GetHeaderValue(message, X_LOG_CURSOR);
    const std::string compressType = GetHeaderValue(message, X_LOG_COMPRESSTYPE);
    if (!compressType.empty() && compressType != LOG_LZ4)
        ThrowBadResponse(message, "Unsupported compress type " + compressType);

    // An empty shard may answer with no body at all rather than an LZ4 block.
    if (result.rawSize == 0 && message.content.empty())
        return result;
    std::string raw;
    if (!CompressAlgorithm::UncompressLz4(message.content, result.rawSize, raw))
        ThrowBadResponse(message, "Fail to uncompress lz4 body to " + ToString(result.rawSize) + " bytes");
    if (!result.logGroupList.ParseFromString(raw))
        ThrowBadResponse(message, kBadBatchBody);
    return result;
}

GetLogGroupListResponse LOGClient::GetLogGroupList(const std::string& project, const std::string& logstore,
    int32_t shardId, const std::string& cursor, const std::string& endCursor, int32_t count)
{
    return pullLogGroups(project, logstore, shardId, cursor, endCursor, count);
}

GetPbBatchLogResponse LOGClient::GetPbBatchLog(const std::string& project, const std::string& logstore,
    int32_t shardId, int32_t count, const std::string& cursor)
{
    return pullLogGroups(project, logstore, shardId, cursor, std::string(), count);
}

GetBatchLogResponse LOGClient::GetBatchLog(const std::string& project, const std::string& logstore,
    int32_t shardId, int32_t count, const std::string& cursor)
{
    const GetLogGroupListResponse pulled
        = pullLogGroups(project, logstore, shardId, cursor, std::string(), count);
    GetBatchLogResponse result;
    static_cast<Response&>(result) = pulled;
    result.count = pulled.count;
    result.nextCursor = pulled.nextCursor;
    for (const pb::LogGroup& group : pulled.logGroupList.logGroups) {
        for (const pb::Log& log : group.logs) {
            LogMetaItem item;
            item.timestamp = log.time;
            item.topic = group.topic;
            item.source = group.source;
            for (const pb::LogContent& content : log.contents)
                item.contents.emplace_back(content.key, content.value);
            for (const pb::LogTag& tag : group.logTags)
                item.tags.emplace_back(tag.key, tag.value);
            result.logs.push_back(std::move(item));
        }
    }
    return result;
}

} // namespace cloudlog_sdk_v6

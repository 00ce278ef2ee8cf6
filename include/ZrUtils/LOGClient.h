#ifndef ZRUTILS_LOGCLIENT_H
#define ZRUTILS_LOGCLIENT_H

#include <ZrUtils/HttpMessage.h>
#include <ZrUtils/LOGAdminResponse.h>
#include <ZrUtils/LOGResponse.h>
#include <ZrUtils/LogGroup.h>
#include <ZrUtils/LogItem.h>
#include <ZrUtils/LogTransportSecurity.h>
#include <ZrUtils/zrutils_export.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace cloudlog_sdk_v6
{

/**
 * A synchronous client of the log service's HTTP interface.
 *
 * The client holds the endpoint, the credentials and the request settings; it
 * keeps no connection between requests. Every operation signs its request, sends
 * it and waits for the answer. Any failure, a status other than 200 included,
 * throws LOGException; the client itself stays unchanged and nothing is retried.
 *
 * One client may serve several threads at once: the endpoint and the keys are
 * read under a mutex and copied, and the transfers run in parallel without it.
 * The setters may be called at any time; a request in flight keeps the values it
 * took.
 *
 * Endpoints: a scheme and a path are dropped ("https://host/x" is "host"); a port
 * is kept. A request for a project goes to project + "." + endpoint, unless the
 * endpoint holds no letter (a raw IP such as 10.0.0.1:8080), when it goes to the
 * endpoint itself while the "Host" header still names project + "." + endpoint.
 *
 * Requests go out as plain HTTP unless SetTransportSecurity() asks for HTTPS; the
 * endpoint's scheme does not choose.
 */
class ZRUTILS_EXPORT LOGClient
{
public:
    /**
     * @p timeout is in seconds for a whole request; 0 or less means 20. An empty
     * @p source is replaced by this machine's IPv4 address (empty if it has none
     * but loopback). @p compressFlag sends posted logs LZ4-compressed.
     */
    LOGClient(const std::string& logHost, const std::string& accessKeyId, const std::string& accessKey,
        int32_t timeout, const std::string& source, bool compressFlag);
    /** As above, with a temporary credential's @p securityToken. */
    LOGClient(const std::string& logHost, const std::string& accessKeyId, const std::string& accessKey,
        const std::string& securityToken, int32_t timeout, const std::string& source, bool compressFlag);
    virtual ~LOGClient();

    LOGClient(const LOGClient&) = delete;
    LOGClient& operator=(const LOGClient&) = delete;

    /** Sets the endpoint; see the class documentation for the forms accepted. */
    void SetLogHost(const std::string& logHost);
    /** The endpoint without scheme and path. */
    std::string GetLogHost() const;
    /** "." followed by the endpoint. */
    std::string GetHostFieldSuffix() const;
    void SetAccessKeyId(const std::string& accessKeyId);
    std::string GetAccessKeyId() const;
    void SetAccessKey(const std::string& accessKey);
    std::string GetAccessKey() const;
    /**
     * Sets how the following requests reach the service: plain HTTP (the default)
     * or HTTPS with the server's certificate and host name checked; see
     * LogTransportSecurity. Never fails; a bad CA bundle fails the requests.
     */
    void SetTransportSecurity(const LogTransportSecurity& security);
    /** The transport set with SetTransportSecurity(); plain HTTP by default. Never fails. */
    LogTransportSecurity GetTransportSecurity() const;

    /**
     * Posts @p logItems, in order, as one log group with @p topic and the client's
     * source to @p logstore of @p project. A non-empty @p hashKey routes the group
     * to the shard owning that key.
     *
     * Throws LOGException: "ParameterInvalid" for an empty list (before any
     * network activity), "UnknownError" if compression fails, and the transport
     * and service failures of every request.
     */
    PostLogStoreLogsResponse PostLogStoreLogs(const std::string& project, const std::string& logstore,
        const std::string& topic, const std::vector<LogItem>& logItems, const std::string& hashKey);
    /**
     * Posts @p logGroup as it is, except that an empty source becomes the client's.
     * Throws as above, except that an empty group is sent.
     */
    PostLogStoreLogsResponse PostLogStoreLogs(const std::string& project, const std::string& logstore,
        const pb::LogGroup& logGroup, const std::string& hashKey);

    // Administration and queries. Every call below throws LOGException on
    // failure: the transport and service failures of every request, and
    // "BadResponse" when a 200 answer lacks what the call reads from it (a JSON
    // member, a header with a number, a decodable batch). Names are put into
    // resource paths as given.

    /** Creates a log store (POST "/logstores"). */
    CreateLogStoreResponse CreateLogStore(const std::string& project, const LogStore& logStore);
    /** Changes a log store's ttl (PUT "/logstores/" + name); the shard count stays. */
    UpdateLogStoreResponse UpdateLogStore(const std::string& project, const LogStore& logStore);
    DeleteLogStoreResponse DeleteLogStore(const std::string& project, const std::string& logstore);
    GetLogStoreResponse GetLogStore(const std::string& project, const std::string& logstore);
    /**
     * A page of log store names: query "offset", "size" and, when non-empty,
     * "logstoreName" (names containing it); answer members "count", "total" and
     * "logstores".
     */
    ListLogStoresResponse ListLogStores(const std::string& project,
        const std::string& logstoreName = std::string(), int32_t offset = 0, int32_t size = 500);

    /**
     * Logs of @p logstore matching @p query with times in [@p beginTime,
     * @p endTime), of @p topic unless it is empty. Query keys "type" ("log"),
     * "from", "to", "topic", "query", "line", "offset", "reverse" ("true" for the
     * newest first). The answer is a JSON array of logs whose members are strings:
     * "__time__" (a number is taken too), "__topic__", "__source__",
     * "__tag__:" + key, and the contents.
     */
    GetLogStoreLogsResponse GetLogStoreLogs(const std::string& project, const std::string& logstore,
        uint32_t beginTime, uint32_t endTime, const std::string& topic, const std::string& query,
        int32_t lines = 100, int64_t offset = 0, bool reverse = false);
    /**
     * How many logs match, per time bucket: query "type" ("histogram"), "from",
     * "to", "topic", "query"; the answer is a JSON array of {"from", "to",
     * "count", "progress"}.
     */
    GetLogStoreHistogramResponse GetLogStoreHistogram(const std::string& project, const std::string& logstore,
        uint32_t beginTime, uint32_t endTime, const std::string& topic, const std::string& query);
    /**
     * Up to @p lines topics of @p logstore after @p token (query "type"
     * ("topic"), "line", "token"); the answer is a JSON array of strings.
     */
    ListLogStoreTopicsResponse ListLogStoreTopics(const std::string& project, const std::string& logstore,
        int32_t lines = 100, const std::string& token = std::string());
    /**
     * An SQL query over one log store: query "type" ("log"), "from", "to",
     * "query", "powerSql" ("true"/"false"); the answer is a JSON array of rows
     * with string values.
     */
    LogStoreSqlResponse ExecuteLogStoreSql(const std::string& project, const std::string& logstore,
        uint32_t beginTime, uint32_t endTime, const std::string& query, bool powerSql = false);
    /**
     * An SQL query over the project, naming its log stores in the query itself:
     * GET "/logs" with query "query" and "powerSql"; answered as above.
     */
    LogStoreSqlResponse ExecuteProjectSql(
        const std::string& project, const std::string& query, bool powerSql = false);

    /** Creates the index of a log store (POST "/logstores/" + name + "/index"). */
    CreateIndexResponse CreateIndex(
        const std::string& project, const std::string& logstore, const Index& index);
    UpdateIndexResponse UpdateIndex(
        const std::string& project, const std::string& logstore, const Index& index);
    GetIndexResponse GetIndex(const std::string& project, const std::string& logstore);
    DeleteIndexResponse DeleteIndex(const std::string& project, const std::string& logstore);

    /** Creates a collection configuration (POST "/configs"). */
    CreateConfigResponse CreateConfig(const std::string& project, const Config& config);
    /** Replaces a configuration (PUT "/configs/" + its name). */
    UpdateConfigResponse UpdateConfig(const std::string& project, const Config& config);
    GetConfigResponse GetConfig(const std::string& project, const std::string& configName);
    DeleteConfigResponse DeleteConfig(const std::string& project, const std::string& configName);
    /**
     * A page of configuration names: query "offset", "size" and, when
     * non-empty, "configName"; answer members "count", "total", "configs".
     */
    ListConfigsResponse ListConfigs(const std::string& project, const std::string& configName = std::string(),
        int32_t offset = 0, int32_t size = 500);

    /** Creates a machine group (POST "/machinegroups"). */
    CreateMachineGroupResponse CreateMachineGroup(
        const std::string& project, const MachineGroup& machineGroup);
    /** Replaces a machine group (PUT "/machinegroups/" + its name). */
    UpdateMachineGroupResponse UpdateMachineGroup(
        const std::string& project, const MachineGroup& machineGroup);
    GetMachineGroupResponse GetMachineGroup(const std::string& project, const std::string& groupName);
    DeleteMachineGroupResponse DeleteMachineGroup(const std::string& project, const std::string& groupName);
    /**
     * A page of machine group names: query "offset", "size"; answer members
     * "count", "total", "machinegroups".
     */
    ListMachineGroupsResponse ListMachineGroups(
        const std::string& project, int32_t offset = 0, int32_t size = 500);
    /** PUT "/machinegroups/" + group + "/configs/" + config. */
    ApplyConfigToMachineGroupResponse ApplyConfigToMachineGroup(
        const std::string& project, const std::string& groupName, const std::string& configName);
    RemoveConfigFromMachineGroupResponse RemoveConfigFromMachineGroup(
        const std::string& project, const std::string& groupName, const std::string& configName);
    /** The configurations applied to a group: answer members "count" and "configs". */
    GetAppliedConfigsResponse GetAppliedConfigs(const std::string& project, const std::string& groupName);

    /** POST "/logstores/" + name + "/consumergroups". */
    CreateConsumerGroupResponse CreateConsumerGroup(
        const std::string& project, const std::string& logstore, const ConsumerGroup& consumerGroup);
    DeleteConsumerGroupResponse DeleteConsumerGroup(
        const std::string& project, const std::string& logstore, const std::string& consumerGroup);
    /** The answer is a JSON array of {"name", "timeout", "order"}. */
    ListConsumerGroupResponse ListConsumerGroup(const std::string& project, const std::string& logstore);
    /**
     * Tells the service that @p consumer holds @p shards (query "type"
     * ("heartbeat"), "consumer"; body a JSON array of shard ids) and returns the
     * shards it is to hold.
     */
    ConsumerGroupHeartbeatResponse ConsumerGroupHeartbeat(const std::string& project,
        const std::string& logstore, const std::string& consumerGroup, const std::string& consumer,
        const std::vector<int32_t>& shards);
    /**
     * Stores @p checkpoint for @p shard (query "type" ("checkpoint"),
     * "consumer", "forceSuccess"); without @p forceSuccess the service refuses a
     * consumer that does not hold the shard.
     */
    UpdateCheckpointResponse UpdateCheckpoint(const std::string& project, const std::string& logstore,
        const std::string& consumerGroup, const std::string& consumer, int32_t shard,
        const std::string& checkpoint, bool forceSuccess = false);
    /** The answer is a JSON array of {"shard", "checkpoint", "updateTime"}. */
    ListCheckpointResponse ListCheckpoint(
        const std::string& project, const std::string& logstore, const std::string& consumerGroup);

    /**
     * The shards of a log store. This and the four calls below throw
     * "ParameterInvalid" ("project or logstore invalid.") before any network
     * activity when @p project or @p logstore is empty.
     */
    ListShardsResponse ListShards(const std::string& project, const std::string& logstore);
    /**
     * Splits a read-write shard at @p splitKey (32 hex digits inside its range;
     * query "action" ("split") and "key") and returns the shards it touched.
     */
    SplitShardResponse SplitShard(const std::string& project, const std::string& logstore, int32_t shardId,
        const std::string& splitKey);
    /** Merges a read-write shard with the next one (query "action" ("merge")). */
    MergeShardResponse MergeShard(const std::string& project, const std::string& logstore, int32_t shardId);
    /** Deletes a read-only shard. */
    DeleteShardResponse DeleteShard(const std::string& project, const std::string& logstore, int32_t shardId);
    /**
     * The cursor of the first log group received at or after @p time (query
     * "type" ("cursor") and "from" = the time in seconds); the answer member is
     * "cursor".
     */
    GetCursorResponse GetCursor(
        const std::string& project, const std::string& logstore, int32_t shardId, uint32_t time);
    /** As above with "from" = "begin" or "end". */
    GetCursorResponse GetCursor(
        const std::string& project, const std::string& logstore, int32_t shardId, LOG_Cursor_Mode mode);

    /**
     * Pulls up to @p count log groups of a shard from @p cursor, stopping at
     * @p endCursor unless it is empty (query "type" ("log"), "cursor",
     * "end_cursor", "count"). The answer is an LZ4 block that expands to
     * "x-log-bodyrawsize" bytes of encoded log group list; a body that does not
     * expand to that size throws "BadResponse", and one that does not decode
     * throws "BadResponse" with "Parse LogGroupLddist from string fail".
     */
    GetLogGroupListResponse GetLogGroupList(const std::string& project, const std::string& logstore,
        int32_t shardId, const std::string& cursor, const std::string& endCursor, int32_t count);
    /** GetLogGroupList() without an end cursor. */
    GetPbBatchLogResponse GetPbBatchLog(const std::string& project, const std::string& logstore,
        int32_t shardId, int32_t count, const std::string& cursor);
    /** As GetPbBatchLog(), the groups flattened into logs. */
    GetBatchLogResponse GetBatchLog(const std::string& project, const std::string& logstore, int32_t shardId,
        int32_t count, const std::string& cursor);

    /**
     * Sets the project's SQL capacity (POST "/sqlinstance" with {"cu": ...});
     * creating and updating are the same request.
     */
    CreateSqlInstanceResponse CreateSqlInstance(const std::string& project, int32_t cu);
    UpdateSqlInstanceResponse UpdateSqlInstance(const std::string& project, int32_t cu);
    /** POST "/sqlinstance" without a body; the answer is a JSON array of SqlInstance. */
    ListSqlInstanceResponse ListSqlInstance(const std::string& project);

protected:
    using DateStringFunction = std::function<std::string()>;
    using SendFunction = std::function<void(const std::string& httpMethod, const std::string& host,
        const int32_t port, const std::string& url, const std::string& queryString,
        const std::map<std::string, std::string>& header, const std::string& body, const int32_t timeout,
        HttpMessage& httpMessage, const int64_t maxSendSpeed)>;

    /**
     * The one path to the service: completes @p header with the common headers
     * and the signature, sends the request and fills @p httpMessage. Returns only
     * on status 200; anything else throws LOGException with the service's
     * "errorCode" and "errorMessage" when the body carries them, else
     * "InternalServerError" (status 500) or "BadResponse" with the raw body.
     */
    void SendRequest(const std::string& project, const std::string& httpMethod, const std::string& url,
        const std::string& body, const std::map<std::string, std::string>& parameterList,
        std::map<std::string, std::string>& header, HttpMessage& httpMessage);
    /** The host a request for @p project goes to. */
    std::string GetHost(const std::string& project) const;
    /** Sets (overwriting) the headers every request carries, "Date" included. */
    void SetCommonHeader(
        std::map<std::string, std::string>& header, int32_t contentLength, const std::string& project) const;
    /** Adds the parameters every request carries: none at present. */
    void SetCommonParameter(std::map<std::string, std::string>& parameterList) const;

    std::string logHost;
    std::string accessKeyId;
    std::string accessKey;
    std::string securityToken;
    std::string source;
    bool compressFlag;
    int32_t timeout;
    std::string userAgent;
    std::string hostFieldSuffix;
    bool isHostRawIp;
    // Guards logHost, hostFieldSuffix, isHostRawIp, accessKeyId, accessKey and
    // transportSecurity.
    mutable std::mutex mMutex;
    // Replaceable so that the clock and the transport can be swapped. The default
    // transport is LOGAdapter::Send() over the client's transportSecurity; a
    // replacement takes the whole transfer over, TLS included.
    DateStringFunction getDateStringFunc;
    SendFunction sendFunc;
    int64_t maxSendSpeed;
    LogTransportSecurity transportSecurity;

private:
    void init();
    // Sends one administration request: the JSON body's Content-Type, its
    // Content-MD5 and x-log-bodyrawsize join @p header, then SendRequest().
    HttpMessage sendAdminRequest(const std::string& project, const std::string& httpMethod,
        const std::string& resource, const std::string& body,
        const std::map<std::string, std::string>& parameters, std::map<std::string, std::string> header = {});
    GetLogGroupListResponse pullLogGroups(const std::string& project, const std::string& logstore,
        int32_t shardId, const std::string& cursor, const std::string& endCursor, int32_t count);
};

} // namespace cloudlog_sdk_v6

#endif

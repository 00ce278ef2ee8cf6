#ifndef ZRUTILS_LOGCLIENT_H
#define ZRUTILS_LOGCLIENT_H

#include <ZrUtils/HttpMessage.h>
#include <ZrUtils/LOGResponse.h>
#include <ZrUtils/LogGroup.h>
#include <ZrUtils/LogItem.h>
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
    // Guards logHost, hostFieldSuffix, isHostRawIp, accessKeyId and accessKey.
    mutable std::mutex mMutex;
    // Replaceable so that the clock and the transport can be swapped.
    DateStringFunction getDateStringFunc;
    SendFunction sendFunc;
    int64_t maxSendSpeed;

private:
    void init();
};

} // namespace cloudlog_sdk_v6

#endif

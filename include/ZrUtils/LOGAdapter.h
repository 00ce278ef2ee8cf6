#ifndef ZRUTILS_LOGADAPTER_H
#define ZRUTILS_LOGADAPTER_H

#include <ZrUtils/HttpMessage.h>
#include <ZrUtils/LogTransportSecurity.h>
#include <ZrUtils/zrutils_export.h>

#include <cstdint>
#include <map>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * The wire side of the log-service client: query strings, the request signature
 * and the synchronous transfer of one request.
 */
class ZRUTILS_EXPORT LOGAdapter
{
public:
    /**
     * Replaces @p queryString with key=value pairs in key order, joined by "&".
     * Values are percent-encoded, keys are not. Never fails.
     */
    static void GetQueryString(
        const std::map<std::string, std::string>& parameterList, std::string& queryString);

    /**
     * The base64 HMAC-SHA1 signature of a request under @p accessKey. The string
     * signed covers the method, the MD5 of @p body, the "Content-Type" and "Date"
     * headers, every "x-log-" and "x-acs-" header in name order, @p resource and
     * the raw (not encoded) parameters. Looking up "Date" adds an empty one to
     * @p header when it is missing.
     *
     * Throws LOGException "NotImplemented" for any @p signatureVersion but 0.
     */
    static std::string GetUrlSignature(const std::string& httpMethod, const std::string& resource,
        std::map<std::string, std::string>& header, const std::map<std::string, std::string>& parameterList,
        const std::string& body, const std::string& accessKey, int32_t signatureVersion);

    /**
     * Performs one request and waits for its end: @p httpMethod to @p host followed
     * by @p url (no scheme: libcurl's default applies) and "?" @p queryString when
     * that is non-empty. @p port is not used. @p timeout bounds the whole request
     * in seconds; connecting is bounded by 5 s. Uploads are capped at
     * @p maxSendSpeed bytes per second. Any status the server answers fills
     * @p httpMessage.
     *
     * Throws LOGException when no answer arrives: "ClientNetworkError" (cannot
     * connect, or another libcurl failure with its code in the message),
     * "RequestTimeout", or "UnknownError" if libcurl cannot start.
     */
    static void Send(const std::string& httpMethod, const std::string& host, const int32_t port,
        const std::string& url, const std::string& queryString,
        const std::map<std::string, std::string>& header, const std::string& body, const int32_t timeout,
        HttpMessage& httpMessage, const int64_t maxSendSpeed);

    /**
     * As above, over the transport @p security describes: with its @c https set the
     * URL is "https://" + @p host + @p url (and the query string), the server's
     * certificate and host name are checked (against @c caBundle alone when it is
     * set, else the system's CA store); without it, exactly as above.
     *
     * Throws as above; a certificate that fails the check, a TLS handshake that
     * fails or a CA bundle that cannot be read is a "ClientNetworkError" with
     * libcurl's code in the message.
     */
    static void Send(const std::string& httpMethod, const std::string& host, const int32_t port,
        const std::string& url, const std::string& queryString,
        const std::map<std::string, std::string>& header, const std::string& body, const int32_t timeout,
        HttpMessage& httpMessage, const int64_t maxSendSpeed, const LogTransportSecurity& security);
};

} // namespace cloudlog_sdk_v6

#endif

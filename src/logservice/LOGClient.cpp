#include <ZrUtils/CodecTool.h>
#include <ZrUtils/LOGAdapter.h>
#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogConstants.h>

#include "HostIp.h"
#include "JsonExtract.h"

#include <initializer_list>

namespace cloudlog_sdk_v6
{

namespace
{

const int32_t kDefaultTimeoutSeconds = 20;
const int64_t kMaxSendSpeed = int64_t(1) << 30; // bytes per second
const int32_t kUnusedPort = 80;

// libcurl is readied on first use by the transport; nothing to set up here.
bool initNetwork()
{
    return true;
}

bool hasLetter(const std::string& text)
{
    for (const char c : text) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))
            return true;
    }
    return false;
}

} // namespace

LOGClient::LOGClient(const std::string& logHost, const std::string& accessKeyId, const std::string& accessKey,
    int32_t timeout, const std::string& source, bool compressFlag)
    : LOGClient(logHost, accessKeyId, accessKey, std::string(), timeout, source, compressFlag)
{
}

LOGClient::LOGClient(const std::string& logHost, const std::string& accessKeyId, const std::string& accessKey,
    const std::string& securityToken, int32_t timeout, const std::string& source, bool compressFlag)
    : logHost(logHost)
    , accessKeyId(accessKeyId)
    , accessKey(accessKey)
    , securityToken(securityToken)
    , source(source)
    , compressFlag(compressFlag)
    , timeout(timeout)
    , userAgent(LOG_SDK_IDENTIFICATION)
    , isHostRawIp(false)
    , getDateStringFunc([] { return CodecTool::GetDateString(); })
    , sendFunc([this](const std::string& httpMethod, const std::string& host, const int32_t port,
                   const std::string& url, const std::string& queryString,
                   const std::map<std::string, std::string>& header, const std::string& body,
                   const int32_t timeout, HttpMessage& httpMessage, const int64_t maxSendSpeed) {
        LOGAdapter::Send(httpMethod, host, port, url, queryString, header, body, timeout, httpMessage,
            maxSendSpeed, GetTransportSecurity());
    })
    , maxSendSpeed(kMaxSendSpeed)
{
    init();
}

LOGClient::~LOGClient() = default;

void LOGClient::init()
{
    initNetwork();
    SetLogHost(logHost);
    if (source.empty())
        source = GetHostIp();
    if (timeout <= 0)
        timeout = kDefaultTimeoutSeconds;
}

void LOGClient::SetLogHost(const std::string& host)
{
    std::string stripped = host;
    const size_t scheme = stripped.find("://");
    if (scheme != std::string::npos)
        stripped.erase(0, scheme + 3);
    const size_t slash = stripped.find('/');
    if (slash != std::string::npos)
        stripped.erase(slash);

    std::lock_guard<std::mutex> lock(mMutex);
    logHost = stripped;
    hostFieldSuffix = "." + stripped;
    isHostRawIp = !hasLetter(stripped);
}

std::string LOGClient::GetLogHost() const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return logHost;
}

std::string LOGClient::GetHostFieldSuffix() const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return hostFieldSuffix;
}

void LOGClient::SetAccessKeyId(const std::string& id)
{
    std::lock_guard<std::mutex> lock(mMutex);
    accessKeyId = id;
}

std::string LOGClient::GetAccessKeyId() const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return accessKeyId;
}

void LOGClient::SetAccessKey(const std::string& key)
{
    std::lock_guard<std::mutex> lock(mMutex);
    accessKey = key;
}

std::string LOGClient::GetAccessKey() const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return accessKey;
}

void LOGClient::SetTransportSecurity(const LogTransportSecurity& security)
{
    std::lock_guard<std::mutex> lock(mMutex);
    transportSecurity = security;
}

LogTransportSecurity LOGClient::GetTransportSecurity() const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return transportSecurity;
}

std::string LOGClient::GetHost(const std::string& project) const
{
    std::lock_guard<std::mutex> lock(mMutex);
    if (!isHostRawIp && !project.empty())
        return project + hostFieldSuffix;
    return logHost;
}

void LOGClient::SetCommonHeader(
    std::map<std::string, std::string>& header, int32_t contentLength, const std::string& project) const
{
    {
        // Unlike GetHost(), a raw-IP endpoint still gets the project in "Host".
        std::lock_guard<std::mutex> lock(mMutex);
        header[HOST] = project.empty() ? logHost : project + hostFieldSuffix;
    }
    header[USER_AGENT] = userAgent;
    header[X_LOG_APIVERSION] = LOG_API_VERSION;
    header[X_LOG_SIGNATUREMETHOD] = HMAC_SHA1;
    header[DATE] = getDateStringFunc();
    header[CONTENT_LENGTH] = ToString(uint32_t(contentLength));
    if (!securityToken.empty())
        header[X_ACS_SECURITY_TOKEN] = securityToken;
}

void LOGClient::SetCommonParameter(std::map<std::string, std::string>& /*parameterList*/) const { }

namespace
{

// The service quotes a refused request's signature back in its message, and a
// replaced transport may put anything in its own: neither the key, the token nor the
// signature may reach an exception that callers log.
std::string withoutSecrets(std::string text, std::initializer_list<const std::string*> secrets)
{
    for (const std::string* secret : secrets) {
        if (secret->empty())
            continue;
        for (size_t at = text.find(*secret); at != std::string::npos; at = text.find(*secret, at + 3))
            text.replace(at, secret->size(), "***");
    }
    return text;
}

} // namespace

void LOGClient::SendRequest(const std::string& project, const std::string& httpMethod, const std::string& url,
    const std::string& body, const std::map<std::string, std::string>& parameterList,
    std::map<std::string, std::string>& header, HttpMessage& httpMessage)
{
    const std::string accessKey = GetAccessKey();
    std::string signature;
    const auto scrubbed = [&](const std::string& text) {
        return withoutSecrets(text, {&accessKey, &securityToken, &signature});
    };
    try {
        const std::string host = GetHost(project);
        SetCommonHeader(header, int32_t(body.size()), project);
        signature = LOGAdapter::GetUrlSignature(httpMethod, url, header, parameterList, body, accessKey, 0);
        header[AUTHORIZATION] = LOG_HEADSIGNATURE_PREFIX + GetAccessKeyId() + ':' + signature;
        std::string queryString;
        LOGAdapter::GetQueryString(parameterList, queryString);

        sendFunc(httpMethod, host, kUnusedPort, url, queryString, header, body, timeout, httpMessage,
            maxSendSpeed);
        // 200 alone is success: a 201 or 204 is read as an error answer too.
        if (httpMessage.statusCode == 200)
            return;

        const auto id = httpMessage.header.find(X_LOG_REQUEST_ID);
        const std::string requestId = id == httpMessage.header.end() ? std::string() : id->second;
        std::string errorCode;
        std::string errorMessage;
        try {
            rapidjson::Document document;
            ExtractJsonResult(httpMessage.content, document);
            ExtractJsonResult(document, LOG_ERROR_CODE.c_str(), errorCode);
            ExtractJsonResult(document, LOG_ERROR_MESSAGE.c_str(), errorMessage);
        } catch (const JsonException&) {
            if (httpMessage.statusCode == 500)
                throw LOGException(LOGE_INTERNAL_SERVER_ERROR, httpMessage.content, requestId, 500);
            throw LOGException(LOGE_BAD_RESPONSE, "Unextractable error:" + httpMessage.content, requestId,
                httpMessage.statusCode);
        }
        throw LOGException(errorCode, errorMessage, requestId, httpMessage.statusCode);
    } catch (const LOGException& e) {
        const std::string code = scrubbed(e.GetErrorCode());
        const std::string message = scrubbed(e.GetErrorMessage());
        if (code != e.GetErrorCode() || message != e.GetErrorMessage())
            throw LOGException(code, message, e.GetRequestId(), e.GetHttpCode());
        throw;
    } catch (const std::exception& e) {
        // Nothing but LOGException leaves the client (memory exhaustion, a
        // replaced transport throwing something else).
        throw LOGException(LOGE_UNKNOWN_ERROR, scrubbed(e.what()), "", 0);
    }
}

} // namespace cloudlog_sdk_v6

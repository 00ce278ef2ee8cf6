#include <ZrUtils/CodecTool.h>
#include <ZrUtils/LOGAdapter.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogConstants.h>

#include "CurlGlobal.h"
#include "HeaderParser.h"

#include <curl/curl.h>

#include <cstring>
#include <memory>

namespace cloudlog_sdk_v6
{

namespace
{

struct EasyCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct ListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using EasyHandle = std::unique_ptr<CURL, EasyCleanup>;
using HeaderList = std::unique_ptr<curl_slist, ListCleanup>;

const long kConnectTimeoutSeconds = 5;

struct UploadState {
    const std::string* body;
    size_t offset;
};

// The callbacks run inside libcurl's C frames: nothing may be thrown through them.

size_t writeBody(char* data, size_t size, size_t count, void* userData)
{
    const size_t n = size * count;
    try {
        static_cast<std::string*>(userData)->append(data, n);
        return n;
    } catch (...) {
        return 0; // ends the transfer with a write error
    }
}

size_t readBody(char* buffer, size_t size, size_t count, void* userData)
{
    UploadState* state = static_cast<UploadState*>(userData);
    const size_t remaining = state->body->size() - state->offset;
    const size_t n = size * count < remaining ? size * count : remaining;
    if (n > 0)
        std::memcpy(buffer, state->body->data() + state->offset, n);
    state->offset += n;
    return n;
}

size_t readHeader(char* data, size_t size, size_t count, void* userData)
{
    const size_t n = size * count;
    try {
        ParseResponseHeaderLine(data, n, *static_cast<std::map<std::string, std::string>*>(userData));
    } catch (...) {
        // a header lost to memory exhaustion; the transfer goes on
    }
    return n;
}

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

} // namespace

void ParseResponseHeaderLine(const char* line, size_t length, std::map<std::string, std::string>& header)
{
    if (length < 4)
        return;
    const size_t contentEnd = length - 2; // the CRLF
    const void* found = std::memchr(line + 1, ':', contentEnd - 1);
    if (!found)
        return;
    const size_t colon = size_t(static_cast<const char*>(found) - line);
    size_t nameEnd = colon;
    while (nameEnd > 0 && isBlank(line[nameEnd - 1]))
        --nameEnd;
    size_t valueStart = colon + 1;
    while (valueStart < contentEnd && isBlank(line[valueStart]))
        ++valueStart;
    header[std::string(line, nameEnd)] = std::string(line + valueStart, contentEnd - valueStart);
}

void LOGAdapter::GetQueryString(
    const std::map<std::string, std::string>& parameterList, std::string& queryString)
{
    queryString.clear();
    for (auto it = parameterList.begin(); it != parameterList.end(); ++it) {
        if (it != parameterList.begin())
            queryString += '&';
        queryString += it->first;
        queryString += '=';
        queryString += CodecTool::UrlEncode(it->second);
    }
}

std::string LOGAdapter::GetUrlSignature(const std::string& httpMethod, const std::string& resource,
    std::map<std::string, std::string>& header, const std::map<std::string, std::string>& parameterList,
    const std::string& body, const std::string& accessKey, int32_t signatureVersion)
{
    // Hashed from the body itself, never taken from the "Content-MD5" header.
    const std::string contentMd5 = body.empty() ? std::string() : CodecTool::CalcMD5(body);
    const auto contentType = header.find(CONTENT_TYPE);
    if (signatureVersion != 0)
        throw LOGException(LOGE_NOT_IMPLEMENTED, "Signature Version does not support.", "", 0);

    std::string toSign;
    toSign.reserve(256 + resource.size());
    toSign += httpMethod;
    toSign += '\n';
    toSign += contentMd5;
    toSign += '\n';
    if (contentType != header.end())
        toSign += contentType->second;
    toSign += '\n';
    toSign += header[DATE];
    toSign += '\n';
    for (const auto& h : header) {
        if (h.first.size() >= 6
            && (CodecTool::StartWith(h.first, LOG_HEADER_PREFIX)
                || CodecTool::StartWith(h.first, ACS_HEADER_PREFIX))) {
            toSign += h.first;
            toSign += ':';
            toSign += h.second;
            toSign += '\n';
        }
    }
    toSign += resource;
    if (!parameterList.empty()) {
        toSign += '?';
        for (auto it = parameterList.begin(); it != parameterList.end(); ++it) {
            if (it != parameterList.begin())
                toSign += '&';
            toSign += it->first;
            toSign += '=';
            toSign += it->second;
        }
    }
    return CodecTool::Base64Enconde(CodecTool::CalcSHA1(toSign, accessKey));
}

void LOGAdapter::Send(const std::string& httpMethod, const std::string& host, const int32_t port,
    const std::string& url, const std::string& queryString, const std::map<std::string, std::string>& header,
    const std::string& body, const int32_t timeout, HttpMessage& httpMessage, const int64_t maxSendSpeed)
{
    Send(httpMethod, host, port, url, queryString, header, body, timeout, httpMessage, maxSendSpeed,
        LogTransportSecurity());
}

void LOGAdapter::Send(const std::string& httpMethod, const std::string& host, const int32_t /*port*/,
    const std::string& url, const std::string& queryString, const std::map<std::string, std::string>& header,
    const std::string& body, const int32_t timeout, HttpMessage& httpMessage, const int64_t maxSendSpeed,
    const LogTransportSecurity& security)
{
    ZrUtils::Internal::ensureCurlReady();

    HeaderList headerList;
    for (const auto& h : header) {
        const std::string line = h.first + ':' + h.second;
        curl_slist* grown = curl_slist_append(headerList.get(), line.c_str());
        if (!grown)
            throw LOGException(LOGE_UNKNOWN_ERROR, "Initailizing request failed.", "", 0);
        headerList.release();
        headerList.reset(grown);
    }

    // Without HTTPS no scheme, on purpose: libcurl's default (plain HTTP) applies.
    std::string fullUrl = security.https ? "https://" + host + url : host + url;
    if (!queryString.empty())
        fullUrl += '?' + queryString;

    EasyHandle curl(curl_easy_init());
    if (!curl)
        throw LOGException(LOGE_UNKNOWN_ERROR, "Initailizing request failed.", "", 0);

    std::string responseBody;
    std::map<std::string, std::string> responseHeader;
    UploadState upload {&body, 0};

    CURL* h = curl.get();
    if (headerList)
        curl_easy_setopt(h, CURLOPT_HTTPHEADER, headerList.get());
    curl_easy_setopt(h, CURLOPT_URL, fullUrl.c_str());
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, writeBody);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &responseBody);
    curl_easy_setopt(h, CURLOPT_TCP_NODELAY, 1L);
    curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, readHeader);
    curl_easy_setopt(h, CURLOPT_HEADERDATA, &responseHeader);
    curl_easy_setopt(h, CURLOPT_TIMEOUT, long(timeout));
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSeconds);
    // Requests run on any thread: no signals for DNS time-outs.
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_MAX_SEND_SPEED_LARGE, curl_off_t(maxSendSpeed));
    if (security.https) {
        // Stated even though they are libcurl's defaults: HTTPS here always checks.
        curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, 2L);
        if (!security.caBundle.empty()) {
            // The bundle alone: no CA folder beside it.
            curl_easy_setopt(h, CURLOPT_CAINFO, security.caBundle.c_str());
            curl_easy_setopt(h, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
        }
    }

    // The length goes out in the "Content-Length" header the caller set. libcurl
    // is told the same length: without it, it would send the body chunked as well,
    // and a request with both framings is refused by strict servers and proxies.
    if (httpMethod == HTTP_POST) {
        curl_easy_setopt(h, CURLOPT_POST, 1L);
        curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
        curl_easy_setopt(h, CURLOPT_READFUNCTION, readBody);
        curl_easy_setopt(h, CURLOPT_READDATA, &upload);
    } else if (httpMethod == HTTP_PUT) {
        curl_easy_setopt(h, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(h, CURLOPT_INFILESIZE_LARGE, curl_off_t(body.size()));
        curl_easy_setopt(h, CURLOPT_READFUNCTION, readBody);
        curl_easy_setopt(h, CURLOPT_READDATA, &upload);
    } else if (httpMethod == HTTP_DELETE) {
        curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, "DELETE");
    }

    const CURLcode result = curl_easy_perform(h);
    if (result != CURLE_OK) {
        curl.reset();
        headerList.reset();
        if (result == CURLE_COULDNT_CONNECT)
            throw LOGException(LOGE_CLIENT_NETWORK_ERROR, "Can not connect to server.", "", 0);
        if (result == CURLE_OPERATION_TIMEDOUT)
            throw LOGException(LOGE_REQUEST_TIMEOUT, "Request operation timeout.", "", 0);
        throw LOGException(LOGE_CLIENT_NETWORK_ERROR,
            "Request operation failed.CURL_ERROR_CODE:" + ToString(int32_t(result)), "", 0);
    }

    long status = 0;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    curl.reset();
    headerList.reset();
    httpMessage.statusCode = int32_t(status);
    httpMessage.header = std::move(responseHeader);
    httpMessage.content = std::move(responseBody);
}

} // namespace cloudlog_sdk_v6

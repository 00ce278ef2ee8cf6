#include "LoopbackLogService.h"

#include "logwire.pb.h"

#include <QMutexLocker>

#include <lz4.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>

namespace ZrLoopback
{

namespace
{

const QByteArray kLogstores = "/logstores/";
const QByteArray kRoute = "/shards/route";

QByteArray md5UpperHex(const QByteArray& bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.constData(), size_t(bytes.size()), digest, &length, EVP_md5(), nullptr);
    return QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex().toUpper();
}

QByteArray jsonString(const QByteArray& text)
{
    QByteArray out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + '"';
}

// The query as name/value pairs, percent-decoded.
QList<QPair<QByteArray, QByteArray>> decodedQuery(const QByteArray& query)
{
    QList<QPair<QByteArray, QByteArray>> pairs;
    if (query.isEmpty())
        return pairs;
    for (const QByteArray& part : query.split('&')) {
        const int eq = part.indexOf('=');
        const QByteArray name = eq < 0 ? part : part.left(eq);
        const QByteArray value = eq < 0 ? QByteArray() : part.mid(eq + 1);
        pairs.append({QByteArray::fromPercentEncoding(name), QByteArray::fromPercentEncoding(value)});
    }
    return pairs;
}

} // namespace

LoopbackLogService::LoopbackLogService(const QByteArray& accessKeyId, const QByteArray& accessKey)
    : m_http([this](const HttpRequest& request) { return serveFiltered(request); })
{
    addAccessKey(accessKeyId, accessKey);
}

LoopbackLogService::~LoopbackLogService() = default;

quint16 LoopbackLogService::port() const
{
    return m_http.port();
}

QByteArray LoopbackLogService::endpoint() const
{
    return "127.0.0.1:" + QByteArray::number(port());
}

bool LoopbackLogService::enableTls(const QString& certificateFile, const QString& keyFile)
{
    return m_http.enableTls(certificateFile, keyFile);
}

void LoopbackLogService::addAccessKey(
    const QByteArray& accessKeyId, const QByteArray& accessKey, const QByteArray& securityToken)
{
    QMutexLocker lock(&m_mutex);
    m_credentials.insert(accessKeyId, Credential {accessKey, securityToken});
}

void LoopbackLogService::setOverride(Override override)
{
    QMutexLocker lock(&m_mutex);
    m_override = std::move(override);
}

void LoopbackLogService::setResponseFilter(ResponseFilter filter)
{
    QMutexLocker lock(&m_mutex);
    m_filter = std::move(filter);
}

HttpResponse LoopbackLogService::serveFiltered(const HttpRequest& request)
{
    HttpResponse answer = serve(request);
    ResponseFilter filter;
    {
        QMutexLocker lock(&m_mutex);
        filter = m_filter;
    }
    if (filter)
        filter(request, answer);
    return answer;
}

QList<ReceivedLogGroup> LoopbackLogService::received() const
{
    QMutexLocker lock(&m_mutex);
    return m_received;
}

int LoopbackLogService::receivedCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_received.size();
}

void LoopbackLogService::clearReceived()
{
    QMutexLocker lock(&m_mutex);
    m_received.clear();
}

QByteArray LoopbackLogService::stringToSign(const HttpRequest& request)
{
    // Header names are case-insensitive on the wire: canonicalise to lower case.
    QList<QPair<QByteArray, QByteArray>> canonical;
    for (const auto& h : request.headerList) {
        const QByteArray name = h.first.toLower();
        if (name.startsWith("x-log-") || name.startsWith("x-acs-"))
            canonical.append({name, h.second});
    }
    std::sort(
        canonical.begin(), canonical.end(), [](const auto& a, const auto& b) { return a.first < b.first; });

    QByteArray text = request.method + '\n';
    text += (request.body.isEmpty() ? QByteArray() : request.header("Content-MD5")) + '\n';
    text += request.header("Content-Type") + '\n';
    text += request.header("Date") + '\n';
    for (const auto& h : canonical)
        text += h.first + ':' + h.second + '\n';
    text += QByteArray::fromPercentEncoding(request.path);

    auto parameters = decodedQuery(request.query);
    std::sort(
        parameters.begin(), parameters.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (int i = 0; i < parameters.size(); ++i)
        text += (i == 0 ? '?' : '&') + parameters[i].first + '=' + parameters[i].second;
    return text;
}

QByteArray LoopbackLogService::signature(const QByteArray& stringToSign, const QByteArray& accessKey)
{
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha1(), accessKey.constData(), accessKey.size(),
        reinterpret_cast<const unsigned char*>(stringToSign.constData()), size_t(stringToSign.size()), mac,
        &length);
    unsigned char text[64] = {};
    const int textLength = EVP_EncodeBlock(text, mac, int(length));
    return QByteArray(reinterpret_cast<const char*>(text), textLength);
}

HttpResponse LoopbackLogService::errorResponse(
    int status, const QByteArray& errorCode, const QByteArray& errorMessage, const QByteArray& requestId)
{
    HttpResponse response(status,
        "{\"errorCode\":" + jsonString(errorCode) + ",\"errorMessage\":" + jsonString(errorMessage) + "}",
        "application/json");
    if (!requestId.isEmpty())
        response.withHeader("x-log-requestid", requestId);
    return response;
}

std::optional<HttpResponse> LoopbackLogService::checkSignature(
    const HttpRequest& request, const QByteArray& requestId) const
{
    const QByteArray authorization = request.header("Authorization");
    const int colon = authorization.lastIndexOf(':');
    if (!authorization.startsWith("LOG ") || colon < 0)
        return errorResponse(401, "Unauthorized", "missing or malformed Authorization header", requestId);
    const QByteArray id = authorization.mid(4, colon - 4);
    Credential credential;
    {
        QMutexLocker lock(&m_mutex);
        if (!m_credentials.contains(id))
            return errorResponse(
                401, "InvalidAccessKeyId", "access key id " + id + " does not exist", requestId);
        credential = m_credentials.value(id);
    }
    if (request.header("x-log-apiversion") != "0.6.0")
        return errorResponse(400, "InvalidAPIVersion", "api version must be 0.6.0", requestId);
    if (request.header("x-log-signaturemethod") != "hmac-sha1")
        return errorResponse(400, "SignatureNotMatch", "signature method must be hmac-sha1", requestId);
    if (!credential.token.isEmpty() && request.header("x-acs-security-token") != credential.token)
        return errorResponse(401, "Unauthorized", "security token does not match", requestId);
    const QByteArray expected = signature(stringToSign(request), credential.key);
    if (authorization.mid(colon + 1) != expected)
        return errorResponse(
            401, "SignatureNotMatch", "signature " + authorization.mid(colon + 1) + " not match", requestId);
    return std::nullopt;
}

HttpResponse LoopbackLogService::serve(const HttpRequest& request)
{
    Override override;
    QByteArray requestId;
    {
        QMutexLocker lock(&m_mutex);
        override = m_override;
        requestId = QByteArray::number(m_nextRequest++, 16).rightJustified(24, '0').toUpper();
    }
    if (override) {
        if (std::optional<HttpResponse> answer = override(request))
            return *answer;
    }

    if (request.header("Content-Length").toLongLong() != request.body.size())
        return errorResponse(
            400, "InvalidContentLength", "Content-Length does not match the body", requestId);
    if (!request.body.isEmpty() && request.header("Content-MD5") != md5UpperHex(request.body))
        return errorResponse(400, "PostBodyInvalid", "Content-MD5 does not match the body", requestId);
    if (std::optional<HttpResponse> refused = checkSignature(request, requestId))
        return *refused;

    const QByteArray host = request.header("Host");
    const int dot = host.indexOf('.');
    if (dot <= 0)
        return errorResponse(404, "ProjectNotExist", "no project in host " + host, requestId);
    const QByteArray project = host.left(dot);

    const QByteArray path = QByteArray::fromPercentEncoding(request.path);
    if (request.method == "POST" && path.startsWith(kLogstores)) {
        QByteArray logstore = path.mid(kLogstores.size());
        QByteArray hashKey;
        if (logstore.endsWith(kRoute)) {
            logstore.chop(kRoute.size());
            for (const auto& parameter : decodedQuery(request.query)) {
                if (parameter.first == "key")
                    hashKey = parameter.second;
            }
            if (hashKey.isEmpty())
                return errorResponse(400, "MissingParameter", "routed post without key", requestId);
        }
        if (!logstore.isEmpty() && !logstore.contains('/'))
            return postLogs(request, project, logstore, hashKey, requestId);
    }
    if (std::optional<HttpResponse> answer = m_state.serve(request, project, requestId))
        return *answer;
    return errorResponse(
        404, "InvalidMethod", request.method + ' ' + path + " is not served here", requestId);
}

HttpResponse LoopbackLogService::postLogs(const HttpRequest& request, const QByteArray& project,
    const QByteArray& logstore, const QByteArray& hashKey, const QByteArray& requestId)
{
    if (request.header("Content-Type") != "application/x-protobuf")
        return errorResponse(400, "InvalidContentType", "logs must be application/x-protobuf", requestId);
    bool sized = false;
    const int rawSize = request.header("x-log-bodyrawsize").toInt(&sized);
    if (!sized || rawSize < 0)
        return errorResponse(400, "PostBodyInvalid", "x-log-bodyrawsize missing or invalid", requestId);

    ReceivedLogGroup group;
    const QByteArray compressType = request.header("x-log-compresstype");
    if (compressType == "lz4") {
        group.compressed = true;
        group.rawBody.resize(rawSize);
        const int size = LZ4_decompress_safe(
            request.body.constData(), group.rawBody.data(), request.body.size(), rawSize);
        if (size != rawSize)
            return errorResponse(
                400, "PostBodyInvalid", "lz4 body does not expand to x-log-bodyrawsize", requestId);
    } else if (compressType.isEmpty()) {
        group.rawBody = request.body;
        if (group.rawBody.size() != rawSize)
            return errorResponse(
                400, "PostBodyInvalid", "body size differs from x-log-bodyrawsize", requestId);
    } else {
        return errorResponse(400, "PostBodyInvalid", "unknown compress type " + compressType, requestId);
    }

    zrloopback::wire::LogGroup decoded;
    if (!decoded.ParseFromArray(group.rawBody.constData(), group.rawBody.size()))
        return errorResponse(400, "PostBodyInvalid", "body is not a log group", requestId);

    auto bytes = [](const std::string& s) { return QByteArray(s.data(), int(s.size())); };
    group.project = project;
    group.logstore = logstore;
    group.hashKey = hashKey;
    group.topic = bytes(decoded.topic());
    group.source = bytes(decoded.source());
    for (const auto& tag : decoded.log_tags())
        group.tags.append({bytes(tag.key()), bytes(tag.value())});
    for (const auto& log : decoded.logs()) {
        ReceivedLog received;
        received.time = log.time();
        received.hasTimeNs = log.has_time_ns();
        received.timeNs = log.time_ns();
        for (const auto& content : log.contents())
            received.contents.append({bytes(content.key()), bytes(content.value())});
        group.logs.append(received);
    }
    group.requestId = requestId;
    group.request = request;
    {
        QMutexLocker lock(&m_mutex);
        m_received.append(group);
    }
    m_state.addPostedGroup(project, logstore, hashKey, group.rawBody);
    return HttpResponse(200, QByteArray()).withHeader("x-log-requestid", requestId);
}

} // namespace ZrLoopback

// A log service on 127.0.0.1 for the tests, the benchmarks and the tour.
//
// It plays the service's side of log posting with code of its own, independent of
// the client it serves: it recomputes the string to sign and checks the HMAC-SHA1
// signature, checks Content-Length, Content-MD5 and x-log-bodyrawsize (OpenSSL for
// the hashes), decompresses LZ4 bodies with LZ4's own decoder and decodes the log
// group with protobuf code generated from logwire.proto. Every group that arrives
// intact is stored for the caller to inspect; anything else is refused with the
// service's JSON error body ({"errorCode": ..., "errorMessage": ...}).
//
// An override can answer in the service's place (a 500 with an HTML body, a JSON
// error, no answer at all) before any check is made.
//
// Signed requests other than posts go to its LoopbackLogState, which keeps log
// stores, shards, indexes, configurations, machine groups and consumer groups,
// answers queries over the logs posted to existing log stores and serves batch
// pulls. A response filter can then spoil any answer (truncate a body, change a
// header).
#ifndef ZRUTILS_SUPPORT_LOOPBACKLOGSERVICE_H
#define ZRUTILS_SUPPORT_LOOPBACKLOGSERVICE_H

#include "LoopbackHttpServer.h"
#include "LoopbackLogState.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QPair>

#include <functional>
#include <optional>

namespace ZrLoopback
{

using KeyValueList = QList<QPair<QByteArray, QByteArray>>;

struct ReceivedLog {
    quint32 time = 0;
    bool hasTimeNs = false;
    quint32 timeNs = 0;
    KeyValueList contents;
};

struct ReceivedLogGroup {
    QByteArray project; // from the "Host" header: the part before the first "."
    QByteArray logstore;
    QByteArray hashKey; // the "key" parameter of a routed post, else empty
    QByteArray topic;
    QByteArray source;
    KeyValueList tags;
    QList<ReceivedLog> logs;
    bool compressed = false;
    QByteArray rawBody; // the uncompressed encoded group
    QByteArray requestId; // the id the service answered with
    HttpRequest request; // as it arrived
};

class LoopbackLogService
{
public:
    using Override = std::function<std::optional<HttpResponse>(const HttpRequest&)>;

    // Accepts requests signed with this key pair.
    LoopbackLogService(const QByteArray& accessKeyId, const QByteArray& accessKey);
    ~LoopbackLogService();

    LoopbackLogService(const LoopbackLogService&) = delete;
    LoopbackLogService& operator=(const LoopbackLogService&) = delete;

    quint16 port() const;
    // "127.0.0.1:<port>": a raw-IP endpoint, so every project reaches this server.
    QByteArray endpoint() const;
    // Serves HTTPS from now on with this certificate and RSA key (PEM files), on the
    // same port; plain HTTP requests are then hung up on. False when either file
    // cannot be loaded.
    bool enableTls(const QString& certificateFile, const QString& keyFile);
    // Accepts one more key pair; with a non-empty token, requests signed with it
    // must also carry that "x-acs-security-token".
    void addAccessKey(const QByteArray& accessKeyId, const QByteArray& accessKey,
        const QByteArray& securityToken = QByteArray());

    // Answers with what @p override returns, when it returns something, instead of
    // serving the request. An empty function removes it.
    void setOverride(Override override);

    // Passes every answer, served or overridden, through @p filter before it
    // leaves. An empty function removes it.
    using ResponseFilter = std::function<void(const HttpRequest&, HttpResponse&)>;
    void setResponseFilter(ResponseFilter filter);

    // The administration and query side.
    LoopbackLogState& state() { return m_state; }

    QList<ReceivedLogGroup> received() const;
    int receivedCount() const;
    void clearReceived();

    // Every request, accepted or not, in arrival order.
    LoopbackHttpServer& http() { return m_http; }

    // The service's side of the signature: the string to sign of @p request, and
    // its base64 HMAC-SHA1 under @p accessKey.
    static QByteArray stringToSign(const HttpRequest& request);
    static QByteArray signature(const QByteArray& stringToSign, const QByteArray& accessKey);
    // A JSON error answer as the service sends it.
    static HttpResponse errorResponse(int status, const QByteArray& errorCode, const QByteArray& errorMessage,
        const QByteArray& requestId = QByteArray());

private:
    struct Credential {
        QByteArray key;
        QByteArray token;
    };

    HttpResponse serve(const HttpRequest& request);
    HttpResponse serveFiltered(const HttpRequest& request);
    HttpResponse postLogs(const HttpRequest& request, const QByteArray& project, const QByteArray& logstore,
        const QByteArray& hashKey, const QByteArray& requestId);
    std::optional<HttpResponse> checkSignature(const HttpRequest& request, const QByteArray& requestId) const;

    mutable QMutex m_mutex;
    QMap<QByteArray, Credential> m_credentials;
    Override m_override;
    ResponseFilter m_filter;
    LoopbackLogState m_state;
    QList<ReceivedLogGroup> m_received;
    quint64 m_nextRequest = 1;
    LoopbackHttpServer m_http;
};

} // namespace ZrLoopback

#endif

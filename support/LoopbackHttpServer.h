// A small HTTP/1.1 server on 127.0.0.1 for the tests, benchmarks and the tour.
//
// It runs on a thread of its own, so blocking calls of the library (which spin a
// nested event loop on the caller's thread) and calls from worker threads reach it
// alike. Every request is handed to a handler that returns the answer, including
// the faults the tests need: a late answer, no answer, a connection dropped before
// or in the middle of the body, a body shorter than its Content-Length.
//
// With enableTls() it speaks HTTPS instead, with the certificate and key it is
// given: a client that refuses the certificate, or does not speak TLS, is hung up
// on.
#ifndef ZRUTILS_SUPPORT_LOOPBACKHTTPSERVER_H
#define ZRUTILS_SUPPORT_LOOPBACKHTTPSERVER_H

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QPair>
#include <QUrl>

#include <atomic>
#include <functional>
#include <memory>

class QThread;

namespace ZrLoopback
{

struct HttpRequest {
    QByteArray method;
    QByteArray target; // as sent: path and query
    QByteArray path; // target without the query
    QByteArray query; // without the "?"
    QByteArray version;
    QList<QPair<QByteArray, QByteArray>> headerList; // in order, names as sent
    QByteArray rawHead; // request line and header lines as received
    QByteArray body;

    // Value of the first header of that name, compared case-insensitively.
    QByteArray header(const QByteArray& name) const;
    bool hasHeader(const QByteArray& name) const;
};

struct HttpResponse {
    enum class Fault {
        None,
        NeverAnswer, // keep the connection open and say nothing
        DropBeforeAnswer, // close the connection without a byte
        DropMidBody, // send the head and half the body, then close
        ShortBody, // announce the full length, send half, keep the connection open
    };

    int status = 200;
    QByteArray reason; // derived from the status when empty
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    int delayMs = 0; // wait this long before answering
    Fault fault = Fault::None;
    bool sendContentLength = true; // false: close-delimited body
    int bytesPerSecond = 0; // > 0: trickle the body at this rate

    HttpResponse() = default;
    HttpResponse(int statusCode, QByteArray content, QByteArray contentType = QByteArray());
    HttpResponse& withHeader(const QByteArray& name, const QByteArray& value);
};

class LoopbackHttpServer
{
public:
    using Handler = std::function<HttpResponse(const HttpRequest&)>;

    // Listens on 127.0.0.1 at a free port; port() is valid when the constructor returns.
    explicit LoopbackHttpServer(Handler handler);
    ~LoopbackHttpServer();

    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    quint16 port() const;
    // "http://127.0.0.1:<port>" + pathAndQuery, or "https://..." once TLS is on.
    QUrl url(const QString& pathAndQuery = QStringLiteral("/")) const;

    // Serves TLS on the connections accepted from now on, with the certificate
    // (chain) and the RSA key of these PEM files. False, and no change, when either
    // cannot be loaded.
    bool enableTls(const QString& certificateFile, const QString& keyFile);

    // Replaces the handler for the following requests.
    void setHandler(Handler handler);

    // Everything received so far, in arrival order.
    QList<HttpRequest> requests() const;
    int requestCount() const;
    void clearRequests();

    // Closes every open connection (a "never answer" one included).
    void closeConnections();
    // Connections not yet closed and cleaned up on the server's side; memory tests
    // wait for 0 so that the server's buffers do not count as the client's.
    int openConnections() const { return m_connections.load(); }

private:
    friend class LoopbackHttpWorker;
    friend class Connection;
    void record(const HttpRequest& request);
    HttpResponse answer(const HttpRequest& request);

    mutable QMutex m_mutex;
    Handler m_handler;
    QList<HttpRequest> m_requests;
    std::atomic<int> m_connections {0};
    quint16 m_port = 0;
    bool m_tls = false;
    QThread* m_thread = nullptr;
    class LoopbackHttpWorker* m_worker = nullptr;
};

} // namespace ZrLoopback

#endif

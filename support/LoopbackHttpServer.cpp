#include "LoopbackHttpServer.h"

#include <QFile>
#include <QHostAddress>
#include <QMutexLocker>
#include <QPointer>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ZrLoopback
{

namespace
{

QByteArray reasonFor(int status)
{
    switch (status) {
    case 100:
        return "Continue";
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 301:
        return "Moved Permanently";
    case 302:
        return "Found";
    case 303:
        return "See Other";
    case 304:
        return "Not Modified";
    case 307:
        return "Temporary Redirect";
    case 308:
        return "Permanent Redirect";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 500:
        return "Internal Server Error";
    case 502:
        return "Bad Gateway";
    case 503:
        return "Service Unavailable";
    default:
        return "Status";
    }
}

// Statuses whose answers never carry a body.
bool bodyless(int status, const QByteArray& method)
{
    return method == "HEAD" || status == 204 || status == 304 || (status >= 100 && status < 200);
}

} // namespace

QByteArray HttpRequest::header(const QByteArray& name) const
{
    for (const auto& h : headerList) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return QByteArray();
}

bool HttpRequest::hasHeader(const QByteArray& name) const
{
    for (const auto& h : headerList) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

HttpResponse::HttpResponse(int statusCode, QByteArray content, QByteArray contentType)
    : status(statusCode)
    , body(std::move(content))
{
    if (!contentType.isEmpty())
        headers.append({"Content-Type", contentType});
}

HttpResponse& HttpResponse::withHeader(const QByteArray& name, const QByteArray& value)
{
    headers.append({name, value});
    return *this;
}

// One connection: reads requests one after the other and answers them in order.
class Connection : public QObject
{
public:
    Connection(QTcpSocket* socket, LoopbackHttpServer* server, QObject* parent)
        : QObject(parent)
        , m_socket(socket)
        , m_server(server)
    {
        m_socket->setParent(this);
        connect(m_socket, &QTcpSocket::readyRead, this, &Connection::onReadyRead);
        connect(m_socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
        ++m_server->m_connections;
    }
    ~Connection() override { --m_server->m_connections; }

    void close() { m_socket->abort(); }

private:
    enum class State { Head, Body, ChunkSize, ChunkData, ChunkTrailer, Answering };

    void onReadyRead()
    {
        m_buffer += m_socket->readAll();
        parse();
    }

    void parse()
    {
        for (;;) {
            switch (m_state) {
            case State::Head: {
                const int end = m_buffer.indexOf("\r\n\r\n");
                if (end < 0)
                    return;
                m_request = HttpRequest();
                m_request.rawHead = m_buffer.left(end + 4);
                m_buffer.remove(0, end + 4);
                if (!parseHead())
                    return close();
                if (m_request.header("Transfer-Encoding").toLower().contains("chunked")) {
                    m_state = State::ChunkSize;
                } else {
                    m_remaining = m_request.header("Content-Length").toLongLong();
                    m_state = State::Body;
                }
                if (m_request.header("Expect").toLower() == "100-continue" && m_buffer.isEmpty())
                    m_socket->write("HTTP/1.1 100 Continue\r\n\r\n");
                break;
            }
            case State::Body: {
                const qint64 take = qMin<qint64>(m_remaining, m_buffer.size());
                m_request.body += m_buffer.left(int(take));
                m_buffer.remove(0, int(take));
                m_remaining -= take;
                if (m_remaining > 0)
                    return;
                dispatch();
                break;
            }
            case State::ChunkSize: {
                const int eol = m_buffer.indexOf("\r\n");
                if (eol < 0)
                    return;
                bool ok = false;
                m_remaining = m_buffer.left(eol).split(';').first().trimmed().toLongLong(&ok, 16);
                m_buffer.remove(0, eol + 2);
                if (!ok)
                    return close();
                m_state = m_remaining == 0 ? State::ChunkTrailer : State::ChunkData;
                break;
            }
            case State::ChunkData: {
                if (m_buffer.size() < m_remaining + 2)
                    return;
                m_request.body += m_buffer.left(int(m_remaining));
                m_buffer.remove(0, int(m_remaining) + 2);
                m_state = State::ChunkSize;
                break;
            }
            case State::ChunkTrailer: {
                const int eol = m_buffer.indexOf("\r\n");
                if (eol < 0)
                    return;
                m_buffer.remove(0, eol + 2);
                if (eol == 0)
                    dispatch();
                break;
            }
            case State::Answering:
                return;
            }
        }
    }

    bool parseHead()
    {
        const QList<QByteArray> lines = m_request.rawHead.split('\n');
        const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
        if (requestLine.size() != 3)
            return false;
        m_request.method = requestLine[0];
        m_request.target = requestLine[1];
        m_request.version = requestLine[2];
        const int q = m_request.target.indexOf('?');
        m_request.path = q < 0 ? m_request.target : m_request.target.left(q);
        m_request.query = q < 0 ? QByteArray() : m_request.target.mid(q + 1);
        for (int i = 1; i < lines.size(); ++i) {
            QByteArray line = lines[i];
            if (line.endsWith('\r'))
                line.chop(1);
            if (line.isEmpty())
                continue;
            const int colon = line.indexOf(':');
            if (colon <= 0)
                return false;
            m_request.headerList.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
        }
        return true;
    }

    void dispatch()
    {
        m_state = State::Answering;
        m_server->record(m_request);
        m_response = m_server->answer(m_request);
        if (m_response.fault == HttpResponse::Fault::NeverAnswer)
            return;
        if (m_response.delayMs > 0)
            QTimer::singleShot(m_response.delayMs, this, &Connection::respond);
        else
            respond();
    }

    void respond()
    {
        const HttpResponse& r = m_response;
        if (r.fault == HttpResponse::Fault::DropBeforeAnswer)
            return close();

        const bool noBody = bodyless(r.status, m_request.method);
        m_closeAfter = !r.sendContentLength || m_request.header("Connection").toLower() == "close"
            || r.fault != HttpResponse::Fault::None;

        QByteArray head = "HTTP/1.1 " + QByteArray::number(r.status) + ' '
            + (r.reason.isEmpty() ? reasonFor(r.status) : r.reason) + "\r\n";
        for (const auto& h : r.headers)
            head += h.first + ": " + h.second + "\r\n";
        if (r.sendContentLength && !noBody)
            head += "Content-Length: " + QByteArray::number(r.body.size()) + "\r\n";
        if (m_closeAfter)
            head += "Connection: close\r\n";
        head += "\r\n";
        m_socket->write(head);

        m_pending = noBody ? QByteArray() : r.body;
        if (r.fault == HttpResponse::Fault::DropMidBody || r.fault == HttpResponse::Fault::ShortBody)
            m_pending = m_pending.left(m_pending.size() / 2);

        if (r.bytesPerSecond > 0) {
            trickle();
            return;
        }
        m_socket->write(m_pending);
        m_pending.clear();
        finishAnswer();
    }

    // Sends the body in slices every 20 ms so that the rate holds on average.
    void trickle()
    {
        const int slice = qMax(1, m_response.bytesPerSecond / 50);
        m_socket->write(m_pending.left(slice));
        m_pending.remove(0, slice);
        if (!m_pending.isEmpty()) {
            QTimer::singleShot(20, this, &Connection::trickle);
            return;
        }
        finishAnswer();
    }

    void finishAnswer()
    {
        if (m_response.fault == HttpResponse::Fault::ShortBody)
            return; // the client waits for bytes that never come
        if (m_closeAfter) {
            m_socket->flush();
            m_socket->disconnectFromHost();
            return;
        }
        m_state = State::Head;
        if (!m_buffer.isEmpty())
            parse();
    }

    QTcpSocket* m_socket;
    LoopbackHttpServer* m_server;
    QByteArray m_buffer;
    State m_state = State::Head;
    qint64 m_remaining = 0;
    HttpRequest m_request;
    HttpResponse m_response;
    QByteArray m_pending;
    bool m_closeAfter = false;
};

// Hands out plain sockets, or TLS sockets that have started their handshake.
class ListeningServer : public QTcpServer
{
public:
    using QTcpServer::QTcpServer;

    void setTls(const QSslConfiguration& configuration)
    {
        m_tls = configuration;
        m_tlsOn = true;
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        if (!m_tlsOn) {
            QTcpServer::incomingConnection(descriptor);
            return;
        }
        auto* socket = new QSslSocket(this);
        if (!socket->setSocketDescriptor(descriptor)) {
            delete socket;
            return;
        }
        socket->setSslConfiguration(m_tls);
        // A failed handshake ends the connection; Connection deletes itself on
        // the disconnect that follows.
        connect(
            socket, &QAbstractSocket::errorOccurred, socket, &QAbstractSocket::abort, Qt::QueuedConnection);
        socket->startServerEncryption();
        addPendingConnection(socket);
    }

private:
    QSslConfiguration m_tls;
    bool m_tlsOn = false;
};

class LoopbackHttpWorker : public QObject
{
public:
    explicit LoopbackHttpWorker(LoopbackHttpServer* server)
        : m_server(server)
    {
    }

    quint16 listen()
    {
        m_tcp = new ListeningServer(this);
        connect(m_tcp, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_tcp->nextPendingConnection())
                m_connections.append(new Connection(socket, m_server, this)); // deletes itself on disconnect
        });
        // QTcpServer listens with a backlog of 50; bursts of a thousand clients
        // connecting at once would see dropped SYNs and slow retries. Listen on a
        // socket of our own with a deep backlog instead.
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
            || ::listen(fd, 4096) != 0 || !m_tcp->setSocketDescriptor(fd)) {
            if (fd >= 0)
                ::close(fd);
            return 0;
        }
        return m_tcp->serverPort();
    }

    void setTls(const QSslConfiguration& configuration) { m_tcp->setTls(configuration); }

    void closeConnections()
    {
        const QList<QPointer<Connection>> connections = std::exchange(m_connections, {});
        for (const QPointer<Connection>& c : connections) {
            if (c)
                c->close();
        }
    }

private:
    LoopbackHttpServer* m_server;
    ListeningServer* m_tcp = nullptr;
    QList<QPointer<Connection>> m_connections;
};

LoopbackHttpServer::LoopbackHttpServer(Handler handler)
    : m_handler(std::move(handler))
    , m_thread(new QThread)
    , m_worker(new LoopbackHttpWorker(this))
{
    m_thread->setObjectName(QStringLiteral("LoopbackHttpServer"));
    m_worker->moveToThread(m_thread);
    m_thread->start();
    QMetaObject::invokeMethod(
        m_worker, [this] { m_port = m_worker->listen(); }, Qt::BlockingQueuedConnection);
}

LoopbackHttpServer::~LoopbackHttpServer()
{
    // The worker, its listening socket and its connections live on the server
    // thread: delete them there before the thread stops.
    QMetaObject::invokeMethod(
        m_worker, [this] { delete m_worker; }, Qt::BlockingQueuedConnection);
    m_thread->quit();
    m_thread->wait();
    delete m_thread;
}

quint16 LoopbackHttpServer::port() const
{
    return m_port;
}

QUrl LoopbackHttpServer::url(const QString& pathAndQuery) const
{
    const QString scheme = m_tls ? QStringLiteral("https") : QStringLiteral("http");
    return QUrl(QStringLiteral("%1://127.0.0.1:%2%3").arg(scheme).arg(m_port).arg(pathAndQuery));
}

bool LoopbackHttpServer::enableTls(const QString& certificateFile, const QString& keyFile)
{
    const QList<QSslCertificate> chain = QSslCertificate::fromPath(certificateFile, QSsl::Pem);
    QFile keyIn(keyFile);
    if (chain.isEmpty() || !keyIn.open(QIODevice::ReadOnly))
        return false;
    const QSslKey key(keyIn.readAll(), QSsl::Rsa, QSsl::Pem, QSsl::PrivateKey);
    if (key.isNull())
        return false;
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificateChain(chain);
    configuration.setPrivateKey(key);
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone); // no client certificates
    QMetaObject::invokeMethod(
        m_worker, [this, configuration] { m_worker->setTls(configuration); }, Qt::BlockingQueuedConnection);
    m_tls = true;
    return true;
}

void LoopbackHttpServer::setHandler(Handler handler)
{
    QMutexLocker lock(&m_mutex);
    m_handler = std::move(handler);
}

QList<HttpRequest> LoopbackHttpServer::requests() const
{
    QMutexLocker lock(&m_mutex);
    return m_requests;
}

int LoopbackHttpServer::requestCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_requests.size();
}

void LoopbackHttpServer::clearRequests()
{
    QMutexLocker lock(&m_mutex);
    m_requests.clear();
}

void LoopbackHttpServer::closeConnections()
{
    QMetaObject::invokeMethod(
        m_worker, [this] { m_worker->closeConnections(); }, Qt::BlockingQueuedConnection);
}

void LoopbackHttpServer::record(const HttpRequest& request)
{
    QMutexLocker lock(&m_mutex);
    m_requests.append(request);
}

HttpResponse LoopbackHttpServer::answer(const HttpRequest& request)
{
    Handler handler;
    {
        QMutexLocker lock(&m_mutex);
        handler = m_handler;
    }
    return handler ? handler(request) : HttpResponse(404, "no handler\n", "text/plain");
}

} // namespace ZrLoopback

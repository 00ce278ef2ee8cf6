#include <ZrUtils/ZrHttpRequest.h>

#include "common/CertificatePolicy.h"
#include "common/JsonText.h"
#include "common/RequestDefaults.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonDocument>
#include <QMutex>
#include <QMutexLocker>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QSslConfiguration>
#include <QTimer>

#include <functional>
#include <thread>

namespace ZrUtils
{

class ZrHttpRequestLifeline
{
public:
    QRecursiveMutex mutex;
    bool alive = true;
};

namespace
{

constexpr int RequestTimeLimitMs = 10000;

const char BrowserUserAgent[] = "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 "
                                "(KHTML, like Gecko) Chrome/60.0.3100.0 Safari/537.36";

// TLS 1.2, and no certificate checks unless the application switched them on:
// existing callers talk to servers with self-signed certificates.
QNetworkRequest baseRequest(const QUrl& url)
{
    QNetworkRequest request = Internal::networkRequest(url);
    QSslConfiguration ssl = request.sslConfiguration();
    ssl.setPeerVerifyMode(QSslSocket::VerifyNone);
    Internal::applyCertificatePolicy(ssl, Internal::certificatePolicy());
    ssl.setProtocol(QSsl::TlsV1_2);
    request.setSslConfiguration(ssl);
    return request;
}

QNetworkRequest postRequest(const QUrl& url)
{
    QNetworkRequest request = baseRequest(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    return request;
}

QNetworkRequest getRequest(const QUrl& url)
{
    QNetworkRequest request = baseRequest(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, QString::fromLatin1(BrowserUserAgent));
    return request;
}

void addRawHeader(QNetworkRequest& request, const QString& name, const QString& value)
{
    if (!name.isEmpty() && !value.isEmpty())
        request.setRawHeader(name.toUtf8(), value.toUtf8());
}

int resultCode(QNetworkReply* reply)
{
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status != 0)
        return status;
    return reply->error() != QNetworkReply::NoError ? -1 : 0;
}

// A coarse timer may fire up to 5 % early; the limit is meant to be 10 s exactly.
void startLimitTimer(QTimer& timer)
{
    timer.setTimerType(Qt::PreciseTimer);
    timer.setSingleShot(true);
    timer.start(RequestTimeLimitMs);
}

using StartFunction = std::function<QNetworkReply*(QNetworkAccessManager&)>;

// Runs one request on the calling thread, waiting in a nested event loop.
int runSync(const StartFunction& start, QByteArray& reply)
{
    QEventLoop loop;
    QTimer timer;
    QNetworkAccessManager manager;
    QNetworkReply* networkReply = start(manager);
    QObject::connect(&timer, SIGNAL(timeout()), networkReply, SLOT(abort()));
    QObject::connect(networkReply, SIGNAL(finished()), &loop, SLOT(quit()));
    startLimitTimer(timer);
    loop.exec();

    if (!timer.isActive())
        return -1; // the time ran out and the reply was aborted
    timer.stop();
    reply = networkReply->readAll();
    return resultCode(networkReply);
}

// The body of an Async worker thread. Everything it creates lives on that thread.
void runAsync(QPointer<ZrHttpRequest> object, std::shared_ptr<ZrHttpRequestLifeline> lifeline,
    const StartFunction& start)
{
    {
        QEventLoop loop;
        QTimer timer;
        QNetworkAccessManager manager;
        QNetworkReply* reply = nullptr;
        {
            QMutexLocker lock(&lifeline->mutex);
            if (!lifeline->alive || !object)
                return;
            reply = start(manager);
            QObject::connect(object.data(), &ZrHttpRequest::SignalStopRequest, reply, &QNetworkReply::abort);
        }
        QObject::connect(&timer, &QTimer::timeout, reply, &QNetworkReply::abort);
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        startLimitTimer(timer);
        loop.exec();

        const bool inTime = timer.isActive();
        timer.stop();
        QMutexLocker lock(&lifeline->mutex);
        if (lifeline->alive && object) {
            if (!inTime) {
                Q_EMIT object->SignalRequestTimeout();
            } else if (reply->error() == QNetworkReply::OperationCanceledError) {
                Q_EMIT object->SignalRequestCancel();
            } else {
                const int code = resultCode(reply);
                Q_EMIT object->SignalRequestResult(reply->readAll(), code);
            }
        }
    }
    // No event loop runs on this thread any more: carry out the deletions that the
    // network objects scheduled while they were torn down.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

ZrHttpRequest::ZrHttpRequest(QObject* parent)
    : QObject(parent)
    , m_lifeline(std::make_shared<ZrHttpRequestLifeline>())
{
}

ZrHttpRequest::~ZrHttpRequest()
{
    QMutexLocker lock(&m_lifeline->mutex);
    m_lifeline->alive = false;
}

int ZrHttpRequest::StartPostRequestSync(const QUrl& url, const QJsonObject& body, QByteArray& reply)
{
    const QByteArray json = Internal::jsonText(body, QJsonDocument::Compact);
    return runSync(
        [&](QNetworkAccessManager& manager) { return manager.post(postRequest(url), json); }, reply);
}

int ZrHttpRequest::StartGetRequestSync(const QUrl& url, QByteArray& reply)
{
    return runSync([&](QNetworkAccessManager& manager) { return manager.get(getRequest(url)); }, reply);
}

void ZrHttpRequest::StartPostRequestAsync(
    const QUrl& url, const QJsonObject& body, const QString& headerName, const QString& headerValue)
{
    QNetworkRequest request = postRequest(url);
    addRawHeader(request, headerName, headerValue);
    const QByteArray json = Internal::jsonText(body, QJsonDocument::Compact);
    std::thread(runAsync, QPointer<ZrHttpRequest>(this), m_lifeline,
        [request, json](QNetworkAccessManager& manager) { return manager.post(request, json); })
        .detach();
}

void ZrHttpRequest::StartGetRequestAsync(
    const QUrl& url, const QString& headerName, const QString& headerValue)
{
    QNetworkRequest request = getRequest(url);
    addRawHeader(request, headerName, headerValue);
    std::thread(runAsync, QPointer<ZrHttpRequest>(this), m_lifeline,
        [request](QNetworkAccessManager& manager) { return manager.get(request); })
        .detach();
}

void ZrHttpRequest::disableProxy()
{
    QNetworkProxyFactory::setUseSystemConfiguration(false);
    QNetworkProxy::setApplicationProxy(QNetworkProxy(QNetworkProxy::NoProxy));
}

} // namespace ZrUtils

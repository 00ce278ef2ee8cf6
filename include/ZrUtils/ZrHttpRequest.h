#ifndef ZRUTILS_ZRHTTPREQUEST_H
#define ZRUTILS_ZRHTTPREQUEST_H

#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QUrl>

#include <memory>

namespace ZrUtils
{

/**
 * JSON-over-HTTP client for the application's web API.
 *
 * Every request uses TLS 1.2, a fresh network manager and a fixed limit of
 * 10000 ms for the whole exchange. Certificates are not checked unless the
 * application turns CertificateChecking on; a certificate that then fails the
 * check makes the request a network failure (-1). The Sync calls block the
 * calling thread while a nested event loop runs (so that thread's other events are
 * delivered); the Async calls run on a detached worker thread and end in exactly
 * one of SignalRequestTimeout(), SignalRequestCancel() or SignalRequestResult(),
 * emitted from that thread. Deleting the object while Async requests run is safe:
 * they then finish without a signal.
 *
 * The result code is the HTTP status when there is one; otherwise -1 when the
 * request failed on the network, else 0.
 */
class ZRUTILS_EXPORT ZrHttpRequest : public QObject
{
    Q_OBJECT
public:
    explicit ZrHttpRequest(QObject* parent = nullptr);
    ~ZrHttpRequest() override;

    /**
     * POSTs @p body as compact JSON and waits. On an answer in time @p reply gets the
     * whole body and the result code is returned; after 10 s @p reply is left as it
     * was and -1 is returned.
     */
    int StartPostRequestSync(const QUrl& url, const QJsonObject& body, QByteArray& reply);

    /** POSTs @p body on a worker thread, with one raw header when both parts are non-empty. */
    void StartPostRequestAsync(
        const QUrl& url, const QJsonObject& body, const QString& headerName, const QString& headerValue);

    /** GETs @p url with the fixed browser User-Agent and waits; results as StartPostRequestSync(). */
    int StartGetRequestSync(const QUrl& url, QByteArray& reply);

    /** GETs @p url on a worker thread, with one raw header when both parts are non-empty. */
    void StartGetRequestAsync(const QUrl& url, const QString& headerName, const QString& headerValue);

    /** Turns every proxy off for all network requests of the process. */
    static void disableProxy();

    /** MD5 of the UTF-8 bytes of @p text as 32 lower-case hexadecimal digits. */
    static QString GetStringMd5(const QString& text);

    /**
     * The signature of the flat JSON @p object under @p secret: the MD5 of
     * "key=value&key=value..." in key order followed directly by @p secret.
     * Nested values contribute only "key=". Always 32 lower-case hex digits.
     */
    static QString SignObject(const QJsonObject& object, const QString& secret);

Q_SIGNALS:
    /** An Async request did not finish within 10 s. */
    void SignalRequestTimeout();
    /** An Async request was stopped through SignalStopRequest(). */
    void SignalRequestCancel();
    /** Emit this to abort every running Async request of this object. */
    void SignalStopRequest();
    /** An Async request finished in time; @p code is the result code. */
    void SignalRequestResult(QByteArray body, int code);

private:
    // Shared with the worker threads: tells them, under a lock, whether this
    // object still exists when they want to connect to it or emit from it.
    std::shared_ptr<class ZrHttpRequestLifeline> m_lifeline;
};

} // namespace ZrUtils

#endif

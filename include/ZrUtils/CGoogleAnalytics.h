#ifndef ZRUTILS_CGOOGLEANALYTICS_H
#define ZRUTILS_CGOOGLEANALYTICS_H

#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QObject>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;

namespace ZrUtils
{

/**
 * Sends one event to Google Analytics 4 through the Measurement Protocol.
 *
 * Each request is a POST of an indented JSON body of the form
 * {"client_id": ..., "events": [{"name": ..., "params": {"event_category": ...,
 * "event_label": ...}}]} to "<collection URL>?measurement_id=<id>&api_secret=<secret>".
 * The query values are put in as they are, without URL-encoding. Every request is
 * limited to 10000 ms. Everything runs on the thread that owns the object.
 *
 * The collection host is process-wide configuration: see SetCollectionHost().
 * An object takes the host in force when it is constructed.
 */
class ZRUTILS_EXPORT CGoogleAnalytics : public QObject
{
    Q_OBJECT
public:
    explicit CGoogleAnalytics(QObject* parent = nullptr);
    ~CGoogleAnalytics() override;

    /**
     * Sends the event and waits (in a nested event loop) for at most 10 s.
     * Returns true when the request finished in time without a network error; false
     * on a time-out, a network failure or an HTTP 4xx/5xx answer. The body is not read.
     */
    bool StartRequestSync(const QString& clientId, const QString& measurementId, const QString& apiSecret,
        const QString& eventName, const QString& category, const QString& label);

    /**
     * Sends the event and returns at once. Exactly one of SignalRequestTimeout(),
     * SignalRequestCancel() or SignalRequestResult() follows; nothing is returned.
     */
    void StartRequestAsync(const QString& clientId, const QString& measurementId, const QString& apiSecret,
        const QString& eventName, const QString& category, const QString& label);

    /**
     * Sets the collection host for objects constructed from now on, for the whole
     * process: "host", "host:port" or "scheme://host[:port]" (https when no scheme is
     * given); the path "/mp/collect" is appended. An empty @p host restores the
     * default, "https://www.google-analytics.com". Thread-safe.
     */
    static void SetCollectionHost(const QString& host);
    /** The collection URL objects constructed now will use, path included. */
    static QString CollectionUrl();

Q_SIGNALS:
    /** An asynchronous request did not finish within 10 s. */
    void SignalRequestTimeout();
    /** An asynchronous request was aborted through SignalStopRequest(). */
    void SignalRequestCancel();
    /** Emit this to abort every running asynchronous request of this object. */
    void SignalStopRequest();
    /**
     * An asynchronous request finished in time and was not aborted: the whole body
     * and the HTTP status (0 when there is none, e.g. a refused connection).
     */
    void SignalRequestResult(QByteArray body, int status);

private:
    QNetworkReply* post(const QString& clientId, const QString& measurementId, const QString& apiSecret,
        const QString& eventName, const QString& category, const QString& label);

    QString url;
    QNetworkAccessManager* manager;
};

} // namespace ZrUtils

#endif

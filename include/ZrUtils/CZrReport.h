#ifndef ZRUTILS_CZRREPORT_H
#define ZRUTILS_CZRREPORT_H

#include <ZrUtils/zrutils_export.h>

#include <QJsonObject>
#include <QObject>
#include <QString>

namespace ZrUtils
{

/**
 * Posts the application's own usage events to its store in the cloud log service.
 *
 * Each event becomes one log item (topic: the event; time: now; contents: the
 * fixed fields given to InitData()) posted on a detached thread of its own with a
 * 20-second limit. The caller is never blocked and never told the outcome: a
 * failure ends as one debug line "<code> : <message>" and the event is lost.
 *
 * Posts still running when the process exits are waited for (at most their own
 * 20-second limit), so that none outlives the library's static data.
 */
class ZRUTILS_EXPORT CZrReport : public QObject
{
    Q_OBJECT
public:
    explicit CZrReport(QObject* parent = nullptr);
    ~CZrReport() override;

    /**
     * Sets the log source, the service endpoint ("host", "host:port", a scheme and a
     * path are dropped), the access key pair, the project, the log store and the
     * fields sent with every event. Only string values of @p contents carry through;
     * other values are sent empty.
     */
    void InitData(const QString& source, const QString& endpoint, const QString& accessKeyId,
        const QString& accessKey, const QString& project, const QString& logstore,
        const QJsonObject& contents);

    /**
     * Posts @p event on a worker thread and returns at once. Nothing is posted while
     * the endpoint, either key, the project or the log store is empty. Throws
     * std::system_error only if no thread can be created.
     */
    void ReportZrData(const QString& event);

    /**
     * Posts the following events over HTTPS when @p https is true, checking the
     * service's certificate and host name against the CA certificates of the PEM
     * file @p caBundle alone or, when it is empty, the system's CA store. Events
     * waiting in the spool go out the same way. Off by default: events go out as
     * plain HTTP, whatever scheme the endpoint names. A certificate that fails the
     * check, or a bundle that cannot be read, fails each post as a network error
     * does (one debug line; a spooled event waits for the next try). Never fails.
     */
    void SetLogServiceTls(bool https, const QString& caBundle = QString());

private:
    void updateSpoolDestination() const;

    QString source;
    QString endpoint;
    QString accessKeyId;
    QString accessKey;
    QString project;
    QString logstore;
    QJsonObject contents;
    bool logServiceHttps = false;
    QString logServiceCaBundle;
};

} // namespace ZrUtils

#endif

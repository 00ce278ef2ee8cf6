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

private:
    QString source;
    QString endpoint;
    QString accessKeyId;
    QString accessKey;
    QString project;
    QString logstore;
    QJsonObject contents;
};

} // namespace ZrUtils

#endif

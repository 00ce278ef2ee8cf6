#ifndef ZRUTILS_CREPORTMANAGER_H
#define ZRUTILS_CREPORTMANAGER_H

#include <ZrUtils/zrutils_export.h>

#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QString>

namespace ZrUtils
{

class CGaReport;
class CZrReport;

/**
 * The application's one entry point for usage reports: GA4 events named by key in
 * an event catalogue, and the application's own telemetry.
 *
 * The catalogue is a JSON array of objects with the string members "event_key",
 * "event_name", "event_category" and "event_label". Nothing is ever reported back:
 * unknown keys and failed sends are silent. Call it from the application's thread.
 */
class ZRUTILS_EXPORT CReportManager : public QObject
{
    Q_OBJECT
public:
    /**
     * The process-wide manager, created by the first call with that call's @p parent;
     * later calls return the same object and ignore their argument. It lives until
     * static destruction, unless its parent deletes it first: the next call then
     * creates a new one (whose catalogue and credentials must be given again).
     */
    static CReportManager* getInstance(QObject* parent = nullptr);

    /**
     * Adds the events of @p catalogueFile to the catalogue (an entry with the same
     * key, earlier in the file or from an earlier call, is replaced; elements that
     * are not objects or lack "event_key" go under the empty key) and sets the GA
     * credentials. A file that is missing or holds no array adds nothing.
     */
    void InitGaData(const QString& catalogueFile, const QString& clientId, const QString& measurementId,
        const QString& apiSecret);

    /**
     * Sends the catalogue event @p eventKey to GA4 with @p label, or with the
     * catalogue's label when @p label is empty. Unknown keys send nothing. With
     * @p sync the call waits up to 10 s.
     */
    void SendGaReport(const QString& eventKey, const QString& label, bool sync);

    /** The catalogue object of @p eventKey; an empty object when there is none. */
    QJsonObject GetGaData(const QString& eventKey);

    /** Configures the own telemetry; see CZrReport::InitData(). */
    void InitZrData(const QString& source, const QString& endpoint, const QString& accessKeyId,
        const QString& accessKey, const QString& project, const QString& logstore,
        const QJsonObject& contents);

    /**
     * Posts the own telemetry over HTTPS, checked against @p caBundle or the system's
     * CA store; off (plain HTTP) by default. See CZrReport::SetLogServiceTls(). Never fails.
     */
    void SetLogServiceTls(bool https, const QString& caBundle = QString());

    /** Posts one telemetry event in the background; see CZrReport::ReportZrData(). */
    void SendZrReport(const QString& event);

    ~CReportManager() override;

private:
    explicit CReportManager(QObject* parent);

    QMap<QString, QJsonObject> gaEvents;
    CGaReport* gaReport;
    CZrReport* zrReport;
};

} // namespace ZrUtils

#endif

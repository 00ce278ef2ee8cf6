#ifndef ZRUTILS_CGAREPORT_H
#define ZRUTILS_CGAREPORT_H

#include <ZrUtils/zrutils_export.h>

#include <QObject>
#include <QString>

namespace ZrUtils
{

/**
 * Sends GA4 events with one set of credentials, one CGoogleAnalytics per event.
 *
 * The credentials are not checked: before InitData() events go out with empty ids.
 * Nothing is reported back.
 */
class ZRUTILS_EXPORT CGaReport : public QObject
{
    Q_OBJECT
public:
    explicit CGaReport(QObject* parent = nullptr);
    ~CGaReport() override;

    /** Sets the client id, measurement id and API secret of the following events. */
    void InitData(const QString& clientId, const QString& measurementId, const QString& apiSecret);

    /**
     * Sends one event. With @p sync the call waits up to 10 s for the answer;
     * otherwise it returns at once and the sender frees itself on its outcome.
     * The outcome is discarded either way.
     */
    void ReportGaData(const QString& eventName, const QString& category, const QString& label, bool sync);

private:
    QString clientId;
    QString measurementId;
    QString apiSecret;
};

} // namespace ZrUtils

#endif

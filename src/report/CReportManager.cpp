#include <ZrUtils/CReportManager.h>
#include <ZrUtils/ReportConsent.h>

#include <ZrUtils/CGaReport.h>
#include <ZrUtils/CZrReport.h>
#include <ZrUtils/ZrJsonReader.h>

#include <QJsonArray>
#include <QMutex>
#include <QMutexLocker>
#include <QPointer>

namespace ZrUtils
{

namespace
{

// Holds the manager from its first use to static destruction. The manager lives on
// the heap so that a parent deleting it first leaves nothing to delete twice.
struct ManagerHolder {
    QMutex mutex;
    QPointer<CReportManager> manager;
    ~ManagerHolder() { delete manager.data(); }
};

} // namespace

CReportManager* CReportManager::getInstance(QObject* parent)
{
    static ManagerHolder holder;
    QMutexLocker lock(&holder.mutex);
    if (!holder.manager)
        holder.manager = new CReportManager(parent);
    return holder.manager;
}

CReportManager::CReportManager(QObject* parent)
    : QObject(parent)
    , gaReport(new CGaReport(this))
    , zrReport(new CZrReport(this))
{
}

CReportManager::~CReportManager()
{
    delete zrReport;
    delete gaReport;
}

void CReportManager::InitGaData(const QString& catalogueFile, const QString& clientId,
    const QString& measurementId, const QString& apiSecret)
{
    const QJsonArray events = ZrJsonReader::ParseJsonFileToArray(catalogueFile);
    for (const QJsonValue& event : events) {
        const QJsonObject object = event.toObject();
        gaEvents.insert(object.value(QLatin1String("event_key")).toString(), object);
    }
    gaReport->InitData(clientId, measurementId, apiSecret);
}

QJsonObject CReportManager::GetGaData(const QString& eventKey)
{
    return gaEvents.value(eventKey);
}

void CReportManager::SendGaReport(const QString& eventKey, const QString& label, bool sync)
{
    const QJsonObject event = GetGaData(eventKey);
    if (event.isEmpty() || !ReportConsent::isAllowed())
        return;
    const QString name = event.value(QLatin1String("event_name")).toString();
    const QString category = event.value(QLatin1String("event_category")).toString();
    const QString catalogueLabel = event.value(QLatin1String("event_label")).toString();
    gaReport->ReportGaData(name, category, label.isEmpty() ? catalogueLabel : label, sync);
}

void CReportManager::InitZrData(const QString& source, const QString& endpoint, const QString& accessKeyId,
    const QString& accessKey, const QString& project, const QString& logstore, const QJsonObject& contents)
{
    zrReport->InitData(source, endpoint, accessKeyId, accessKey, project, logstore, contents);
}

void CReportManager::SetLogServiceTls(bool https, const QString& caBundle)
{
    zrReport->SetLogServiceTls(https, caBundle);
}

void CReportManager::SendZrReport(const QString& event)
{
    if (ReportConsent::isAllowed())
        zrReport->ReportZrData(event);
}

} // namespace ZrUtils

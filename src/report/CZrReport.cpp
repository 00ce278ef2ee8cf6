#include <ZrUtils/CZrReport.h>

#include <ZrUtils/ReportConsent.h>

#include "report/ReportWorkers.h"
#include "report/TelemetryPost.h"
#include "report/TelemetrySpool.h"

#include <QFileInfo>

#include <ctime>
#include <thread>
#include <utility>

namespace ZrUtils
{

namespace
{

Internal::TelemetryEvent telemetryEvent(const QString& project, const QString& logstore,
    const QString& source, const QString& event, const QJsonObject& contents)
{
    Internal::TelemetryEvent telemetry {
        project, logstore, source, event, static_cast<quint32>(std::time(nullptr)), {}};
    // keys() is sorted; only string values carry through, the rest go out empty.
    const QStringList keys = contents.keys();
    for (const QString& key : keys)
        telemetry.contents.append({key, contents.value(key).toString()});
    return telemetry;
}

} // namespace

CZrReport::CZrReport(QObject* parent)
    : QObject(parent)
{
}

CZrReport::~CZrReport() = default;

void CZrReport::InitData(const QString& source, const QString& endpoint, const QString& accessKeyId,
    const QString& accessKey, const QString& project, const QString& logstore, const QJsonObject& contents)
{
    this->source = source;
    this->endpoint = endpoint;
    this->accessKeyId = accessKeyId;
    this->accessKey = accessKey;
    this->project = project;
    this->logstore = logstore;
    this->contents = contents;
    updateSpoolDestination();
}

void CZrReport::SetLogServiceTls(bool https, const QString& caBundle)
{
    logServiceHttps = https;
    // Relative to the current folder now, not to whatever it is when a post starts.
    logServiceCaBundle = https && !caBundle.isEmpty() ? QFileInfo(caBundle).absoluteFilePath() : QString();
    updateSpoolDestination();
}

// Spooled events, this run's and earlier ones', go out with the last configuration.
void CZrReport::updateSpoolDestination() const
{
    const Internal::TelemetryDestination destination {
        endpoint, accessKeyId, accessKey, logServiceHttps, logServiceCaBundle};
    if (destination.isValid() && !project.isEmpty() && !logstore.isEmpty())
        Internal::TelemetrySpool::instance().setDestination(destination);
}

void CZrReport::ReportZrData(const QString& event)
{
    // The source and the event may be empty; the coordinates and keys may not.
    if (endpoint.isEmpty() || accessKeyId.isEmpty() || accessKey.isEmpty() || project.isEmpty()
        || logstore.isEmpty() || !ReportConsent::isAllowed())
        return;
    Internal::TelemetryEvent telemetry = telemetryEvent(project, logstore, source, event, contents);
    // With the spool on, its sender posts the event; a spool that cannot be written
    // leaves the event to a worker of its own, as without the spool.
    if (Internal::TelemetrySpool::instance().add(telemetry))
        return;
    Internal::TelemetryDestination destination {
        endpoint, accessKeyId, accessKey, logServiceHttps, logServiceCaBundle};
    // Everything the worker needs is copied: it never touches this object.
    Internal::ReportWorkers::Ticket ticket = Internal::ReportWorkers::instance().start();
    std::thread worker(
        [telemetry = std::move(telemetry), destination = std::move(destination),
            ticket = std::move(ticket)]() { Internal::postTelemetry(telemetry, destination); });
    worker.detach();
}

} // namespace ZrUtils

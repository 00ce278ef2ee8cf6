#include <ZrUtils/CZrReport.h>

#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>

#include "report/ReportWorkers.h"

#include <QDebug>

#include <ctime>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace ZrUtils
{

namespace
{

constexpr int32_t PostTimeoutSeconds = 20;

// Everything a worker needs, copied: it never touches the CZrReport object.
struct ZrReportTask {
    QString source;
    QString endpoint;
    QString accessKeyId;
    QString accessKey;
    QString project;
    QString logstore;
    QString event;
    QJsonObject contents;
};

std::string utf8(const QString& text)
{
    return text.toUtf8().toStdString();
}

void postEvent(const ZrReportTask& task)
{
    try {
        cloudlog_sdk_v6::LOGClient client(utf8(task.endpoint), utf8(task.accessKeyId), utf8(task.accessKey),
            PostTimeoutSeconds, utf8(task.source), false);
        cloudlog_sdk_v6::LogItem item;
        item.timestamp = static_cast<uint32_t>(std::time(nullptr));
        item.source = utf8(task.source);
        item.topic = utf8(task.event);
        // keys() is sorted; only string values carry through, the rest go out empty.
        const QStringList keys = task.contents.keys();
        for (const QString& key : keys)
            item.contents.emplace_back(utf8(key), utf8(task.contents.value(key).toString()));
        const std::vector<cloudlog_sdk_v6::LogItem> items {item};
        client.PostLogStoreLogs(
            utf8(task.project), utf8(task.logstore), utf8(task.event), items, std::string());
    } catch (const cloudlog_sdk_v6::LOGException& error) {
        qDebug() << QString::fromUtf8(error.GetErrorCode().c_str()) << ":"
                 << QString::fromUtf8(error.GetErrorMessage().c_str());
    }
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
}

void CZrReport::ReportZrData(const QString& event)
{
    ZrReportTask task {source, endpoint, accessKeyId, accessKey, project, logstore, event, contents};
    // The source and the event may be empty; the coordinates and keys may not.
    if (task.endpoint.isEmpty() || task.accessKeyId.isEmpty() || task.accessKey.isEmpty()
        || task.project.isEmpty() || task.logstore.isEmpty())
        return;

    Internal::ReportWorkers::Ticket ticket = Internal::ReportWorkers::instance().start();
    std::thread worker([task = std::move(task), ticket = std::move(ticket)]() { postEvent(task); });
    worker.detach();
}

} // namespace ZrUtils

#include <ZrUtils/CGaReport.h>

#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/ReportConsent.h>

namespace ZrUtils
{

CGaReport::CGaReport(QObject* parent)
    : QObject(parent)
{
}

CGaReport::~CGaReport() = default;

void CGaReport::InitData(const QString& clientId, const QString& measurementId, const QString& apiSecret)
{
    this->clientId = clientId;
    this->measurementId = measurementId;
    this->apiSecret = apiSecret;
}

void CGaReport::ReportGaData(
    const QString& eventName, const QString& category, const QString& label, bool sync)
{
    if (!ReportConsent::isAllowed())
        return;
    if (sync) {
        CGoogleAnalytics sender(this);
        sender.StartRequestSync(clientId, measurementId, apiSecret, eventName, category, label);
        return;
    }
    auto* sender = new CGoogleAnalytics(this);
    // Whichever outcome comes first frees the sender; each request has exactly one.
    connect(sender, &CGoogleAnalytics::SignalRequestTimeout, sender, &QObject::deleteLater);
    connect(sender, &CGoogleAnalytics::SignalRequestCancel, sender, &QObject::deleteLater);
    connect(sender, &CGoogleAnalytics::SignalRequestResult, sender, &QObject::deleteLater);
    sender->StartRequestAsync(clientId, measurementId, apiSecret, eventName, category, label);
}

} // namespace ZrUtils

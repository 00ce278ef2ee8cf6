#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/ReportConsent.h>

#include "report/AuditTrail.h"

#include "common/JsonText.h"
#include "common/RequestDefaults.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QTimer>
#include <QUrl>

namespace ZrUtils
{

namespace
{

constexpr int RequestTimeLimitMs = 10000;

QMutex hostMutex;
QString& collectionHost()
{
    static QString host;
    return host;
}

QString defaultCollectionHost()
{
    return QStringLiteral("https://www.google-analytics.com");
}

QJsonObject BuildGa4JsonBody(
    const QString& clientId, const QString& eventName, const QString& category, const QString& label)
{
    const QJsonObject params {
        {QStringLiteral("event_category"), category},
        {QStringLiteral("event_label"), label},
    };
    const QJsonObject event {
        {QStringLiteral("name"), eventName},
        {QStringLiteral("params"), params},
    };
    return QJsonObject {
        {QStringLiteral("client_id"), clientId},
        {QStringLiteral("events"), QJsonArray {event}},
    };
}

// One audit line per request that left: the host only, never the URL, whose query
// holds the API secret.
void auditRequest(const QString& url, const QString& measurementId, const QString& apiSecret,
    const QJsonObject& body, bool delivered, int status, const QString& error, const QString& message)
{
    if (!Internal::auditEnabled())
        return;
    const QUrl parsed(url);
    Internal::AuditRecord record;
    record.channel = QStringLiteral("ga4");
    record.host = parsed.port() < 0 ? parsed.host()
                                    : parsed.host() + QLatin1Char(':') + QString::number(parsed.port());
    record.event = body.value(QStringLiteral("events"))
                       .toArray()
                       .first()
                       .toObject()
                       .value(QStringLiteral("name"))
                       .toString();
    record.fields = body;
    record.fields.insert(QStringLiteral("measurement_id"), measurementId);
    record.delivered = delivered;
    record.status = status;
    record.errorCode = error;
    record.errorMessage = message;
    record.secrets = QStringList {apiSecret};
    Internal::audit(record);
}

void auditReply(const QString& url, const QString& measurementId, const QString& apiSecret,
    const QString& clientId, const QString& eventName, const QString& category, const QString& label,
    QNetworkReply* reply, bool inTime)
{
    if (!Internal::auditEnabled())
        return;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const bool delivered = inTime && reply->error() == QNetworkReply::NoError;
    const QString error = !inTime ? QStringLiteral("timeout")
        : delivered               ? QString()
                                  : QString::number(int(reply->error()));
    auditRequest(url, measurementId, apiSecret, BuildGa4JsonBody(clientId, eventName, category, label),
        delivered, status, error, delivered ? QString() : reply->errorString());
}

// A coarse timer may fire up to 5 % early; the limit is meant to be 10 s.
void startLimitTimer(QTimer* timer)
{
    timer->setTimerType(Qt::PreciseTimer);
    timer->setSingleShot(true);
    timer->start(RequestTimeLimitMs);
}

} // namespace

CGoogleAnalytics::CGoogleAnalytics(QObject* parent)
    : QObject(parent)
    , url(CollectionUrl())
    , manager(new QNetworkAccessManager(this))
{
}

CGoogleAnalytics::~CGoogleAnalytics() = default;

void CGoogleAnalytics::SetCollectionHost(const QString& host)
{
    QString base = host.trimmed();
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    if (!base.isEmpty() && !base.contains(QLatin1String("://")))
        base.prepend(QLatin1String("https://"));
    QMutexLocker lock(&hostMutex);
    collectionHost() = base;
}

QString CGoogleAnalytics::CollectionUrl()
{
    QMutexLocker lock(&hostMutex);
    const QString& host = collectionHost();
    return (host.isEmpty() ? defaultCollectionHost() : host) + QLatin1String("/mp/collect");
}

QNetworkReply* CGoogleAnalytics::post(const QString& clientId, const QString& measurementId,
    const QString& apiSecret, const QString& eventName, const QString& category, const QString& label)
{
    // Substituted one after the other and not encoded: a "%n" inside an earlier
    // value is taken by a later one, and an "&" in the secret splits the query.
    const QString text
        = QStringLiteral("%1?measurement_id=%2&api_secret=%3").arg(url).arg(measurementId).arg(apiSecret);
    QNetworkRequest request = Internal::networkRequest(QUrl(text, QUrl::TolerantMode));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    const QByteArray body = Internal::jsonText(BuildGa4JsonBody(clientId, eventName, category, label));
    return manager->post(request, body);
}

bool CGoogleAnalytics::StartRequestSync(const QString& clientId, const QString& measurementId,
    const QString& apiSecret, const QString& eventName, const QString& category, const QString& label)
{
    if (!ReportConsent::isAllowed())
        return false;
    QNetworkReply* reply = post(clientId, measurementId, apiSecret, eventName, category, label);
    QEventLoop loop;
    QTimer timer;
    connect(&timer, &QTimer::timeout, reply, &QNetworkReply::abort);
    connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    startLimitTimer(&timer);
    loop.exec();

    const bool inTime = timer.isActive();
    timer.stop();
    const bool ok = inTime && reply->error() == QNetworkReply::NoError;
    auditReply(url, measurementId, apiSecret, clientId, eventName, category, label, reply, inTime);
    reply->deleteLater();
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    return ok;
}

void CGoogleAnalytics::StartRequestAsync(const QString& clientId, const QString& measurementId,
    const QString& apiSecret, const QString& eventName, const QString& category, const QString& label)
{
    if (!ReportConsent::isAllowed()) {
        // Nothing leaves; the request still ends in exactly one outcome, after the
        // caller has had the chance to connect to it.
        QMetaObject::invokeMethod(this, &CGoogleAnalytics::SignalRequestCancel, Qt::QueuedConnection);
        return;
    }
    QNetworkReply* reply = post(clientId, measurementId, apiSecret, eventName, category, label);
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, reply, &QNetworkReply::abort);
    connect(this, &CGoogleAnalytics::SignalStopRequest, reply, &QNetworkReply::abort);
    connect(reply, &QNetworkReply::finished, this, [=] {
        const bool inTime = timer->isActive();
        timer->stop();
        timer->deleteLater();
        auditReply(url, measurementId, apiSecret, clientId, eventName, category, label, reply, inTime);
        // A receiver may delete this object (and with it the reply) while handling the signal.
        const QPointer<QNetworkReply> alive(reply);
        if (!inTime) {
            Q_EMIT SignalRequestTimeout();
        } else if (reply->error() == QNetworkReply::OperationCanceledError) {
            Q_EMIT SignalRequestCancel();
        } else {
            const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
            Q_EMIT SignalRequestResult(reply->readAll(), status);
        }
        if (alive)
            reply->deleteLater();
    });
    startLimitTimer(timer);
}

} // namespace ZrUtils

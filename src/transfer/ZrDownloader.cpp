#include <ZrUtils/ZrDownloader.h>

#include "DownloadCommon.h"
#include "common/CertificatePolicy.h"
#include "common/RequestDefaults.h"

#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QUrl>

namespace ZrUtils
{

namespace
{

constexpr qint64 ReadBufferSize = 1024 * 1024;

// How many bytes the announced Content-Length says are missing from the saved
// file; 0 when there is no length to go by (none sent, or a decoded body).
qint64 missingBytes(QNetworkReply* reply, const QFile& file)
{
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (!length.isValid() || reply->hasRawHeader("Content-Encoding"))
        return 0;
    return qMax<qint64>(0, length.toLongLong() - file.size());
}

// Qt's own TLS defaults unless the application turned certificate checking on.
// Connections kept open from earlier downloads were checked under the rules of
// their time: when the rules have changed since, they are not reused.
QNetworkRequest downloadRequest(const QUrl& url, QNetworkAccessManager& manager, quint64& generation)
{
    QNetworkRequest request = Internal::networkRequest(url);
    const Internal::CertificatePolicy policy = Internal::certificatePolicy();
    if (policy.generation != generation) {
        manager.clearConnectionCache();
        generation = policy.generation;
    }
    if (policy.enabled) {
        QSslConfiguration ssl = request.sslConfiguration();
        Internal::applyCertificatePolicy(ssl, policy);
        request.setSslConfiguration(ssl);
    }
    return request;
}

} // namespace

ZrDownloader::ZrDownloader(QObject* parent)
    : QObject(parent)
{
}

ZrDownloader::~ZrDownloader()
{
    // The reply belongs to the manager, which goes with this object; just make
    // sure its last signals no longer reach a half-destroyed downloader.
    if (m_reply)
        m_reply->disconnect(this);
}

QString ZrDownloader::saveFileName(const QUrl& url, const QString& saveDir)
{
    return Internal::downloadTargetPath(url, saveDir);
}

bool ZrDownloader::StartDownload(const QUrl& url, const QString& saveDir)
{
    if (m_reply) {
        // Drop the running download without a word; its partial file stays.
        m_reply->disconnect(this);
        disconnect(this, nullptr, m_reply, nullptr);
        m_reply->abort();
        m_reply->deleteLater();
        m_reply = nullptr;
        m_file.close();
    }

    m_file.setFileName(saveFileName(url, saveDir));
    if (!m_file.open(QIODevice::WriteOnly)) {
        qWarning("ZrDownloader: cannot open '%s' for '%s': %s", m_file.fileName().toLocal8Bit().constData(),
            url.toEncoded(QUrl::FullyEncoded).constData(), m_file.errorString().toLocal8Bit().constData());
        return false;
    }

    m_reply = m_manager.get(downloadRequest(url, m_manager, m_certificateGeneration));
    // Unbounded, Qt keeps reading while the disk lags and memory grows with the
    // file; a bounded buffer makes the network wait instead (and is faster too).
    m_reply->setReadBufferSize(ReadBufferSize);
    connect(m_reply, SIGNAL(downloadProgress(qint64, qint64)), this, SLOT(downloadProgress(qint64, qint64)));
    connect(m_reply, SIGNAL(finished()), this, SLOT(downloadFinished()));
    connect(m_reply, SIGNAL(readyRead()), this, SLOT(downloadReadyRead()));
    connect(this, SIGNAL(SignalStopDownload()), m_reply, SLOT(abort()));
    // A password in the URL stays out of the log.
    qDebug(
        "ZrDownloader: downloading %s", url.toEncoded(QUrl::FullyEncoded | QUrl::RemovePassword).constData());

    m_elapsed.start();
    return true;
}

void ZrDownloader::StopDownload()
{
    if (m_reply)
        emit SignalStopDownload();
}

bool ZrDownloader::isHttpRedirect(QNetworkReply* reply) const
{
    if (!reply)
        return false;
    // 304 and 306 are not redirects.
    switch (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt()) {
    case 301:
    case 302:
    case 303:
    case 305:
    case 307:
    case 308:
        return true;
    default:
        return false;
    }
}

void ZrDownloader::reportRedirect(QNetworkReply* reply) const
{
    if (!reply)
        return;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QUrl requestUrl = reply->request().url();
    qWarning(
        "ZrDownloader: redirect %d for %s", status, requestUrl.toDisplayString().toLocal8Bit().constData());

    const QVariant target = reply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (!target.isValid())
        return;
    QUrl targetUrl = target.toUrl();
    if (targetUrl.isRelative())
        targetUrl = requestUrl.resolved(targetUrl);
    qWarning("ZrDownloader: redirected to %s", targetUrl.toDisplayString().toLocal8Bit().constData());
}

void ZrDownloader::downloadReadyRead()
{
    if (m_reply)
        m_file.write(m_reply->readAll());
}

void ZrDownloader::downloadProgress(qint64 bytesReceived, qint64 bytesTotal)
{
    // Unlike the libcurl downloader, an unknown total (-1) is passed on as it is.
    emit signalDownloadProgress(
        bytesReceived, bytesTotal, Internal::downloadSpeedText(bytesReceived, m_elapsed.elapsed()));
}

void ZrDownloader::downloadFinished()
{
    if (!m_reply)
        return;
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    m_file.close();

    bool success = false;
    QString path;
    if (reply->error() == QNetworkReply::NoError) {
        if (isHttpRedirect(reply)) {
            // Redirects are not followed: they are only reported.
            reportRedirect(reply);
            m_file.remove();
        } else if (const qint64 missing = missingBytes(reply, m_file)) {
            // Qt may finish a reply whose connection closed mid-body without an
            // error, and file writes are not checked as they go: compare at the end.
            qWarning("ZrDownloader: failed: %lld bytes of the body did not reach the file", missing);
            m_file.remove();
        } else {
            path = m_file.fileName();
            qDebug("ZrDownloader: succeeded %s", path.toLocal8Bit().constData());
            success = true;
        }
    } else {
        // Qt's error texts quote the URL, password and all.
        QString error = reply->errorString();
        const QUrl url = reply->request().url();
        if (!url.password().isEmpty()) {
            error.replace(url.password(QUrl::FullyEncoded), QLatin1String("***"));
            error.replace(url.password(QUrl::FullyDecoded), QLatin1String("***"));
        }
        qWarning("ZrDownloader: failed: %s", error.toLocal8Bit().constData());
        m_file.remove();
    }

    reply->deleteLater();
    emit finished();
    emit signalDownloadFinished(success, path);
}

} // namespace ZrUtils

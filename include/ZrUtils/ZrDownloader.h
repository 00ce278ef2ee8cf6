#ifndef ZRUTILS_ZRDOWNLOADER_H
#define ZRUTILS_ZRDOWNLOADER_H

#include <ZrUtils/zrutils_export.h>

#include <QElapsedTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>

class QNetworkReply;
class QUrl;

namespace ZrUtils
{

/**
 * Downloads one URL into a folder over Qt's network stack, streaming the body to
 * disk, with the same progress and completion signals as CurlDownloader.
 *
 * Unlike CurlDownloader it does not follow redirects (a redirect is logged and
 * fails the download), a new StartDownload() drops the running download (its
 * partial file stays), and a stop ends as a failed download.
 *
 * TLS certificates are checked as Qt does by default (against the system's CA
 * store); with CertificateChecking on, against its CA bundle when one is set. A
 * certificate that fails the check fails the download like a network error.
 */
class ZRUTILS_EXPORT ZrDownloader : public QObject
{
    Q_OBJECT
public:
    explicit ZrDownloader(QObject* parent = nullptr);
    ~ZrDownloader() override;

    /**
     * Downloads @p url into @p saveDir (the current directory when empty), silently
     * dropping a download that is still running. Returns false, with a warning and
     * no signal, when the file cannot be opened.
     */
    bool StartDownload(const QUrl& url, const QString& saveDir);
    /** Stops the running download, which then finishes as failed; does nothing when idle. */
    void StopDownload();

    /** The same rule as CurlDownloader::saveFileName(); deletes a file already there. Never empty. */
    QString saveFileName(const QUrl& url, const QString& saveDir);
    /** True for the statuses 301, 302, 303, 305, 307 and 308; false for a null reply. */
    bool isHttpRedirect(QNetworkReply* reply) const;
    /** Logs the redirect of @p reply and its target; does nothing for a null reply. */
    void reportRedirect(QNetworkReply* reply) const;

Q_SIGNALS:
    void finished();
    /** @p bytesTotal is -1 while the size is unknown. */
    void signalDownloadProgress(qint64 bytesReceived, qint64 bytesTotal, QString strSpeed);
    /** @p strFilePath is the saved file on success, empty on failure. */
    void signalDownloadFinished(bool bSuccess, QString strFilePath);
    /** Emitted by StopDownload(); aborts the running reply. */
    void SignalStopDownload();

private Q_SLOTS:
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void downloadFinished();
    void downloadReadyRead();

private:
    QNetworkAccessManager m_manager;
    QNetworkReply* m_reply = nullptr;
    QFile m_file;
    QElapsedTimer m_elapsed;
    // The certificate rules the manager's open connections were made under.
    quint64 m_certificateGeneration = 0;
};

} // namespace ZrUtils

#endif

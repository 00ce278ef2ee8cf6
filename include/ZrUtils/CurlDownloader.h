#ifndef ZRUTILS_CURLDOWNLOADER_H
#define ZRUTILS_CURLDOWNLOADER_H

#include <ZrUtils/zrutils_export.h>

#include <QElapsedTimer>
#include <QObject>
#include <QString>

class CurlEasy;
class QFile;
class QUrl;

namespace ZrUtils
{

/**
 * Downloads one URL at a time into a folder over libcurl, on the event loop of
 * the thread that calls StartDownload() (which must keep running one until a
 * finishing signal arrives).
 *
 * Redirects are followed; an HTTP status of 400 or above fails the download.
 * A download ends in exactly one of signalDownloadFinished() and
 * signalDownloadAborted(); on failure and on abort the partial file is removed.
 *
 * TLS certificates are checked as libcurl does by default (against its built-in
 * CA store); with CertificateChecking on, against its CA bundle when one is set,
 * as it stands when each download starts. A certificate that fails the check
 * fails the download like a network error.
 */
class ZRUTILS_EXPORT CurlDownloader : public QObject
{
    Q_OBJECT
public:
    explicit CurlDownloader(QObject* parent = nullptr);
    ~CurlDownloader() override;

    /**
     * Downloads @p url into @p saveDir (the current directory when empty), under the
     * name saveFileName() gives. Returns false, and emits nothing, when a download is
     * already running or the file cannot be opened.
     */
    bool StartDownload(const QUrl& url, const QString& saveDir);
    /** Aborts the running download (then signalDownloadAborted()); does nothing when idle. */
    void StopDownload();

    /**
     * The file a download of @p url into @p saveDir goes to: the last segment of the
     * URL's path, or "download" when that is empty. A file already at that path is
     * deleted at once. Never empty.
     */
    QString saveFileName(const QUrl& url, const QString& saveDir);

public Q_SLOTS:
    void slotStopDownload();
    void onTransferProgress(qint64 downloadTotal, qint64 downloadNow, qint64 uploadTotal, qint64 uploadNow);
    void onTransferDone();
    void onTransferAborted();

Q_SIGNALS:
    /** @p bytesTotal is 0 (and @p strSpeed "0 kB/s") while the size is unknown. */
    void signalDownloadProgress(qint64 bytesReceived, qint64 bytesTotal, QString strSpeed);
    /** @p strFilePath is the saved file on success, empty on failure. */
    void signalDownloadFinished(bool bSuccess, QString strFilePath);
    void signalDownloadAborted();

private:
    CurlEasy* m_transfer;
    QFile* m_file = nullptr;
    QElapsedTimer m_elapsed;
};

} // namespace ZrUtils

#endif

#include <ZrUtils/CurlDownloader.h>
#include <ZrUtils/CurlEasy.h>

#include "DownloadCommon.h"

#include <QFile>
#include <QUrl>

namespace ZrUtils
{

namespace
{

constexpr long ReceiveBufferSize = 512 * 1024;

// QFile::remove() gives up when closing fails to flush (a full disk, say), which
// would leave the partial file behind: close first, then remove.
void discardFile(QFile* file)
{
    file->close();
    file->remove();
}

} // namespace

CurlDownloader::CurlDownloader(QObject* parent)
    : QObject(parent)
    , m_transfer(new CurlEasy(this))
{
    connect(m_transfer, &CurlEasy::done, this, &CurlDownloader::onTransferDone);
    connect(m_transfer, &CurlEasy::aborted, this, &CurlDownloader::onTransferAborted);
    connect(m_transfer, &CurlEasy::progress, this, &CurlDownloader::onTransferProgress);
}

CurlDownloader::~CurlDownloader()
{
    // Stop the transfer before the file its write function uses goes away; a
    // download cut short this way is dropped like an aborted one.
    m_transfer->removeFromMulti();
    if (m_file)
        discardFile(m_file);
    delete m_file;
}

QString CurlDownloader::saveFileName(const QUrl& url, const QString& saveDir)
{
    return Internal::downloadTargetPath(url, saveDir);
}

bool CurlDownloader::StartDownload(const QUrl& url, const QString& saveDir)
{
    if (m_transfer->isRunning())
        return false;

    m_file = new QFile(saveFileName(url, saveDir));
    if (!m_file->open(QIODevice::WriteOnly)) {
        delete m_file;
        m_file = nullptr;
        return false;
    }

    // A short count (no file, or a failed write) makes libcurl fail the transfer.
    m_transfer->setWriteFunction([this](char* data, size_t size) -> size_t {
        if (!m_file)
            return 0;
        return size_t(m_file->write(data, qint64(size)));
    });
    m_transfer->setHeaderFunction([](char*, size_t size) { return size; });
    m_transfer->set(CURLOPT_URL, url);
    curl_easy_setopt(m_transfer->handle(), CURLOPT_FOLLOWLOCATION, 1L);
    // An error status fails the transfer instead of saving the error page.
    curl_easy_setopt(m_transfer->handle(), CURLOPT_FAILONERROR, 1L);
    // libcurl's 16 KiB receive buffer costs a poll, a read and a write per 16 KiB
    // on the event loop; big files come noticeably faster with a larger one.
    curl_easy_setopt(m_transfer->handle(), CURLOPT_BUFFERSIZE, ReceiveBufferSize);

    m_transfer->perform();
    m_elapsed.start();
    return true;
}

void CurlDownloader::StopDownload()
{
    if (m_transfer->isRunning())
        m_transfer->abort();
}

void CurlDownloader::slotStopDownload()
{
    StopDownload();
}

void CurlDownloader::onTransferProgress(qint64 downloadTotal, qint64 downloadNow, qint64, qint64)
{
    if (downloadTotal < 1) {
        emit signalDownloadProgress(0, 0, QStringLiteral("0 kB/s"));
        return;
    }
    const qint64 received = qMin(downloadNow, downloadTotal);
    emit signalDownloadProgress(
        received, downloadTotal, Internal::downloadSpeedText(received, m_elapsed.elapsed()));
}

void CurlDownloader::onTransferDone()
{
    if (!m_file)
        return;
    const bool success = m_transfer->lastResult() == CURLE_OK;
    QString path;
    if (success)
        path = m_file->fileName();
    else
        discardFile(m_file);
    delete m_file;
    m_file = nullptr;
    emit signalDownloadFinished(success, path);
}

void CurlDownloader::onTransferAborted()
{
    if (!m_file)
        return;
    discardFile(m_file);
    delete m_file;
    m_file = nullptr;
    emit signalDownloadAborted();
}

} // namespace ZrUtils

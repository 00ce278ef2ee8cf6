#include "Tour.h"

#include "LoopbackHttpServer.h"

#include <ZrUtils/CurlDownloader.h>
#include <ZrUtils/ZrDownloader.h>

#include <QCryptographicHash>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;

namespace
{

// Runs one download with either downloader (both have the same two signals),
// printing about four progress lines and the result.
template<typename Downloader>
QString download(Tour& tour, Downloader& downloader, const QUrl& url, const QString& folder)
{
    QString saved;
    QEventLoop loop;
    qint64 nextReport = 0;
    QObject::connect(&downloader, &Downloader::signalDownloadProgress, &loop,
        [&](qint64 received, qint64 total, const QString& speed) {
            if (total <= 0 || received < nextReport)
                return;
            tour.say(QStringLiteral("  %1 of %2 bytes, %3").arg(received).arg(total).arg(speed));
            // About every quarter, and the last report only once.
            nextReport = received == total ? total + 1 : qMin(total, received + total / 4);
        });
    QObject::connect(
        &downloader, &Downloader::signalDownloadFinished, &loop, [&](bool ok, const QString& path) {
            tour.say(QStringLiteral("  finished: %1, file \"%2\"")
                         .arg(ok ? QStringLiteral("success") : QStringLiteral("failure"), path));
            saved = path;
            loop.quit();
        });
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    if (!downloader.StartDownload(url, folder))
        return QString();
    loop.exec();
    return saved;
}

QByteArray sha256(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly)
        ? QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256)
        : QByteArray();
}

} // namespace

void tourDownloads(Tour& tour)
{
    tour.section(QStringLiteral("Downloads: libcurl on the event loop, and Qt's network stack"));
    QByteArray installer(256 * 1024, Qt::Uninitialized);
    for (int i = 0; i < installer.size(); ++i)
        installer[i] = char(i * 7 + i / 251);
    // The file comes at 256 KiB/s, so a second of progress shows.
    ZrLoopback::LoopbackHttpServer server([&installer](const HttpRequest& request) {
        if (request.path != "/files/installer.bin")
            return HttpResponse(404, "not here\n", "text/plain");
        HttpResponse response(200, installer, "application/octet-stream");
        response.bytesPerSecond = 256 * 1024;
        return response;
    });
    const QUrl url = server.url(QStringLiteral("/files/installer.bin"));
    const QByteArray expected = QCryptographicHash::hash(installer, QCryptographicHash::Sha256);
    const QString folder = tour.scratchPath(QStringLiteral("downloads"));
    QDir().mkpath(folder);
    tour.say(QStringLiteral("the download server listens on %1").arg(server.url().toString()));

    tour.say(QStringLiteral("CurlDownloader fetches %1:").arg(url.toString()));
    ZrUtils::CurlDownloader curl;
    const QString curlPath = download(tour, curl, url, folder);
    tour.check(!curlPath.isEmpty() && sha256(curlPath) == expected,
        QStringLiteral("libcurl saved installer.bin with the served bytes"));

    tour.say(
        QStringLiteral("ZrDownloader fetches the same URL (the earlier file of that name is replaced):"));
    ZrUtils::ZrDownloader qt;
    const QString qtPath = download(tour, qt, url, folder);
    tour.check(qtPath == curlPath && sha256(qtPath) == expected,
        QStringLiteral("Qt saved the same file under the same name"));

    tour.say(QStringLiteral("a missing file fails, and no file is left behind:"));
    const QString missing = download(tour, curl, server.url(QStringLiteral("/files/missing.bin")), folder);
    tour.check(missing.isEmpty() && !QFile::exists(QDir(folder).filePath(QStringLiteral("missing.bin"))),
        QStringLiteral("404 reported as a failure, partial file removed"));
}

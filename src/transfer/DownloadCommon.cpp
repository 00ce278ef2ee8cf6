#include "DownloadCommon.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

namespace ZrUtils
{
namespace Internal
{

QString downloadTargetPath(const QUrl& url, const QString& saveDir)
{
    const QString directory = saveDir.isEmpty() ? QDir::currentPath() : saveDir;
    QString name = QFileInfo(url.path(QUrl::FullyDecoded)).fileName();
    if (name.isEmpty())
        name = QStringLiteral("download");
    const QString path = QDir(directory).filePath(name);
    if (QFile::exists(path))
        QFile::remove(path);
    return path;
}

QString downloadSpeedText(qint64 bytes, qint64 elapsedMs)
{
    const qint64 ms = elapsedMs < 2 ? 1 : elapsedMs;
    double value = double(bytes) * 1000.0 / double(ms);
    QString unit;
    if (value < 1024.0) {
        unit = QStringLiteral("bytes/sec");
    } else if (value < 1048576.0) {
        unit = QStringLiteral("kB/s");
        value /= 1024.0;
    } else {
        unit = QStringLiteral("MB/s");
        value /= 1048576.0;
    }
    return QStringLiteral("%1 %2").arg(value, 3, 'f', 1, QLatin1Char(' ')).arg(unit);
}

} // namespace Internal
} // namespace ZrUtils

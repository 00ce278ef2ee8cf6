#include <ZrUtils/ZrFilePath.h>

#include "FilePathInternal.h"
#include "common/Md5Hex.h"
#include "common/SaveWholeFile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator64>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QStringList>
#include <QTemporaryFile>
#include <QUrl>

#include <algorithm>

namespace ZrUtils
{

namespace Internal
{

QString resourceDirPath(const QString& appDir, const QString& leaf)
{
    QString dir = appDir;
    dir.replace(QLatin1Char('\\'), QLatin1Char('/'));
    // left(-1) keeps the whole text, so a folder without "/" keeps its name.
    return dir.left(dir.lastIndexOf(QLatin1Char('/'))) + QStringLiteral("/Resources/") + leaf;
}

} // namespace Internal

QString ZrFilePath::FormatFileSize(qint64 size)
{
    static const char* const units[] = {"B", "KB", "MB", "GB", "TB"};
    constexpr int lastUnit = 4;
    double value = double(size);
    int unit = 0;
    if (size >= 1024) {
        do {
            if (unit == lastUnit)
                break;
            value *= 1.0 / 1024;
            ++unit;
        } while (value >= 1024.0);
    }
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 2).arg(QLatin1String(units[unit]));
}

QString ZrFilePath::FormatTimeDuration(int seconds)
{
    const int hours = seconds / 3600;
    const int minutes = (seconds - hours * 3600) / 60;
    const QChar zero = QLatin1Char('0');
    return QStringLiteral("%1:%2:%3")
        .arg(hours, 2, 10, zero)
        .arg(minutes, 2, 10, zero)
        .arg(seconds % 60, 2, 10, zero);
}

bool ZrFilePath::CheckFileNameValid(const QString& name)
{
    static const QRegularExpression s_strExp(QStringLiteral("[\\\\/:*?\"<>|]+"));
    return !name.contains(s_strExp);
}

bool ZrFilePath::CheckFilePathValid(const QString& path)
{
    static const QRegularExpression s_strExp(QStringLiteral("[:*?\"<>|]+"));
    // Paths are judged by the drive-letter rule everywhere, so a POSIX path (no
    // colon) is invalid on purpose: callers use this for drive paths only.
    if (!path.contains(QLatin1Char(':')) || path.length() < 3)
        return false;
    return !path.right(path.length() - 3).contains(s_strExp);
}

QString ZrFilePath::GetUniqueFileName(const QString& path)
{
    if (!QFile::exists(path))
        return path;
    const QFileInfo info(path);
    const QString dir = info.path();
    const QString base = info.completeBaseName();
    const QString suffix = info.suffix();
    // A name without suffix keeps the dot ("report(1)."): callers rely on it.
    for (qint64 n = 1;; ++n) {
        const QString candidate = QStringLiteral("%1/%2(%3).%4").arg(dir, base, QString::number(n), suffix);
        if (!QFile::exists(candidate))
            return candidate;
    }
}

bool ZrFilePath::IsUrl(const QString& text)
{
    static const QStringList urlSchemes
        = {QStringLiteral("http"), QStringLiteral("https"), QStringLiteral("ftp"), QStringLiteral("file"),
            QStringLiteral("ws"), QStringLiteral("wss"), QStringLiteral("mailto"), QStringLiteral("tel"),
            QStringLiteral("smb"), QStringLiteral("ssh"), QStringLiteral("sftp")};
    const QUrl url(text.trimmed(), QUrl::TolerantMode);
    if (!url.isValid())
        return false;
    return urlSchemes.contains(url.scheme().toLower(), Qt::CaseSensitive);
}

bool ZrFilePath::IsLocalFile(const QString& text)
{
    if (QFile::exists(text))
        return true;
    const QUrl url(text);
    return url.isValid() && url.isLocalFile();
}

bool ZrFilePath::IsTheSameFile(const QString& a, const QString& b)
{
    if (a == b)
        return true;
    const QString canonicalA = QFileInfo(a).canonicalFilePath();
    const QString canonicalB = QFileInfo(b).canonicalFilePath();
    if (canonicalA.isEmpty() || canonicalB.isEmpty())
        return false;
    return canonicalA == canonicalB;
}

bool ZrFilePath::IsFolderWritable(const QString& dir)
{
    if (dir.isEmpty())
        return false;
    QTemporaryFile probe(QDir(dir).absoluteFilePath(QStringLiteral("zr_write_test_temp_0")));
    probe.setAutoRemove(true);
    return probe.open();
}

QString ZrFilePath::FormatFilePath(const QString& text)
{
    QString name = text;
    name.replace(QLatin1Char('/'), QLatin1Char('_'));
    name.replace(QLatin1Char('\\'), QLatin1Char('_'));
    name.replace(QLatin1Char('.'), QLatin1Char('_'));
    name.remove(QLatin1Char(':'));
    if (name.length() >= 200)
        name = name.right(200);
    return name + QStringLiteral(".png");
}

int ZrFilePath::GetRandomNum(int a, int b)
{
    const int lo = std::min(a, b);
    const int hi = std::max(a, b);
    if (lo == hi)
        return lo;
    // Scaling a 32-bit draw by the span gives every value in [lo, hi] alike; 64-bit
    // arithmetic keeps the full int range (a span of 2^32) from overflowing.
    const quint64 span = quint64(qint64(hi) - qint64(lo) + 1);
    const quint64 draw = quint32(QRandomGenerator64::global()->generate());
    return int(qint64(lo) + qint64((draw * span) >> 32));
}

QString ZrFilePath::GetLargestFreeDisk()
{
    QString largest;
    qint64 mostFree = 0;
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo& volume : volumes) {
        if (!volume.isValid() || !volume.isReady())
            continue;
        // Strictly greater: the first of equally free volumes wins.
        if (volume.bytesAvailable() > mostFree) {
            mostFree = volume.bytesAvailable();
            largest = volume.rootPath();
        }
    }
    return largest;
}

qint64 ZrFilePath::GetLeftSpace(const QString& path)
{
    // Always the root volume, whatever the path: callers ask about the system disk.
    Q_UNUSED(path);
    const QStorageInfo root = QStorageInfo::root();
    if (!root.isValid() || !root.isReady())
        return 0;
    return root.bytesAvailable();
}

QString ZrFilePath::GetSkinDirPath()
{
    return Internal::resourceDirPath(GetAppDirPath(), QStringLiteral("skin"));
}

QString ZrFilePath::GetConfigDirPath()
{
    return Internal::resourceDirPath(GetAppDirPath(), QStringLiteral("conf"));
}

QString ZrFilePath::GetCacheDirPath()
{
    const QString path = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    MakeDirPath(path);
    return path;
}

QString ZrFilePath::GetAppDirPath()
{
    return QString::fromStdString(getAppDirPath()).replace(QLatin1Char('\\'), QLatin1Char('/'));
}

QString ZrFilePath::GetAppFilePath()
{
    return QString::fromStdString(getAppFilePath()).replace(QLatin1Char('\\'), QLatin1Char('/'));
}

QString ZrFilePath::GetFileMd5(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return Internal::md5Hex(file.readAll());
}

QString ZrFilePath::GetStringMd5(const QString& text)
{
    return Internal::md5Hex(text.toUtf8());
}

bool ZrFilePath::MakeDirPath(const QString& path)
{
    if (QDir(path).exists())
        return true;
    return QDir().mkpath(path);
}

bool ZrFilePath::DeleteDirPath(const QString& path)
{
    // An empty path would be taken as the working folder; it names no folder here.
    if (path.isEmpty() || !QDir(path).exists())
        return false;
    return QDir(path).removeRecursively();
}

QString ZrFilePath::ReadFileData(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    const QByteArray bytes = file.readAll();
    const int nul = bytes.indexOf('\0');
    return QString::fromUtf8(nul < 0 ? bytes : bytes.left(nul));
}

void ZrFilePath::WriteFileData(const QString& path, const QString& text)
{
    Internal::saveWholeFile(path, text.toUtf8());
}

bool ZrFilePath::CopyFileHandle(const QString& from, const QString& to, bool overwrite)
{
    if (overwrite && QFile::exists(to))
        QFile::remove(to);
    return QFile::copy(from, to);
}

QString ZrFilePath::GetFileSize(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return QString();
    return FormatFileSize(info.size());
}

QString ZrFilePath::CombinePath(const QString& dir, const QString& name)
{
    return QDir(dir).filePath(name);
}

QString ZrFilePath::GetPublicDesktopPath()
{
    return QString();
}

bool ZrFilePath::GetFileVersion(const QString& path, std::string& version)
{
    Q_UNUSED(path);
    Q_UNUSED(version);
    return true;
}

void ZrFilePath::RunShellCmd(const QString& program, const QString& arguments)
{
    Q_UNUSED(program);
    Q_UNUSED(arguments);
}

bool ZrFilePath::CreateDesktopLink(
    const QString& target, const QString& name, const QString& description, const QString& icon)
{
    Q_UNUSED(target);
    Q_UNUSED(name);
    Q_UNUSED(description);
    Q_UNUSED(icon);
    return true;
}

} // namespace ZrUtils

std::string getAppDirPath()
{
    const std::string path = getAppFilePath();
    const std::string::size_type slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(0, slash);
}

QByteArray getBigFileMd5(QString path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    QCryptographicHash hash(QCryptographicHash::Md5);
    // A fixed 4 KiB buffer: memory stays flat whatever the file size.
    char chunk[4096];
    const qint64 size = file.size();
    qint64 done = 0;
    while (done < size) {
        const qint64 got = file.read(chunk, std::min<qint64>(sizeof(chunk), size - done));
        // The file shrank or could not be read: no digest rather than a wrong one.
        if (got <= 0)
            return QByteArray();
        hash.addData(QByteArray::fromRawData(chunk, int(got)));
        done += got;
    }
    return hash.result();
}

#include "ZipGuard.h"

#include <QFileInfo>
#include <QIODevice>
#include <QtEndian>

namespace ZrUtils
{
namespace Internal
{

namespace
{

constexpr int EndRecordSize = 22;
constexpr int MaxCommentSize = 0xffff;
constexpr int CentralHeaderSize = 46;
constexpr quint32 EndRecordSignature = 0x06054b50;
constexpr quint32 CentralHeaderSignature = 0x02014b50;
// More hops than any sane chain of links: a loop, or an attempt to exhaust us.
constexpr int MaxLinkHops = 40;

quint16 u16At(const QByteArray& data, int at)
{
    return qFromLittleEndian<quint16>(data.constData() + at);
}

quint32 u32At(const QByteArray& data, int at)
{
    return qFromLittleEndian<quint32>(data.constData() + at);
}

bool isInside(const QString& root, const QString& canonicalPath)
{
    return canonicalPath == root || canonicalPath.startsWith(root + QLatin1Char('/'));
}

} // namespace

bool readZipEntryNames(QIODevice& device, QStringList& names)
{
    names.clear();
    const qint64 size = device.size();
    if (size < EndRecordSize)
        return false;
    const qint64 tailSize = qMin<qint64>(size, EndRecordSize + MaxCommentSize);
    if (!device.seek(size - tailSize))
        return false;
    const QByteArray tail = device.read(tailSize);
    if (tail.size() != tailSize)
        return false;

    // The last end record whose comment fits in the file; searching backwards skips
    // signatures that merely appear inside a comment.
    int end = -1;
    for (int at = tail.size() - EndRecordSize; at >= 0; --at) {
        if (u32At(tail, at) == EndRecordSignature
            && at + EndRecordSize + u16At(tail, at + 20) <= tail.size()) {
            end = at;
            break;
        }
    }
    if (end < 0)
        return false;
    const quint16 count = u16At(tail, end + 10);
    const quint32 directorySize = u32At(tail, end + 12);
    const quint32 directoryOffset = u32At(tail, end + 16);
    // Zip64 archives (marked by all-ones fields) are not read by the extractor either.
    if (count == 0xffff || directorySize == 0xffffffffu || directoryOffset == 0xffffffffu)
        return false;
    if (qint64(directoryOffset) + directorySize > size || !device.seek(directoryOffset))
        return false;
    const QByteArray directory = device.read(directorySize);
    if (directory.size() != int(directorySize))
        return false;

    int at = 0;
    for (int i = 0; i < count; ++i) {
        if (at + CentralHeaderSize > directory.size() || u32At(directory, at) != CentralHeaderSignature)
            return false;
        const int nameLength = u16At(directory, at + 28);
        const int extraLength = u16At(directory, at + 30);
        const int commentLength = u16At(directory, at + 32);
        if (at + CentralHeaderSize + nameLength > directory.size())
            return false;
        // Only the ASCII separators and dots matter to the checks, and those bytes
        // mean the same in every encoding an archive may use.
        names.append(QString::fromLatin1(directory.constData() + at + CentralHeaderSize, nameLength));
        at += CentralHeaderSize + nameLength + extraLength + commentLength;
    }
    return true;
}

bool isContainedEntryName(const QString& name)
{
    if (name.isEmpty())
        return false;
    QString path = name;
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (path.startsWith(QLatin1Char('/')))
        return false;
    if (path.length() >= 2 && path.at(1) == QLatin1Char(':'))
        return false;
    const QVector<QStringRef> parts = path.splitRef(QLatin1Char('/'));
    for (const QStringRef& part : parts) {
        if (part == QLatin1String(".."))
            return false;
    }
    return true;
}

bool staysInside(
    const QString& root, const QString& relativePath, const QHash<QString, QString>& archiveLinks)
{
    QStringList pending = relativePath.split(QLatin1Char('/'));
    QStringList done; // the path reached so far, relative to root
    int hops = 0;
    while (!pending.isEmpty()) {
        const QString part = pending.takeFirst();
        if (part.isEmpty() || part == QLatin1String("."))
            continue;
        if (part == QLatin1String("..")) {
            if (done.isEmpty())
                return false;
            done.removeLast();
            continue;
        }
        done.append(part);
        const QString reached = done.join(QLatin1Char('/'));

        // The archive's own links are made before its files are written.
        const auto link = archiveLinks.constFind(reached);
        if (link != archiveLinks.constEnd()) {
            // Relative targets only: they are followed below, ".." included.
            if (++hops > MaxLinkHops || link->isEmpty() || link->startsWith(QLatin1Char('/')))
                return false;
            done.removeLast();
            pending = link->split(QLatin1Char('/')) + pending;
            continue;
        }

        const QFileInfo onDisk(root + QLatin1Char('/') + reached);
        if (onDisk.isSymLink()) {
            if (++hops > MaxLinkHops)
                return false;
            // A dangling link would create its target wherever it points.
            const QString target = onDisk.canonicalFilePath();
            if (target.isEmpty() || !isInside(root, target))
                return false;
            done = target.mid(root.length()).split(QLatin1Char('/'), Qt::SkipEmptyParts);
        }
    }
    return true;
}

} // namespace Internal
} // namespace ZrUtils

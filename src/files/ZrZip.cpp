#include <ZrUtils/ZrZip.h>

#include "ZipGuard.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <private/qzipreader_p.h>
#include <private/qzipwriter_p.h>

namespace ZrUtils
{

namespace
{

// The entries' names as stored, before the extractor tidies them up: an archive that
// names a place outside its destination is refused as a whole, even where the
// extractor would have kept the file inside.
bool storedNamesAreContained(QFile& archive, int& count)
{
    QStringList names;
    if (!Internal::readZipEntryNames(archive, names))
        return false;
    count = names.size();
    for (const QString& name : qAsConst(names)) {
        if (!Internal::isContainedEntryName(name))
            return false;
    }
    return true;
}

// The extractor writes a file only into a folder that exists, but archives need not
// list their folders (ours never do): make them, except below the archive's own links,
// which must be created as links.
bool makeParentFolders(QZipReader& reader, const QString& root)
{
    const QVector<QZipReader::FileInfo> entries = reader.fileInfoList();
    QSet<QString> links;
    for (const QZipReader::FileInfo& entry : entries) {
        if (entry.isSymLink)
            links.insert(entry.filePath);
    }
    const QDir rootDir(root);
    for (const QZipReader::FileInfo& entry : entries) {
        if (!entry.isFile)
            continue;
        const QStringList parts = entry.filePath.split(QLatin1Char('/'));
        QString parent;
        bool belowLink = false;
        for (int i = 0; i + 1 < parts.size() && !belowLink; ++i) {
            parent += (i ? QStringLiteral("/") : QString()) + parts.at(i);
            belowLink = links.contains(parent);
        }
        if (!parent.isEmpty() && !belowLink && !rootDir.mkpath(parent))
            return false;
    }
    return true;
}

} // namespace

bool zipWriter(const QString& dirPath, const QStringList& nameFilters)
{
    QString d = dirPath;
    if (!d.endsWith(QLatin1Char('/')) && !d.endsWith(QLatin1Char('\\')))
        d += QLatin1Char('/');
    const QDir dir(d);
    if (!dir.exists())
        return false;
    // Written inside the folder it packs and named after it: callers look for it there.
    const QString archiveName = dir.dirName() + QStringLiteral(".zip");
    QZipWriter writer(d + archiveName, QIODevice::WriteOnly | QIODevice::Truncate);
    const QStringList names = dir.entryList(nameFilters, QDir::Files | QDir::Readable, QDir::Name);
    for (const QString& name : names) {
        // The archive being written is in the listing too; it is not one of the files.
        if (name == archiveName)
            continue;
        QFile file(d + name);
        if (!file.exists() || !file.open(QIODevice::ReadOnly))
            continue;
        writer.addFile(name, file.readAll());
    }
    writer.close();
    return true;
}

bool zipReader(const QString& zipPath, QString destDir)
{
    if (zipPath.isEmpty())
        return false;
    if (destDir.isEmpty()) {
        const QFileInfo info(zipPath);
        destDir = QDir(info.absolutePath()).filePath(info.completeBaseName());
    }
    QFile archive(zipPath);
    if (!archive.open(QIODevice::ReadOnly))
        return false;
    // Read the central directory ourselves first: it also keeps the extractor from
    // warning about files that are no archive at all.
    int storedCount = 0;
    if (!storedNamesAreContained(archive, storedCount))
        return false;
    // The reader starts where the device stands.
    if (!archive.seek(0))
        return false;
    QZipReader reader(&archive);
    const QVector<QZipReader::FileInfo> entries = reader.fileInfoList();
    if (reader.status() != QZipReader::NoError || entries.size() != storedCount)
        return false;
    QHash<QString, QString> links;
    for (const QZipReader::FileInfo& entry : entries) {
        if (!Internal::isContainedEntryName(entry.filePath))
            return false;
        if (entry.isSymLink)
            links.insert(entry.filePath, QFile::decodeName(reader.fileData(entry.filePath)));
    }

    // The folders made for the destination, deepest first, to take back on refusal.
    QStringList made;
    for (QFileInfo missing(QDir::cleanPath(QFileInfo(destDir).absoluteFilePath())); !missing.exists();
         missing = QFileInfo(missing.path()))
        made.append(missing.filePath());
    if (!QDir().mkpath(destDir))
        return false;
    const QString root = QFileInfo(destDir).canonicalFilePath();
    bool inside = !root.isEmpty();
    for (int i = 0; inside && i < entries.size(); ++i)
        inside = Internal::staysInside(root, entries.at(i).filePath, links);
    if (!inside) {
        for (const QString& folder : qAsConst(made))
            QDir().rmdir(folder);
        return false;
    }
    if (!makeParentFolders(reader, root))
        return false;
    const bool extracted = reader.extractAll(destDir);
    reader.close();
    return extracted;
}

ZrZip::ZrZip(QObject* parent)
    : QObject(parent)
{
}

ZrZip::~ZrZip() = default;

bool ZrZip::ZipDir(const QString& dirPath, const QStringList& nameFilters)
{
    return zipWriter(dirPath, nameFilters);
}

bool ZrZip::UnzipFile(const QString& zipPath, QString destDir)
{
    return zipReader(zipPath, destDir);
}

} // namespace ZrUtils

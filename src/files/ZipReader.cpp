// Unpacking an archive as one transaction: every entry is checked before anything is
// written, files are inflated piece by piece into hidden siblings of their final
// names, and only when all of them are complete do they take those names. A failure
// at any point takes back what this call made and leaves what was there before.
#include <ZrUtils/ZrZip.h>

#include "ZipGuard.h"
#include "ZipHandles.h"
#include "ZipHeaders.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QStorageInfo>
#include <QTemporaryFile>
#include <QVector>

#include <cstdio>
#include <cstring>
#include <limits>
#include <sys/stat.h>

namespace ZrUtils
{

namespace
{

constexpr qint64 ChunkSize = 1 << 20;
// A link's target is a path; anything longer is no link a system would make.
constexpr zip_uint64_t MaxLinkTargetSize = 4096;

struct Entry {
    zip_uint64_t index = 0;
    QString path; // relative to the destination, without a trailing "/"
    enum Kind { File, Folder, Link } kind = File;
    qint64 size = 0; // as declared by the archive
    mode_t mode = 0; // permission bits, 0 when the archive has none
    time_t modified = -1;
    QString linkTarget;
};

bool readEntries(zip_t* archive, QVector<Entry>& entries)
{
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    if (count < 0)
        return false;
    entries.reserve(int(qMin<zip_int64_t>(count, 1 << 20)));
    for (zip_uint64_t i = 0; i < zip_uint64_t(count); ++i) {
        zip_stat_t stat;
        if (zip_stat_index(archive, i, 0, &stat) != 0 || !(stat.valid & ZIP_STAT_NAME)
            || !(stat.valid & ZIP_STAT_SIZE) || stat.size > zip_uint64_t(std::numeric_limits<qint64>::max()))
            return false;
        Entry entry;
        entry.index = i;
        entry.path = QString::fromUtf8(stat.name);
        entry.size = qint64(stat.size);
        if (stat.valid & ZIP_STAT_MTIME)
            entry.modified = stat.mtime;
        // The names as stored, before any tidying: an archive that names a place outside
        // its destination is refused as a whole, even where tidying would keep it inside.
        if (!Internal::isContainedEntryName(entry.path))
            return false;
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        if (zip_file_get_external_attributes(archive, i, 0, &system, &attributes) != 0)
            return false;
        const mode_t unixMode = system == ZIP_OPSYS_UNIX ? mode_t(attributes >> 16) : 0;
        entry.mode = unixMode & 0777; // never set-user-id and the like
        if (entry.path.endsWith(QLatin1Char('/'))) {
            entry.kind = Entry::Folder;
            entry.path.chop(1);
        } else if (S_ISLNK(unixMode)) {
            entry.kind = Entry::Link;
        }
        entries.append(entry);
    }
    return true;
}

bool readLinkTarget(zip_t* archive, Entry& link)
{
    if (zip_uint64_t(link.size) > MaxLinkTargetSize)
        return false;
    Internal::ZipEntryPtr file(zip_fopen_index(archive, link.index, 0));
    if (!file)
        return false;
    QByteArray target(int(link.size) + 1, Qt::Uninitialized);
    // One byte more than declared: a link that inflates beyond its size is refused.
    const zip_int64_t got = zip_fread(file.get(), target.data(), zip_uint64_t(target.size()));
    if (got != link.size)
        return false;
    target.truncate(int(got));
    // No system stores a NUL in a link; the check would see a target the link never gets.
    if (target.contains('\0'))
        return false;
    link.linkTarget = QFile::decodeName(target);
    return true;
}

// The free space where the destination will be: it may not exist yet.
qint64 bytesAvailableAt(const QString& path)
{
    QFileInfo existing(QFileInfo(path).absoluteFilePath());
    while (!existing.exists() && !existing.isRoot())
        existing = QFileInfo(existing.path());
    const QStorageInfo storage(existing.absoluteFilePath());
    return storage.isValid() ? storage.bytesAvailable() : -1;
}

bool fitsOnDisk(const QVector<Entry>& entries, const QString& destDir)
{
    qint64 total = 0;
    for (const Entry& entry : entries) {
        if (entry.size > std::numeric_limits<qint64>::max() - total)
            return false;
        total += entry.size;
    }
    const qint64 available = bytesAvailableAt(destDir);
    return available < 0 || total <= available;
}

bool isZeros(const char* data, qint64 size)
{
    return size > 0 && data[0] == 0 && std::memcmp(data, data + 1, size_t(size - 1)) == 0;
}

// What this call has made, so that a failure can take exactly that back.
class Extraction
{
public:
    ~Extraction()
    {
        if (!m_committed)
            rollBack();
    }

    // The folders from @p path up to the first that exists are recorded as made here.
    bool makeFolder(const QString& path)
    {
        if (m_knownFolders.contains(path))
            return true;
        QStringList missing;
        for (QFileInfo info(path); !info.exists() && !info.isSymLink(); info = QFileInfo(info.path()))
            missing.prepend(info.absoluteFilePath());
        for (const QString& folder : qAsConst(missing)) {
            if (!QDir().mkdir(folder))
                return false;
            m_made.append({Made::Folder, folder});
        }
        if (!QFileInfo(path).isDir())
            return false;
        m_knownFolders.insert(path);
        return true;
    }

    bool makeLink(const QString& target, const QString& path)
    {
        if (!QFile::link(target, path))
            return false;
        m_made.append({Made::Link, path});
        return true;
    }

    bool extractFile(zip_t* archive, const Entry& entry, const QString& path, QByteArray& buffer)
    {
        QTemporaryFile part(QFileInfo(path).path() + QStringLiteral("/.zr-unzip-XXXXXX"));
        part.setAutoRemove(false);
        if (!part.open())
            return false;
        m_parts.append({part.fileName(), path});
        m_made.append({Made::File, part.fileName()});
        Internal::ZipEntryPtr file(zip_fopen_index(archive, entry.index, 0));
        if (!file)
            return false;
        qint64 written = 0;
        bool hole = false;
        for (;;) {
            // One byte more than what is left: an entry that inflates beyond its declared
            // size is caught before that byte is written. Reading up to the end also makes
            // libzip compare the checksum.
            const qint64 wanted = qMin<qint64>(ChunkSize, entry.size - written + 1);
            const zip_int64_t got = zip_fread(file.get(), buffer.data(), zip_uint64_t(wanted));
            if (got < 0 || written + got > entry.size)
                return false;
            if (got == 0)
                break;
            // Runs of zeros become holes: a sparse file stays sparse on the way back.
            hole = isZeros(buffer.constData(), got);
            if (hole ? !part.seek(written + got) : part.write(buffer.constData(), got) != got)
                return false;
            written += got;
        }
        if (written != entry.size || (hole && !part.resize(written)))
            return false;
        if (!part.setPermissions(permissionsOf(entry.mode ? entry.mode : 0644)))
            return false;
        if (entry.modified >= 0)
            part.setFileTime(
                QDateTime::fromSecsSinceEpoch(entry.modified), QFileDevice::FileModificationTime);
        return part.flush();
    }

    // Moves every extracted file to its name. Checked first, so that a file about to
    // land on an existing folder fails before any old file has been replaced.
    bool commit()
    {
        for (const Part& part : qAsConst(m_parts)) {
            const QFileInfo target(part.target);
            if (target.isDir() && !target.isSymLink())
                return false;
        }
        for (const Part& part : qAsConst(m_parts)) {
            // rename() replaces an existing file, or a link without following it.
            if (std::rename(
                    QFile::encodeName(part.temporary).constData(), QFile::encodeName(part.target).constData())
                != 0)
                return false;
        }
        m_committed = true;
        return true;
    }

private:
    struct Part {
        QString temporary;
        QString target;
    };

    static QFileDevice::Permissions permissionsOf(mode_t mode)
    {
        // Qt's owner and user flags both mean the owner here.
        static const struct {
            mode_t bit;
            QFileDevice::Permissions flags;
        } Bits[] = {{S_IRUSR, QFileDevice::ReadOwner | QFileDevice::ReadUser},
            {S_IWUSR, QFileDevice::WriteOwner | QFileDevice::WriteUser},
            {S_IXUSR, QFileDevice::ExeOwner | QFileDevice::ExeUser}, {S_IRGRP, QFileDevice::ReadGroup},
            {S_IWGRP, QFileDevice::WriteGroup}, {S_IXGRP, QFileDevice::ExeGroup},
            {S_IROTH, QFileDevice::ReadOther}, {S_IWOTH, QFileDevice::WriteOther},
            {S_IXOTH, QFileDevice::ExeOther}};
        QFileDevice::Permissions permissions;
        for (const auto& bit : Bits) {
            if (mode & bit.bit)
                permissions |= bit.flags;
        }
        return permissions;
    }

    // Newest first: a folder may have been made through a link this call made, and a
    // link inside a folder it made. A folder that is not empty was there before in
    // some form.
    void rollBack()
    {
        for (auto it = m_made.crbegin(); it != m_made.crend(); ++it) {
            if (it->kind == Made::Folder)
                QDir().rmdir(it->path);
            else
                QFile::remove(it->path);
        }
    }

    struct Made {
        enum Kind { File, Link, Folder } kind;
        QString path;
    };

    QVector<Part> m_parts;
    QVector<Made> m_made;
    QSet<QString> m_knownFolders;
    bool m_committed = false;
};

bool extractAll(zip_t* archive, const QVector<Entry>& entries, const QString& destDir)
{
    Extraction extraction;
    if (!extraction.makeFolder(QFileInfo(destDir).absoluteFilePath()))
        return false;
    const QString root = QFileInfo(destDir).canonicalFilePath();
    if (root.isEmpty())
        return false;

    QHash<QString, QString> links;
    for (const Entry& entry : entries) {
        if (entry.kind == Entry::Link)
            links.insert(Internal::entryPathKey(entry.path), entry.linkTarget);
    }
    for (const Entry& entry : entries) {
        if (!Internal::staysInside(root, entry.path, links))
            return false;
    }

    // Links first: the checks above followed them, and files below them go through them.
    const QString base = root + QLatin1Char('/');
    for (const Entry& entry : entries) {
        if (entry.kind == Entry::Link
            && !(extraction.makeFolder(QFileInfo(base + entry.path).path())
                && extraction.makeLink(entry.linkTarget, base + entry.path)))
            return false;
    }
    QByteArray buffer(int(ChunkSize), Qt::Uninitialized);
    for (const Entry& entry : entries) {
        const QString path = QDir::cleanPath(base + entry.path);
        if (entry.kind == Entry::Folder) {
            if (!extraction.makeFolder(path))
                return false;
        } else if (entry.kind == Entry::File) {
            if (!extraction.makeFolder(QFileInfo(path).path())
                || !extraction.extractFile(archive, entry, path, buffer))
                return false;
        }
    }
    return extraction.commit();
}

} // namespace

bool zipReader(const QString& zipPath, QString destDir)
{
    if (zipPath.isEmpty())
        return false;
    if (destDir.isEmpty()) {
        const QFileInfo info(zipPath);
        destDir = QDir(info.absolutePath()).filePath(info.completeBaseName());
    }
    // An entry must not claim one name or size in the central directory and another in
    // its local header: libzip's own check of that also refuses what common packers write.
    QFile file(zipPath);
    quint64 storedCount = 0;
    if (!file.open(QIODevice::ReadOnly) || !Internal::localHeadersAgree(file, storedCount))
        return false;
    file.close();
    int error = 0;
    Internal::ZipArchivePtr archive(zip_open(QFile::encodeName(zipPath).constData(), ZIP_RDONLY, &error));
    if (!archive)
        return false;
    QVector<Entry> entries;
    if (!readEntries(archive.get(), entries) || quint64(entries.size()) != storedCount)
        return false;
    for (Entry& entry : entries) {
        if (entry.kind == Entry::Link && !readLinkTarget(archive.get(), entry))
            return false;
    }
    // Refused before anything is written: the disk cannot hold what the archive declares.
    // The extraction itself never writes beyond the declared sizes.
    if (!fitsOnDisk(entries, destDir))
        return false;
    return extractAll(archive.get(), entries, destDir);
}

} // namespace ZrUtils

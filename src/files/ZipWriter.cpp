// Packing a folder: libzip writes the archive beside its final name and moves it
// there only when every entry is complete, and reads each file in small pieces as it
// compresses it, so no file is ever held whole in memory and files of any size (ZIP64)
// go in.
#include <ZrUtils/ZrZip.h>

#include "ZipHandles.h"
#include "common/SaveWholeFile.h"

#include <QDir>
#include <QFile>
#include <QVector>

#include <memory>
#include <sys/stat.h>

namespace ZrUtils
{

namespace
{

constexpr zip_uint32_t DeflateLevel = 6;

struct PackedFile {
    QString path;
    QByteArray name; // UTF-8, as stored
    qint64 size = 0;
    mode_t mode = 0;
    time_t modified = 0;
};

// Feeds one file to libzip. It opens the file only when libzip comes to it, so a
// folder of any number of files needs one descriptor at a time, and it insists on
// the size it saw when the folder was listed: a file that ends early (cut short,
// unreadable in the middle) fails the whole archive instead of being stored short.
class FileSource
{
public:
    explicit FileSource(const PackedFile& file)
        : m_path(file.path)
        , m_size(file.size)
        , m_modified(file.modified)
    {
        zip_error_init(&m_error);
    }
    ~FileSource() { zip_error_fini(&m_error); }

    static zip_int64_t callback(void* self, void* data, zip_uint64_t length, zip_source_cmd_t command)
    {
        return static_cast<FileSource*>(self)->handle(data, length, command);
    }

private:
    zip_int64_t fail(int zipError)
    {
        zip_error_set(&m_error, zipError, errno);
        return -1;
    }

    zip_int64_t handle(void* data, zip_uint64_t length, zip_source_cmd_t command)
    {
        switch (command) {
        case ZIP_SOURCE_OPEN:
            // Unbuffered: libzip asks for large pieces, which go straight to read().
            m_file.reset(new QFile(m_path));
            if (!m_file->open(QIODevice::ReadOnly | QIODevice::Unbuffered))
                return fail(ZIP_ER_OPEN);
            m_remaining = m_size;
            return 0;
        case ZIP_SOURCE_READ: {
            const qint64 wanted = qMin<qint64>(qint64(qMin<zip_uint64_t>(length, 1 << 30)), m_remaining);
            if (wanted == 0)
                return 0;
            const qint64 got = m_file->read(static_cast<char*>(data), wanted);
            if (got <= 0)
                return fail(ZIP_ER_READ); // the file ended before its listed size, or failed
            m_remaining -= got;
            return got;
        }
        case ZIP_SOURCE_CLOSE:
            m_file.reset();
            return 0;
        case ZIP_SOURCE_STAT: {
            auto* stat = static_cast<zip_stat_t*>(data);
            zip_stat_init(stat);
            stat->size = zip_uint64_t(m_size);
            stat->mtime = m_modified;
            stat->valid = ZIP_STAT_SIZE | ZIP_STAT_MTIME;
            return sizeof(zip_stat_t);
        }
        case ZIP_SOURCE_ERROR:
            return zip_error_to_data(&m_error, data, length);
        case ZIP_SOURCE_FREE:
            delete this;
            return 0;
        case ZIP_SOURCE_SUPPORTS:
            return ZIP_SOURCE_SUPPORTS_READABLE;
        default:
            zip_error_set(&m_error, ZIP_ER_OPNOTSUPP, 0);
            return -1;
        }
    }

    const QString m_path;
    const qint64 m_size;
    const time_t m_modified;
    // Made only while libzip reads this file: an archive of many files holds one at a time.
    std::unique_ptr<QFile> m_file;
    qint64 m_remaining = 0;
    zip_error_t m_error;
};

// Only the files that open now are packed: the others are skipped, as they always were.
QVector<PackedFile> listFiles(
    const QDir& dir, const QString& prefix, const QStringList& nameFilters, const QString& archiveName)
{
    QVector<PackedFile> files;
    const QStringList names = dir.entryList(nameFilters, QDir::Files | QDir::Readable, QDir::Name);
    for (const QString& name : names) {
        // The archive being written is in the listing too; it is not one of the files.
        if (name == archiveName)
            continue;
        PackedFile file;
        file.path = prefix + name;
        QFile probe(file.path);
        struct stat facts;
        if (!probe.open(QIODevice::ReadOnly) || fstat(probe.handle(), &facts) != 0)
            continue;
        file.name = name.toUtf8();
        file.size = facts.st_size;
        file.mode = facts.st_mode;
        file.modified = facts.st_mtime;
        files.append(file);
    }
    return files;
}

bool addFile(zip_t* archive, const PackedFile& file)
{
    auto* source = new FileSource(file);
    zip_source_t* zipSource = zip_source_function(archive, &FileSource::callback, source);
    if (!zipSource) {
        delete source;
        return false;
    }
    const zip_int64_t index = zip_file_add(archive, file.name.constData(), zipSource, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(zipSource); // frees the FileSource too
        return false;
    }
    // Level 6, the usual balance: libzip's own default is the slow level 9.
    if (zip_set_file_compression(archive, zip_uint64_t(index), ZIP_CM_DEFLATE, DeflateLevel) != 0)
        return false;
    // Unpackers restore the permissions from here; without them a file comes out mode 0.
    const zip_uint32_t attributes = zip_uint32_t(S_IFREG | (file.mode & 0777)) << 16;
    return zip_file_set_external_attributes(archive, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX, attributes) == 0
        && zip_file_set_mtime(archive, zip_uint64_t(index), file.modified, 0) == 0;
}

// libzip writes nothing at all for an archive without entries; callers get a valid
// empty archive, as before.
bool writeEmptyArchive(const QString& path)
{
    static const char EndOfCentralDirectory[22] = {'P', 'K', 5, 6};
    return Internal::saveWholeFile(path, QByteArray(EndOfCentralDirectory, sizeof(EndOfCentralDirectory)));
}

bool writeArchive(const QString& archivePath, const QVector<PackedFile>& files)
{
    if (files.isEmpty())
        return writeEmptyArchive(archivePath);
    int error = 0;
    Internal::ZipArchivePtr archive(
        zip_open(QFile::encodeName(archivePath).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error));
    if (!archive)
        return false;
    for (const PackedFile& file : files) {
        if (!addFile(archive.get(), file))
            return false;
    }
    // Compresses and writes every entry into a sibling file, moved over the archive's
    // name only when all of them are complete; on failure the sibling is removed.
    if (zip_close(archive.get()) != 0)
        return false;
    archive.release(); // zip_close() has freed it
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
    const QString archivePath = d + archiveName;
    if (writeArchive(archivePath, listFiles(dir, d, nameFilters, archiveName)))
        return true;
    // An archive from an earlier run must not pass for this one.
    QFile::remove(archivePath);
    return false;
}

} // namespace ZrUtils

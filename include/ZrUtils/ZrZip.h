#ifndef ZRUTILS_ZRZIP_H
#define ZRUTILS_ZRZIP_H

#include <ZrUtils/zrutils_export.h>

#include <QObject>
#include <QString>
#include <QStringList>

namespace ZrUtils
{

/**
 * Packs the files of @p dirPath that match @p nameFilters (all files when empty;
 * no subfolders) into "<dirPath>/<folder name>.zip", inside the folder it packs:
 * packing /tmp/logs gives /tmp/logs/logs.zip. Unreadable files are skipped.
 * False when the folder does not exist.
 */
ZRUTILS_EXPORT bool zipWriter(const QString& dirPath, const QStringList& nameFilters);

/**
 * Extracts @p zipPath into @p destDir, or, when that is empty, into the folder next
 * to the archive named after it (/a/b/pack.zip goes to /a/b/pack). False when the
 * path is empty, the archive cannot be read, an entry cannot be written, or any
 * entry (by its name or through a symbolic link) points outside the destination:
 * then no entry is written.
 */
ZRUTILS_EXPORT bool zipReader(const QString& zipPath, QString destDir);

/** Zip and unzip as a QObject, for callers that want one. */
class ZRUTILS_EXPORT ZrZip : public QObject
{
    Q_OBJECT
public:
    explicit ZrZip(QObject* parent = nullptr);
    ~ZrZip() override;

    /** zipWriter(): false when the folder does not exist. */
    bool ZipDir(const QString& dirPath, const QStringList& nameFilters);
    /** zipReader(): false when the archive cannot be extracted safely. */
    bool UnzipFile(const QString& zipPath, QString destDir);
};

} // namespace ZrUtils

#endif

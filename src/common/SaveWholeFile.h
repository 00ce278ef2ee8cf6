// The one way the library replaces a whole file: the new bytes go to a sibling first
// and take the old file's place only once they are all on disk, so a crash, a kill or
// a full disk leaves the old file or the new one, never an empty or half-written one.
#ifndef ZRUTILS_COMMON_SAVEWHOLEFILE_H
#define ZRUTILS_COMMON_SAVEWHOLEFILE_H

#include <QByteArray>
#include <QSaveFile>
#include <QString>

namespace ZrUtils
{
namespace Internal
{

// False when the file could not be replaced; the old one is then untouched.
inline bool saveWholeFile(const QString& path, const QByteArray& bytes)
{
    QSaveFile file(path);
    // A folder may let us write the file but not create a sibling beside it: then
    // write in place, as the library always did there.
    file.setDirectWriteFallback(true);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

} // namespace Internal
} // namespace ZrUtils

#endif

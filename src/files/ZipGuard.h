// Checks run before an archive is extracted, so that no entry can write outside the
// destination: not by its name ("../x", "/etc/x", "C:\x"), not through a symbolic
// link the archive brings along, and not through one already in the destination.
#ifndef ZRUTILS_FILES_ZIPGUARD_H
#define ZRUTILS_FILES_ZIPGUARD_H

#include <ZrUtils/zrutils_export.h>

#include <QHash>
#include <QString>

namespace ZrUtils
{
namespace Internal
{

// True when the stored name stays below the folder it is extracted to: relative, no
// drive, no ".." part (either separator counts, as other systems would read it).
ZRUTILS_TESTS_EXPORT bool isContainedEntryName(const QString& name);

// An entry's path without empty and "." parts: the form in which a walk through the
// folders reaches it, and so the form the archive's links are keyed by.
ZRUTILS_TESTS_EXPORT QString entryPathKey(const QString& path);

// True when @p relativePath, followed through the archive's links (@p archiveLinks:
// entryPathKey() of the link's path to its target) and through the links already on
// disk, stays inside @p root (a canonical folder path). A path that is itself one of
// the archive's links must not lie below another link: that link would be made where
// the walk never looks for it, and its own target would go unchecked.
ZRUTILS_TESTS_EXPORT bool staysInside(
    const QString& root, const QString& relativePath, const QHash<QString, QString>& archiveLinks);

} // namespace Internal
} // namespace ZrUtils

#endif

// Seams of the file helpers: the public functions pass the fixed values (the
// running executable's link, the session bus, a 30 s limit), the tests pass their own.
#ifndef ZRUTILS_FILES_FILEPATHINTERNAL_H
#define ZRUTILS_FILES_FILEPATHINTERNAL_H

#include <ZrUtils/zrutils_export.h>

#include <QString>

#include <string>

namespace ZrUtils
{
namespace Internal
{

// The resource folder @p leaf of an application folder: @p appDir cut before its last
// "/" with "/Resources/<leaf>" appended.
ZRUTILS_TESTS_EXPORT QString resourceDirPath(const QString& appDir, const QString& leaf);

#ifndef Q_OS_MACOS
// The file the symbolic link @p link points to, with every further link resolved.
// Empty when @p link cannot be read as a link; the unresolved target when the
// target itself cannot be resolved (a deleted executable, say).
ZRUTILS_TESTS_EXPORT std::string resolvedLinkTarget(const char* link);

enum class RevealOutcome {
    Nothing, // missing file, no opener, or the file manager did not answer in time
    Selected, // the file manager was asked to show the file selected
    FolderOpened, // no file manager took the request: the folder opener was started
};

struct RevealOptions {
    QString busAddress; // empty: the session bus
    QString folderOpener = QStringLiteral("xdg-open");
    int timeoutMs = 30000;
};

// Asks the desktop's file manager (org.freedesktop.FileManager1.ShowItems) to show
// @p path selected; when no file manager takes the request, starts the folder opener
// on the file's folder without waiting for it. Never takes longer than the timeout.
ZRUTILS_TESTS_EXPORT RevealOutcome revealInFileManager(const QString& path, const RevealOptions& options);
#endif

} // namespace Internal
} // namespace ZrUtils

#endif

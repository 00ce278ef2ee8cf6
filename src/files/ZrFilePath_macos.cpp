// macOS paths of the functions that need the operating system.
#include <ZrUtils/ZrFilePath.h>

#include <QProcess>
#include <QStringList>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <mach-o/dyld.h>

namespace ZrUtils
{

void ZrFilePath::OpenFolderAndSelectFile(QString path)
{
    // "open -R" reveals the file in the Finder; never wait longer than 30 s for it.
    QProcess process;
    process.start(QStringLiteral("open"), {QStringLiteral("-R"), path});
    process.waitForFinished(30000);
}

} // namespace ZrUtils

std::string getAppFilePath()
{
    char path[1024];
    uint32_t size = sizeof(path);
    if (_NSGetExecutablePath(path, &size) != 0)
        return std::string();
    char resolved[PATH_MAX];
    // When the path cannot be resolved the unresolved one is still the executable.
    if (::realpath(path, resolved) == nullptr)
        return std::string(path);
    return std::string(resolved);
}

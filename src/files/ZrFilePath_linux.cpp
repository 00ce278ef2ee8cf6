// Linux paths of the functions that need the operating system: the executable's
// path from /proc and revealing a file in the desktop's file manager.
#include <ZrUtils/ZrFilePath.h>

#include "FilePathInternal.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>
#include <QUrl>

#include <climits>
#include <cstdlib>
#include <memory>
#include <unistd.h>
#include <vector>

namespace ZrUtils
{
namespace Internal
{

namespace
{

struct FreeDeleter {
    void operator()(char* p) const { std::free(p); }
};

const char FileManagerService[] = "org.freedesktop.FileManager1";
const char FileManagerPath[] = "/org/freedesktop/FileManager1";
const char PrivateBusName[] = "zrutils-reveal";

} // namespace

std::string resolvedLinkTarget(const char* link)
{
    // readlink() does not say how long the target is: grow until it fits.
    std::vector<char> buffer(1024);
    ssize_t length = 0;
    for (;;) {
        length = ::readlink(link, buffer.data(), buffer.size());
        if (length < 0)
            return std::string();
        if (size_t(length) < buffer.size())
            break;
        if (buffer.size() >= (size_t(1) << 20))
            return std::string();
        buffer.resize(buffer.size() * 2);
    }
    std::string target(buffer.data(), size_t(length));
    // A relative target is relative to the link's folder, not to the working folder.
    if (!target.empty() && target[0] != '/') {
        const std::string linkPath(link);
        const std::string::size_type slash = linkPath.rfind('/');
        if (slash != std::string::npos)
            target = linkPath.substr(0, slash + 1) + target;
    }
    const std::unique_ptr<char, FreeDeleter> resolved(::realpath(target.c_str(), nullptr));
    return resolved ? std::string(resolved.get()) : target;
}

RevealOutcome revealInFileManager(const QString& path, const RevealOptions& options)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.exists())
        return RevealOutcome::Nothing;
    QElapsedTimer clock;
    clock.start();

    bool fileManagerBusy = false;
    {
        QDBusConnection bus = options.busAddress.isEmpty()
            ? QDBusConnection::sessionBus()
            : QDBusConnection::connectToBus(options.busAddress, QLatin1String(PrivateBusName));
        if (bus.isConnected()) {
            QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(FileManagerService),
                QLatin1String(FileManagerPath), QLatin1String(FileManagerService),
                QStringLiteral("ShowItems"));
            const QString uri = QString::fromLatin1(QUrl::fromLocalFile(info.absoluteFilePath()).toEncoded());
            call << QStringList {uri} << QString();
            // Block without an event loop, as waiting for a helper program would.
            const QDBusMessage reply = bus.call(call, QDBus::Block, options.timeoutMs);
            if (reply.type() == QDBusMessage::ReplyMessage) {
                if (!options.busAddress.isEmpty())
                    QDBusConnection::disconnectFromBus(QLatin1String(PrivateBusName));
                return RevealOutcome::Selected;
            }
            const QDBusError::ErrorType error = QDBusError(reply).type();
            fileManagerBusy = error == QDBusError::NoReply || error == QDBusError::Timeout;
        }
        if (!options.busAddress.isEmpty())
            QDBusConnection::disconnectFromBus(QLatin1String(PrivateBusName));
    }
    // A file manager that took the call but answered late may still show the file;
    // opening the folder as well would give the user two windows.
    if (fileManagerBusy || clock.elapsed() >= options.timeoutMs)
        return RevealOutcome::Nothing;
    // Detached: the opener may run the file manager itself, which must outlive this call.
    if (!QProcess::startDetached(options.folderOpener, {info.absolutePath()}))
        return RevealOutcome::Nothing;
    return RevealOutcome::FolderOpened;
}

} // namespace Internal

void ZrFilePath::OpenFolderAndSelectFile(QString path)
{
    Internal::revealInFileManager(path, Internal::RevealOptions());
}

} // namespace ZrUtils

std::string getAppFilePath()
{
    return ZrUtils::Internal::resolvedLinkTarget("/proc/self/exe");
}

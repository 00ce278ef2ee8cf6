// Arbitrary bytes as an archive for zipReader, extracted into a destination three
// folders below a box that also holds a folder the destination must never reach, and
// a link in the destination that points at it.
//
// Properties: nothing outside the destination changes, whatever the answer; a refused
// archive leaves the destination as it was (or absent, when it was absent); a link the
// extraction made points inside the destination.
#include <ZrUtils/ZrZip.h>

#include <QByteArray>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTemporaryDir>

#include <cstdlib>
#include <unistd.h>

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

// The target as stored in the link, not resolved.
QByteArray linkTarget(const QString& path)
{
    char target[4096];
    const ssize_t length = ::readlink(QFile::encodeName(path).constData(), target, sizeof(target));
    return length < 0 ? QByteArray() : QByteArray(target, int(length));
}

// Each path below @p folder: its kind, its link target or the digest of its content.
using Snapshot = QMap<QString, QByteArray>;

Snapshot snapshotOf(const QString& folder)
{
    Snapshot snapshot;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info(path);
        QByteArray facts;
        if (info.isSymLink()) {
            facts = "link " + linkTarget(path);
        } else if (info.isDir()) {
            facts = "folder";
        } else {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly))
                violated();
            facts = "file " + QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha1).toHex() + ' '
                + QByteArray::number(int(info.permissions()));
        }
        snapshot.insert(path.mid(folder.size()), facts);
    }
    return snapshot;
}

Snapshot without(const Snapshot& snapshot, const QString& prefix)
{
    Snapshot rest;
    for (auto it = snapshot.cbegin(); it != snapshot.cend(); ++it) {
        if (it.key() != prefix && !it.key().startsWith(prefix + QLatin1Char('/')))
            rest.insert(it.key(), it.value());
    }
    return rest;
}

void write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir work;
    if (!work.isValid())
        std::abort();
    const QString box = QFileInfo(work.path()).canonicalFilePath() + QStringLiteral("/box");
    QDir(box).removeRecursively();
    const QString destName = QStringLiteral("/a/b/dest");
    const QString dest = box + destName;
    if (!QDir().mkpath(box + QStringLiteral("/outside")) || !QDir().mkpath(box + QStringLiteral("/a/b")))
        std::abort();
    write(box + QStringLiteral("/outside/keep.txt"), "keep");
    write(box + QStringLiteral("/archive.zip"), QByteArray(reinterpret_cast<const char*>(data), int(size)));
    // Half of the inputs find the destination there already, with a file and a link out.
    if (size % 2 == 0) {
        if (!QDir().mkpath(dest + QStringLiteral("/sub")))
            std::abort();
        write(dest + QStringLiteral("/old.txt"), "old");
        if (!QFile::link(QStringLiteral("../../../outside"), dest + QStringLiteral("/escape")))
            std::abort();
    }

    const Snapshot before = snapshotOf(box);
    const bool extracted = ZrUtils::zipReader(box + QStringLiteral("/archive.zip"), dest);
    const Snapshot after = snapshotOf(box);

    if (without(before, destName) != without(after, destName))
        violated();
    if (!extracted && before != after)
        violated();
    if (extracted) {
        const auto inside
            = [&](const QString& path) { return path == dest || path.startsWith(dest + QLatin1Char('/')); };
        for (auto it = after.cbegin(); it != after.cend(); ++it) {
            if (!it.value().startsWith("link ") || before.value(it.key()) == it.value())
                continue;
            const QFileInfo link(box + it.key());
            const QString target = QFile::decodeName(it.value().mid(int(sizeof("link ") - 1)));
            if (!inside(QDir::cleanPath(QDir(link.absolutePath()).absoluteFilePath(target))))
                violated();
            // Followed to the end, through links that were there before as well.
            const QString resolved = link.canonicalFilePath();
            if (!resolved.isEmpty() && !inside(resolved))
                violated();
        }
    }
    return 0;
}

// Arbitrary entry names into the checks that keep an archive's entries below their
// destination.
//
// Input: lines; the first is the entry name, each following "path>target" line is a
// link the archive brings along.
//
// Properties: a name passed as contained stays lexically below the destination and is
// not refused by the path walk; a name whose plain reading climbs above the
// destination is refused by both checks; the walk ends whatever the links are (loops
// included).
#include "files/ZipGuard.h"

#include <QByteArray>
#include <QDir>
#include <QHash>
#include <QList>
#include <QString>
#include <QTemporaryDir>

#include <cstdlib>

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

bool below(const QString& root, const QString& path)
{
    return path == root || path.startsWith(root + QLatin1Char('/'));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir work;
    if (!work.isValid())
        std::abort();
    // Empty: only the archive's links can lead anywhere.
    static const QString root = QDir(work.path()).canonicalPath();

    const QList<QByteArray> lines = QByteArray(reinterpret_cast<const char*>(data), int(size)).split('\n');
    const QString name = QString::fromUtf8(lines.first());
    QHash<QString, QString> links;
    for (int i = 1; i < lines.size(); ++i) {
        const int arrow = lines.at(i).indexOf('>');
        if (arrow > 0)
            links.insert(
                QString::fromUtf8(lines.at(i).left(arrow)), QString::fromUtf8(lines.at(i).mid(arrow + 1)));
    }

    using ZrUtils::Internal::isContainedEntryName;
    using ZrUtils::Internal::staysInside;
    const bool contained = isContainedEntryName(name);
    const bool walked = staysInside(root, name, {});
    const bool lexicallyBelow = below(root, QDir::cleanPath(root + QLatin1Char('/') + name));
    if (contained && (!lexicallyBelow || !walked))
        violated();
    if (!lexicallyBelow && (contained || walked))
        violated();
    staysInside(root, name, links);
    return 0;
}

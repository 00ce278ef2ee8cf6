#include "ZipGuard.h"

#include <QFileInfo>
#include <QStringList>

namespace ZrUtils
{
namespace Internal
{

namespace
{

// More hops than any sane chain of links: a loop, or an attempt to exhaust us.
constexpr int MaxLinkHops = 40;

bool isInside(const QString& root, const QString& canonicalPath)
{
    return canonicalPath == root || canonicalPath.startsWith(root + QLatin1Char('/'));
}

} // namespace

bool isContainedEntryName(const QString& name)
{
    if (name.isEmpty())
        return false;
    QString path = name;
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (path.startsWith(QLatin1Char('/')))
        return false;
    if (path.length() >= 2 && path.at(1) == QLatin1Char(':'))
        return false;
    return !path.split(QLatin1Char('/')).contains(QStringLiteral(".."));
}

QString entryPathKey(const QString& path)
{
    QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    parts.removeAll(QStringLiteral("."));
    return parts.join(QLatin1Char('/'));
}

bool staysInside(
    const QString& root, const QString& relativePath, const QHash<QString, QString>& archiveLinks)
{
    const QString key = entryPathKey(relativePath);
    if (archiveLinks.contains(key)) {
        // Made below another link, this link would land beside what the walk checks.
        for (int slash = key.indexOf(QLatin1Char('/')); slash > 0;
             slash = key.indexOf(QLatin1Char('/'), slash + 1)) {
            const QString above = key.left(slash);
            if (archiveLinks.contains(above) || QFileInfo(root + QLatin1Char('/') + above).isSymLink())
                return false;
        }
    }
    QStringList pending = relativePath.split(QLatin1Char('/'));
    QStringList done; // the path reached so far, relative to root
    int hops = 0;
    while (!pending.isEmpty()) {
        const QString part = pending.takeFirst();
        if (part.isEmpty() || part == QLatin1String("."))
            continue;
        if (part == QLatin1String("..")) {
            if (done.isEmpty())
                return false;
            done.removeLast();
            continue;
        }
        done.append(part);
        const QString reached = done.join(QLatin1Char('/'));

        // The archive's own links are made before its files are written.
        const auto link = archiveLinks.constFind(reached);
        if (link != archiveLinks.constEnd()) {
            // Relative targets only: they are followed below, ".." included.
            if (++hops > MaxLinkHops || link->isEmpty() || link->startsWith(QLatin1Char('/')))
                return false;
            done.removeLast();
            pending = link->split(QLatin1Char('/')) + pending;
            continue;
        }

        const QFileInfo onDisk(root + QLatin1Char('/') + reached);
        if (onDisk.isSymLink()) {
            if (++hops > MaxLinkHops)
                return false;
            // A dangling link would create its target wherever it points.
            const QString target = onDisk.canonicalFilePath();
            if (target.isEmpty() || !isInside(root, target))
                return false;
            done = target.mid(root.length()).split(QLatin1Char('/'), Qt::SkipEmptyParts);
        }
    }
    return true;
}

} // namespace Internal
} // namespace ZrUtils

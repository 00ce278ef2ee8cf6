// The target-path rule and the speed text both downloaders share.
#ifndef ZRUTILS_TRANSFER_DOWNLOADCOMMON_H
#define ZRUTILS_TRANSFER_DOWNLOADCOMMON_H

#include <ZrUtils/zrutils_export.h>

#include <QString>
#include <QtGlobal>

class QUrl;

namespace ZrUtils
{
namespace Internal
{

// The file a download of url into saveDir goes to: saveDir (the current directory
// when empty) joined with the last segment of the decoded URL path, or "download"
// when that is empty. A file already at that path is deleted at once: an earlier
// download of the same name is replaced, never kept beside the new one.
ZRUTILS_TESTS_EXPORT QString downloadTargetPath(const QUrl& url, const QString& saveDir);

// The average speed of bytes received in elapsedMs, as "%1 %2" with one decimal:
// "512.0 bytes/sec", "12.3 kB/s", "1.5 MB/s". Under 2 ms counts as 1 ms.
ZRUTILS_TESTS_EXPORT QString downloadSpeedText(qint64 bytes, qint64 elapsedMs);

} // namespace Internal
} // namespace ZrUtils

#endif

// A zip archive names and sizes every entry twice: in the central directory, which
// libzip reads, and in the local header before the data, which streaming unpackers
// read. An archive whose two copies disagree means different things to different
// readers, and is refused.
#ifndef ZRUTILS_FILES_ZIPHEADERS_H
#define ZRUTILS_FILES_ZIPHEADERS_H

#include <ZrUtils/zrutils_export.h>

#include <QtGlobal>

class QIODevice;

namespace ZrUtils
{
namespace Internal
{

// True when every local header of the archive on @p device carries the name, method,
// checksum and sizes of its central directory record (ZIP64 fields resolved; the
// checksum and sizes of entries followed by a data descriptor are not compared).
// @p entryCount receives the number of central records. False when the archive
// cannot be read as a zip.
ZRUTILS_TESTS_EXPORT bool localHeadersAgree(QIODevice& device, quint64& entryCount);

} // namespace Internal
} // namespace ZrUtils

#endif

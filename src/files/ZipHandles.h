// Owners for libzip's handles, so that every way out of a function closes them.
#ifndef ZRUTILS_FILES_ZIPHANDLES_H
#define ZRUTILS_FILES_ZIPHANDLES_H

#include <zip.h>

#include <memory>

namespace ZrUtils
{
namespace Internal
{

struct ZipArchiveCloser {
    // Discarding never writes: an archive being written is committed by zip_close() alone.
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct ZipEntryCloser {
    void operator()(zip_file_t* entry) const { zip_fclose(entry); }
};

using ZipArchivePtr = std::unique_ptr<zip_t, ZipArchiveCloser>;
using ZipEntryPtr = std::unique_ptr<zip_file_t, ZipEntryCloser>;

} // namespace Internal
} // namespace ZrUtils

#endif

// MD5 of the log-service client: the body hash of every request.
#ifndef ZRUTILS_LOGSERVICE_MD5_H
#define ZRUTILS_LOGSERVICE_MD5_H

#include <ZrUtils/zrutils_export.h>

#include <cstddef>
#include <cstdint>

namespace cloudlog_sdk_v6
{

// One 64-byte message block as sixteen little-endian words.
struct Md5Block {
    uint32_t word[16];
};

// Loads 64 message bytes into @p block in little-endian order, whatever the
// machine's own byte order is.
void CopyBytesToBlock(const unsigned char* bytes, Md5Block& block);

// The standard MD5 digest of @p length bytes at @p data into @p out16.
ZRUTILS_TESTS_EXPORT void DoMd5(const unsigned char* data, size_t length, unsigned char out16[16]);

} // namespace cloudlog_sdk_v6

#endif

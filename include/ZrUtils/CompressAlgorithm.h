#ifndef ZRUTILS_COMPRESSALGORITHM_H
#define ZRUTILS_COMPRESSALGORITHM_H

#include <ZrUtils/zrutils_export.h>

#include <cstdint>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * LZ4 block compression of request and response bodies: the raw block format,
 * without frame or size prefix. The raw size travels separately (the
 * "x-log-bodyrawsize" header).
 */
class ZRUTILS_EXPORT CompressAlgorithm
{
public:
    /** Compresses @p source into @p dest; false (dest unspecified) on failure. */
    static bool CompressLz4(const std::string& source, std::string& dest);
    static bool CompressLz4(const char* source, uint32_t length, std::string& dest);

    /**
     * Decompresses @p source, which must expand to exactly @p rawLength bytes,
     * into @p dest. False when it does not or the data is corrupt.
     */
    static bool UncompressLz4(const std::string& source, uint32_t rawLength, std::string& dest);
    static bool UncompressLz4(const char* source, uint32_t length, uint32_t rawLength, std::string& dest);
};

} // namespace cloudlog_sdk_v6

#endif

#include <ZrUtils/CompressAlgorithm.h>

#include <lz4.h>

#include <exception>

namespace cloudlog_sdk_v6
{

namespace
{

// One LZ4 input byte expands to at most 255 output bytes; a raw size beyond that
// cannot come out of the source, so it fails without allocating the buffer.
const uint64_t kMaxExpansion = 255;

} // namespace

bool CompressAlgorithm::CompressLz4(const std::string& source, std::string& dest)
{
    if (source.size() > uint32_t(-1))
        return false;
    return CompressLz4(source.data(), uint32_t(source.size()), dest);
}

bool CompressAlgorithm::CompressLz4(const char* source, uint32_t length, std::string& dest)
{
    try {
        if (length > uint32_t(LZ4_MAX_INPUT_SIZE) || (!source && length > 0))
            return false;
        const int bound = LZ4_compressBound(int(length));
        dest.resize(size_t(bound));
        const int size = LZ4_compress_default(source, &dest[0], int(length), bound);
        if (size <= 0)
            return false;
        dest.resize(size_t(size));
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool CompressAlgorithm::UncompressLz4(const std::string& source, uint32_t rawLength, std::string& dest)
{
    if (source.size() > uint32_t(-1))
        return false;
    return UncompressLz4(source.data(), uint32_t(source.size()), rawLength, dest);
}

bool CompressAlgorithm::UncompressLz4(
    const char* source, uint32_t length, uint32_t rawLength, std::string& dest)
{
    try {
        if (rawLength > uint32_t(LZ4_MAX_INPUT_SIZE) || length > uint32_t(LZ4_MAX_INPUT_SIZE)
            || uint64_t(rawLength) > kMaxExpansion * length || (!source && length > 0))
            return false;
        dest.resize(rawLength);
        const int size = LZ4_decompress_safe(source, &dest[0], int(length), int(rawLength));
        return size >= 0 && uint32_t(size) == rawLength;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace cloudlog_sdk_v6

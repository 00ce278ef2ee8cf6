// Arbitrary bytes into the log group decoder and the LZ4 decompressor: neither may
// crash or read out of bounds, and whatever decodes must encode and decode again
// to the same groups.
#include <ZrUtils/CompressAlgorithm.h>
#include <ZrUtils/LogGroup.h>

#include <cstdlib>
#include <cstring>

using namespace cloudlog_sdk_v6;

namespace
{

bool sameGroup(const pb::LogGroup& a, const pb::LogGroup& b)
{
    if (a.topic != b.topic || a.source != b.source || a.logs.size() != b.logs.size()
        || a.logTags.size() != b.logTags.size())
        return false;
    for (size_t i = 0; i < a.logTags.size(); ++i) {
        if (a.logTags[i].key != b.logTags[i].key || a.logTags[i].value != b.logTags[i].value)
            return false;
    }
    for (size_t i = 0; i < a.logs.size(); ++i) {
        const pb::Log& x = a.logs[i];
        const pb::Log& y = b.logs[i];
        if (x.time != y.time || x.hasTimeNs != y.hasTimeNs || x.timeNs != y.timeNs
            || x.contents.size() != y.contents.size())
            return false;
        for (size_t j = 0; j < x.contents.size(); ++j) {
            if (x.contents[j].key != y.contents[j].key || x.contents[j].value != y.contents[j].value)
                return false;
        }
    }
    return true;
}

void decodeGroups(const std::string& bytes)
{
    pb::LogGroupList list;
    if (!list.ParseFromString(bytes))
        return;
    for (const pb::LogGroup& group : list.logGroups) {
        std::string encoded;
        if (!group.SerializeToString(&encoded))
            std::abort();
        // Wrap the group as the only member of a list: tag 0x0A and the length.
        std::string wrapped(1, '\x0A');
        for (uint32_t n = uint32_t(encoded.size());; n >>= 7) {
            wrapped += char(n < 0x80 ? n : (n & 0x7F) | 0x80);
            if (n < 0x80)
                break;
        }
        wrapped += encoded;
        pb::LogGroupList again;
        if (!again.ParseFromString(wrapped) || again.logGroups.size() != 1
            || !sameGroup(again.logGroups[0], group))
            std::abort();
    }
}

void decompress(const uint8_t* data, size_t size)
{
    if (size < 3)
        return;
    // The first three bytes announce the raw size (up to 16 MiB), the rest is the block.
    const uint32_t rawLength = uint32_t(data[0]) | uint32_t(data[1]) << 8 | uint32_t(data[2]) << 16;
    std::string out;
    if (CompressAlgorithm::UncompressLz4(
            reinterpret_cast<const char*>(data + 3), uint32_t(size - 3), rawLength, out)
        && out.size() != rawLength)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    decodeGroups(std::string(reinterpret_cast<const char*>(data), size));
    decompress(data, size);
    return 0;
}

// The log group's own protocol-buffers encoder and decoder.
#ifndef ZRUTILS_LOGSERVICE_PBENCODER_H
#define ZRUTILS_LOGSERVICE_PBENCODER_H

#include <ZrUtils/LogGroup.h>

namespace cloudlog_sdk_v6
{
namespace pb
{

class ZRUTILS_TESTS_EXPORT PbEncoder
{
public:
    // Size-exact, one allocation: the size is computed first and the buffer then
    // filled from its end towards its start.
    static bool SerializeToString(const LogGroup& group, std::string* output);
    // Bounds-checked on every read; see LogGroupList::ParseFromString.
    static bool ParseFromString(const std::string& data, LogGroupList* list);

    // Writes @p value as a base-128 varint (low group first) at @p buffer and
    // returns the position after it; at most five bytes.
    static char* EncodeVarint32(char* buffer, uint32_t value);
    // The position after the field of @p wireType that starts at @p pos, or null
    // when it is malformed, reaches past @p end or has an unknown wire type.
    static const char* SkipProtobufField(const char* pos, const char* end, uint32_t wireType);
};

} // namespace pb
} // namespace cloudlog_sdk_v6

#endif

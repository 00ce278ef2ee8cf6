#include "PbEncoder.h"

#include <cstring>
#include <limits>

namespace cloudlog_sdk_v6
{
namespace pb
{

namespace
{

// Tags: field number << 3 | wire type.
enum : unsigned char {
    kTagGroupLogs = 0x0A,
    kTagGroupTopic = 0x1A,
    kTagGroupSource = 0x22,
    kTagGroupTags = 0x32,
    kTagLogTime = 0x08,
    kTagLogContents = 0x12,
    kTagLogTimeNs = 0x25,
    kTagKey = 0x0A,
    kTagValue = 0x12,
};

enum WireType : uint32_t { kVarint = 0, kFixed64 = 1, kLengthDelimited = 2, kFixed32 = 5 };

inline size_t varintSize(uint32_t value)
{
    // 1 below 2^7, 2 below 2^14, 3 below 2^21, 4 below 2^28, else 5: the number of
    // significant bits, seven to a byte, without branches.
    const uint32_t bits = 32 - uint32_t(__builtin_clz(value | 1));
    return (bits * 9 + 64) / 64;
}

// Tag, length and bytes of one length-delimited field whose body is @p length long.
inline size_t fieldSize(size_t length)
{
    return 1 + varintSize(uint32_t(length)) + length;
}

inline size_t pairSize(const std::string& key, const std::string& value)
{
    return fieldSize(key.size()) + fieldSize(value.size());
}

size_t logBodySize(const Log& log)
{
    size_t size = 1 + varintSize(log.time) + (log.hasTimeNs ? 5 : 0);
    for (const LogContent& content : log.contents)
        size += fieldSize(pairSize(content.key, content.value));
    return size;
}

// The writers below fill the buffer backwards: each takes the position just
// after the field and returns the position of its first byte. A nested message
// is written body first, so its length is known by the time its header goes in.

// Kept local so that it inlines: the exported PbEncoder::EncodeVarint32 may be
// interposed and is called through the symbol table.
inline char* encodeVarint(char* buffer, uint32_t value)
{
    while (value >= 0x80) {
        *buffer++ = char(value | 0x80);
        value >>= 7;
    }
    *buffer++ = char(value);
    return buffer;
}

inline char* writeVarintBefore(char* pos, uint32_t value)
{
    if (value < 0x80) {
        *--pos = char(value);
        return pos;
    }
    pos -= varintSize(value);
    encodeVarint(pos, value);
    return pos;
}

// Keys and values are mostly a few bytes long: copy those inline rather than
// paying a call for each.
inline void copyBytes(char* to, const char* from, size_t size)
{
    if (size >= 8 && size <= 16) {
        uint64_t head, tail;
        std::memcpy(&head, from, 8);
        std::memcpy(&tail, from + size - 8, 8);
        std::memcpy(to, &head, 8);
        std::memcpy(to + size - 8, &tail, 8);
    } else if (size >= 4 && size < 8) {
        uint32_t head, tail;
        std::memcpy(&head, from, 4);
        std::memcpy(&tail, from + size - 4, 4);
        std::memcpy(to, &head, 4);
        std::memcpy(to + size - 4, &tail, 4);
    } else if (size < 4) {
        if (size > 0)
            to[0] = from[0];
        if (size > 1)
            to[1] = from[1];
        if (size > 2)
            to[2] = from[2];
    } else {
        std::memcpy(to, from, size);
    }
}

inline char* writeBytesBefore(char* pos, unsigned char tag, const std::string& bytes)
{
    pos -= bytes.size();
    copyBytes(pos, bytes.data(), bytes.size());
    pos = writeVarintBefore(pos, uint32_t(bytes.size()));
    *--pos = char(tag);
    return pos;
}

inline char* writePairBefore(char* pos, unsigned char tag, const std::string& key, const std::string& value)
{
    char* const end = pos;
    pos = writeBytesBefore(pos, kTagValue, value);
    pos = writeBytesBefore(pos, kTagKey, key);
    pos = writeVarintBefore(pos, uint32_t(end - pos));
    *--pos = char(tag);
    return pos;
}

// Reads a varint of at most five bytes; bits past the 32nd are dropped.
inline const char* readVarint32(const char* pos, const char* end, uint32_t* value)
{
    uint32_t result = 0;
    for (int i = 0; i < 5; ++i) {
        if (pos >= end)
            return nullptr;
        const uint32_t byte = static_cast<unsigned char>(*pos++);
        result |= (byte & 0x7F) << (7 * i);
        if (byte < 0x80) {
            *value = result;
            return pos;
        }
    }
    return nullptr;
}

// Reads the length of a length-delimited field and checks it against @p end.
inline const char* readLength(const char* pos, const char* end, uint32_t* length)
{
    pos = readVarint32(pos, end, length);
    if (!pos || *length > size_t(end - pos))
        return nullptr;
    return pos;
}

// A key/value message (LogContent or LogTag) spanning [pos, end).
template<typename Pair> bool parsePair(const char* pos, const char* end, Pair& pair)
{
    while (pos < end) {
        uint32_t tag;
        if (!(pos = readVarint32(pos, end, &tag)))
            return false;
        const uint32_t field = tag >> 3;
        const uint32_t wire = tag & 7;
        if ((field == 1 || field == 2) && wire == kLengthDelimited) {
            uint32_t length;
            if (!(pos = readLength(pos, end, &length)))
                return false;
            (field == 1 ? pair.key : pair.value).assign(pos, length);
            pos += length;
        } else if (!(pos = PbEncoder::SkipProtobufField(pos, end, wire))) {
            return false;
        }
    }
    return true;
}

bool parseLog(const char* pos, const char* end, Log& log)
{
    while (pos < end) {
        uint32_t tag;
        if (!(pos = readVarint32(pos, end, &tag)))
            return false;
        const uint32_t field = tag >> 3;
        const uint32_t wire = tag & 7;
        if (field == 1 && wire == kVarint) {
            if (!(pos = readVarint32(pos, end, &log.time)))
                return false;
        } else if (field == 2) {
            uint32_t length;
            if (wire != kLengthDelimited || !(pos = readLength(pos, end, &length)))
                return false;
            log.contents.emplace_back();
            if (!parsePair(pos, pos + length, log.contents.back()))
                return false;
            pos += length;
        } else if (field == 4) {
            if (wire != kFixed32 || end - pos < 4)
                return false;
            const unsigned char* b = reinterpret_cast<const unsigned char*>(pos);
            log.timeNs = uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
            log.hasTimeNs = true;
            pos += 4;
        } else if (!(pos = PbEncoder::SkipProtobufField(pos, end, wire))) {
            return false;
        }
    }
    return true;
}

bool parseLogGroup(const char* pos, const char* end, LogGroup& group)
{
    while (pos < end) {
        uint32_t tag;
        if (!(pos = readVarint32(pos, end, &tag)))
            return false;
        const uint32_t field = tag >> 3;
        const uint32_t wire = tag & 7;
        if (field != 1 && field != 3 && field != 4 && field != 6) {
            if (!(pos = PbEncoder::SkipProtobufField(pos, end, wire)))
                return false;
            continue;
        }
        uint32_t length;
        if (wire != kLengthDelimited || !(pos = readLength(pos, end, &length)))
            return false;
        switch (field) {
        case 1:
            group.logs.emplace_back();
            if (!parseLog(pos, pos + length, group.logs.back()))
                return false;
            break;
        case 3:
            group.topic.assign(pos, length);
            break;
        case 4:
            group.source.assign(pos, length);
            break;
        case 6:
            group.logTags.emplace_back();
            if (!parsePair(pos, pos + length, group.logTags.back()))
                return false;
            break;
        }
        pos += length;
    }
    return true;
}

} // namespace

char* PbEncoder::EncodeVarint32(char* buffer, uint32_t value)
{
    return encodeVarint(buffer, value);
}

const char* PbEncoder::SkipProtobufField(const char* pos, const char* end, uint32_t wireType)
{
    if (!pos || pos > end)
        return nullptr;
    size_t skip = 0;
    switch (wireType) {
    case kVarint: {
        uint32_t ignored;
        return readVarint32(pos, end, &ignored);
    }
    case kFixed64:
        skip = 8;
        break;
    case kLengthDelimited: {
        uint32_t length;
        pos = readVarint32(pos, end, &length);
        if (!pos)
            return nullptr;
        skip = length;
        break;
    }
    case kFixed32:
        skip = 4;
        break;
    default:
        // Groups (3, 4) cannot be skipped without parsing them; 6 and 7 do not exist.
        return nullptr;
    }
    if (skip > size_t(end - pos))
        return nullptr;
    return pos + skip;
}

bool PbEncoder::SerializeToString(const LogGroup& group, std::string* output)
{
    if (!output)
        return false;

    // Pass 1: the exact size.
    size_t total = 0;
    for (const Log& log : group.logs)
        total += fieldSize(logBodySize(log));
    for (const LogTag& tag : group.logTags)
        total += fieldSize(pairSize(tag.key, tag.value));
    if (!group.source.empty())
        total += fieldSize(group.source.size());
    if (!group.topic.empty())
        total += fieldSize(group.topic.size());
    // Every length on the wire is 32 bits wide.
    if (total > std::numeric_limits<uint32_t>::max())
        return false;

    output->resize(total);
    char* const begin = &(*output)[0];
    char* pos = begin + total;

    // Pass 2: from the end towards the front, which puts the topic last. Every
    // byte is written once and no size is computed again.
    if (!group.topic.empty())
        pos = writeBytesBefore(pos, kTagGroupTopic, group.topic);
    if (!group.source.empty())
        pos = writeBytesBefore(pos, kTagGroupSource, group.source);
    for (auto tag = group.logTags.rbegin(); tag != group.logTags.rend(); ++tag)
        pos = writePairBefore(pos, kTagGroupTags, tag->key, tag->value);
    for (auto log = group.logs.rbegin(); log != group.logs.rend(); ++log) {
        char* const end = pos;
        for (auto content = log->contents.rbegin(); content != log->contents.rend(); ++content)
            pos = writePairBefore(pos, kTagLogContents, content->key, content->value);
        if (log->hasTimeNs) {
            pos -= 4;
            for (int i = 0; i < 4; ++i)
                pos[i] = char(log->timeNs >> (8 * i));
            *--pos = char(kTagLogTimeNs);
        }
        pos = writeVarintBefore(pos, log->time);
        *--pos = char(kTagLogTime);
        pos = writeVarintBefore(pos, uint32_t(end - pos));
        *--pos = char(kTagGroupLogs);
    }
    // The size pass and the write pass agree exactly when this holds.
    return pos == begin;
}

bool PbEncoder::ParseFromString(const std::string& data, LogGroupList* list)
{
    if (!list)
        return false;
    list->logGroups.clear();
    const char* pos = data.data();
    const char* const end = pos + data.size();
    while (pos < end) {
        uint32_t tag;
        if (!(pos = readVarint32(pos, end, &tag)))
            return false;
        const uint32_t field = tag >> 3;
        const uint32_t wire = tag & 7;
        if (field != 1) {
            if (!(pos = SkipProtobufField(pos, end, wire)))
                return false;
            continue;
        }
        uint32_t length;
        if (wire != kLengthDelimited || !(pos = readLength(pos, end, &length)))
            return false;
        LogGroup group;
        if (!parseLogGroup(pos, pos + length, group))
            return false;
        list->logGroups.push_back(std::move(group));
        pos += length;
    }
    return true;
}

} // namespace pb

bool pb::LogGroup::SerializeToString(std::string* output) const
{
    return PbEncoder::SerializeToString(*this, output);
}

bool pb::LogGroupList::ParseFromString(const std::string& data)
{
    return PbEncoder::ParseFromString(data, this);
}

} // namespace cloudlog_sdk_v6

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
    if (value < (1u << 7))
        return 1;
    if (value < (1u << 14))
        return 2;
    if (value < (1u << 21))
        return 3;
    if (value < (1u << 28))
        return 4;
    return 5;
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

inline char* writeBytes(char* pos, unsigned char tag, const std::string& bytes)
{
    *pos++ = char(tag);
    pos = PbEncoder::EncodeVarint32(pos, uint32_t(bytes.size()));
    if (!bytes.empty())
        std::memcpy(pos, bytes.data(), bytes.size());
    return pos + bytes.size();
}

inline char* writePair(char* pos, unsigned char tag, const std::string& key, const std::string& value)
{
    *pos++ = char(tag);
    pos = PbEncoder::EncodeVarint32(pos, uint32_t(pairSize(key, value)));
    pos = writeBytes(pos, kTagKey, key);
    return writeBytes(pos, kTagValue, value);
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
    while (value >= 0x80) {
        *buffer++ = char(value | 0x80);
        value >>= 7;
    }
    *buffer++ = char(value);
    return buffer;
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

    // Pass 2: from the end towards the front, each field written front-to-back
    // into the space reserved for it. This puts the topic last.
    if (!group.topic.empty()) {
        pos -= fieldSize(group.topic.size());
        writeBytes(pos, kTagGroupTopic, group.topic);
    }
    if (!group.source.empty()) {
        pos -= fieldSize(group.source.size());
        writeBytes(pos, kTagGroupSource, group.source);
    }
    for (auto tag = group.logTags.rbegin(); tag != group.logTags.rend(); ++tag) {
        pos -= fieldSize(pairSize(tag->key, tag->value));
        writePair(pos, kTagGroupTags, tag->key, tag->value);
    }
    for (auto log = group.logs.rbegin(); log != group.logs.rend(); ++log) {
        const size_t bodySize = logBodySize(*log);
        pos -= fieldSize(bodySize);
        char* p = pos;
        *p++ = char(kTagGroupLogs);
        p = EncodeVarint32(p, uint32_t(bodySize));
        *p++ = char(kTagLogTime);
        p = EncodeVarint32(p, log->time);
        if (log->hasTimeNs) {
            *p++ = char(kTagLogTimeNs);
            for (int i = 0; i < 4; ++i)
                *p++ = char(log->timeNs >> (8 * i));
        }
        for (const LogContent& content : log->contents)
            p = writePair(p, kTagLogContents, content.key, content.value);
    }
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

#ifndef ZRUTILS_LOGGROUP_H
#define ZRUTILS_LOGGROUP_H

#include <ZrUtils/zrutils_export.h>

#include <cstdint>
#include <string>
#include <vector>

/**
 * The log records the log service exchanges in protocol-buffers form. All strings
 * are byte strings and all lists keep insertion order.
 */
namespace cloudlog_sdk_v6
{
namespace pb
{

struct LogContent {
    std::string key;
    std::string value;
};

struct LogTag {
    std::string key;
    std::string value;
};

struct Log {
    uint32_t time = 0; // seconds since the Unix epoch
    std::vector<LogContent> contents;
    bool hasTimeNs = false;
    uint32_t timeNs = 0; // nanosecond part, sent only when hasTimeNs is set
};

struct ZRUTILS_EXPORT LogGroup {
    std::vector<Log> logs;
    std::vector<LogTag> logTags;
    std::string topic; // omitted from the wire when empty
    std::string source; // omitted from the wire when empty

    /**
     * Replaces @p output with the wire form: logs, then tags, then source, then
     * topic. Returns false only if the size computation and the written bytes
     * disagree, which the encoder checks on every call. A group without logs,
     * tags, topic and source encodes as the empty string.
     */
    bool SerializeToString(std::string* output) const;
};

struct ZRUTILS_EXPORT LogGroupList {
    std::vector<LogGroup> logGroups;

    /**
     * Replaces the groups with those decoded from @p data. Returns false on
     * malformed input (a read past the end, an over-long varint, a known field
     * of the wrong wire type); the groups decoded before the fault are kept.
     */
    bool ParseFromString(const std::string& data);
};

} // namespace pb
} // namespace cloudlog_sdk_v6

#endif

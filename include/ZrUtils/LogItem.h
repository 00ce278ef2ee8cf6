#ifndef ZRUTILS_LOGITEM_H
#define ZRUTILS_LOGITEM_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace cloudlog_sdk_v6
{

/**
 * One log line as the caller hands it to LOGClient::PostLogStoreLogs: a time and
 * ordered key/value contents.
 *
 * @c topic and @c source describe a log read back from the service (its
 * "__topic__" and "__source__"); posting does not read them, the topic and the
 * source of a post are those of the call and of the client.
 */
struct LogItem {
    uint32_t timestamp = 0; // seconds since the Unix epoch
    std::string topic;
    std::string source;
    std::vector<std::pair<std::string, std::string>> contents;
};

} // namespace cloudlog_sdk_v6

#endif

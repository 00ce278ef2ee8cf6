#ifndef ZRUTILS_HTTPMESSAGE_H
#define ZRUTILS_HTTPMESSAGE_H

#include <cstdint>
#include <map>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * The response to one log-service request.
 *
 * Header names keep the case the server sent them in, and a repeated header keeps
 * its last value.
 */
struct HttpMessage {
    int32_t statusCode = 0; // 200 alone means success
    std::map<std::string, std::string> header;
    std::string content;
};

} // namespace cloudlog_sdk_v6

#endif

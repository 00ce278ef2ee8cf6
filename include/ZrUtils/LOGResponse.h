#ifndef ZRUTILS_LOGRESPONSE_H
#define ZRUTILS_LOGRESPONSE_H

#include <cstdint>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * What every successful client operation returns at least: the HTTP status and
 * the service's request id ("x-log-requestid"). Operations with more to report
 * derive from it.
 */
struct Response {
    int32_t statusCode = 0;
    std::string requestId;
};

using PostLogStoreLogsResponse = Response;

} // namespace cloudlog_sdk_v6

#endif

// The response header parser of the log-service transport.
#ifndef ZRUTILS_LOGSERVICE_HEADERPARSER_H
#define ZRUTILS_LOGSERVICE_HEADERPARSER_H

#include <ZrUtils/zrutils_export.h>

#include <cstddef>
#include <map>
#include <string>

namespace cloudlog_sdk_v6
{

// Stores the "name: value" pair of one response header line of @p length bytes
// (with its CRLF) into @p header, overwriting an earlier value. Lines shorter than
// four bytes and lines without a colon after their first byte (the status line,
// the blank line ending the head) are ignored.
ZRUTILS_TESTS_EXPORT void ParseResponseHeaderLine(
    const char* line, size_t length, std::map<std::string, std::string>& header);

} // namespace cloudlog_sdk_v6

#endif

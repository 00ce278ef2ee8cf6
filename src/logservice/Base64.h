// The stream encoder behind CodecTool::Base64Enconde.
#ifndef ZRUTILS_LOGSERVICE_BASE64_H
#define ZRUTILS_LOGSERVICE_BASE64_H

#include <ZrUtils/zrutils_export.h>

#include <iosfwd>

namespace cloudlog_sdk_v6
{

// Reads @p input to its end, three bytes at a time, and writes four symbols of
// the 64-character @p alphabet for each; a final group of one or two bytes is
// completed with two or one @p padding characters.
ZRUTILS_TESTS_EXPORT void Base64Encoding(
    std::istream& input, std::ostream& output, char padding, const char* alphabet);

} // namespace cloudlog_sdk_v6

#endif

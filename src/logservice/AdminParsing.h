// Reading the answers of the administration and query calls: headers, JSON
// bodies, and the mapping of anything unreadable to "BadResponse".
#ifndef ZRUTILS_LOGSERVICE_ADMINPARSING_H
#define ZRUTILS_LOGSERVICE_ADMINPARSING_H

#include <ZrUtils/HttpMessage.h>
#include <ZrUtils/LOGAdminResponse.h>
#include <ZrUtils/zrutils_export.h>

#include "JsonExtract.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <string>

namespace cloudlog_sdk_v6
{

// Header @p name of @p message: the exact name first, then any case, since
// proxies may change it. Empty when absent.
ZRUTILS_TESTS_EXPORT std::string GetHeaderValue(const HttpMessage& message, const std::string& name);

// Header @p name as a number into @p result; left as it is when the header is
// absent. Throws JsonException when it is present and not a whole number in
// range (or, for the double form, not a finite number).
ZRUTILS_TESTS_EXPORT void ExtractHeaderNumber(
    const HttpMessage& message, const std::string& name, int64_t& result);
ZRUTILS_TESTS_EXPORT void ExtractHeaderNumber(
    const HttpMessage& message, const std::string& name, int32_t& result);
ZRUTILS_TESTS_EXPORT void ExtractHeaderNumber(
    const HttpMessage& message, const std::string& name, double& result);

// Parses @p content, which must be a JSON array ("InvalidArrayException").
ZRUTILS_TESTS_EXPORT void ExtractJsonArray(const std::string& content, rapidjson::Document& document);

// One log of a query answer; see LOGClient::GetLogStoreLogs for its members.
ZRUTILS_TESTS_EXPORT LogMetaItem ParseQueriedLog(const rapidjson::Value& value);

// Throws LOGException "ParameterInvalid" when either name is empty.
void CheckProjectAndLogstore(const std::string& project, const std::string& logstore);

// Status and request id of a successful answer.
Response MakeResponse(const HttpMessage& message);

// Throws LOGException "BadResponse" with @p text, the request id and the status
// of @p message.
[[noreturn]] void ThrowBadResponse(const HttpMessage& message, const std::string& text);

// Runs @p read; a JsonException it throws becomes LOGException "BadResponse"
// with its message, the request id and the status of @p message.
template<typename Read> void ReadAnswer(const HttpMessage& message, Read read)
{
    try {
        read();
    } catch (const JsonException& e) {
        ThrowBadResponse(message, e.GetErrorMessage());
    }
}

} // namespace cloudlog_sdk_v6

#endif

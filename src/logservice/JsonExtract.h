// Reading service responses: JSON parsing and typed member extraction.
//
// Every function throws JsonException on a body or member it cannot use. The
// operations of the client catch it and turn it into a LOGException ("BadResponse",
// or the error mapping of LOGClient::SendRequest); it never leaves the client.
#ifndef ZRUTILS_LOGSERVICE_JSONEXTRACT_H
#define ZRUTILS_LOGSERVICE_JSONEXTRACT_H

#include <ZrUtils/zrutils_export.h>

#include <rapidjson/document.h>

#include <cstdint>
#include <exception>
#include <string>

namespace cloudlog_sdk_v6
{

class ZRUTILS_TESTS_EXPORT JsonException : public std::exception
{
public:
    JsonException(const std::string& errorCode, const std::string& message);
    ~JsonException() noexcept override;

    const std::string& GetErrorCode() const noexcept { return mErrorCode; }
    const std::string& GetErrorMessage() const noexcept { return mMessage; }

private:
    std::string mErrorCode;
    std::string mMessage;
};

// Parses @p response into @p document, which must then be a JSON object.
ZRUTILS_TESTS_EXPORT void ExtractJsonResult(const std::string& response, rapidjson::Document& document);

// Throws "NoMemberException" unless @p value is an object with member @p name.
ZRUTILS_TESTS_EXPORT void JsonMemberCheck(const rapidjson::Value& value, const char* name);

// Member @p name of @p value, checked for presence and type.
ZRUTILS_TESTS_EXPORT void ExtractJsonResult(
    const rapidjson::Value& value, const char* name, std::string& result);
ZRUTILS_TESTS_EXPORT void ExtractJsonResult(const rapidjson::Value& value, const char* name, int32_t& result);
ZRUTILS_TESTS_EXPORT void ExtractJsonResult(
    const rapidjson::Value& value, const char* name, uint32_t& result);
ZRUTILS_TESTS_EXPORT void ExtractJsonResult(const rapidjson::Value& value, const char* name, int64_t& result);
ZRUTILS_TESTS_EXPORT void ExtractJsonResult(const rapidjson::Value& value, const char* name, bool& result);
// An object member, returned by reference into the document.
ZRUTILS_TESTS_EXPORT const rapidjson::Value& GetJsonValue(const rapidjson::Value& value, const char* name);

} // namespace cloudlog_sdk_v6

#endif

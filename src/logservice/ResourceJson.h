// The JSON writer and value behind the resource models, opaque in the public
// headers so that RapidJSON stays out of the library's interface.
#ifndef ZRUTILS_LOGSERVICE_RESOURCEJSON_H
#define ZRUTILS_LOGSERVICE_RESOURCEJSON_H

#include <ZrUtils/LogResource.h>
#include <ZrUtils/zrutils_export.h>

#include "JsonExtract.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cloudlog_sdk_v6
{

class JsonWriter : public rapidjson::Writer<rapidjson::StringBuffer>
{
public:
    explicit JsonWriter(rapidjson::StringBuffer& buffer)
        : Writer(buffer)
    {
    }

    void string(const std::string& value) { String(value.data(), rapidjson::SizeType(value.size())); }
    void member(const char* name, const std::string& value)
    {
        Key(name);
        string(value);
    }
    // Without it a literal would pick the bool overload.
    void member(const char* name, const char* value) { member(name, std::string(value)); }
    void member(const char* name, int32_t value)
    {
        Key(name);
        Int(value);
    }
    void member(const char* name, int64_t value)
    {
        Key(name);
        Int64(value);
    }
    void member(const char* name, bool value)
    {
        Key(name);
        Bool(value);
    }
    void member(const char* name, const std::vector<std::string>& values)
    {
        Key(name);
        StartArray();
        for (const std::string& value : values)
            string(value);
        EndArray();
    }
};

class JsonValue
{
public:
    explicit JsonValue(const rapidjson::Value& value)
        : mValue(value)
    {
    }
    const rapidjson::Value& get() const { return mValue; }

private:
    const rapidjson::Value& mValue;
};

// The readers below throw JsonException, like the extraction functions.

// Throws "InvalidObjectException" naming @p what unless @p value is an object.
ZRUTILS_TESTS_EXPORT void RequireJsonObject(const rapidjson::Value& value, const char* what);
// Member @p name, which must be an array ("ValueTypeException" otherwise).
ZRUTILS_TESTS_EXPORT const rapidjson::Value& GetJsonArray(const rapidjson::Value& value, const char* name);
// Member @p name, an array of strings.
ZRUTILS_TESTS_EXPORT void ExtractJsonResult(
    const rapidjson::Value& value, const char* name, std::vector<std::string>& result);

// Member @p name when present, checked for type; else @p result stays.
template<typename T>
void ExtractOptionalJsonResult(const rapidjson::Value& value, const char* name, T& result)
{
    if (value.IsObject() && value.HasMember(name))
        ExtractJsonResult(value, name, result);
}

} // namespace cloudlog_sdk_v6

#endif

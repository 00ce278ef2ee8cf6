#include "JsonExtract.h"

namespace cloudlog_sdk_v6
{

namespace
{

[[noreturn]] void throwWrongType(const char* name, const char* type)
{
    throw JsonException("ValueTypeException", std::string("Member ") + name + " is not " + type + " type");
}

const rapidjson::Value& member(const rapidjson::Value& value, const char* name)
{
    JsonMemberCheck(value, name);
    return value.FindMember(name)->value;
}

} // namespace

JsonException::JsonException(const std::string& errorCode, const std::string& message)
    : mErrorCode(errorCode)
    , mMessage(message)
{
}

JsonException::~JsonException() noexcept = default;

void ExtractJsonResult(const std::string& response, rapidjson::Document& document)
{
    // Iterative: a deeply nested body must not exhaust the stack.
    document.Parse<rapidjson::kParseIterativeFlag>(response.data(), response.size());
    if (document.HasParseError())
        throw JsonException("ParseException", "Fail to parse from json string");
    if (!document.IsObject())
        throw JsonException("InvalidObjectException", "response is not valid JSON object");
}

void JsonMemberCheck(const rapidjson::Value& value, const char* name)
{
    if (!value.IsObject() || !value.HasMember(name))
        throw JsonException("NoMemberException", std::string("Member ") + name + " does not exist");
}

void ExtractJsonResult(const rapidjson::Value& value, const char* name, std::string& result)
{
    const rapidjson::Value& v = member(value, name);
    if (!v.IsString())
        throwWrongType(name, "string");
    result.assign(v.GetString(), v.GetStringLength());
}

void ExtractJsonResult(const rapidjson::Value& value, const char* name, int32_t& result)
{
    const rapidjson::Value& v = member(value, name);
    if (!v.IsInt())
        throwWrongType(name, "int");
    result = v.GetInt();
}

void ExtractJsonResult(const rapidjson::Value& value, const char* name, uint32_t& result)
{
    const rapidjson::Value& v = member(value, name);
    if (!v.IsUint())
        throwWrongType(name, "uint");
    result = v.GetUint();
}

void ExtractJsonResult(const rapidjson::Value& value, const char* name, int64_t& result)
{
    const rapidjson::Value& v = member(value, name);
    if (!v.IsInt64())
        throwWrongType(name, "int");
    result = v.GetInt64();
}

void ExtractJsonResult(const rapidjson::Value& value, const char* name, bool& result)
{
    const rapidjson::Value& v = member(value, name);
    if (!v.IsBool())
        throwWrongType(name, "boolean");
    result = v.GetBool();
}

const rapidjson::Value& GetJsonValue(const rapidjson::Value& value, const char* name)
{
    const rapidjson::Value& v = member(value, name);
    if (!v.IsObject())
        throwWrongType(name, "json value");
    return v;
}

} // namespace cloudlog_sdk_v6

#include "AdminParsing.h"

#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogConstants.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace cloudlog_sdk_v6
{

namespace
{

const char kTimeMember[] = "__time__";
const char kTopicMember[] = "__topic__";
const char kSourceMember[] = "__source__";
const std::string kTagPrefix = "__tag__:";

bool equalsIgnoringCase(const std::string& a, const std::string& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const char x = (a[i] >= 'A' && a[i] <= 'Z') ? char(a[i] - 'A' + 'a') : a[i];
        const char y = (b[i] >= 'A' && b[i] <= 'Z') ? char(b[i] - 'A' + 'a') : b[i];
        if (x != y)
            return false;
    }
    return true;
}

[[noreturn]] void throwNotNumber(const std::string& name)
{
    throw JsonException("ValueTypeException", "Header " + name + " is not a number");
}

// Whole decimal numbers only: no blanks, no sign but a leading "-", no suffix.
bool parseWhole(const std::string& text, int64_t& result)
{
    if (text.empty() || text.size() > 20)
        return false;
    size_t i = text[0] == '-' ? 1 : 0;
    if (i == text.size())
        return false;
    for (size_t j = i; j < text.size(); ++j) {
        if (text[j] < '0' || text[j] > '9')
            return false;
    }
    errno = 0;
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    if (errno == ERANGE)
        return false;
    result = value;
    return true;
}

uint32_t parseTime(const rapidjson::Value& value)
{
    if (value.IsUint())
        return value.GetUint();
    int64_t number = -1;
    if (value.IsString() && parseWhole(std::string(value.GetString(), value.GetStringLength()), number)
        && number >= 0 && number <= int64_t(std::numeric_limits<uint32_t>::max()))
        return uint32_t(number);
    throw JsonException("ValueTypeException", std::string("Member ") + kTimeMember + " is not uint type");
}

} // namespace

std::string GetHeaderValue(const HttpMessage& message, const std::string& name)
{
    const auto exact = message.header.find(name);
    if (exact != message.header.end())
        return exact->second;
    for (const auto& header : message.header) {
        if (equalsIgnoringCase(header.first, name))
            return header.second;
    }
    return std::string();
}

void ExtractHeaderNumber(const HttpMessage& message, const std::string& name, int64_t& result)
{
    const std::string text = GetHeaderValue(message, name);
    if (text.empty())
        return;
    if (!parseWhole(text, result))
        throwNotNumber(name);
}

void ExtractHeaderNumber(const HttpMessage& message, const std::string& name, int32_t& result)
{
    int64_t wide = result;
    ExtractHeaderNumber(message, name, wide);
    if (wide < std::numeric_limits<int32_t>::min() || wide > std::numeric_limits<int32_t>::max())
        throwNotNumber(name);
    result = int32_t(wide);
}

void ExtractHeaderNumber(const HttpMessage& message, const std::string& name, double& result)
{
    const std::string text = GetHeaderValue(message, name);
    if (text.empty())
        return;
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(value) || text[0] == ' ')
        throwNotNumber(name);
    result = value;
}

void ExtractJsonArray(const std::string& content, rapidjson::Document& document)
{
    document.Parse<rapidjson::kParseIterativeFlag>(content.data(), content.size());
    if (document.HasParseError())
        throw JsonException("ParseException", "Fail to parse from json string");
    if (!document.IsArray())
        throw JsonException("InvalidArrayException", "response is not valid JSON array");
}

LogMetaItem ParseQueriedLog(const rapidjson::Value& value)
{
    if (!value.IsObject())
        throw JsonException("InvalidObjectException", "log is not valid JSON object");
    LogMetaItem item;
    bool timed = false;
    for (const auto& member : value.GetObject()) {
        const std::string name(member.name.GetString(), member.name.GetStringLength());
        if (name == kTimeMember) {
            item.timestamp = parseTime(member.value);
            timed = true;
            continue;
        }
        if (!member.value.IsString())
            throw JsonException("ValueTypeException", "Member " + name + " is not string type");
        std::string text(member.value.GetString(), member.value.GetStringLength());
        if (name == kTopicMember)
            item.topic = std::move(text);
        else if (name == kSourceMember)
            item.source = std::move(text);
        else if (name.compare(0, kTagPrefix.size(), kTagPrefix) == 0)
            item.tags.emplace_back(name.substr(kTagPrefix.size()), std::move(text));
        else
            item.contents.emplace_back(name, std::move(text));
    }
    if (!timed)
        throw JsonException("NoMemberException", std::string("Member ") + kTimeMember + " does not exist");
    return item;
}

Response MakeResponse(const HttpMessage& message)
{
    Response response;
    response.statusCode = message.statusCode;
    response.requestId = GetHeaderValue(message, X_LOG_REQUEST_ID);
    return response;
}

void ThrowBadResponse(const HttpMessage& message, const std::string& text)
{
    throw LOGException(
        LOGE_BAD_RESPONSE, text, GetHeaderValue(message, X_LOG_REQUEST_ID), message.statusCode);
}

} // namespace cloudlog_sdk_v6

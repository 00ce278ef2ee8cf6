#include <ZrUtils/CodecTool.h>
#include <ZrUtils/LogConstants.h>

#include "Base64.h"
#include "Md5.h"
#include "Sha1.h"

#include <curl/curl.h>

#include <cinttypes>
#include <cstdio>
#include <istream>
#include <memory>
#include <ostream>
#include <sstream>

namespace cloudlog_sdk_v6
{

namespace
{

const char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char kHexDigits[] = "0123456789ABCDEF";

struct CurlFree {
    void operator()(char* text) const { curl_free(text); }
};

} // namespace

void Base64Encoding(std::istream& input, std::ostream& output, char padding, const char* alphabet)
{
    char in[3];
    char out[4];
    for (;;) {
        input.read(in, 3);
        const std::streamsize got = input.gcount();
        if (got <= 0)
            break;
        const unsigned char b0 = static_cast<unsigned char>(in[0]);
        const unsigned char b1 = got > 1 ? static_cast<unsigned char>(in[1]) : 0;
        const unsigned char b2 = got > 2 ? static_cast<unsigned char>(in[2]) : 0;
        out[0] = alphabet[b0 >> 2];
        out[1] = alphabet[((b0 & 0x03) << 4) | (b1 >> 4)];
        out[2] = got > 1 ? alphabet[((b1 & 0x0F) << 2) | (b2 >> 6)] : padding;
        out[3] = got > 2 ? alphabet[b2 & 0x3F] : padding;
        output.write(out, 4);
        if (got < 3)
            break;
    }
}

std::string CodecTool::CalcMD5(const std::string& message)
{
    unsigned char digest[16];
    DoMd5(reinterpret_cast<const unsigned char*>(message.data()), message.size(), digest);
    std::string hex(32, '0');
    for (int i = 0; i < 16; ++i) {
        hex[2 * i] = kHexDigits[digest[i] >> 4];
        hex[2 * i + 1] = kHexDigits[digest[i] & 0x0F];
    }
    return hex;
}

std::string CodecTool::CalcSHA1(const std::string& message, const std::string& key)
{
    HMAC hmac(key.data(), key.size());
    hmac.add(message.data(), message.size());
    return std::string(reinterpret_cast<const char*>(hmac.result()), 20);
}

std::string CodecTool::Base64Enconde(const std::string& message)
{
    std::istringstream input(message);
    std::ostringstream output;
    Base64Encoding(input, output, '=', kBase64Alphabet);
    return output.str();
}

std::string CodecTool::UrlEncode(const std::string& url)
{
    // libcurl measures the text itself when given length 0, which is right for
    // the empty string and keeps embedded zero bytes of longer texts.
    if (url.size() > size_t(INT32_MAX))
        return std::string();
    std::unique_ptr<char, CurlFree> escaped(curl_easy_escape(nullptr, url.c_str(), int(url.size())));
    return escaped ? std::string(escaped.get()) : std::string();
}

std::string CodecTool::GetDateString()
{
    return ToGmtTime(std::time(nullptr), DATE_FORMAT_RFC822);
}

std::string CodecTool::GetDateString(const std::string& dateFormat)
{
    return ToGmtTime(std::time(nullptr), dateFormat);
}

std::string CodecTool::ToGmtTime(std::time_t seconds, const std::string& /*dateFormat*/)
{
    static const char* const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* const months[]
        = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    struct tm parts = {};
    if (!gmtime_r(&seconds, &parts) || parts.tm_wday < 0 || parts.tm_wday > 6 || parts.tm_mon < 0
        || parts.tm_mon > 11)
        return std::string();
    // Built by hand rather than with strftime so the names stay English whatever
    // the locale. 26 bytes hold exactly one date with a four-digit year.
    char buffer[26];
    const int written = std::snprintf(buffer, sizeof buffer, "%.3s, %.2d %.3s %d %.2d:%.2d:%.2d",
        days[parts.tm_wday], parts.tm_mday, months[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour,
        parts.tm_min, parts.tm_sec);
    if (written < 0)
        return std::string();
    return std::string(buffer) + " GMT"; // a later year is cut short, not overflowed
}

bool CodecTool::StartWith(const std::string& input, const std::string& pattern)
{
    return input.compare(0, pattern.size(), pattern) == 0;
}

std::string ToString(int32_t number)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%" PRId32, number);
    return buffer;
}

std::string ToString(uint32_t number)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%" PRIu32, number);
    return buffer;
}

std::string ToString(int64_t number)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%" PRId64, number);
    return buffer;
}

std::string ToString(bool value)
{
    return value ? "true" : "false";
}

} // namespace cloudlog_sdk_v6

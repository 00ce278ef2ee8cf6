#ifndef ZRUTILS_CODECTOOL_H
#define ZRUTILS_CODECTOOL_H

#include <ZrUtils/zrutils_export.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * The text conversions behind request signing: hashes, base64, URL escaping and
 * the HTTP date. All functions take and return byte strings, keep no state and
 * may be called from several threads at once. None of them fails or throws.
 */
class ZRUTILS_EXPORT CodecTool
{
public:
    /** MD5 of @p message as 32 upper-case hex digits; never fails. */
    static std::string CalcMD5(const std::string& message);
    /**
     * The raw 20-byte HMAC-SHA1 of @p message under @p key (message first). Not hex
     * and not base64; never fails.
     */
    static std::string CalcSHA1(const std::string& message, const std::string& key);
    /** Padded standard base64, no line breaks; empty in, empty out. */
    static std::string Base64Enconde(const std::string& message);
    /**
     * Percent-encodes every byte but ASCII letters, digits and "-._~", with
     * upper-case hex digits. Returns an empty string if escaping fails.
     */
    static std::string UrlEncode(const std::string& url);
    /** The current time as an HTTP date, such as "Sun, 06 Nov 1994 08:49:37 GMT". */
    static std::string GetDateString();
    /** As GetDateString(); @p dateFormat is accepted and not used. */
    static std::string GetDateString(const std::string& dateFormat);
    /**
     * @p seconds since the epoch as an HTTP date; @p dateFormat is accepted and not
     * used. Years past 9999 are cut short; a time the C library cannot break down
     * gives an empty string.
     */
    static std::string ToGmtTime(std::time_t seconds, const std::string& dateFormat);
    /** True when @p input begins with @p pattern; an empty pattern always matches. */
    static bool StartWith(const std::string& input, const std::string& pattern);
};

/** Plain decimal text; negative numbers lead with "-". */
ZRUTILS_EXPORT std::string ToString(int32_t number);
ZRUTILS_EXPORT std::string ToString(uint32_t number);
ZRUTILS_EXPORT std::string ToString(int64_t number);
/** "true" or "false". */
ZRUTILS_EXPORT std::string ToString(bool value);

} // namespace cloudlog_sdk_v6

#endif

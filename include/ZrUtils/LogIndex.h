#ifndef ZRUTILS_LOGINDEX_H
#define ZRUTILS_LOGINDEX_H

#include <ZrUtils/LogResource.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace cloudlog_sdk_v6
{

/**
 * The full-text index of a log store: how every value is split into tokens.
 * JSON members: "token" (array of separators, required when parsed),
 * "caseSensitive", "include_keys", "exclude_keys", "chn" (optional; the key
 * lists are written only when non-empty).
 */
class ZRUTILS_EXPORT Line : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::vector<std::string> tokens;
    bool caseSensitive = false;
    std::vector<std::string> includeKeys;
    std::vector<std::string> excludeKeys;
    bool chn = false; // also split Chinese text
};

/**
 * The index of one key. JSON members: "type" ("text", "long", "double" or
 * "json"; required when parsed), "token" and "caseSensitive" (written for
 * "text" and "json" keys only), "alias" (written when non-empty), "doc_value"
 * (the key is also kept for SQL), "chn". All but "type" are optional when
 * parsed.
 */
class ZRUTILS_EXPORT KeyContent : public Resource
{
public:
    KeyContent() = default;
    explicit KeyContent(const std::string& type);

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string type = "text";
    std::vector<std::string> tokens;
    bool caseSensitive = false;
    std::string alias;
    bool docValue = false;
    bool chn = false;

protected:
    void writeMembers(JsonWriter& writer) const;
};

/**
 * Named key indexes, in order: a JSON object from key name to KeyContent. The
 * nested keys of a JSON key are of this form.
 */
class ZRUTILS_EXPORT Keys : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::vector<std::pair<std::string, KeyContent>> keys;
};

/**
 * The index of a key whose values are JSON: KeyContent of type "json" with
 * "json_keys" (a Keys object), "index_all" (index the members not listed) and
 * "max_depth" (-1 for no limit). The three are optional when parsed.
 */
class ZRUTILS_EXPORT JsonKeyContent : public KeyContent
{
public:
    JsonKeyContent();

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    Keys jsonKeys;
    bool indexAll = true;
    int64_t maxDepth = -1;
};

/**
 * Every key index of a log store, the "keys" object of an index: plain keys
 * first, then JSON keys. When parsed, a member whose "type" is "json" becomes a
 * JsonKeyContent and any other a KeyContent.
 */
class ZRUTILS_EXPORT AllKeys : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::vector<std::pair<std::string, KeyContent>> keys;
    std::vector<std::pair<std::string, JsonKeyContent>> jsonKeys;
};

/**
 * The index of a log store. JSON members: "line" (when hasLine), "keys" (when
 * hasKeys), "ttl", "log_reduce", and in the full form "lastModifyTime". When
 * parsed, "line" or "keys" must be there (hasLine and hasKeys tell which); the
 * others are optional.
 */
class ZRUTILS_EXPORT Index : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    bool hasLine = false;
    Line line;
    bool hasKeys = false;
    AllKeys keys;
    int64_t ttl = 30; // days
    bool logReduce = false;
    int64_t lastModifyTime = 0;
};

} // namespace cloudlog_sdk_v6

#endif

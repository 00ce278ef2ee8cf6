#ifndef ZRUTILS_LOGRESOURCE_H
#define ZRUTILS_LOGRESOURCE_H

#include <ZrUtils/zrutils_export.h>

#include <string>

namespace cloudlog_sdk_v6
{

// The JSON writer and the parsed JSON value the models work on. Both are internal
// to the library (they wrap RapidJSON's Writer over a StringBuffer and a DOM
// value): callers serialise and parse through the string functions of Resource.
class JsonWriter;
class JsonValue;

/**
 * Base of the log service's resource models (log stores, configurations,
 * indexes, machine groups, consumer groups, shards, SQL instances).
 *
 * A model has two JSON forms: the request form, which carries what a create or
 * update sends, and the full form, which adds what only the service fills in
 * (creation and modification times). Parsing reads the full form; members the
 * model does not know are ignored.
 */
class ZRUTILS_EXPORT Resource
{
public:
    virtual ~Resource();

    /** The full JSON form of the model; never fails. */
    std::string ToJsonString() const;
    /**
     * The JSON a request carries. @p isUpdate selects the form of an update,
     * which leaves out what the service does not let change (a log store's
     * shard count). Never fails.
     */
    std::string ToRequestJsonString(bool isUpdate = false) const;
    /**
     * Replaces the model's fields with those of @p json. Throws LOGException
     * "BadResponse" (request id empty, status 0) when the text is not JSON or a
     * required member is missing or of the wrong type; the model is then left
     * partly filled.
     */
    void FromJsonString(const std::string& json);

    // The writer and value forms behind the string functions. The types are
    // opaque outside the library.
    virtual void SetRequestValues(JsonWriter& writer, bool isUpdate) const = 0;
    virtual void SetFullValues(JsonWriter& writer) const = 0;
    virtual void FromJson(const JsonValue& value) = 0;

protected:
    Resource() = default;
    Resource(const Resource&) = default;
    Resource& operator=(const Resource&) = default;
};

} // namespace cloudlog_sdk_v6

#endif

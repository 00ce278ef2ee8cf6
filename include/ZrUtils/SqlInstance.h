#ifndef ZRUTILS_SQLINSTANCE_H
#define ZRUTILS_SQLINSTANCE_H

#include <ZrUtils/LogResource.h>

#include <cstdint>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * A project's dedicated SQL capacity in compute units. A request carries "cu"
 * alone; the full form is "name", "cu", "createTime" and "updateTime", all
 * required when parsed.
 */
class ZRUTILS_EXPORT SqlInstance : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string name;
    int32_t cu = 0;
    int64_t createTime = 0;
    int64_t updateTime = 0;
};

} // namespace cloudlog_sdk_v6

#endif

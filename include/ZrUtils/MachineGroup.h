#ifndef ZRUTILS_MACHINEGROUP_H
#define ZRUTILS_MACHINEGROUP_H

#include <ZrUtils/LogResource.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cloudlog_sdk_v6
{

/** Optional attributes of a machine group: JSON "externalName" and "groupTopic". */
class ZRUTILS_EXPORT GroupAttribute : public Resource
{
public:
    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string externalName;
    std::string groupTopic;
};

/**
 * The machines a collection configuration runs on, named by IP address
 * (identify type "ip") or by a user-defined identity ("userdefined").
 *
 * JSON members: "groupName", "machineIdentifyType", "machineList" (required when
 * parsed), "groupType", "groupAttribute", and in the full form "createTime" and
 * "lastModifyTime" (optional when parsed).
 */
class ZRUTILS_EXPORT MachineGroup : public Resource
{
public:
    MachineGroup() = default;
    explicit MachineGroup(const std::string& groupName);

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string groupName;
    std::string machineIdentifyType = "ip";
    std::string groupType;
    GroupAttribute groupAttribute;
    std::vector<std::string> machineList;
    int64_t createTime = 0;
    int64_t lastModifyTime = 0;
};

} // namespace cloudlog_sdk_v6

#endif

#ifndef ZRUTILS_LOGACL_H
#define ZRUTILS_LOGACL_H

#include <ZrUtils/LogResource.h>

#include <string>
#include <vector>

namespace cloudlog_sdk_v6
{

/**
 * An access rule: an action ("grant" or "revoke") giving a principal a set of
 * privileges. JSON members: "action", "principle" (the service's spelling) and
 * "privilege", an array of the privilege words; all required when parsed, and an
 * unknown word is refused.
 */
class ZRUTILS_EXPORT ACL : public Resource
{
public:
    enum Privilege { PRIVILEGE_READ, PRIVILEGE_WRITE, PRIVILEGE_ADMIN, PRIVILEGE_LIST };

    /** "READ", "WRITE", "ADMIN" or "LIST"; the empty string for any other value. */
    static std::string PrivilegeToString(Privilege privilege);

    void SetRequestValues(JsonWriter& writer, bool isUpdate) const override;
    void SetFullValues(JsonWriter& writer) const override;
    void FromJson(const JsonValue& value) override;

    std::string action = "grant";
    std::string principle = "ANONYMOUS";
    std::vector<Privilege> privileges;
};

} // namespace cloudlog_sdk_v6

#endif

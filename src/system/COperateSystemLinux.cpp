// The platform layer on Linux: the machine id stands in for the platform UUID;
// there is no bundle, no system-wide dark-theme setting we can rely on, and the
// power functions stay inert as they are on macOS.
#include "SystemInternal.h"

#include <ZrUtils/COperateSystem.h>

namespace ZrUtils
{

std::string COperateSystem::GetSystemUDID()
{
    // The machine id first: every user can read it and it survives hardware changes
    // the same way the macOS platform UUID does. The DMI UUID is usually root-only.
    return Internal::platformUuidFromFiles({QStringLiteral("/etc/machine-id"),
        QStringLiteral("/var/lib/dbus/machine-id"), QStringLiteral("/sys/class/dmi/id/product_uuid")});
}

bool COperateSystem::IsDarkTheme()
{
    return false;
}

std::string COperateSystem::GetBundleIdentifier()
{
    return std::string();
}

void COperateSystem::SleepComputer() { }

void COperateSystem::ShutdownComputer() { }

} // namespace ZrUtils

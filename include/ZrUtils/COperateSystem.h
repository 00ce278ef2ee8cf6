#ifndef ZRUTILS_COPERATESYSTEM_H
#define ZRUTILS_COPERATESYSTEM_H

#include <ZrUtils/zrutils_export.h>

#include <string>

namespace ZrUtils
{

/**
 * The platform layer under ZrSystem: the answers that need the operating system's
 * own interfaces (the I/O registry, the main bundle and the user defaults on macOS;
 * the machine id files on Linux). Every function is static and stateless, may be
 * called from any thread and never throws.
 */
class ZRUTILS_EXPORT COperateSystem
{
public:
    /**
     * The platform UUID in the 8-4-4-4-12 upper-case hexadecimal form. On macOS the
     * I/O registry's platform UUID; on Linux the machine id (or the DMI product UUID
     * where no machine id exists). Empty when the platform has none.
     */
    static std::string GetSystemUDID();

    /** True when the user interface style is "Dark"; false when it is not, before macOS 10.14 and on Linux.
     */
    static bool IsDarkTheme();

    /** The main bundle's identifier as UTF-8; empty when there is none (always on Linux). */
    static std::string GetBundleIdentifier();

    /** Does nothing: the application never puts the machine to sleep. */
    static void SleepComputer();

    /** Does nothing: the application never shuts the machine down. */
    static void ShutdownComputer();
};

} // namespace ZrUtils

#endif

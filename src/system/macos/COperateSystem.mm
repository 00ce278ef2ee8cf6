// The platform layer on macOS: the I/O registry, the main bundle and the user
// defaults. Built only for Apple targets.
#include <ZrUtils/COperateSystem.h>

#include <QString>

#include <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#include <IOKit/IOKitLib.h>

#include <memory>

namespace ZrUtils
{

namespace
{

struct CFReleaser {
    void operator()(const void* object) const { CFRelease(object); }
};
using CFHolder = std::unique_ptr<const void, CFReleaser>;

class RegistryEntry
{
public:
    explicit RegistryEntry(io_registry_entry_t entry)
        : m_entry(entry)
    {
    }
    ~RegistryEntry()
    {
        if (m_entry != MACH_PORT_NULL)
            IOObjectRelease(m_entry);
    }
    RegistryEntry(const RegistryEntry&) = delete;
    RegistryEntry& operator=(const RegistryEntry&) = delete;
    io_registry_entry_t get() const { return m_entry; }

private:
    io_registry_entry_t m_entry;
};

} // namespace

std::string COperateSystem::GetSystemUDID()
{
    // MACH_PORT_NULL is the default main port under every SDK's name for it.
    const RegistryEntry root(IORegistryEntryFromPath(MACH_PORT_NULL, "IOService:/"));
    if (root.get() == MACH_PORT_NULL)
        return std::string();
    const CFHolder property(
        IORegistryEntryCreateCFProperty(root.get(), CFSTR("IOPlatformUUID"), kCFAllocatorDefault, 0));
    // A missing property must give an empty text, never a conversion of null.
    if (!property || CFGetTypeID(property.get()) != CFStringGetTypeID())
        return std::string();
    char buffer[128] = {};
    if (!CFStringGetCString(
            static_cast<CFStringRef>(property.get()), buffer, sizeof buffer, kCFStringEncodingMacRoman))
        return std::string();
    return std::string(buffer);
}

bool COperateSystem::IsDarkTheme()
{
    if (@available(macOS 10.14, *)) {
        @autoreleasepool {
            NSString* style = [[NSUserDefaults standardUserDefaults] stringForKey:@"AppleInterfaceStyle"];
            return style != nil && [style isEqualToString:@"Dark"];
        }
    }
    return false; // no dark mode before 10.14, whatever the defaults say
}

std::string COperateSystem::GetBundleIdentifier()
{
    CFBundleRef bundle = CFBundleGetMainBundle();
    if (!bundle)
        return std::string();
    CFStringRef identifier = CFBundleGetIdentifier(bundle); // not owned: no release
    if (!identifier)
        return std::string();
    return QString::fromCFString(identifier).toUtf8().toStdString();
}

void COperateSystem::SleepComputer() { }

void COperateSystem::ShutdownComputer() { }

} // namespace ZrUtils

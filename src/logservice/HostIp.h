// The default source of posted logs: this machine's IPv4 address.
#ifndef ZRUTILS_LOGSERVICE_HOSTIP_H
#define ZRUTILS_LOGSERVICE_HOSTIP_H

#include <ZrUtils/zrutils_export.h>

#include <string>

namespace cloudlog_sdk_v6
{

// The address of this machine's host name, or failing that (no address, or a
// loopback one) the address of the interface "eth0"; empty if neither works.
std::string GetHostIp();

// GetHostIp() for a given host name and fallback interface.
ZRUTILS_TESTS_EXPORT std::string GetHostIpFor(const char* hostName, const char* interfaceName);

} // namespace cloudlog_sdk_v6

#endif

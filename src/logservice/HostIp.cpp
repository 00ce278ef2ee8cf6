#include "HostIp.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <vector>

namespace cloudlog_sdk_v6
{

namespace
{

struct Socket {
    int fd;
    ~Socket()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

std::string dotted(const in_addr& address)
{
    char text[INET_ADDRSTRLEN] = {};
    return inet_ntop(AF_INET, &address, text, sizeof text) ? std::string(text) : std::string();
}

// The first IPv4 address of @p hostName. Clients are built on any thread, so the
// lookup must not share the C library's static result.
std::string resolve(const char* hostName)
{
#ifdef __GLIBC__
    hostent entry;
    hostent* result = nullptr;
    int error = 0;
    std::vector<char> buffer(8192);
    while (gethostbyname_r(hostName, &entry, buffer.data(), buffer.size(), &result, &error) == ERANGE
        && buffer.size() < (1u << 20))
        buffer.resize(buffer.size() * 2);
#else
    static std::mutex lookupMutex;
    std::lock_guard<std::mutex> lock(lookupMutex);
    hostent* result = gethostbyname(hostName);
#endif
    if (!result || result->h_addrtype != AF_INET || !result->h_addr_list || !result->h_addr_list[0])
        return std::string();
    in_addr address;
    std::memcpy(&address, result->h_addr_list[0], sizeof address);
    return dotted(address);
}

} // namespace

std::string GetHostIpFor(const char* hostName, const char* interfaceName)
{
    if (hostName && *hostName) {
        const std::string ip = resolve(hostName);
        if (!ip.empty() && (ip.size() < 9 || ip.find("127.0.0.1") == std::string::npos))
            return ip;
    }

    Socket sock {::socket(AF_INET, SOCK_DGRAM, 0)};
    if (sock.fd < 0 || !interfaceName)
        return std::string();
    ifreq request;
    std::memset(&request, 0, sizeof request);
    std::strncpy(request.ifr_name, interfaceName, IFNAMSIZ - 1);
    request.ifr_addr.sa_family = AF_INET;
    if (::ioctl(sock.fd, SIOCGIFADDR, &request) < 0)
        return std::string();
    sockaddr_in address;
    std::memcpy(&address, &request.ifr_addr, sizeof address);
    return dotted(address.sin_addr);
}

std::string GetHostIp()
{
    char hostName[255] = {};
    if (::gethostname(hostName, sizeof hostName - 1) != 0)
        hostName[0] = '\0';
    return GetHostIpFor(hostName, "eth0");
}

} // namespace cloudlog_sdk_v6

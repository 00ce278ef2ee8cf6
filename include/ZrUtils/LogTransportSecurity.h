#ifndef ZRUTILS_LOGTRANSPORTSECURITY_H
#define ZRUTILS_LOGTRANSPORTSECURITY_H

#include <string>

namespace cloudlog_sdk_v6
{

/**
 * How the log-service client reaches the service.
 *
 * By default requests go out as plain HTTP (the endpoint's own scheme is
 * dropped). With @c https set they go to "https://" + host instead, and the
 * server's certificate chain and host name are always checked: against the
 * system's CA store, or against the CA certificates of the PEM file
 * @c caBundle alone when it is not empty. A certificate that fails the check,
 * or a bundle that cannot be read, fails the request with LOGException
 * "ClientNetworkError".
 */
struct LogTransportSecurity {
    bool https = false;
    std::string caBundle;

    bool operator==(const LogTransportSecurity& other) const
    {
        return https == other.https && caBundle == other.caBundle;
    }
    bool operator!=(const LogTransportSecurity& other) const { return !(*this == other); }
};

} // namespace cloudlog_sdk_v6

#endif

// libcurl's process-wide state, shared by the log-service client and the telemetry
// workers that post through it.
#ifndef ZRUTILS_LOGSERVICE_CURLGLOBAL_H
#define ZRUTILS_LOGSERVICE_CURLGLOBAL_H

namespace ZrUtils
{
namespace Internal
{

// Sets libcurl (and the TLS library under it) up once, before the first handle of the
// process. Never torn down: requests may run on threads that outlive any owner.
// Safe to call from any thread.
void ensureCurlReady();

} // namespace Internal
} // namespace ZrUtils

#endif

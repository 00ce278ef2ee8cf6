#include "logservice/CurlGlobal.h"

#include <curl/curl.h>

namespace ZrUtils
{
namespace Internal
{

void ensureCurlReady()
{
    static const bool ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    (void)ready;
}

} // namespace Internal
} // namespace ZrUtils

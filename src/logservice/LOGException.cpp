#include <ZrUtils/LOGException.h>

namespace cloudlog_sdk_v6
{

LOGException::LOGException(
    const std::string& errorCode, const std::string& message, const std::string& requestId, int32_t httpCode)
    : mErrorCode(errorCode)
    , mMessage(message)
    , mRequestId(requestId)
    , mHttpCode(httpCode)
{
}

// Out of line: the class's type information lives in the library, so callers
// catch exactly this type.
LOGException::~LOGException() noexcept = default;

} // namespace cloudlog_sdk_v6

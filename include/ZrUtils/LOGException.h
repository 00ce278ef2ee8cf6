#ifndef ZRUTILS_LOGEXCEPTION_H
#define ZRUTILS_LOGEXCEPTION_H

#include <ZrUtils/zrutils_export.h>

#include <cstdint>
#include <exception>
#include <string>

namespace cloudlog_sdk_v6
{

/**
 * The one failure type of the log-service client: every failed call throws it,
 * none returns an error code.
 *
 * It carries an error-code word (one of the LOGE_ constants of
 * <ZrUtils/LogConstants.h> or a code sent by the service), a message, the
 * service's request id and the HTTP status. The last two are empty and 0 when the
 * request never reached the service. what() is left as the standard exception's:
 * read the fields instead.
 */
class ZRUTILS_EXPORT LOGException : public std::exception
{
public:
    LOGException(const std::string& errorCode, const std::string& message, const std::string& requestId,
        int32_t httpCode);
    ~LOGException() noexcept override;

    const std::string& GetErrorCode() const noexcept { return mErrorCode; }
    const std::string& GetErrorMessage() const noexcept { return mMessage; }
    const std::string& GetRequestId() const noexcept { return mRequestId; }
    int32_t GetHttpCode() const noexcept { return mHttpCode; }

private:
    std::string mErrorCode;
    std::string mMessage;
    std::string mRequestId;
    int32_t mHttpCode;
};

} // namespace cloudlog_sdk_v6

#endif

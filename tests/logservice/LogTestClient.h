// A LOGClient whose clock and internals the tests can reach.
#ifndef ZRUTILS_TESTS_LOGTESTCLIENT_H
#define ZRUTILS_TESTS_LOGTESTCLIENT_H

#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>

#include <QByteArray>

class LogTestClient : public cloudlog_sdk_v6::LOGClient
{
public:
    using LOGClient::GetHost;
    using LOGClient::LOGClient;
    using LOGClient::SetCommonHeader;

    void setDate(const std::string& date)
    {
        getDateStringFunc = [date] { return date; };
    }
    bool hostIsRawIp() const { return isHostRawIp; }
    void setTransport(SendFunction send) { sendFunc = std::move(send); }
    int32_t timeoutSeconds() const { return timeout; }
};

inline std::string stdBytes(const QByteArray& b)
{
    return std::string(b.constData(), size_t(b.size()));
}

inline QByteArray qBytes(const std::string& s)
{
    return QByteArray(s.data(), int(s.size()));
}

// Runs @p call and returns the LOGException it throws as "code|message|requestId|status".
template<typename Call> QByteArray logFailure(Call call)
{
    try {
        call();
    } catch (const cloudlog_sdk_v6::LOGException& e) {
        return qBytes(e.GetErrorCode() + '|' + e.GetErrorMessage() + '|' + e.GetRequestId() + '|'
            + std::to_string(e.GetHttpCode()));
    }
    return "no exception";
}

#endif

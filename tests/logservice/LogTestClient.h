// A LOGClient whose clock, transport and internals the tests can reach.
#ifndef ZRUTILS_TESTS_LOGTESTCLIENT_H
#define ZRUTILS_TESTS_LOGTESTCLIENT_H

#include <ZrUtils/LOGClient.h>

#include <QByteArray>

class LogTestClient : public cloudlog_sdk_v6::LOGClient
{
public:
    using LOGClient::GetHost;
    using LOGClient::LOGClient;
    using LOGClient::SendFunction;
    using LOGClient::SendRequest;
    using LOGClient::SetCommonHeader;

    void setDate(const std::string& date)
    {
        getDateStringFunc = [date] { return date; };
    }
    void setSend(SendFunction send) { sendFunc = std::move(send); }
    bool hostIsRawIp() const { return isHostRawIp; }
    int32_t timeoutSeconds() const { return timeout; }
    const std::string& sourceText() const { return source; }
};

inline std::string stdBytes(const QByteArray& b)
{
    return std::string(b.constData(), size_t(b.size()));
}

inline QByteArray qBytes(const std::string& s)
{
    return QByteArray(s.data(), int(s.size()));
}

#endif

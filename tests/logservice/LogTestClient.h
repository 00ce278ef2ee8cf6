// A LOGClient whose clock and internals the tests can reach, the loopback log
// service for it, and how a failed call reads.
#ifndef ZRUTILS_TESTS_LOGTESTCLIENT_H
#define ZRUTILS_TESTS_LOGTESTCLIENT_H

#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>

#include "LoopbackLogService.h"

#include <QByteArray>
#include <QMetaType>

#include <functional>

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

// "key=value key=value ;" per row or log.
inline QByteArray text(const cloudlog_sdk_v6::SqlRow& row)
{
    QByteArray out;
    for (const auto& column : row)
        out += qBytes(column.first + '=' + column.second + ' ');
    return out + ';';
}

// "time topic source tags ;contents ;"
inline QByteArray text(const cloudlog_sdk_v6::LogMetaItem& log)
{
    return qBytes(std::to_string(log.timestamp) + ' ' + log.topic + ' ' + log.source + ' ') + text(log.tags)
        + text(log.contents);
}

template<typename Rows> QByteArray text(const Rows& rows)
{
    QByteArray out;
    for (const auto& row : rows)
        out += text(row);
    return out;
}

// Runs @p call and returns the LOGException it throws as "code|message|requestId|status",
// or "code|message|status" where the request id is left out.
template<typename Run> QByteArray logFailure(Run call, bool withRequestId = true)
{
    try {
        call();
    } catch (const cloudlog_sdk_v6::LOGException& e) {
        return qBytes(e.GetErrorCode() + '|' + e.GetErrorMessage() + '|'
            + (withRequestId ? e.GetRequestId() + '|' : std::string()) + std::to_string(e.GetHttpCode()));
    }
    return "no exception";
}

using Call = std::function<void(cloudlog_sdk_v6::LOGClient&)>;
Q_DECLARE_METATYPE(Call)

// A client and the loopback log service it talks to.
struct LogAdminFixture {
    ZrLoopback::LoopbackLogService service {"id", "key"};
    LogTestClient client {stdBytes(service.endpoint()), "id", "key", 10, "10.0.0.9", false};
};

#endif

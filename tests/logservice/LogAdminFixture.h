// A client and the loopback log service it talks to, for the administration
// and query tests.
#ifndef ZRUTILS_TESTS_LOGADMINFIXTURE_H
#define ZRUTILS_TESTS_LOGADMINFIXTURE_H

#include <ZrUtils/LOGException.h>

#include "LogTestClient.h"
#include "LoopbackLogService.h"

#include <QMetaType>

#include <functional>

using Call = std::function<void(cloudlog_sdk_v6::LOGClient&)>;
Q_DECLARE_METATYPE(Call)

// Runs @p call and returns the LOGException it throws as "code|message|status".
template<typename Run> QByteArray failureOf(Run call)
{
    try {
        call();
    } catch (const cloudlog_sdk_v6::LOGException& e) {
        return qBytes(e.GetErrorCode() + '|' + e.GetErrorMessage() + '|' + std::to_string(e.GetHttpCode()));
    }
    return "no exception";
}

struct LogAdminFixture {
    ZrLoopback::LoopbackLogService service {"id", "key"};
    LogTestClient client {stdBytes(service.endpoint()), "id", "key", 10, "10.0.0.9", false};
};

#endif

// Records the outcome signals of one ZrHttpRequest. The worker thread emits them; like
// an application's GUI object, the recorder receives them queued on the test's thread
// (a QSignalSpy would be appended to from the worker and could miss its wait()).
#ifndef ZRUTILS_TESTS_REQUESTOUTCOME_H
#define ZRUTILS_TESTS_REQUESTOUTCOME_H

#include <ZrUtils/ZrHttpRequest.h>

#include <QList>
#include <QPair>

struct Outcome {
    explicit Outcome(ZrUtils::ZrHttpRequest* request)
    {
        using ZrUtils::ZrHttpRequest;
        QObject::connect(request, &ZrHttpRequest::SignalRequestTimeout, &context, [this] { ++timeouts; });
        QObject::connect(request, &ZrHttpRequest::SignalRequestCancel, &context, [this] { ++cancels; });
        QObject::connect(
            request, &ZrHttpRequest::SignalRequestResult, &context, [this](const QByteArray& body, int code) {
                results.append({body, code});
            });
    }
    int total() const { return timeouts + cancels + results.size(); }

    QObject context;
    int timeouts = 0;
    int cancels = 0;
    QList<QPair<QByteArray, int>> results;
};

#endif

// A GA4 collection endpoint on 127.0.0.1 for the reporting tests.
//
// It accepts only "POST /mp/collect" with a JSON body of exactly the Measurement
// Protocol shape the library sends (client_id, one event, exactly the two string
// params) and answers 204; anything else gets 400 with the reason. The measurement
// id picks a fault: "status-<n>" answers <n>, "slow" answers after 11 s, "hang"
// never answers.
#ifndef ZRUTILS_TESTS_GA4COLLECTOR_H
#define ZRUTILS_TESTS_GA4COLLECTOR_H

#include "LoopbackHttpServer.h"

#include <QList>
#include <QString>

struct Ga4Event {
    QString measurementId;
    QString apiSecret;
    QString clientId;
    QString name;
    QString category;
    QString label;
    QString query; // the raw query string as received
};

class Ga4Collector
{
public:
    Ga4Collector();

    // "http://127.0.0.1:<port>", for CGoogleAnalytics::SetCollectionHost().
    QString host() const;
    // The well-formed events received so far, in arrival order.
    QList<Ga4Event> events() const;
    // Requests of any shape received so far.
    int requestCount() const { return m_server.requestCount(); }
    QList<ZrLoopback::HttpRequest> requests() const { return m_server.requests(); }
    void clear() { m_server.clearRequests(); }

    // Why the request is not a valid collection request; empty when it is.
    static QString verdict(const ZrLoopback::HttpRequest& request);
    static Ga4Event parse(const ZrLoopback::HttpRequest& request);

private:
    ZrLoopback::LoopbackHttpServer m_server;
};

#endif

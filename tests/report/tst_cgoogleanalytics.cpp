#include <ZrUtils/CGoogleAnalytics.h>

#include "Ga4Collector.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using ZrUtils::CGoogleAnalytics;

namespace
{

// The three outcome signals of one sender, to check that exactly one arrived.
struct Outcome {
    explicit Outcome(CGoogleAnalytics* sender)
        : timeout(sender, &CGoogleAnalytics::SignalRequestTimeout)
        , cancel(sender, &CGoogleAnalytics::SignalRequestCancel)
        , result(sender, &CGoogleAnalytics::SignalRequestResult)
    {
    }
    int total() const { return timeout.count() + cancel.count() + result.count(); }
    QSignalSpy timeout, cancel, result;
};

const QString S = QStringLiteral("s");

} // namespace

class CGoogleAnalyticsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanupTestCase() { CGoogleAnalytics::SetCollectionHost(QString()); }

    void collectionHostMisread_data();
    void collectionHostMisread();
    void requestNotAsBuilt_data();
    void requestNotAsBuilt();
    void outcomeMisreported_data();
    void outcomeMisreported();
    void answerAfterTenSecondsNotTimedOut();
    void stopRequestMissesARunningRequest();
    void receiverDeletingSenderCrashes();

private:
    Ga4Collector m_collector;
};

void CGoogleAnalyticsTest::init()
{
    m_collector.clearRequests();
    CGoogleAnalytics::SetCollectionHost(m_collector.host());
}

void CGoogleAnalyticsTest::collectionHostMisread_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("url");
    QTest::newRow("default") << QString() << QStringLiteral("https://www.google-analytics.com/mp/collect");
    QTest::newRow("host-port") << QStringLiteral("127.0.0.1:8080")
                               << QStringLiteral("https://127.0.0.1:8080/mp/collect");
    QTest::newRow("scheme-slash") << QStringLiteral("http://127.0.0.1:9/")
                                  << QStringLiteral("http://127.0.0.1:9/mp/collect");
}

void CGoogleAnalyticsTest::collectionHostMisread()
{
    QFETCH(QString, host);
    CGoogleAnalytics::SetCollectionHost(host);
    QTEST(CGoogleAnalytics::CollectionUrl(), "url");
}

void CGoogleAnalyticsTest::requestNotAsBuilt_data()
{
    QTest::addColumn<QString>("measurementId");
    QTest::addColumn<QString>("apiSecret");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QByteArray>("query");

    QTest::newRow("plain") << QStringLiteral("G-AB12") << QStringLiteral("k3y") << QStringLiteral("toolbar")
                           << QByteArray("measurement_id=G-AB12&api_secret=k3y");
    QTest::newRow("empty-label-still-sent")
        << QStringLiteral("G-1") << S << QString() << QByteArray("measurement_id=G-1&api_secret=s");
    // Not encoded: the "&" splits the query.
    QTest::newRow("ampersand-in-secret") << QStringLiteral("G-1") << QStringLiteral("ab&x=1") << S
                                         << QByteArray("measurement_id=G-1&api_secret=ab&x=1");
    // Substituted one after the other: the secret also fills the "%3" the id left.
    QTest::newRow("percent-taken-by-later-value")
        << QStringLiteral("%3") << S << S << QByteArray("measurement_id=s&api_secret=s");
}

void CGoogleAnalyticsTest::requestNotAsBuilt()
{
    QFETCH(QString, measurementId);
    QFETCH(QString, apiSecret);
    QFETCH(QString, label);
    QFETCH(QByteArray, query);

    CGoogleAnalytics sender;
    const QString client = QStringLiteral("client.1"), name = QStringLiteral("app_start");
    QVERIFY(sender.StartRequestSync(client, measurementId, apiSecret, name, QString(), label));
    Outcome outcome(&sender);
    sender.StartRequestAsync(client, measurementId, apiSecret, name, QString(), label);
    QVERIFY(outcome.result.wait(5000));

    const QList<ZrLoopback::HttpRequest> requests = m_collector.requests();
    QCOMPARE(requests.size(), 2);
    for (const ZrLoopback::HttpRequest& request : requests) {
        const Ga4Event event(request);
        QVERIFY(event.wellFormed);
        QCOMPARE(request.query, query);
        QVERIFY2(request.body.startsWith("{\n    \"client_id\": \"client.1\",\n"), "not indented JSON");
        QCOMPARE(event.name, name);
        QCOMPARE(event.category, QString());
        QCOMPARE(event.label, label);
    }
}

void CGoogleAnalyticsTest::outcomeMisreported_data()
{
    QTest::addColumn<bool>("refused");
    QTest::addColumn<QString>("measurementId");
    QTest::addColumn<bool>("syncResult");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("204") << false << QStringLiteral("G-1") << true << 204 << QByteArray();
    QTest::newRow("200-any-body") << false << QStringLiteral("status-200") << true << 200
                                  << QByteArray("says status-200");
    QTest::newRow("400") << false << QStringLiteral("status-400") << false << 400
                         << QByteArray("says status-400");
    QTest::newRow("503") << false << QStringLiteral("status-503") << false << 503
                         << QByteArray("says status-503");
    // No status at all: 0, not the -1 of the JSON client.
    QTest::newRow("refused") << true << QStringLiteral("G-1") << false << 0 << QByteArray();
}

void CGoogleAnalyticsTest::outcomeMisreported()
{
    QFETCH(bool, refused);
    QFETCH(QString, measurementId);
    if (refused) {
        QTcpServer probe; // nobody listens on its port once it is gone
        probe.listen(QHostAddress::LocalHost, 0);
        CGoogleAnalytics::SetCollectionHost(QStringLiteral("http://127.0.0.1:%1").arg(probe.serverPort()));
    }

    CGoogleAnalytics sender;
    QTEST(sender.StartRequestSync(S, measurementId, S, S, S, S), "syncResult");
    Outcome outcome(&sender);
    sender.StartRequestAsync(S, measurementId, S, S, S, S);
    QVERIFY(outcome.result.wait(5000));
    QTest::qWait(50); // nothing else may follow
    QCOMPARE(outcome.total(), 1);
    QTEST(outcome.result.at(0).at(0).toByteArray(), "body");
    QTEST(outcome.result.at(0).at(1).toInt(), "status");
}

// Both variants wait for one slow answer at once: the sync call's nested loop
// delivers the async request's events too.
void CGoogleAnalyticsTest::answerAfterTenSecondsNotTimedOut()
{
    CGoogleAnalytics sender;
    Outcome outcome(&sender);
    sender.StartRequestAsync(S, QStringLiteral("slow"), S, S, S, S);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!sender.StartRequestSync(S, QStringLiteral("slow"), S, S, S, S));
    QVERIFY(clock.elapsed() >= 9900);
    QTRY_COMPARE_WITH_TIMEOUT(outcome.total(), 1, 3000);
    QCOMPARE(outcome.timeout.count(), 1);
}

void CGoogleAnalyticsTest::stopRequestMissesARunningRequest()
{
    CGoogleAnalytics sender;
    Outcome outcome(&sender);
    sender.StartRequestAsync(S, QStringLiteral("hang"), S, S, S, S);
    sender.StartRequestAsync(S, QStringLiteral("hang"), S, S, S, S);
    QTRY_COMPARE_WITH_TIMEOUT(m_collector.requestCount(), 2, 5000);
    Q_EMIT sender.SignalStopRequest();
    QTRY_COMPARE_WITH_TIMEOUT(outcome.cancel.count(), 2, 5000);
    QCOMPARE(outcome.total(), 2);
}

// The reply belongs to the sender: deleting the sender from the outcome slot must
// not leave the handler touching a deleted reply (ASan catches that).
void CGoogleAnalyticsTest::receiverDeletingSenderCrashes()
{
    auto* sender = new CGoogleAnalytics;
    QSignalSpy destroyed(sender, &QObject::destroyed);
    connect(sender, &CGoogleAnalytics::SignalRequestResult, sender, [sender] { delete sender; });
    sender->StartRequestAsync(S, S, S, S, S, S);
    QVERIFY(destroyed.wait(5000));
}

QTEST_GUILESS_MAIN(CGoogleAnalyticsTest)
#include "tst_cgoogleanalytics.moc"

#include <ZrUtils/CGoogleAnalytics.h>

#include "Ga4Collector.h"

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

    QSignalSpy timeout;
    QSignalSpy cancel;
    QSignalSpy result;
};

QString refusingHost()
{
    QTcpServer probe; // a port nobody listens on once the probe is gone
    probe.listen(QHostAddress::LocalHost, 0);
    return QStringLiteral("http://127.0.0.1:%1").arg(probe.serverPort());
}

} // namespace

class CGoogleAnalyticsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanupTestCase();

    void collectionHostForms_data();
    void collectionHostForms();
    void requestNotAsBuilt_data();
    void requestNotAsBuilt();
    void outcomeMisreported_data();
    void outcomeMisreported();
    void answerAfterTenSecondsNotTimedOut();
    void stopRequestMissesARunningRequest();
    void senderDeletedDuringRequest();
    void receiverDeletesSender();

private:
    Ga4Collector m_collector;
};

void CGoogleAnalyticsTest::init()
{
    m_collector.clear();
    CGoogleAnalytics::SetCollectionHost(m_collector.host());
}

void CGoogleAnalyticsTest::cleanupTestCase()
{
    CGoogleAnalytics::SetCollectionHost(QString());
}

void CGoogleAnalyticsTest::collectionHostForms_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("url");

    QTest::newRow("default") << QString() << QStringLiteral("https://www.google-analytics.com/mp/collect");
    QTest::newRow("bare-host") << QStringLiteral("collect.example")
                               << QStringLiteral("https://collect.example/mp/collect");
    QTest::newRow("host-port") << QStringLiteral("127.0.0.1:8080")
                               << QStringLiteral("https://127.0.0.1:8080/mp/collect");
    QTest::newRow("scheme-trailing-slash")
        << QStringLiteral("http://127.0.0.1:9/") << QStringLiteral("http://127.0.0.1:9/mp/collect");
}

void CGoogleAnalyticsTest::collectionHostForms()
{
    QFETCH(QString, host);
    QFETCH(QString, url);
    CGoogleAnalytics::SetCollectionHost(host);
    QCOMPARE(CGoogleAnalytics::CollectionUrl(), url);
}

void CGoogleAnalyticsTest::requestNotAsBuilt_data()
{
    QTest::addColumn<QString>("measurementId");
    QTest::addColumn<QString>("apiSecret");
    QTest::addColumn<QString>("category");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("query");

    QTest::newRow("plain") << QStringLiteral("G-ABC123") << QStringLiteral("s3cr3t") << QStringLiteral("ui")
                           << QStringLiteral("toolbar")
                           << QStringLiteral("measurement_id=G-ABC123&api_secret=s3cr3t");
    QTest::newRow("empty-params-still-sent")
        << QStringLiteral("G-1") << QStringLiteral("k") << QString() << QString()
        << QStringLiteral("measurement_id=G-1&api_secret=k");
    // No encoding: the "&" splits the query into a third parameter.
    QTest::newRow("ampersand-in-secret")
        << QStringLiteral("G-1") << QStringLiteral("ab&x=1") << QStringLiteral("c") << QStringLiteral("l")
        << QStringLiteral("measurement_id=G-1&api_secret=ab&x=1");
    // Substituted one after the other: the secret also fills the "%3" left by the id.
    QTest::newRow("percent-taken-by-later-value")
        << QStringLiteral("%3") << QStringLiteral("sec") << QStringLiteral("c") << QStringLiteral("l")
        << QStringLiteral("measurement_id=sec&api_secret=sec");
}

// Body shape and query string as the collector sees them, for both variants.
void CGoogleAnalyticsTest::requestNotAsBuilt()
{
    QFETCH(QString, measurementId);
    QFETCH(QString, apiSecret);
    QFETCH(QString, category);
    QFETCH(QString, label);
    QFETCH(QString, query);

    CGoogleAnalytics sender;
    QVERIFY(sender.StartRequestSync(
        QStringLiteral("client.1"), measurementId, apiSecret, QStringLiteral("app_start"), category, label));
    Outcome outcome(&sender);
    sender.StartRequestAsync(
        QStringLiteral("client.1"), measurementId, apiSecret, QStringLiteral("app_start"), category, label);
    QVERIFY(outcome.result.wait(5000));
    QCOMPARE(outcome.result.at(0).at(1).toInt(), 204);

    const QList<ZrLoopback::HttpRequest> requests = m_collector.requests();
    QCOMPARE(requests.size(), 2);
    for (const ZrLoopback::HttpRequest& request : requests) {
        QCOMPARE(Ga4Collector::verdict(request), QString());
        QCOMPARE(QString::fromUtf8(request.query), query);
        // Indented, not compact.
        QVERIFY2(request.body.startsWith("{\n    \"client_id\": \"client.1\",\n"), request.body.constData());
        const Ga4Event event = Ga4Collector::parse(request);
        QCOMPARE(event.name, QStringLiteral("app_start"));
        QCOMPARE(event.category, category);
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
                                  << QByteArray("collector says 200");
    QTest::newRow("400") << false << QStringLiteral("status-400") << false << 400
                         << QByteArray("collector says 400");
    QTest::newRow("503") << false << QStringLiteral("status-503") << false << 503
                         << QByteArray("collector says 503");
    // No status at all: 0, not the -1 of the JSON client.
    QTest::newRow("refused") << true << QStringLiteral("G-1") << false << 0 << QByteArray();
}

void CGoogleAnalyticsTest::outcomeMisreported()
{
    QFETCH(bool, refused);
    QFETCH(QString, measurementId);
    QFETCH(bool, syncResult);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    if (refused)
        CGoogleAnalytics::SetCollectionHost(refusingHost());

    CGoogleAnalytics sender;
    const auto send = [&](bool sync) {
        const QString c = QStringLiteral("c"), s = QStringLiteral("s"), e = QStringLiteral("e");
        if (sync)
            return sender.StartRequestSync(c, measurementId, s, e, c, c);
        sender.StartRequestAsync(c, measurementId, s, e, c, c);
        return false;
    };
    QCOMPARE(send(true), syncResult);

    Outcome outcome(&sender);
    send(false);
    QVERIFY(outcome.result.wait(5000));
    QTest::qWait(50); // nothing else may follow
    QCOMPARE(outcome.total(), 1);
    QCOMPARE(outcome.result.at(0).at(0).toByteArray(), body);
    QCOMPARE(outcome.result.at(0).at(1).toInt(), status);
}

// One slow answer, waited for by both variants at once (the sync call's nested
// loop delivers the async request's events too).
void CGoogleAnalyticsTest::answerAfterTenSecondsNotTimedOut()
{
    CGoogleAnalytics sender;
    Outcome outcome(&sender);
    const QString s = QStringLiteral("s");
    sender.StartRequestAsync(s, QStringLiteral("slow"), s, s, s, s);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!sender.StartRequestSync(s, QStringLiteral("slow"), s, s, s, s));
    QVERIFY(clock.elapsed() >= 9900);
    QTRY_COMPARE_WITH_TIMEOUT(outcome.total(), 1, 3000);
    QCOMPARE(outcome.timeout.count(), 1);
}

void CGoogleAnalyticsTest::stopRequestMissesARunningRequest()
{
    CGoogleAnalytics sender;
    Outcome outcome(&sender);
    const QString s = QStringLiteral("s");
    sender.StartRequestAsync(s, QStringLiteral("hang"), s, s, s, s);
    sender.StartRequestAsync(s, QStringLiteral("hang"), s, s, s, s);
    QTRY_COMPARE_WITH_TIMEOUT(m_collector.requestCount(), 2, 5000);
    Q_EMIT sender.SignalStopRequest();
    QTRY_COMPARE_WITH_TIMEOUT(outcome.cancel.count(), 2, 5000);
    QCOMPARE(outcome.total(), 2);
}

void CGoogleAnalyticsTest::senderDeletedDuringRequest()
{
    auto* sender = new CGoogleAnalytics;
    Outcome outcome(sender);
    const QString s = QStringLiteral("s");
    sender->StartRequestAsync(s, QStringLiteral("hang"), s, s, s, s);
    QTRY_COMPARE_WITH_TIMEOUT(m_collector.requestCount(), 1, 5000);
    delete sender;
    QTest::qWait(50);
    QCOMPARE(outcome.total(), 0);
}

// The reply belongs to the sender; deleting the sender from the outcome slot must
// not leave the handler touching a deleted reply.
void CGoogleAnalyticsTest::receiverDeletesSender()
{
    auto* sender = new CGoogleAnalytics;
    QSignalSpy destroyed(sender, &QObject::destroyed);
    connect(sender, &CGoogleAnalytics::SignalRequestResult, sender, [sender] { delete sender; });
    const QString s = QStringLiteral("s");
    sender->StartRequestAsync(s, s, s, s, s, s);
    QVERIFY(destroyed.wait(5000));
}

QTEST_GUILESS_MAIN(CGoogleAnalyticsTest)
#include "tst_cgoogleanalytics.moc"

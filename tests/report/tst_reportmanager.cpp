// The GA4 side of reporting (the sender, CGaReport and the report manager) against a
// loopback GA4 collector, and the lifecycle of an application that reports and quits
// at once (a separate process).
#include <ZrUtils/CGaReport.h>
#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>

#include "FreePort.h"
#include "Ga4Collector.h"
#include "LoopbackLogService.h"

#include <QPointer>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using ZrUtils::CGoogleAnalytics;
using ZrUtils::CReportManager;

namespace
{
// The outcome signals of one sender in arrival order: "timeout", "cancel" or "<status> <body>".
struct Outcome {
    explicit Outcome(CGoogleAnalytics* s)
    {
        QObject::connect(s, &CGoogleAnalytics::SignalRequestTimeout, [this] { seen.append("timeout"); });
        QObject::connect(s, &CGoogleAnalytics::SignalRequestCancel, [this] { seen.append("cancel"); });
        QObject::connect(
            s, &CGoogleAnalytics::SignalRequestResult, [this](const QByteArray& body, int status) {
                seen.append(QString::number(status) + ' ' + body);
            });
    }
    QStringList seen;
};

const QString S = QStringLiteral("s");
} // namespace

class ReportManagerTest : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    Ga4Collector m_collector;
    QObject* m_firstParent = new QObject; // must outlive the tests that use the singleton
    CReportManager* m_manager = CReportManager::getInstance(m_firstParent);
    int m_files = 0;

    QString catalogue(const QByteArray& content)
    {
        QFile file(m_dir.filePath(QStringLiteral("catalogue-%1.json").arg(++m_files)));
        if (file.open(QIODevice::WriteOnly))
            file.write(content);
        return file.fileName();
    }
    const QByteArray m_openFile = R"([{"event_key": "open_file", "event_name": "file_open",
        "event_category": "cat", "event_label": "menu"}])";
    QList<CGoogleAnalytics*> senders() const { return m_manager->findChildren<CGoogleAnalytics*>(); }

private Q_SLOTS:
    void init()
    {
        m_collector.clearRequests();
        CGoogleAnalytics::SetCollectionHost(m_collector.host());
    }
    void cleanupTestCase() { CGoogleAnalytics::SetCollectionHost(QString()); }

    void collectionUrlWrong()
    {
        CGoogleAnalytics::SetCollectionHost("127.0.0.1:8080"); // https when no scheme is given
        QCOMPARE(CGoogleAnalytics::CollectionUrl(), "https://127.0.0.1:8080/mp/collect");
        CGoogleAnalytics::SetCollectionHost(QString());
        QCOMPARE(CGoogleAnalytics::CollectionUrl(), "https://www.google-analytics.com/mp/collect");
    }

    // Sent as built by both variants: indented JSON, query values not encoded.
    void requestNotAsBuilt_data()
    {
        QTest::addColumn<QString>("measurementId");
        QTest::addColumn<QString>("apiSecret");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("query");
        QTest::newRow("empty-label-still-sent")
            << "G-1" << S << QString() << "measurement_id=G-1&api_secret=s";
        QTest::newRow("ampersand-in-secret") << "G-AB12"
                                             << "ab&x=1" << S << "measurement_id=G-AB12&api_secret=ab&x=1";
        // Substituted one after the other: the secret also fills the "%3" the id left.
        QTest::newRow("percent-taken-by-later-value") << "%3" << S << S << "measurement_id=s&api_secret=s";
    }
    void requestNotAsBuilt()
    {
        QFETCH(QString, measurementId);
        QFETCH(QString, apiSecret);
        QFETCH(QString, label);
        CGoogleAnalytics sender;
        Outcome outcome(&sender);
        QVERIFY(sender.StartRequestSync("client.1", measurementId, apiSecret, "app_start", QString(), label));
        sender.StartRequestAsync("client.1", measurementId, apiSecret, "app_start", QString(), label);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.seen, QStringList("204 "), 5000);
        QCOMPARE(m_collector.requestCount(), 2);
        for (const ZrLoopback::HttpRequest& request : m_collector.requests()) {
            const Ga4Event event(request);
            QVERIFY(event.wellFormed);
            QTEST(QString::fromUtf8(request.query), "query");
            QVERIFY2(request.body.startsWith("{\n    \"client_id\": \"client.1\",\n"), "not indented JSON");
            QCOMPARE(event.name + '/' + event.category + '/' + event.label, "app_start//" + label);
        }
    }

    void outcomeMisreported_data()
    {
        QTest::addColumn<QString>("measurementId"); // "refused": nobody listens
        QTest::addColumn<bool>("syncResult");
        QTest::addColumn<QString>("outcome");
        QTest::newRow("2xx-any-body") << "status-200" << true << "200 says status-200";
        // Not followed: Qt 6 follows redirects unless the request says otherwise.
        QTest::newRow("3xx-is-the-answer") << "status-307" << true << "307 says status-307";
        QTest::newRow("4xx") << "status-400" << false << "400 says status-400";
        QTest::newRow("5xx") << "status-503" << false << "503 says status-503";
        // No status at all: 0, not the -1 of the JSON client.
        QTest::newRow("refused") << "refused" << false << "0 ";
        QTest::newRow("answer-after-ten-seconds") << "slow" << false << "timeout";
    }
    // Both variants run at once: the sync call's nested loop delivers the async request's events too.
    void outcomeMisreported()
    {
        QFETCH(QString, measurementId);
        QFETCH(QString, outcome);
        if (measurementId == "refused")
            CGoogleAnalytics::SetCollectionHost(
                QStringLiteral("http://127.0.0.1:%1").arg(ZrLoopback::freePort()));
        CGoogleAnalytics sender;
        Outcome outcomes(&sender);
        sender.StartRequestAsync(S, measurementId, S, S, S, S);
        QTEST(sender.StartRequestSync(S, measurementId, S, S, S, S), "syncResult");
        QTRY_COMPARE_WITH_TIMEOUT(outcomes.seen, QStringList(outcome), 3000);
    }

    void stopRequestMissesARunningRequest()
    {
        CGoogleAnalytics sender;
        Outcome outcome(&sender);
        sender.StartRequestAsync(S, "hang", S, S, S, S);
        sender.StartRequestAsync(S, "hang", S, S, S, S);
        QTRY_COMPARE_WITH_TIMEOUT(m_collector.requestCount(), 2, 5000);
        Q_EMIT sender.SignalStopRequest();
        QTRY_COMPARE_WITH_TIMEOUT(outcome.seen, QStringList({"cancel", "cancel"}), 5000);
    }

    // The reply belongs to the sender: deleting the sender from the outcome slot must
    // not leave the handler touching a deleted reply (ASan catches that).
    void receiverDeletingSenderCrashes()
    {
        auto* sender = new CGoogleAnalytics;
        QSignalSpy destroyed(sender, &QObject::destroyed);
        connect(sender, &CGoogleAnalytics::SignalRequestResult, sender, [sender] { delete sender; });
        sender->StartRequestAsync(S, S, S, S, S, S);
        QVERIFY(destroyed.wait(5000));
    }

    void catalogueMisread_data()
    {
        QTest::addColumn<QString>("content"); // null: no file at all
        QTest::addColumn<QJsonObject>("expected"); // event key -> what GetGaData() returns
        const auto json = [](const char* text) { return QJsonDocument::fromJson(text).object(); };
        QTest::newRow("missing-file") << QString() << json(R"({"mf": {}})");
        QTest::newRow("not-json") << R"([{"event_key": "nj")" << json(R"({"nj": {}})");
        QTest::newRow("object-not-array") << R"({"event_key": "obj"})" << json(R"({"obj": {}})");
        QTest::newRow("last-duplicate-wins")
            << R"([{"event_key": "dup", "event_name": "a"}, {"event_key": "dup"}])"
            << json(R"({"dup": {"event_key": "dup"}})");
        // Entries of earlier calls stay unless replaced.
        QTest::newRow("earlier-calls-kept")
            << R"([{"event_key": "other"}])" << json(R"({"dup": {"event_key": "dup"}})");
        // Objects without a string key go under the empty key; so do non-objects, as empty objects.
        QTest::newRow("non-string-key")
            << R"([{"event_key": 12}])" << json(R"({"": {"event_key": 12}, "12": {}})");
        QTest::newRow("non-object-elements") << R"([{"event_name": "orphan"}, 7, {"event_key": "b"}])"
                                             << json(R"({"": {}, "b": {"event_key": "b"}})");
    }
    void catalogueMisread()
    {
        QFETCH(QString, content);
        QFETCH(QJsonObject, expected);
        const QString path
            = content.isNull() ? m_dir.filePath(QStringLiteral("missing.json")) : catalogue(content.toUtf8());
        m_manager->InitGaData(path, "c", "m", "s");
        for (auto it = expected.constBegin(); it != expected.constEnd(); ++it)
            QCOMPARE(m_manager->GetGaData(it.key()), it.value().toObject());
    }

    void labelNotOverridden_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<bool>("sync");
        QTest::addColumn<QString>("sentLabel");
        QTest::newRow("catalogue-label-sync") << QString() << true << "menu";
        QTest::newRow("caller-label-async") << "key" << false << "key";
    }
    void labelNotOverridden()
    {
        QFETCH(QString, label);
        QFETCH(bool, sync);
        m_manager->InitGaData(catalogue(m_openFile), "client.42", "G-TEST", "secret");
        m_manager->SendGaReport("open_file", label, sync);
        if (sync)
            QCOMPARE(m_collector.requestCount(), 1); // the call waited for the answer
        QTRY_COMPARE_WITH_TIMEOUT(m_collector.requestCount(), 1, 5000);
        const Ga4Event sent(m_collector.requests().at(0));
        QVERIFY(sent.wellFormed);
        QCOMPARE(QStringList({sent.clientId, sent.measurementId, sent.apiSecret, sent.name, sent.category}),
            QStringList({"client.42", "G-TEST", "secret", "file_open", "cat"}));
        QTEST(sent.label, "sentLabel");
        QTRY_VERIFY_WITH_TIMEOUT(senders().isEmpty(), 5000);
    }

    void unknownKeySends()
    {
        m_manager->SendGaReport("no-such-event", "l", false);
        QVERIFY(senders().isEmpty()); // no sender was even created
        m_manager->SendGaReport("no-such-event", "l", true);
        QCOMPARE(m_collector.requestCount(), 0);
    }

    // Credentials are not checked: an uninitialised report still sends, with empty ids.
    void uninitialisedReportSkipsEvent()
    {
        ZrUtils::CGaReport report;
        report.ReportGaData("bare", "c", QString(), true);
        QCOMPARE(m_collector.requestCount(), 1);
        QCOMPARE(m_collector.requests().at(0).query, QByteArray("measurement_id=&api_secret="));
        QCOMPARE(Ga4Event(m_collector.requests().at(0)).clientId, QString());
    }

    // A result frees the sender too: see labelNotOverridden().
    void asyncSenderNotFreed_data()
    {
        QTest::addColumn<bool>("stop");
        QTest::newRow("cancel") << true;
        QTest::newRow("timeout") << false;
    }
    void asyncSenderNotFreed()
    {
        QFETCH(bool, stop);
        m_manager->InitGaData(catalogue(m_openFile), "c", "hang", {});
        m_manager->SendGaReport("open_file", QString(), false);
        QCOMPARE(senders().size(), 1);
        const QPointer<CGoogleAnalytics> sender = senders().at(0);
        if (stop) {
            QTRY_COMPARE_WITH_TIMEOUT(m_collector.requestCount(), 1, 5000);
            Q_EMIT sender->SignalStopRequest();
        }
        QTRY_VERIFY_WITH_TIMEOUT(sender.isNull(), 15000);
    }

    void quitRightAfterReportingFails_data()
    {
        QTest::addColumn<bool>("telemetry");
        QTest::addColumn<bool>("appParent");
        QTest::newRow("telemetry") << true << false;
        QTest::newRow("async-ga") << false << false;
        QTest::newRow("async-ga-application-parent") << false << true;
    }
    // The reports are destroyed telemetry first, and nothing crashes, hangs or leaks
    // (the helper has the same sanitizers) while a report is in flight.
    void quitRightAfterReportingFails()
    {
        QFETCH(bool, telemetry);
        QFETCH(bool, appParent);
        ZrLoopback::LoopbackLogService service("quit-id", "quit-key");
        QStringList args = telemetry ? QStringList {"zr", service.endpoint(), "quit-id", "quit-key"}
                                     : QStringList {"ga", m_collector.host(), catalogue(m_openFile)};
        if (appParent)
            args << "app-parent";
        QProcess app;
        app.start(QCoreApplication::applicationDirPath() + "/reportapp", args);
        QVERIFY2(app.waitForFinished(40000), "the application hangs on quitting");
        QVERIFY2(app.exitStatus() == QProcess::NormalExit && app.exitCode() == 0,
            qPrintable(QStringLiteral("status %1, code %2: ").arg(app.exitStatus()).arg(app.exitCode())
                + app.readAllStandardError()));
        QCOMPARE(app.readAllStandardOutput(),
            QByteArray("destroyed ZrUtils::CZrReport\ndestroyed ZrUtils::CGaReport\n"));
        if (telemetry) {
            // A post in flight at exit is finished before the process goes.
            QCOMPARE(service.receivedCount(), 1);
            QCOMPARE(service.received().at(0).topic, QByteArray("quit_now"));
        }
    }

    // Last: a later parent is ignored, and after the first one deletes the singleton the
    // next call must not hand out the deleted object.
    void singletonParentMishandled()
    {
        QObject other;
        QCOMPARE(CReportManager::getInstance(&other), m_manager);
        QCOMPARE(m_manager->parent(), m_firstParent);
        const QPointer<CReportManager> old = m_manager;
        delete m_firstParent;
        QVERIFY(old.isNull());
        CReportManager* fresh = CReportManager::getInstance();
        QVERIFY(fresh);
        QCOMPARE(fresh->parent(), nullptr);
        QCOMPARE(fresh->GetGaData("dup"), QJsonObject());
    }
};

QTEST_GUILESS_MAIN(ReportManagerTest)
#include "tst_reportmanager.moc"

// The report manager and CGaReport against a loopback GA4 collector, and the
// lifecycle of an application that reports and quits at once (a separate process).
#include <ZrUtils/CGaReport.h>
#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>

#include "Ga4Collector.h"
#include "LoopbackLogService.h"

#include <QPointer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using ZrUtils::CGoogleAnalytics;
using ZrUtils::CReportManager;

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

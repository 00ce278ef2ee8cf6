// The consent switch against the loopback GA4 collector and log service: while
// reporting is denied, nothing reaches either, by any class or path.
#include <ZrUtils/CGaReport.h>
#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>
#include <ZrUtils/CZrReport.h>
#include <ZrUtils/ReportConsent.h>

#include "Ga4Collector.h"
#include "LoopbackLogService.h"
#include "report/ReportWorkers.h"

#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <thread>

using namespace ZrUtils;
using Internal::ReportWorkers;

class ReportConsentTest : public QObject
{
    Q_OBJECT
    Ga4Collector m_collector;
    ZrLoopback::LoopbackLogService m_service {"key-id", "secret"};
    QTemporaryDir m_dir;
    CGaReport m_gaReport; // outlives its asynchronous senders

    // Sends one report through @p path; every path reaches the collector or the service.
    void send(const QString& path)
    {
        const QString endpoint = QString::fromLatin1(m_service.endpoint());
        if (path.startsWith("CGoogleAnalytics")) {
            auto* sender = new CGoogleAnalytics(this);
            if (path.endsWith("sync")) {
                sender->StartRequestSync("c", "G-1", "s", "e", "cat", "l");
                delete sender;
            } else {
                connect(sender, &CGoogleAnalytics::SignalRequestResult, sender, &QObject::deleteLater);
                connect(sender, &CGoogleAnalytics::SignalRequestCancel, sender, &QObject::deleteLater);
                sender->StartRequestAsync("c", "G-1", "s", "e", "cat", "l");
            }
        } else if (path.startsWith("CGaReport")) {
            m_gaReport.InitData("c", "G-1", "s");
            m_gaReport.ReportGaData("e", "cat", "l", path.endsWith(" sync"));
        } else if (path.startsWith("CReportManager GA")) {
            CReportManager::getInstance(nullptr)->SendGaReport(
                "open_file", QString(), path.endsWith(" sync"));
        } else if (path == "CZrReport") {
            CZrReport report;
            report.InitData("src", endpoint, "key-id", "secret", "p", "l", {});
            report.ReportZrData("e");
        } else {
            CReportManager* manager = CReportManager::getInstance(nullptr);
            manager->InitZrData("src", endpoint, "key-id", "secret", "p", "l", {});
            manager->SendZrReport("e");
        }
    }
    static bool isTelemetry(const QString& path)
    {
        return path.contains("CZrReport") || path.endsWith("telemetry");
    }
    int arrived(const QString& path) const
    {
        return isTelemetry(path) ? m_service.receivedCount() : m_collector.requests().size();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        CGoogleAnalytics::SetCollectionHost(m_collector.host());
        QFile catalogue(m_dir.filePath("catalogue.json"));
        QVERIFY(catalogue.open(QIODevice::WriteOnly));
        catalogue.write(R"([{"event_key": "open_file", "event_name": "open", "event_category": "file",
                             "event_label": "menu"}])");
        catalogue.close();
        CReportManager::getInstance(nullptr)->InitGaData(catalogue.fileName(), "c", "G-1", "s");
    }
    void init()
    {
        m_collector.clearRequests();
        m_service.clearReceived();
    }
    void cleanup()
    {
        ReportConsent::setState(ReportConsent::Allowed);
        QVERIFY(ReportWorkers::instance().waitIdle(30000));
    }

    // A denied report, then an allowed one by the same path: once the second has
    // arrived, it must be the only one.
    void deniedReportSent_data()
    {
        QTest::addColumn<QString>("path");
        for (const char* path :
            {"CGoogleAnalytics sync", "CGoogleAnalytics async", "CGaReport sync", "CGaReport async",
                "CReportManager GA sync", "CReportManager GA async", "CZrReport", "CReportManager telemetry"})
            QTest::newRow(path) << path;
    }
    void deniedReportSent()
    {
        QFETCH(QString, path);
        ReportConsent::setState(ReportConsent::Denied);
        const uint threadsBefore = QDir("/proc/self/task").count();
        send(path);
        // The telemetry paths start a thread per report: not for this one.
        QCOMPARE(ReportWorkers::instance().running(), 0);
        if (isTelemetry(path))
            QCOMPARE(QDir("/proc/self/task").count(), threadsBefore);

        ReportConsent::setState(ReportConsent::Allowed);
        send(path);
        QTRY_COMPARE_WITH_TIMEOUT(arrived(path), 1, 15000);
        QVERIFY(ReportWorkers::instance().waitIdle(30000));
        QCOMPARE(arrived(path), 1);
    }

    void deniedRequestEndsWithoutOutcome()
    {
        ReportConsent::setState(ReportConsent::Denied);
        CGoogleAnalytics sender;
        QVERIFY(!sender.StartRequestSync("c", "G-1", "s", "e", "cat", "l"));
        QSignalSpy cancelled(&sender, &CGoogleAnalytics::SignalRequestCancel);
        QSignalSpy results(&sender, &CGoogleAnalytics::SignalRequestResult);
        sender.StartRequestAsync("c", "G-1", "s", "e", "cat", "l");
        QCOMPARE(cancelled.count(), 0); // queued: callers connect after the call
        QVERIFY(cancelled.wait(5000));
        QCOMPARE(results.count(), 0);
        QCOMPARE(m_collector.requests().size(), 0);
    }

    void changeNotSignalled()
    {
        QSignalSpy changes(ReportConsent::instance(), &ReportConsent::stateChanged);
        std::thread other([] {
            ReportConsent::setState(ReportConsent::Denied);
            ReportConsent::setState(ReportConsent::Denied); // no change, no signal
        });
        other.join();
        QCOMPARE(ReportConsent::state(), ReportConsent::Denied);
        QTRY_COMPARE(changes.count(), 1);
        QCOMPARE(changes.at(0).at(0).value<ReportConsent::State>(), ReportConsent::Denied);
        ReportConsent::setState(ReportConsent::Allowed);
        QCOMPARE(changes.count(), 2);
        QVERIFY(ReportConsent::isAllowed());
    }

    // Denying while a post is on its way lets that post finish.
    void inFlightPostAbandoned()
    {
        std::atomic<bool> posting {false};
        m_service.setOverride([&](const ZrLoopback::HttpRequest&) -> std::optional<ZrLoopback::HttpResponse> {
            posting = true;
            while (ReportConsent::isAllowed())
                std::this_thread::yield();
            return std::nullopt; // then served as usual
        });
        send("CZrReport");
        QTRY_VERIFY(posting);
        ReportConsent::setState(ReportConsent::Denied);
        QTRY_COMPARE_WITH_TIMEOUT(m_service.receivedCount(), 1, 15000);
        m_service.setOverride(nullptr);
    }
};

QTEST_GUILESS_MAIN(ReportConsentTest)
#include "tst_reportconsent.moc"

// The own telemetry against the loopback log service, which checks the signature
// and decodes the posted log group with code of its own.
#include <ZrUtils/CReportManager.h>
#include <ZrUtils/CZrReport.h>
#include <ZrUtils/ReportAudit.h>
#include <ZrUtils/ReportSpool.h>

#include "LoopbackLogService.h"
#include "report/ReportWorkers.h"

#include <QDir>
#include <QJsonArray>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <ctime>
#include <malloc.h>

using ZrUtils::Internal::ReportWorkers;

namespace
{
// Counts every message and hands it on to QtTest, so that ignoreMessage still works.
std::atomic<int> messageCount {0};
QtMessageHandler testHandler = nullptr;
void countMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    ++messageCount;
    testHandler(type, context, text);
}
} // namespace

class ZrReportTest : public QObject
{
    Q_OBJECT
    ZrLoopback::LoopbackLogService m_service {"key-id", "secret"};
    // InitData()'s source, endpoint, key id, key, project and log store.
    const QStringList m_config {
        "src", QString::fromLatin1(m_service.endpoint()), "key-id", "secret", "p", "l"};

    // Reports from a report configured as m_config with one value replaced (index -1: not
    // configured at all), and destroyed at once: the post must not depend on it.
    void report(const QString& event, int index, const QString& value, const QJsonObject& contents = {})
    {
        ZrUtils::CZrReport report;
        QStringList v = m_config;
        if (index >= 0) {
            v[index] = value;
            report.InitData(v[0], v[1], v[2], v[3], v[4], v[5], contents);
        }
        report.ReportZrData(event);
    }

private Q_SLOTS:
    void init()
    {
        m_service.clearReceived();
        m_service.http().clearRequests();
        m_service.http().closeConnections(); // the server keeps a handle per connection until then
    }
    void cleanup() { QVERIFY(ReportWorkers::instance().waitIdle(30000)); }

    void logItemNotAsConfigured_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("event");
        QTest::addColumn<QJsonObject>("contents");
        QTest::addColumn<QString>("pairs");
        // Sorted by key; only string values carry through, the others are sent empty.
        QTest::newRow("sorted-non-strings-empty") << "client-7"
                                                  << "app_start"
                                                  << QJsonObject {{"ver", "1.2"}, {"n", 5}, {"b", true},
                                                         {"z", QJsonValue::Null}, {"a", QJsonArray {1}}}
                                                  << "a= b= n= ver=1.2 z=";
        QTest::newRow("no-contents-no-event-still-posted") << "c" << QString() << QJsonObject() << QString();
        QTest::newRow("utf8") << "客户端"
                              << "événement" << QJsonObject {{"名", "值"}} << "名=值";
    }
    void logItemNotAsConfigured()
    {
        QFETCH(QString, source);
        QFETCH(QString, event);
        QFETCH(QJsonObject, contents);
        const quint32 before = quint32(std::time(nullptr));
        report(event, 0, source, contents);
        QTRY_COMPARE_WITH_TIMEOUT(m_service.receivedCount(), 1, 10000);
        const ZrLoopback::ReceivedLogGroup group = m_service.received().at(0);
        QCOMPARE(group.project + group.request.target + '|' + group.topic + '|' + group.source,
            "p/logstores/l|" + (event + '|' + source).toUtf8());
        QVERIFY(!group.compressed);
        QCOMPARE(group.logs.size(), 1);
        QVERIFY(group.logs.at(0).time >= before && group.logs.at(0).time <= quint32(std::time(nullptr)));
        QStringList pairs;
        for (const auto& pair : group.logs.at(0).contents)
            pairs << QString::fromUtf8(pair.first + '=' + pair.second);
        QTEST(pairs.join(' '), "pairs");
    }

    void postedWithoutConfiguration_data()
    {
        QTest::addColumn<int>("emptied"); // which InitData value is empty; -1: never initialised
        QTest::newRow("never-initialised") << -1;
        const char* names[] = {"no-endpoint", "no-key-id", "no-key", "no-project", "no-logstore"};
        for (int i = 0; i < 5; ++i)
            QTest::newRow(names[i]) << i + 1;
    }
    // Nothing may even start: the check comes before the thread.
    void postedWithoutConfiguration()
    {
        QFETCH(int, emptied);
        report("dropped", emptied, QString(), {{"k", "v"}});
        QCOMPARE(ReportWorkers::instance().running(), 0);
        QCOMPARE(m_service.http().requestCount(), 0);
    }

    void serviceErrorNotOneDebugLine_data()
    {
        QTest::addColumn<int>("wrong"); // the InitData value that is "nobody"
        QTest::addColumn<QString>("line");
        QTest::newRow("unknown-key-id")
            << 2 << R"(^"InvalidAccessKeyId" : "access key id nobody does not exist"$)";
        QTest::newRow("wrong-secret") << 3 << R"(^"SignatureNotMatch" : "signature \S+ not match"$)";
    }
    void serviceErrorNotOneDebugLine()
    {
        QFETCH(int, wrong);
        QFETCH(QString, line);
        messageCount = 0;
        testHandler = qInstallMessageHandler(countMessage);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(line));
        report("refused", wrong, "nobody");
        const bool idle = ReportWorkers::instance().waitIdle(10000);
        qInstallMessageHandler(testHandler);
        QVERIFY(idle);
        QCOMPARE(messageCount.load(), 1);
        QCOMPARE(m_service.http().requestCount(), 1); // no retry
    }

    // 1,000 events at once through the manager, four times: every one arrives, and
    // after the first burst (which warms up caches) the heap in use comes back to the
    // same size after every burst. A leak of 200 bytes per event fails here. With the
    // spool and the audit log on, the events also arrive in order.
    void burstLosesEventsOrMemory_data()
    {
        QTest::addColumn<bool>("spooled");
        QTest::newRow("thread per event") << false;
        QTest::newRow("spooled and audited") << true;
    }
    void burstLosesEventsOrMemory()
    {
        QFETCH(bool, spooled);
        constexpr int Burst = 1000;
        QTemporaryDir folder;
        if (spooled) {
            QVERIFY(ZrUtils::ReportSpool::enable(folder.filePath("spool")));
            QVERIFY(ZrUtils::ReportAudit::enable(folder.filePath("audit"), 64 << 10, 1));
        }
#ifdef __SANITIZE_ADDRESS__
        const int rounds = 2; // leak checking proper is LSan's job there
#else
        const int rounds = 4;
#endif
        ZrUtils::CReportManager* manager = ZrUtils::CReportManager::getInstance();
        const QStringList& v = m_config;
        manager->InitZrData(v[0], v[1], v[2], v[3], v[4], v[5], {{"k", "v"}});
        // The workers are detached: a thread that has let go of its ticket may still be
        // winding down, with its allocator cache not yet given back.
        const auto threads = [] { return QDir(QStringLiteral("/proc/self/task")).count(); };
        qint64 baseline = 0;
        for (int round = 0; round < rounds; ++round) {
            init();
            const uint threadsBefore = threads();
            for (int i = 0; i < Burst; ++i)
                manager->SendZrReport(QString::number(i));
            QTRY_COMPARE_WITH_TIMEOUT(m_service.receivedCount(), Burst, 60000);
            QVERIFY(ReportWorkers::instance().waitIdle(30000));
            QVERIFY(ZrUtils::ReportAudit::waitWritten());
            QTRY_VERIFY_WITH_TIMEOUT(threads() <= threadsBefore, 10000);
            QTRY_COMPARE_WITH_TIMEOUT(m_service.http().openConnections(), 0, 10000);
            QCOMPARE(m_service.http().requestCount(), Burst);
            QSet<QByteArray> topics;
            QList<QByteArray> arrival;
            for (const ZrLoopback::ReceivedLogGroup& group : m_service.received()) {
                topics.insert(group.topic);
                arrival.append(group.topic);
            }
            QCOMPARE(topics.size(), Burst);
            for (int i = 0; spooled && i < Burst; ++i)
                QCOMPARE(arrival.at(i), QByteArray::number(i));
            const struct mallinfo2 heap = mallinfo2(); // handed out and not got back, over every arena
            const qint64 grown = qint64(heap.uordblks + heap.hblkhd) - baseline;
            if (round == 0)
                baseline = grown;
            QVERIFY2(round == 0 || grown < 512 * 1024,
                qPrintable(QStringLiteral("grew by %1 kB").arg(grown / 1024)));
        }
        ZrUtils::ReportSpool::disable();
        ZrUtils::ReportAudit::disable();
    }
};

QTEST_GUILESS_MAIN(ZrReportTest)
#include "tst_zrreport.moc"

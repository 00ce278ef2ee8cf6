// The own telemetry against the loopback log service, which checks the signature
// and decodes the posted log group with code of its own.
#include <ZrUtils/CReportManager.h>
#include <ZrUtils/CZrReport.h>

#include "LoopbackLogService.h"
#include "report/ReportWorkers.h"

#include <QJsonArray>
#include <QRegularExpression>
#include <QTest>

#include <atomic>
#include <ctime>
#include <malloc.h>

using ZrLoopback::KeyValueList;
using ZrLoopback::ReceivedLogGroup;
using ZrUtils::CZrReport;
using ZrUtils::Internal::ReportWorkers;

Q_DECLARE_METATYPE(KeyValueList)

namespace
{

const QString KeyId = QStringLiteral("report-key-id"), KeySecret = QStringLiteral("report-key-secret");

// Counts every message and hands it on to QtTest, so that ignoreMessage still works.
std::atomic<int> messageCount {0};
QtMessageHandler testHandler = nullptr;
void countMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    ++messageCount;
    testHandler(type, context, text);
}

// Bytes the heap has handed out and not got back, over every arena.
qint64 heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return qint64(info.uordblks + info.hblkhd);
}

} // namespace

class ZrReportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { QVERIFY(ReportWorkers::instance().waitIdle(30000)); }

    void logItemNotAsConfigured_data();
    void logItemNotAsConfigured();
    void postedWithoutConfiguration_data();
    void postedWithoutConfiguration();
    void serviceErrorNotOneDebugLine_data();
    void serviceErrorNotOneDebugLine();
    void burstLosesEventsOrMemory();

private:
    ZrLoopback::LoopbackLogService m_service {KeyId.toUtf8(), KeySecret.toUtf8()};
    const QString m_endpoint = QString::fromLatin1(m_service.endpoint());
};

void ZrReportTest::init()
{
    m_service.clearReceived();
    m_service.http().clearRequests();
    m_service.http().closeConnections(); // the server keeps a handle per connection until then
}

void ZrReportTest::logItemNotAsConfigured_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("event");
    QTest::addColumn<QJsonObject>("contents");
    QTest::addColumn<KeyValueList>("pairs");

    const auto kv = [](const char* k, const char* v) { return qMakePair(QByteArray(k), QByteArray(v)); };
    QTest::newRow("fields-sorted") << QStringLiteral("client-7") << QStringLiteral("app_start")
                                   << QJsonObject {{"ver", "1.2.0"}, {"os", "linux"}, {"channel", "web"}}
                                   << KeyValueList {
                                          kv("channel", "web"), kv("os", "linux"), kv("ver", "1.2.0")};
    QTest::newRow("non-string-values-sent-empty")
        << QStringLiteral("client-7") << QStringLiteral("app_start")
        << QJsonObject {{"n", 5}, {"b", true}, {"z", QJsonValue::Null}, {"a", QJsonArray {1}}, {"s", "kept"}}
        << KeyValueList {kv("a", ""), kv("b", ""), kv("n", ""), kv("s", "kept"), kv("z", "")};
    QTest::newRow("no-contents-no-event-still-posted")
        << QStringLiteral("c") << QString() << QJsonObject() << KeyValueList();
    QTest::newRow("utf8") << QStringLiteral("客户端") << QStringLiteral("événement")
                          << QJsonObject {{QStringLiteral("名"), QStringLiteral("值")}}
                          << KeyValueList {
                                 qMakePair(QStringLiteral("名").toUtf8(), QStringLiteral("值").toUtf8())};
}

void ZrReportTest::logItemNotAsConfigured()
{
    QFETCH(QString, source);
    QFETCH(QString, event);
    QFETCH(QJsonObject, contents);

    CZrReport report;
    report.InitData(
        source, m_endpoint, KeyId, KeySecret, QStringLiteral("proj"), QStringLiteral("usage"), contents);
    const quint32 before = quint32(std::time(nullptr));
    report.ReportZrData(event);
    QTRY_COMPARE_WITH_TIMEOUT(m_service.receivedCount(), 1, 10000);
    const quint32 after = quint32(std::time(nullptr));

    const ReceivedLogGroup group = m_service.received().at(0);
    QCOMPARE(group.project + '/' + group.request.target, QByteArray("proj//logstores/usage"));
    QCOMPARE(group.topic, event.toUtf8());
    QCOMPARE(group.source, source.toUtf8());
    QVERIFY(!group.compressed);
    QCOMPARE(group.logs.size(), 1);
    QVERIFY(group.logs.at(0).time >= before && group.logs.at(0).time <= after);
    QTEST(group.logs.at(0).contents, "pairs");
}

void ZrReportTest::postedWithoutConfiguration_data()
{
    QTest::addColumn<int>("emptied"); // which InitData value is empty; -1: never initialised
    QTest::newRow("never-initialised") << -1;
    const char* names[] = {"", "no-endpoint", "no-key-id", "no-key", "no-project", "no-logstore"};
    for (int i = 1; i < 6; ++i)
        QTest::newRow(names[i]) << i;
}

// Nothing may even start: the check comes before the thread.
void ZrReportTest::postedWithoutConfiguration()
{
    QFETCH(int, emptied);
    CZrReport report;
    if (emptied >= 0) {
        QStringList v {
            QStringLiteral("src"), m_endpoint, KeyId, KeySecret, QStringLiteral("p"), QStringLiteral("l")};
        v[emptied].clear();
        report.InitData(v[0], v[1], v[2], v[3], v[4], v[5], {{"k", "v"}});
    }
    report.ReportZrData(QStringLiteral("dropped"));
    QCOMPARE(ReportWorkers::instance().running(), 0);
    QCOMPARE(m_service.http().requestCount(), 0);
}

void ZrReportTest::serviceErrorNotOneDebugLine_data()
{
    QTest::addColumn<QString>("keyId");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("line");
    QTest::newRow("unknown-key-id")
        << QStringLiteral("nobody") << KeySecret
        << QStringLiteral("^\"InvalidAccessKeyId\" : \"access key id nobody does not exist\"$");
    QTest::newRow("wrong-secret") << KeyId << QStringLiteral("not-the-secret")
                                  << QStringLiteral("^\"SignatureNotMatch\" : \"signature \\S+ not match\"$");
}

void ZrReportTest::serviceErrorNotOneDebugLine()
{
    QFETCH(QString, keyId);
    QFETCH(QString, key);
    QFETCH(QString, line);

    CZrReport report;
    report.InitData(
        QStringLiteral("src"), m_endpoint, keyId, key, QStringLiteral("p"), QStringLiteral("l"), {});
    messageCount = 0;
    testHandler = qInstallMessageHandler(countMessage);
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression(line));
    report.ReportZrData(QStringLiteral("refused"));
    const bool idle = ReportWorkers::instance().waitIdle(10000);
    qInstallMessageHandler(testHandler);
    QVERIFY(idle);
    QCOMPARE(messageCount.load(), 1);
    QCOMPARE(m_service.http().requestCount(), 1); // no retry
}

// 1,000 events at once through the manager, four times: every one arrives, and
// after the first burst (which warms up caches) the heap in use comes back to the
// same size after every burst. A leak of 200 bytes per event fails here.
void ZrReportTest::burstLosesEventsOrMemory()
{
    constexpr int Burst = 1000;
#ifdef __SANITIZE_ADDRESS__
    const int rounds = 2; // leak checking proper is LSan's job there
#else
    const int rounds = 4;
#endif
    ZrUtils::CReportManager* manager = ZrUtils::CReportManager::getInstance();
    manager->InitZrData(QStringLiteral("src"), m_endpoint, KeyId, KeySecret, QStringLiteral("p"),
        QStringLiteral("l"), {{"k", "v"}});
    qint64 baseline = 0;
    for (int round = 0; round < rounds; ++round) {
        init();
        for (int i = 0; i < Burst; ++i)
            manager->SendZrReport(QStringLiteral("burst_%1").arg(i));
        QTRY_COMPARE_WITH_TIMEOUT(m_service.receivedCount(), Burst, 60000);
        QVERIFY(ReportWorkers::instance().waitIdle(30000));
        QCOMPARE(m_service.http().requestCount(), Burst);
        QSet<QByteArray> topics;
        for (const ReceivedLogGroup& group : m_service.received())
            topics.insert(group.topic);
        QCOMPARE(topics.size(), Burst);

        const qint64 grown = heapInUse() - baseline;
        if (round == 0)
            baseline = heapInUse();
        else
            QVERIFY2(grown < 512 * 1024, qPrintable(QStringLiteral("grew by %1 kB").arg(grown / 1024)));
    }
}

QTEST_GUILESS_MAIN(ZrReportTest)
#include "tst_zrreport.moc"

// The own telemetry against the loopback log service, which checks the signature
// and decodes the posted log group with code of its own.
#include <ZrUtils/CReportManager.h>
#include <ZrUtils/CZrReport.h>

#include "LoopbackLogService.h"
#include "report/ReportWorkers.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QMutex>
#include <QRegularExpression>
#include <QTest>

#include <ctime>
#include <malloc.h>

using ZrLoopback::KeyValueList;
using ZrLoopback::LoopbackLogService;
using ZrLoopback::ReceivedLogGroup;
using ZrUtils::CReportManager;
using ZrUtils::CZrReport;
using ZrUtils::Internal::ReportWorkers;

Q_DECLARE_METATYPE(KeyValueList)

namespace
{

const QString KeyId = QStringLiteral("report-key-id");
const QString KeySecret = QStringLiteral("report-key-secret");

#if defined(__SANITIZE_ADDRESS__)
constexpr bool Sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool Sanitized = true;
#else
constexpr bool Sanitized = false;
#endif
#else
constexpr bool Sanitized = false;
#endif

// Counts every message while handing it on to QtTest (so ignoreMessage still works).
class MessageCounter
{
public:
    MessageCounter()
    {
        s_count = 0;
        s_previous = qInstallMessageHandler(&MessageCounter::handle);
    }
    ~MessageCounter() { qInstallMessageHandler(s_previous); }
    int count() const
    {
        QMutexLocker lock(&s_mutex);
        return s_count;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        {
            QMutexLocker lock(&s_mutex);
            ++s_count;
        }
        s_previous(type, context, text);
    }
    static inline QMutex s_mutex;
    static inline int s_count = 0;
    static inline QtMessageHandler s_previous = nullptr;
};

qint64 residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    return statm.readAll().split(' ').value(1).toLongLong() * 4096;
}

} // namespace

class ZrReportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void logItemNotAsConfigured_data();
    void logItemNotAsConfigured();
    void postedWithoutConfiguration_data();
    void postedWithoutConfiguration();
    void serviceErrorNotOneDebugLine_data();
    void serviceErrorNotOneDebugLine();
    void silentServiceNotBoundedByTwentySeconds();
    void burstLosesEventsOrMemory();

private:
    void configure(CZrReport& report, const QString& source, const QJsonObject& contents);

    std::unique_ptr<LoopbackLogService> m_service;
    QString m_endpoint;
};

void ZrReportTest::initTestCase()
{
    m_service = std::make_unique<LoopbackLogService>(KeyId.toUtf8(), KeySecret.toUtf8());
    m_endpoint = QString::fromLatin1(m_service->endpoint());
}

void ZrReportTest::init()
{
    m_service->clearReceived();
    m_service->http().clearRequests();
    m_service->setOverride({});
}

void ZrReportTest::cleanup()
{
    QVERIFY(ReportWorkers::instance().waitIdle(30000));
}

void ZrReportTest::configure(CZrReport& report, const QString& source, const QJsonObject& contents)
{
    report.InitData(
        source, m_endpoint, KeyId, KeySecret, QStringLiteral("proj"), QStringLiteral("usage"), contents);
}

void ZrReportTest::logItemNotAsConfigured_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("event");
    QTest::addColumn<QJsonObject>("contents");
    QTest::addColumn<KeyValueList>("pairs");

    const auto kv = [](const char* k, const char* v) { return qMakePair(QByteArray(k), QByteArray(v)); };
    QTest::newRow("string-fields-sorted")
        << QStringLiteral("client-7") << QStringLiteral("app_start")
        << QJsonObject {{"ver", "1.2.0"}, {"os", "linux"}, {"channel", "web"}}
        << KeyValueList {kv("channel", "web"), kv("os", "linux"), kv("ver", "1.2.0")};
    QTest::newRow("non-string-values-sent-empty")
        << QStringLiteral("client-7") << QStringLiteral("app_start")
        << QJsonObject {{"n", 5}, {"b", true}, {"z", QJsonValue::Null}, {"a", QJsonArray {1}},
               {"o", QJsonObject {{"x", "y"}}}, {"s", "kept"}}
        << KeyValueList {kv("a", ""), kv("b", ""), kv("n", ""), kv("o", ""), kv("s", "kept"), kv("z", "")};
    QTest::newRow("no-contents-still-posted")
        << QStringLiteral("client-7") << QStringLiteral("app_quit") << QJsonObject() << KeyValueList();
    QTest::newRow("empty-event-still-posted")
        << QStringLiteral("client-7") << QString() << QJsonObject {{"k", "v"}} << KeyValueList {kv("k", "v")};
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
    QFETCH(KeyValueList, pairs);

    CZrReport report;
    configure(report, source, contents);
    const quint32 before = quint32(std::time(nullptr));
    report.ReportZrData(event);
    QTRY_COMPARE_WITH_TIMEOUT(m_service->receivedCount(), 1, 10000);
    const quint32 after = quint32(std::time(nullptr));

    const ReceivedLogGroup group = m_service->received().at(0);
    QCOMPARE(group.project, QByteArray("proj"));
    QCOMPARE(group.logstore, QByteArray("usage"));
    QCOMPARE(group.hashKey, QByteArray());
    QCOMPARE(group.request.path, QByteArray("/logstores/usage"));
    QCOMPARE(group.topic, event.toUtf8());
    QCOMPARE(group.source, source.toUtf8());
    QVERIFY(!group.compressed);
    QCOMPARE(group.logs.size(), 1);
    QVERIFY(group.logs.at(0).time >= before && group.logs.at(0).time <= after);
    QVERIFY(!group.logs.at(0).hasTimeNs);
    QCOMPARE(group.logs.at(0).contents, pairs);
}

void ZrReportTest::postedWithoutConfiguration_data()
{
    QTest::addColumn<int>("emptied"); // index into the seven InitData values; -1: never initialised

    QTest::newRow("never-initialised") << -1;
    QTest::newRow("no-endpoint") << 1;
    QTest::newRow("no-key-id") << 2;
    QTest::newRow("no-key") << 3;
    QTest::newRow("no-project") << 4;
    QTest::newRow("no-logstore") << 5;
}

// Nothing may even start: the check happens before the thread.
void ZrReportTest::postedWithoutConfiguration()
{
    QFETCH(int, emptied);
    CZrReport report;
    if (emptied >= 0) {
        QStringList values {QStringLiteral("src"), m_endpoint, KeyId, KeySecret, QStringLiteral("proj"),
            QStringLiteral("usage")};
        values[emptied].clear();
        report.InitData(values[0], values[1], values[2], values[3], values[4], values[5], {{"k", "v"}});
    }
    report.ReportZrData(QStringLiteral("dropped"));
    QCOMPARE(ReportWorkers::instance().running(), 0);
    QCOMPARE(m_service->http().requestCount(), 0);
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
    report.InitData(QStringLiteral("src"), m_endpoint, keyId, key, QStringLiteral("proj"),
        QStringLiteral("usage"), {{"k", "v"}});
    MessageCounter messages;
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression(line));
    report.ReportZrData(QStringLiteral("refused"));
    QVERIFY(ReportWorkers::instance().waitIdle(10000));
    QCOMPARE(messages.count(), 1);
    QCOMPARE(m_service->http().requestCount(), 1); // no retry
    QCOMPARE(m_service->receivedCount(), 0);
}

// The client is built with a 20-second limit: a service that never answers costs
// one debug line after 20 s, and the worker ends.
void ZrReportTest::silentServiceNotBoundedByTwentySeconds()
{
    m_service->setOverride([](const ZrLoopback::HttpRequest&) {
        ZrLoopback::HttpResponse silent;
        silent.fault = ZrLoopback::HttpResponse::Fault::NeverAnswer;
        return std::optional<ZrLoopback::HttpResponse>(silent);
    });
    CZrReport report;
    configure(report, QStringLiteral("src"), {});
    QTest::ignoreMessage(QtDebugMsg, "\"RequestTimeout\" : \"Request operation timeout.\"");
    QElapsedTimer clock;
    clock.start();
    report.ReportZrData(QStringLiteral("unanswered"));
    QVERIFY(!ReportWorkers::instance().waitIdle(18000));
    QVERIFY(ReportWorkers::instance().waitIdle(10000));
    QVERIFY2(
        clock.elapsed() >= 19500 && clock.elapsed() < 25000, qPrintable(QString::number(clock.elapsed())));
    m_service->http().closeConnections();
}

// 1,000 events at once through the manager, several times: every one arrives, and
// once the allocator has warmed up (its per-thread arenas) the process stays at
// the size the first bursts left it. A leak of 1 kB per event would add 3 MB here.
void ZrReportTest::burstLosesEventsOrMemory()
{
    constexpr int Burst = 1000;
    const int rounds = Sanitized ? 2 : 4; // leak checking proper is LSan's job there
    CReportManager* manager = CReportManager::getInstance();
    manager->InitZrData(QStringLiteral("src"), m_endpoint, KeyId, KeySecret, QStringLiteral("proj"),
        QStringLiteral("usage"), {{"k", "v"}});
    qint64 baseline = 0;
    for (int round = 0; round < rounds; ++round) {
        m_service->clearReceived();
        m_service->http().clearRequests();
        for (int i = 0; i < Burst; ++i)
            manager->SendZrReport(QStringLiteral("burst_%1").arg(i));
        QTRY_COMPARE_WITH_TIMEOUT(m_service->receivedCount(), Burst, 60000);
        QVERIFY(ReportWorkers::instance().waitIdle(30000));
        QCOMPARE(m_service->http().requestCount(), Burst);

        QSet<QByteArray> topics;
        for (const ReceivedLogGroup& group : m_service->received())
            topics.insert(group.topic);
        QCOMPARE(topics.size(), Burst);

        malloc_trim(0);
        const qint64 resident = residentBytes();
        if (round == 1)
            baseline = resident;
        else if (round > 1)
            QVERIFY2(resident - baseline < 4 * 1024 * 1024,
                qPrintable(QStringLiteral("grew by %1 kB").arg((resident - baseline) / 1024)));
    }
}

QTEST_GUILESS_MAIN(ZrReportTest)
#include "tst_zrreport.moc"

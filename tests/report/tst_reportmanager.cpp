// The report manager and CGaReport against a loopback GA4 collector, and the
// lifecycle of an application that reports and quits at once (a separate process).
#include <ZrUtils/CGaReport.h>
#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>

#include "Ga4Collector.h"
#include "LoopbackLogService.h"

#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

using ZrUtils::CGoogleAnalytics;
using ZrUtils::CReportManager;

namespace
{

// The manager's first parent: it must outlive the tests that use the singleton.
QObject* firstParent = nullptr;

QJsonObject gaEvent(const char* key, const char* name, const char* label = "lbl")
{
    return {{"event_key", key}, {"event_name", name}, {"event_category", "cat"}, {"event_label", label}};
}

} // namespace

class ReportManagerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void catalogueMisread_data();
    void catalogueMisread();
    void labelNotOverridden_data();
    void labelNotOverridden();
    void unknownKeySends();
    void uninitialisedReportSkipsEvent();
    void asyncSenderNotFreed_data();
    void asyncSenderNotFreed();
    void secondParentTaken();
    void quitRightAfterReportingFails_data();
    void quitRightAfterReportingFails();
    void parentDeletingManagerLeavesItDangling();

private:
    QString catalogue(const QByteArray& content);
    QString catalogue(const QJsonArray& events) { return catalogue(QJsonDocument(events).toJson()); }
    QList<CGoogleAnalytics*> senders() const { return m_manager->findChildren<CGoogleAnalytics*>(); }

    QTemporaryDir m_dir;
    Ga4Collector m_collector;
    CReportManager* m_manager = nullptr;
    int m_files = 0;
};

void ReportManagerTest::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_dir.isValid());
    firstParent = new QObject;
    m_manager = CReportManager::getInstance(firstParent);
}

void ReportManagerTest::init()
{
    m_collector.clearRequests();
    CGoogleAnalytics::SetCollectionHost(m_collector.host());
}

QString ReportManagerTest::catalogue(const QByteArray& content)
{
    const QString path = m_dir.filePath(QStringLiteral("catalogue-%1.json").arg(++m_files));
    QFile file(path);
    if (!content.isNull() && file.open(QIODevice::WriteOnly))
        file.write(content);
    return path;
}

void ReportManagerTest::catalogueMisread_data()
{
    QTest::addColumn<QByteArray>("content"); // null: no file at all
    QTest::addColumn<QJsonObject>("expected"); // event key -> what GetGaData() returns

    QTest::newRow("missing-file") << QByteArray() << QJsonObject {{"mf", QJsonObject()}};
    QTest::newRow("not-json") << QByteArray(R"([{"event_key": "nj")") << QJsonObject {{"nj", QJsonObject()}};
    QTest::newRow("object-not-array")
        << QByteArray(R"({"event_key": "obj"})") << QJsonObject {{"obj", QJsonObject()}};
    QTest::newRow("last-duplicate-wins")
        << QByteArray(R"([{"event_key": "dup", "event_name": "first"}, {"event_key": "dup", "x": 1}])")
        << QJsonObject {{"dup", QJsonObject {{"event_key", "dup"}, {"x", 1}}}};
    // Entries of earlier calls stay unless replaced.
    QTest::newRow("earlier-calls-kept") << QByteArray(
        R"([{"event_key": "other"}])") << QJsonObject {{"dup", QJsonObject {{"event_key", "dup"}, {"x", 1}}}};
    // Objects without the key go under the empty key; so do non-objects, as empty objects.
    QTest::newRow("missing-key") << QByteArray(R"([{"event_name": "orphan"}])")
                                 << QJsonObject {{"", QJsonObject {{"event_name", "orphan"}}}};
    QTest::newRow("non-object-elements")
        << QByteArray(R"([{"event_name": "orphan"}, 7, {"event_key": "beside"}])")
        << QJsonObject {{"", QJsonObject()}, {"beside", QJsonObject {{"event_key", "beside"}}}};
    QTest::newRow("non-string-key") << QByteArray(R"([{"event_key": 12}])")
                                    << QJsonObject {
                                           {"", QJsonObject {{"event_key", 12}}}, {"12", QJsonObject()}};
}

void ReportManagerTest::catalogueMisread()
{
    QFETCH(QByteArray, content);
    QFETCH(QJsonObject, expected);
    m_manager->InitGaData(catalogue(content), QStringLiteral("c"), QStringLiteral("m"), QStringLiteral("s"));
    for (auto it = expected.constBegin(); it != expected.constEnd(); ++it)
        QCOMPARE(m_manager->GetGaData(it.key()), it.value().toObject());
}

void ReportManagerTest::labelNotOverridden_data()
{
    QTest::addColumn<QString>("label");
    QTest::addColumn<bool>("sync");
    QTest::addColumn<QString>("sentLabel");
    for (bool sync : {true, false}) {
        QTest::addRow("catalogue-label-%s", sync ? "sync" : "async")
            << QString() << sync << QStringLiteral("menu");
        QTest::addRow("caller-label-%s", sync ? "sync" : "async")
            << QStringLiteral("key") << sync << QStringLiteral("key");
    }
}

void ReportManagerTest::labelNotOverridden()
{
    QFETCH(QString, label);
    QFETCH(bool, sync);
    m_manager->InitGaData(catalogue(QJsonArray {gaEvent("open_file", "file_open", "menu")}),
        QStringLiteral("client.42"), QStringLiteral("G-TEST"), QStringLiteral("secret"));
    m_manager->SendGaReport(QStringLiteral("open_file"), label, sync);
    if (sync)
        QCOMPARE(m_collector.requestCount(), 1); // the call waited for the answer
    QTRY_COMPARE_WITH_TIMEOUT(m_collector.requestCount(), 1, 5000);
    const Ga4Event sent = m_collector.events().at(0);
    QVERIFY(sent.wellFormed);
    QCOMPARE(sent.clientId + sent.measurementId + sent.apiSecret, QStringLiteral("client.42G-TESTsecret"));
    QCOMPARE(sent.name + '/' + sent.category, QStringLiteral("file_open/cat"));
    QTEST(sent.label, "sentLabel");
}

void ReportManagerTest::unknownKeySends()
{
    m_manager->SendGaReport(QStringLiteral("no-such-event"), QStringLiteral("l"), false);
    QVERIFY(senders().isEmpty()); // no sender was even created
    m_manager->SendGaReport(QStringLiteral("no-such-event"), QStringLiteral("l"), true);
    QCOMPARE(m_collector.requestCount(), 0);
}

// Credentials are not checked: an uninitialised report still sends, with empty ids.
void ReportManagerTest::uninitialisedReportSkipsEvent()
{
    ZrUtils::CGaReport report;
    report.ReportGaData(QStringLiteral("bare"), QStringLiteral("c"), QString(), true);
    QCOMPARE(m_collector.requestCount(), 1);
    QCOMPARE(m_collector.requests().at(0).query, QByteArray("measurement_id=&api_secret="));
    QCOMPARE(m_collector.events().at(0).clientId, QString());
}

void ReportManagerTest::asyncSenderNotFreed_data()
{
    QTest::addColumn<QString>("measurementId");
    QTest::addColumn<bool>("refused");
    QTest::addColumn<bool>("stop");
    QTest::addColumn<int>("waitMs");

    QTest::newRow("result-204") << QStringLiteral("G-1") << false << false << 5000;
    QTest::newRow("result-500") << QStringLiteral("status-500") << false << false << 5000;
    QTest::newRow("refused") << QStringLiteral("G-1") << true << false << 5000;
    QTest::newRow("cancel") << QStringLiteral("hang") << false << true << 5000;
    QTest::newRow("timeout") << QStringLiteral("hang") << false << false << 15000;
}

void ReportManagerTest::asyncSenderNotFreed()
{
    QFETCH(QString, measurementId);
    QFETCH(bool, stop);
    QFETCH(int, waitMs);
    QFETCH(bool, refused);
    if (refused) {
        QTcpServer probe; // nobody listens on its port once it is gone
        probe.listen(QHostAddress::LocalHost, 0);
        CGoogleAnalytics::SetCollectionHost(QStringLiteral("http://127.0.0.1:%1").arg(probe.serverPort()));
    }
    m_manager->InitGaData(
        catalogue(QJsonArray {gaEvent("ping", "ping")}), QStringLiteral("c"), measurementId, {});

    m_manager->SendGaReport(QStringLiteral("ping"), QString(), false);
    QCOMPARE(senders().size(), 1);
    const QPointer<CGoogleAnalytics> sender = senders().at(0);
    if (stop) {
        QTRY_COMPARE_WITH_TIMEOUT(m_collector.requestCount(), 1, 5000);
        Q_EMIT sender->SignalStopRequest();
    }
    QTRY_VERIFY_WITH_TIMEOUT(sender.isNull(), waitMs);
}

void ReportManagerTest::secondParentTaken()
{
    QObject other;
    QCOMPARE(CReportManager::getInstance(&other), m_manager);
    QCOMPARE(CReportManager::getInstance(), m_manager);
    QCOMPARE(m_manager->parent(), firstParent);
}

void ReportManagerTest::quitRightAfterReportingFails_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("telemetry") << QStringList {QStringLiteral("zr")};
    QTest::newRow("async-ga") << QStringList {QStringLiteral("ga")};
    QTest::newRow("async-ga-application-parent")
        << QStringList {QStringLiteral("ga"), QStringLiteral("app-parent")};
}

// The reports are destroyed telemetry first, and nothing crashes, hangs or leaks
// (the helper has the same sanitizers) while a report is in flight.
void ReportManagerTest::quitRightAfterReportingFails()
{
    QFETCH(QStringList, args);
    ZrLoopback::LoopbackLogService service("quit-id", "quit-key");
    if (args.at(0) == QLatin1String("zr"))
        args << QString::fromLatin1(service.endpoint()) << QStringLiteral("quit-id")
             << QStringLiteral("quit-key");
    else
        args.insert(1, m_collector.host()),
            args.insert(2, catalogue(QJsonArray {gaEvent("start", "app_start")}));

    QProcess app;
    app.start(QCoreApplication::applicationDirPath() + QStringLiteral("/reportapp"), args);
    QVERIFY2(app.waitForFinished(40000), "the application hangs on quitting");
    QVERIFY2(app.exitStatus() == QProcess::NormalExit && app.exitCode() == 0,
        app.readAllStandardError().constData());
    QCOMPARE(app.readAllStandardOutput(),
        QByteArray("destroyed ZrUtils::CZrReport\ndestroyed ZrUtils::CGaReport\n"));
    if (args.at(0) == QLatin1String("zr")) {
        // A post in flight at exit is finished before the process goes.
        QCOMPARE(service.receivedCount(), 1);
        QCOMPARE(service.received().at(0).topic, QByteArray("quit_now"));
    }
}

// Last: the parent deletes the singleton. The next call must not hand out the deleted object.
void ReportManagerTest::parentDeletingManagerLeavesItDangling()
{
    const QPointer<CReportManager> old = m_manager;
    delete firstParent;
    QVERIFY(old.isNull());
    CReportManager* fresh = CReportManager::getInstance();
    QVERIFY(fresh);
    QCOMPARE(fresh->parent(), nullptr);
    QCOMPARE(fresh->GetGaData(QStringLiteral("dup")), QJsonObject());
}

QTEST_GUILESS_MAIN(ReportManagerTest)
#include "tst_reportmanager.moc"

// The report manager and CGaReport against a loopback GA4 collector, and the
// lifecycle of an application that reports and quits at once (a separate process).
#include <ZrUtils/CGaReport.h>
#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>

#include "Ga4Collector.h"
#include "LoopbackLogService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

using ZrUtils::CGaReport;
using ZrUtils::CGoogleAnalytics;
using ZrUtils::CReportManager;

namespace
{

// The manager's first parent: it must outlive the tests that use the singleton.
QObject* firstParent = nullptr;

QString refusingHost()
{
    QTcpServer probe; // a port nobody listens on once the probe is gone
    probe.listen(QHostAddress::LocalHost, 0);
    return QStringLiteral("http://127.0.0.1:%1").arg(probe.serverPort());
}

QJsonObject catalogueEvent(
    const char* key, const char* name, const char* category = "cat", const char* label = "lbl")
{
    return {{"event_key", key}, {"event_name", name}, {"event_category", category}, {"event_label", label}};
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
    void earlierEntriesDropped();
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
    QString writeCatalogue(const QByteArray& content);
    QList<CGoogleAnalytics*> senders() const;

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
    QVERIFY(m_manager);
}

void ReportManagerTest::init()
{
    m_collector.clear();
    CGoogleAnalytics::SetCollectionHost(m_collector.host());
}

QString ReportManagerTest::writeCatalogue(const QByteArray& content)
{
    const QString path = m_dir.filePath(QStringLiteral("catalogue-%1.json").arg(++m_files));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
    return path;
}

QList<CGoogleAnalytics*> ReportManagerTest::senders() const
{
    return m_manager->findChildren<CGoogleAnalytics*>();
}

void ReportManagerTest::catalogueMisread_data()
{
    QTest::addColumn<QByteArray>("content"); // null: no file at all
    QTest::addColumn<QJsonObject>("expected"); // event key -> what GetGaData() returns

    QTest::newRow("missing-file") << QByteArray() << QJsonObject {{"mf", QJsonObject()}};
    QTest::newRow("not-json") << QByteArray(R"([{"event_key": "nj", "event_name": "x")")
                              << QJsonObject {{"nj", QJsonObject()}};
    QTest::newRow("object-not-array")
        << QByteArray(R"({"event_key": "obj", "event_name": "x"})") << QJsonObject {{"obj", QJsonObject()}};
    QTest::newRow("last-duplicate-wins")
        << QByteArray(R"([{"event_key": "dup", "event_name": "first"},
                          {"event_key": "solo", "event_name": "s"},
                          {"event_key": "dup", "event_name": "second", "extra": 1}])")
        << QJsonObject {{"dup", QJsonObject {{"event_key", "dup"}, {"event_name", "second"}, {"extra", 1}}},
               {"solo", QJsonObject {{"event_key", "solo"}, {"event_name", "s"}}}};
    // Objects without the key go under the empty key; so do non-objects, as empty objects.
    QTest::newRow("missing-key") << QByteArray(R"([{"event_name": "orphan"}])")
                                 << QJsonObject {{"", QJsonObject {{"event_name", "orphan"}}}};
    QTest::newRow("non-object-elements")
        << QByteArray(R"([{"event_name": "orphan"}, 7, "text", {"event_key": "beside", "event_name": "b"}])")
        << QJsonObject {
               {"", QJsonObject()}, {"beside", QJsonObject {{"event_key", "beside"}, {"event_name", "b"}}}};
    QTest::newRow("non-string-key") << QByteArray(R"([{"event_key": 12, "event_name": "num"}])")
                                    << QJsonObject {
                                           {"", QJsonObject {{"event_key", 12}, {"event_name", "num"}}},
                                           {"12", QJsonObject()}};
}

void ReportManagerTest::catalogueMisread()
{
    QFETCH(QByteArray, content);
    QFETCH(QJsonObject, expected);
    const QString path
        = content.isNull() ? m_dir.filePath(QStringLiteral("absent.json")) : writeCatalogue(content);
    m_manager->InitGaData(path, QStringLiteral("c"), QStringLiteral("m"), QStringLiteral("s"));
    for (auto it = expected.constBegin(); it != expected.constEnd(); ++it)
        QCOMPARE(m_manager->GetGaData(it.key()), it.value().toObject());
}

void ReportManagerTest::earlierEntriesDropped()
{
    const auto file
        = [this](const QJsonArray& events) { return writeCatalogue(QJsonDocument(events).toJson()); };
    const QString c = QStringLiteral("c");
    m_manager->InitGaData(file({catalogueEvent("keep", "kept"), catalogueEvent("both", "old")}), c, c, c);
    m_manager->InitGaData(file({catalogueEvent("both", "new"), catalogueEvent("added", "a")}), c, c, c);
    QCOMPARE(m_manager->GetGaData(QStringLiteral("keep")), catalogueEvent("keep", "kept"));
    QCOMPARE(m_manager->GetGaData(QStringLiteral("both")), catalogueEvent("both", "new"));
    QCOMPARE(m_manager->GetGaData(QStringLiteral("added")), catalogueEvent("added", "a"));
}

void ReportManagerTest::labelNotOverridden_data()
{
    QTest::addColumn<QString>("label");
    QTest::addColumn<bool>("sync");
    QTest::addColumn<QString>("sentLabel");

    QTest::newRow("catalogue-label-sync") << QString() << true << QStringLiteral("from-catalogue");
    QTest::newRow("catalogue-label-async") << QString() << false << QStringLiteral("from-catalogue");
    QTest::newRow("caller-label-sync")
        << QStringLiteral("from-caller") << true << QStringLiteral("from-caller");
    QTest::newRow("caller-label-async")
        << QStringLiteral("from-caller") << false << QStringLiteral("from-caller");
}

void ReportManagerTest::labelNotOverridden()
{
    QFETCH(QString, label);
    QFETCH(bool, sync);
    QFETCH(QString, sentLabel);
    const QString path = writeCatalogue(
        QJsonDocument(QJsonArray {catalogueEvent("open_file", "file_open", "files", "from-catalogue")})
            .toJson());
    m_manager->InitGaData(
        path, QStringLiteral("client.42"), QStringLiteral("G-TEST"), QStringLiteral("secret"));

    m_manager->SendGaReport(QStringLiteral("open_file"), label, sync);
    if (sync)
        QCOMPARE(m_collector.requestCount(), 1); // the call waited for the answer
    QTRY_COMPARE_WITH_TIMEOUT(m_collector.events().size(), 1, 5000);
    const Ga4Event sent = m_collector.events().at(0);
    QCOMPARE(sent.clientId, QStringLiteral("client.42"));
    QCOMPARE(sent.measurementId, QStringLiteral("G-TEST"));
    QCOMPARE(sent.apiSecret, QStringLiteral("secret"));
    QCOMPARE(sent.name, QStringLiteral("file_open"));
    QCOMPARE(sent.category, QStringLiteral("files"));
    QCOMPARE(sent.label, sentLabel);
    QTRY_VERIFY(senders().isEmpty());
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
    CGaReport report;
    report.ReportGaData(QStringLiteral("bare"), QStringLiteral("c"), QString(), true);
    QCOMPARE(m_collector.events().size(), 1);
    const Ga4Event sent = m_collector.events().at(0);
    QCOMPARE(sent.query, QStringLiteral("measurement_id=&api_secret="));
    QCOMPARE(sent.clientId, QString());
    QCOMPARE(sent.label, QString());
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
    QFETCH(bool, refused);
    QFETCH(bool, stop);
    QFETCH(int, waitMs);
    if (refused)
        CGoogleAnalytics::SetCollectionHost(refusingHost());
    const QString path = writeCatalogue(QJsonDocument(QJsonArray {catalogueEvent("ping", "ping")}).toJson());
    m_manager->InitGaData(path, QStringLiteral("c"), measurementId, QStringLiteral("s"));

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
    QTest::addColumn<QString>("mode");
    QTest::addColumn<bool>("appParent");

    QTest::newRow("telemetry") << QStringLiteral("zr") << false;
    QTest::newRow("async-ga") << QStringLiteral("ga") << false;
    QTest::newRow("async-ga-application-parent") << QStringLiteral("ga") << true;
}

// The reports are destroyed telemetry first, and nothing crashes, hangs or leaks
// (the helper is built with the same sanitizers) while a report is in flight.
void ReportManagerTest::quitRightAfterReportingFails()
{
    QFETCH(QString, mode);
    QFETCH(bool, appParent);
    ZrLoopback::LoopbackLogService service("quit-id", "quit-key");
    QStringList args {mode};
    if (mode == QLatin1String("zr")) {
        args << QString::fromLatin1(service.endpoint()) << QStringLiteral("quit-id")
             << QStringLiteral("quit-key");
    } else {
        args << m_collector.host()
             << writeCatalogue(QJsonDocument(QJsonArray {catalogueEvent("start", "app_start")}).toJson());
        if (appParent)
            args << QStringLiteral("app-parent");
    }

    QProcess app;
    app.start(QCoreApplication::applicationDirPath() + QStringLiteral("/reportapp"), args);
    QVERIFY2(app.waitForFinished(40000), "the application hangs on quitting");
    const QByteArray errors = app.readAllStandardError();
    QVERIFY2(app.exitStatus() == QProcess::NormalExit && app.exitCode() == 0, errors.constData());
    QCOMPARE(app.readAllStandardOutput(),
        QByteArray("destroyed ZrUtils::CZrReport\ndestroyed ZrUtils::CGaReport\n"));
    if (mode == QLatin1String("zr")) {
        // A post in flight at exit is finished before the process goes.
        QCOMPARE(service.receivedCount(), 1);
        QCOMPARE(service.received().at(0).topic, QByteArray("quit_now"));
    }
}

// Last: deletes the singleton through its parent. The next call must not hand out
// the deleted object.
void ReportManagerTest::parentDeletingManagerLeavesItDangling()
{
    const QPointer<CReportManager> old = m_manager;
    delete firstParent;
    firstParent = nullptr;
    QVERIFY(old.isNull());
    CReportManager* fresh = CReportManager::getInstance();
    QVERIFY(fresh);
    QCOMPARE(fresh->parent(), nullptr);
    QCOMPARE(fresh->GetGaData(QStringLiteral("keep")), QJsonObject());
}

QTEST_GUILESS_MAIN(ReportManagerTest)
#include "tst_reportmanager.moc"

// The own telemetry over HTTPS: CZrReport and CReportManager against the loopback
// log service serving TLS with a certificate of a test CA made for the run, with
// and without the spool.
#include <ZrUtils/CReportManager.h>
#include <ZrUtils/CZrReport.h>
#include <ZrUtils/ReportSpool.h>

#include "LoopbackLogService.h"
#include "TestCertificates.h"
#include "report/ReportWorkers.h"

#include <QFile>
#include <QMutex>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using ZrUtils::ReportSpool;
using ZrUtils::Internal::ReportWorkers;

namespace
{

// The debug lines of failed posts, written from worker threads.
QMutex linesMutex;
QStringList debugLines;
QtMessageHandler testHandler = nullptr;
void recordMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtDebugMsg) {
        QMutexLocker lock(&linesMutex);
        debugLines.append(text);
    }
    testHandler(type, context, text);
}

QStringList lines()
{
    QMutexLocker lock(&linesMutex);
    return debugLines;
}

} // namespace

class ReportTlsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_pkiFolder;
    QTemporaryDir m_spoolFolder;
    std::unique_ptr<ZrLoopback::TestCertificates> m_pki;
    ZrLoopback::LoopbackLogService m_service {"key-id", "secret"};

    QString endpoint() const { return QString::fromLatin1(m_service.endpoint()); }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_pkiFolder.isValid() && m_spoolFolder.isValid());
        m_pki = std::make_unique<ZrLoopback::TestCertificates>(m_pkiFolder.path());
        QVERIFY2(m_pki->isValid(), qPrintable(m_pki->errorString()));
        QVERIFY(m_service.enableTls(m_pki->good().certificate, m_pki->good().key));
        testHandler = qInstallMessageHandler(recordMessage);
    }
    void cleanupTestCase() { qInstallMessageHandler(testHandler); }
    void init()
    {
        m_service.clearReceived();
        m_service.http().clearRequests();
        m_service.http().closeConnections();
        QMutexLocker lock(&linesMutex);
        debugLines.clear();
    }
    void cleanup()
    {
        QVERIFY(ReportWorkers::instance().waitIdle(30000));
        ReportSpool::clear();
        ReportSpool::disable();
    }

    // Each row configures a report (directly or through the manager), sets its TLS
    // choice before or after InitData(), and reports one event.
    void eventNotAsExpected_data()
    {
        QTest::addColumn<bool>("viaManager");
        QTest::addColumn<bool>("spool");
        QTest::addColumn<QString>("tls"); // "", or "on:<bundle>" / "off" steps, before "|" or after it
        QTest::addColumn<QString>("failure"); // the debug line's pattern; empty: delivered
        const QString verification = QStringLiteral(
            R"re(^"ClientNetworkError" : "Request operation failed\.CURL_ERROR_CODE:60"$)re");
        const QString noTls = QStringLiteral(
            R"re(^"ClientNetworkError" : "Request operation failed\.CURL_ERROR_CODE:(52|56)"$)re");
        QTest::newRow("testCaDelivered") << false << false << "|on:testCa" << QString();
        QTest::newRow("setBeforeInitDataDelivered") << false << false << "on:testCa|" << QString();
        QTest::newRow("managerForwards") << true << false << "on:testCa|" << QString();
        QTest::newRow("spooledSentTheSameWay") << false << true << "|on:testCa" << QString();
        QTest::newRow("managerSpooledSentTheSameWay") << true << true << "|on:testCa" << QString();
        QTest::newRow("systemStoreDoesNotKnowTestCa") << false << false << "|on:" << verification;
        QTest::newRow("otherCaUntrusted") << false << false << "|on:otherCa" << verification;
        QTest::newRow("spooledSystemStoreWaits") << false << true << "|on:" << verification;
        // The default, and off again: plain HTTP, which the TLS service hangs up on.
        QTest::newRow("plainByDefault") << false << false << "|" << noTls;
        QTest::newRow("offAgainPlain") << false << false << "on:testCa|off" << noTls;
        QTest::newRow("spooledOffAgainPlain") << false << true << "|on:testCa off" << noTls;
    }
    void eventNotAsExpected()
    {
        QFETCH(bool, viaManager);
        QFETCH(bool, spool);
        QFETCH(QString, tls);
        QFETCH(QString, failure);
        if (spool)
            QVERIFY(ReportSpool::enable(m_spoolFolder.path()));

        ZrUtils::CZrReport report;
        ZrUtils::CReportManager* manager = ZrUtils::CReportManager::getInstance();
        const auto setTls = [&](const QString& steps) {
            for (const QString& step : steps.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
                const bool https = step.startsWith(QLatin1String("on:"));
                const QString name = step.mid(3);
                const QString bundle = name == QLatin1String("testCa") ? m_pki->caFile()
                    : name == QLatin1String("otherCa")                 ? m_pki->otherCaFile()
                                                                       : QString();
                if (viaManager)
                    manager->SetLogServiceTls(https, bundle);
                else
                    report.SetLogServiceTls(https, bundle);
            }
        };
        const QStringList beforeAfter = tls.split(QLatin1Char('|'));
        setTls(beforeAfter.value(0));
        if (viaManager)
            manager->InitZrData("src", endpoint(), "key-id", "secret", "p", "l", {{"k", "v"}});
        else
            report.InitData("src", endpoint(), "key-id", "secret", "p", "l", {{"k", "v"}});
        setTls(beforeAfter.value(1));
        if (viaManager)
            manager->SendZrReport("tls-event");
        else
            report.ReportZrData("tls-event");

        if (failure.isEmpty()) {
            QTRY_COMPARE_WITH_TIMEOUT(m_service.receivedCount(), 1, 20000);
            QCOMPARE(m_service.received().at(0).topic, QByteArray("tls-event"));
            QCOMPARE(m_service.received().at(0).logs.value(0).contents.value(0).second, QByteArray("v"));
            QTRY_COMPARE_WITH_TIMEOUT(ReportSpool::pendingCount(), 0, 20000);
        } else {
            const QRegularExpression pattern(failure);
            QTRY_VERIFY_WITH_TIMEOUT(!lines().filter(pattern).isEmpty(), 20000);
            QCOMPARE(m_service.receivedCount(), 0);
            QCOMPARE(m_service.http().requestCount(), 0);
            // A network failure keeps a spooled event for the next try.
            QCOMPARE(ReportSpool::pendingCount(), spool ? 1 : 0);
        }
        if (spool) {
            // The spool holds events only: neither the TLS choice nor a key goes to disk.
            QFile file(ReportSpool::filePath());
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QByteArray journal = file.readAll();
            QVERIFY(!journal.contains(m_pkiFolder.path().toUtf8()));
            QVERIFY(!journal.contains("secret"));
            QVERIFY(!journal.contains("https"));
        }
        // The manager is process-wide: leave it as the next row expects it.
        manager->SetLogServiceTls(false);
    }
};

QTEST_GUILESS_MAIN(ReportTlsTest)
#include "tst_reporttls.moc"

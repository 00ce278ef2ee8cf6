// The audit log against the loopback GA4 collector and log service: one line per
// report that left, with its outcome, and none of the secrets the reports were sent with.
#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CZrReport.h>
#include <ZrUtils/ReportAudit.h>

#include "Ga4Collector.h"
#include "LoopbackLogService.h"
#include "MessageCapture.h"
#include "report/ReportWorkers.h"

#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace ZrUtils;
using Internal::ReportWorkers;

namespace
{
const QString GaSecret = QStringLiteral("ga-secret-4711x");
const QString KeyId = QStringLiteral("AKID7f3a9");
const QString Key = QStringLiteral("ak-secret-93b1c");
} // namespace

class ReportAuditTest : public QObject
{
    Q_OBJECT
    Ga4Collector m_collector;
    ZrLoopback::LoopbackLogService m_service {KeyId.toLatin1(), Key.toLatin1()};
    QTemporaryDir m_dir;

    void reportTelemetry(const QString& keyId, const QString& key, const QString& event)
    {
        CZrReport report;
        report.InitData("src", QString::fromLatin1(m_service.endpoint()), keyId, key, "p", "l",
            {{"version", "1.2"}, {"echo", keyId}});
        report.ReportZrData(event);
        QVERIFY(ReportWorkers::instance().waitIdle(30000));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        CGoogleAnalytics::SetCollectionHost(m_collector.host());
        ZrLoopback::MessageCapture::install();
    }
    void cleanupTestCase() { ReportAudit::disable(); }

    void auditLineMissing()
    {
        const QString folder = m_dir.filePath("audit");
        QVERIFY(ReportAudit::enable(folder));
        ZrLoopback::MessageCapture::clear();
        CGoogleAnalytics ga;
        QVERIFY(ga.StartRequestSync("client", "G-1", GaSecret, "open", "file", "menu"));
        QSignalSpy result(&ga, &CGoogleAnalytics::SignalRequestResult);
        ga.StartRequestAsync("client", "status-500", GaSecret, "save", "file", QString());
        QVERIFY(result.wait(15000));
        reportTelemetry(KeyId, Key, "start");
        // The service quotes the key id and the signature back in its refusals.
        reportTelemetry(KeyId + "x", Key, "bad_key");
        reportTelemetry(KeyId, "wrong-" + Key, "bad_signature");

        const QList<QJsonObject> entries = ReportAudit::entries();
        QCOMPARE(entries.size(), 5);
        const QString gaHost = "127.0.0.1:" + QString::number(m_collector.port());
        const QString logHost = QString::fromLatin1(m_service.endpoint());
        const QStringList expected {"ga4 " + gaHost + " open true 204", "ga4 " + gaHost + " save false 500",
            "logservice " + logHost + " start true 200", "logservice " + logHost + " bad_key false 401",
            "logservice " + logHost + " bad_signature false 401"};
        for (int i = 0; i < entries.size(); ++i) {
            const QJsonObject entry = entries.at(i);
            const QJsonObject outcome = entry["outcome"].toObject();
            QCOMPARE(
                QStringList({entry["channel"].toString(), entry["host"].toString(), entry["event"].toString(),
                                outcome["delivered"].toBool() ? "true" : "false",
                                QString::number(outcome["status"].toInt())})
                    .join(' '),
                expected.at(i));
            const QDateTime time = QDateTime::fromString(entry["time"].toString(), Qt::ISODateWithMs);
            QCOMPARE(time.timeSpec(), Qt::UTC);
            QVERIFY(qAbs(time.secsTo(QDateTime::currentDateTimeUtc())) < 120);
        }
        QCOMPARE(entries.at(0)["fields"]["events"][0]["params"]["event_label"].toString(), "menu");
        QCOMPARE(entries.at(0)["fields"]["measurement_id"].toString(), "G-1");
        QCOMPARE(entries.at(2)["fields"]["contents"]["version"].toString(), "1.2");
        QCOMPARE(entries.at(3)["outcome"]["error"].toString(), "InvalidAccessKeyId");
        QCOMPARE(entries.at(4)["outcome"]["error"].toString(), "SignatureNotMatch");

        // Nothing written or said holds a secret: the key, the API secret, the signatures;
        // the audit log, which the user reads, does not show the key id either.
        QByteArray audit;
        for (const QFileInfo& file : QDir(folder).entryInfoList(QDir::Files)) {
            QFile f(file.filePath());
            QVERIFY(f.open(QIODevice::ReadOnly));
            audit += f.readAll();
        }
        const QByteArray written = audit + ZrLoopback::MessageCapture::messages().join('\n').toUtf8();
        for (const QString& secret : {GaSecret, Key})
            QVERIFY2(!written.contains(secret.toUtf8()), qPrintable(secret));
        QVERIFY(!audit.contains(KeyId.toUtf8()));
        for (const auto& request : m_service.http().requests()) {
            const QByteArray authorization = request.header("Authorization");
            const QByteArray signature = authorization.mid(authorization.indexOf(':') + 1);
            QVERIFY2(signature.isEmpty() || !written.contains(signature), signature.constData());
        }
    }

    void auditFileNotRolled()
    {
        const QString folder = m_dir.filePath("rolled");
        QVERIFY(ReportAudit::enable(folder, 2048, 2));
        CGoogleAnalytics ga;
        for (int i = 0; i < 40; ++i)
            QVERIFY(ga.StartRequestSync("client", "G-1", GaSecret, QString("event%1").arg(i), "c", "l"));
        const QList<QJsonObject> entries = ReportAudit::entries();
        QCOMPARE(QDir(folder).entryList(QDir::Files),
            (QStringList {"report-audit.1.jsonl", "report-audit.2.jsonl", "report-audit.jsonl"}));
        for (const QFileInfo& file : QDir(folder).entryInfoList(QDir::Files))
            QVERIFY(file.size() <= 2048);
        // The newest are kept, oldest first.
        QVERIFY(entries.size() >= 6 && entries.size() < 40);
        for (int i = 0; i < entries.size(); ++i)
            QCOMPARE(entries.at(i)["event"].toString(), QString("event%1").arg(40 - entries.size() + i));
    }

    void unreadableAuditLinesRead()
    {
        const QString folder = m_dir.filePath("damaged");
        QVERIFY(ReportAudit::enable(folder));
        QFile file(ReportAudit::filePath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("not json at all\n{\"v\": 2, \"event\": \"from a newer version\"}\n");
        file.write("{\"v\": 1, \"event\": \"ok\", \"outcome\": {}}\n{\"v\": 1, \"event\": \"cut sh");
        file.close();
        QTest::ignoreMessage(QtWarningMsg,
            QRegularExpression(
                "^ZrReport: skipped 3 unreadable lines of the audit log .*report-audit.jsonl$"));
        QList<QJsonObject> entries = ReportAudit::entries();
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries.at(0)["event"].toString(), "ok");
        ZrLoopback::MessageCapture::clear();
        entries = ReportAudit::entries(); // said once
        QCOMPARE(ZrLoopback::MessageCapture::messages(), QStringList());
    }

    // The audit log cannot be written; the report goes out all the same.
    void reportLostWithAudit()
    {
        const QString folder = m_dir.filePath("unwritable");
        QVERIFY(QDir().mkpath(folder + "/report-audit.jsonl")); // a folder where the file should be
        QVERIFY(ReportAudit::enable(folder));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^ZrReport: cannot write the audit log .*"));
        const int before = m_service.receivedCount();
        reportTelemetry(KeyId, Key, "still_sent");
        QVERIFY(ReportAudit::waitWritten());
        QCOMPARE(m_service.receivedCount(), before + 1);
        QCOMPARE(ReportAudit::entries(), QList<QJsonObject>());
    }
};

QTEST_GUILESS_MAIN(ReportAuditTest)
#include "tst_reportaudit.moc"

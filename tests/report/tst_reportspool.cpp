// The telemetry spool against the loopback log service: while the service is away
// (refusing connections, answering 503, not answering at all) events wait on disk, and
// once it is back each arrives once, in the order it was reported.
#include <ZrUtils/CZrReport.h>
#include <ZrUtils/ReportSpool.h>

#include "FreePort.h"
#include "LoopbackLogService.h"
#include "report/ReportWorkers.h"
#include "report/TelemetrySpool.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace ZrUtils;
using Internal::TelemetrySpool;
using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;

class ReportSpoolTest : public QObject
{
    Q_OBJECT
    ZrLoopback::LoopbackLogService m_service {"key-id", "secret"};
    QTemporaryDir m_dir;
    CZrReport m_report;

    QString endpoint() const { return QString::fromLatin1(m_service.endpoint()); }
    static QString closedEndpoint() { return QStringLiteral("127.0.0.1:%1").arg(ZrLoopback::freePort()); }
    void report(int number, const QString& at, const QString& key = QString("secret"))
    {
        m_report.InitData("src", at, "key-id", key, "p", "l", {{"n", QString::number(number)}});
        m_report.ReportZrData("e");
    }
    QList<int> arrived() const
    {
        QList<int> numbers;
        for (const auto& group : m_service.received())
            for (const auto& log : group.logs)
                numbers.append(log.contents.value(0).second.toInt());
        return numbers;
    }
    void overrideWith(int status, bool answer = true)
    {
        m_service.setOverride([=](const HttpRequest&) -> std::optional<HttpResponse> {
            HttpResponse response(status, "{\"errorCode\":\"ServerBusy\",\"errorMessage\":\"busy\"}");
            if (!answer)
                response.fault = HttpResponse::Fault::NeverAnswer;
            return response;
        });
    }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
    }
    void init()
    {
        m_service.clearReceived();
        m_service.http().clearRequests();
        m_service.setOverride(nullptr);
        TelemetrySpool::instance().setBackoff(std::chrono::seconds(1), std::chrono::seconds(300));
    }
    void cleanup()
    {
        ReportSpool::clear();
        ReportSpool::disable();
        QVERIFY(TelemetrySpool::instance().waitIdle(30000));
    }

    void eventsLostWhileServiceAway()
    {
        constexpr int Events = 1000;
        QVERIFY(ReportSpool::enable(m_dir.filePath("away")));
        const QString refused = closedEndpoint();
        for (int i = 0; i < Events; ++i)
            report(i, refused);
        QCOMPARE(ReportSpool::pendingCount(), Events);

        overrideWith(503);
        report(Events, endpoint()); // the spool now sends to the service
        ReportSpool::flush();
        QTRY_VERIFY_WITH_TIMEOUT(m_service.http().requests().size() >= 1, 10000);
        overrideWith(503, false); // accepts, never answers: the post times out
        const int asked = m_service.http().requests().size();
        ReportSpool::flush();
        QTRY_VERIFY_WITH_TIMEOUT(m_service.http().requests().size() > asked, 10000);
        m_service.setOverride(nullptr);
        QCOMPARE(m_service.receivedCount(), 0);
        QCOMPARE(ReportSpool::pendingCount(), Events + 1);

        ReportSpool::flush(); // waits for the post that is timing out, then sends everything
        QTRY_COMPARE_WITH_TIMEOUT(ReportSpool::pendingCount(), 0, 90000);
        QList<int> expected;
        for (int i = 0; i <= Events; ++i)
            expected.append(i);
        QCOMPARE(arrived(), expected);
        QCOMPARE(QFileInfo(ReportSpool::filePath()).size(), 0);
    }

    void refusedEventKept()
    {
        QVERIFY(ReportSpool::enable(m_dir.filePath("refused")));
        report(1, endpoint(), "wrong-key"); // 401: would fail again
        QVERIFY(TelemetrySpool::instance().waitIdle(15000));
        QCOMPARE(ReportSpool::pendingCount(), 0);
        QCOMPARE(m_service.receivedCount(), 0);
        QCOMPARE(QFileInfo(ReportSpool::filePath()).size(), 0);
    }

    void boundsIgnored()
    {
        QVERIFY(ReportSpool::enable(m_dir.filePath("bounded"), 10));
        TelemetrySpool::instance().setBackoff(std::chrono::hours(1), std::chrono::hours(1));
        const qint64 droppedBefore = ReportSpool::droppedCount();
        const QString refused = closedEndpoint();
        for (int i = 0; i < 25; ++i)
            report(i, refused);
        QCOMPARE(ReportSpool::pendingCount(), 10);
        QCOMPARE(ReportSpool::droppedCount() - droppedBefore, 15);

        m_report.InitData("src", endpoint(), "key-id", "secret", "p", "l", {});
        ReportSpool::flush();
        QTRY_COMPARE_WITH_TIMEOUT(ReportSpool::pendingCount(), 0, 30000);
        QCOMPARE(arrived(), (QList<int> {15, 16, 17, 18, 19, 20, 21, 22, 23, 24}));
    }

    void damagedSpoolRead()
    {
        const QString folder = m_dir.filePath("damaged");
        QVERIFY(QDir().mkpath(folder));
        QFile file(folder + "/telemetry-spool.jsonl");
        QVERIFY(file.open(QIODevice::WriteOnly));
        const QByteArray event = "{\"v\":1,\"id\":%1,\"project\":\"p\",\"logstore\":\"l\",\"source\":\"s\","
                                 "\"topic\":\"e\",\"time\":1700000000,\"contents\":[[\"n\",\"%1\"]]}";
        file.write(QString::fromLatin1(event).arg(7).toLatin1() + "\n");
        file.write("garbage\n{\"v\":2,\"id\":8,\"from\":\"a newer version\"}\n");
        file.write(QString::fromLatin1(event).arg(9).toLatin1() + "\n");
        file.write("{\"v\":1,\"id\":10,\"project\":\"p\",\"logstore\":\"l\",\"sou"); // cut short by a kill
        file.close();
        QTest::ignoreMessage(QtWarningMsg,
            QRegularExpression("^ZrReport: set aside 3 unreadable lines of the telemetry spool in "
                               ".*telemetry-spool.jsonl.bad$"));
        QVERIFY(ReportSpool::enable(folder));
        QCOMPARE(ReportSpool::pendingCount(), 2);
        m_report.InitData("src", endpoint(), "key-id", "secret", "p", "l", {});
        QTRY_COMPARE_WITH_TIMEOUT(ReportSpool::pendingCount(), 0, 30000);
        QCOMPARE(arrived(), (QList<int> {7, 9}));
        QFile bad(folder + "/telemetry-spool.jsonl.bad");
        QVERIFY(bad.open(QIODevice::ReadOnly));
        QCOMPARE(bad.readAll().count('\n'), 3);
    }

    // Killed at random moments while reporting and sending, with the service up or
    // answering 503: across every run, each reported event arrives, and at most one
    // per kill arrives twice.
    void killedWhileSpooling()
    {
        constexpr int Kills = 100;
        const QString folder = m_dir.filePath("killed");
        int next = 0;
        QSet<int> reported;
        for (int kill = 0; kill < Kills; ++kill) {
            if (QRandomGenerator::global()->bounded(2))
                overrideWith(503);
            else
                m_service.setOverride(nullptr);
            QProcess app;
            app.start(SPOOLAPP, {"report", folder, endpoint(), QString::number(next)});
            QVERIFY(app.waitForReadyRead(10000));
            QTest::qWait(QRandomGenerator::global()->bounded(100));
            app.kill();
            QVERIFY(app.waitForFinished(10000));
            const QList<QByteArray> lines = app.readAllStandardOutput().trimmed().split('\n');
            QVERIFY(lines.last().startsWith("reported "));
            for (const QByteArray& line : lines)
                reported.insert(line.mid(9).toInt());
            // The report under way at the kill may still arrive: its number is not reused.
            next = lines.last().mid(9).toInt() + 2;
        }
        m_service.setOverride(nullptr);
        QProcess drain;
        drain.start(SPOOLAPP, {"drain", folder, endpoint()});
        QVERIFY(drain.waitForFinished(90000));
        QCOMPARE(drain.readAllStandardOutput().trimmed(), QByteArray("drained 0"));

        QMap<int, int> times;
        for (int number : arrived())
            ++times[number];
        int twice = 0;
        for (int number = 0; number < next; ++number) {
            if (!reported.contains(number))
                continue;
            QVERIFY2(times.value(number) >= 1, qPrintable(QString("event %1 lost").arg(number)));
            twice += times.value(number) - 1;
        }
        qInfo("%lld events reported over %d kills; %d arrived twice", qint64(reported.size()), Kills, twice);
        QVERIFY2(twice <= Kills, qPrintable(QString::number(twice)));
        QVERIFY(next > Kills); // the runs did report
    }
};

QTEST_GUILESS_MAIN(ReportSpoolTest)
#include "tst_reportspool.moc"

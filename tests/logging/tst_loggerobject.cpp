#include <ZrUtils/LoggerObject.h>

#include "logging/LoggerObjectPrivate.h"

#include <QtTest>

#include <thread>
#include <vector>

using ZrUtils::LoggerObject;

namespace
{
// The lines of a log file with the time stamp of the "<time> <LEVEL> <> - <message>"
// format cut to "<LEVEL> <message>"; lines of another format stay whole.
QStringList messagesOf(const QString& path)
{
    static const QRegularExpression head(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} (ERROR|WARN|INFO|DEBUG) <> - "));
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    lines.removeLast(); // the empty rest after the last line break
    return lines.replaceInStrings(head, "\\1 ");
}
} // namespace

class LoggerObjectTest : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;
    QString logPath(const QString& name) const { return m_dir->path() + "/log/" + name; }
    void start(const char* name) const
    {
        LoggerObject::InitLogger(name, m_dir->path().toLocal8Bit().constData());
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir(m_dir->path()).mkdir("log"));
    }
    void cleanup() { LoggerObject::ReleaseLogger(); }

    // First, so that nothing has created the logger yet. No folder is created either.
    void writesWhereItMayNot()
    {
        LoggerObject::info("before init");
        const QByteArray missing = m_dir->path().toLocal8Bit() + "/missing";
        LoggerObject::InitLogger("app.log", missing.constData());
        LoggerObject::info("nowhere to go");
        LoggerObject::ReleaseLogger();
        QVERIFY(QDir(logPath(QString())).isEmpty());
        QVERIFY(!QFileInfo::exists(QString::fromLocal8Bit(missing)));
        LoggerObject::InitLogger(nullptr, nullptr); // "/log/" is a folder: no file, no crash
        LoggerObject::info("nowhere to go");
    }

    void levelOrTextMangled()
    {
        start("app.log");
        LoggerObject::debug("hidden"); // the file takes INFO and above only
        LoggerObject::info("one");
        LoggerObject::warn("two");
        LoggerObject::error("three");
        LoggerObject::info(nullptr);
        LoggerObject::info("caf\xe9"); // Latin-1 in, UTF-8 on disk
        LoggerObject::ReleaseLogger(); // buffered: the lines reach the disk on release
        QCOMPARE(messagesOf(logPath("app.log")),
            QStringList({"INFO one", "WARN two", "ERROR three", "INFO ", "INFO café"}));
    }

    // A second InitLogger() moves to the new file; after a release lines are dropped
    // until the next InitLogger(), which continues the file.
    void reconfigurationLosesOrDuplicatesLines()
    {
        start("first.log");
        LoggerObject::info("to first");
        start("second.log");
        LoggerObject::info("to second");
        LoggerObject::ReleaseLogger();
        LoggerObject::info("dropped");
        LoggerObject::ReleaseLogger(); // a second release is harmless
        start("second.log");
        LoggerObject::info("after");
        LoggerObject::ReleaseLogger();
        QCOMPARE(messagesOf(logPath("first.log")), QStringList("INFO to first"));
        QCOMPARE(messagesOf(logPath("second.log")), QStringList({"INFO to second", "INFO after"}));
    }

    // A restarted application continues the same file instead of truncating it.
    void appendsAcrossProcesses()
    {
        const QString writer = QCoreApplication::applicationDirPath() + "/logwriter";
        QCOMPARE(QProcess::execute(writer, {"app.log", m_dir->path(), "first run"}), 0);
        QCOMPARE(QProcess::execute(writer, {"app.log", m_dir->path(), "second run"}), 0);
        QCOMPARE(messagesOf(logPath("app.log")), QStringList({"INFO first run", "INFO second run"}));
    }

    // The first line of a new month moves the finished file aside under a name with
    // the year and month; the current file keeps the plain name.
    void monthRolloverKeepsPlainName()
    {
        start("app.log");
        LoggerObject::info("this month");
        const QDate nextMonth = QDate::currentDate().addMonths(1);
        const QDateTime nextMonthStart(QDate(nextMonth.year(), nextMonth.month(), 2), QTime(0, 0));
        LoggerObjectPrivate::getInstance()->infoAt(
            "next month", std::chrono::system_clock::from_time_t(nextMonthStart.toSecsSinceEpoch()));
        LoggerObject::ReleaseLogger();
        const QString finished = logPath("app.log.") + QDate::currentDate().toString("yyyy-MM");
        QCOMPARE(messagesOf(finished), QStringList("INFO this month"));
        QCOMPARE(messagesOf(logPath("app.log")), QStringList("INFO next month"));
    }

    void linesFromManyThreadsBroken()
    {
        start("app.log");
        std::vector<std::thread> workers;
        for (int t = 0; t < 4; ++t) {
            workers.emplace_back([t] {
                const QByteArray text = "thread " + QByteArray::number(t) + ' ' + QByteArray(100, 'x');
                for (int i = 0; i < 500; ++i)
                    LoggerObject::info(text.constData());
            });
        }
        for (std::thread& worker : workers)
            worker.join();
        LoggerObject::ReleaseLogger();
        const QStringList messages = messagesOf(logPath("app.log"));
        QCOMPARE(messages.size(), 4 * 500);
        QCOMPARE(messages.filter(QRegularExpression("^INFO thread \\d x{100}$")).size(), 4 * 500);
    }
};

QTEST_GUILESS_MAIN(LoggerObjectTest)
#include "tst_loggerobject.moc"

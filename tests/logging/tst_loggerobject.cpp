#include <ZrUtils/LoggerObject.h>

#include "logging/LoggerObjectPrivate.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <thread>
#include <vector>

using ZrUtils::LoggerObject;

namespace
{

QList<QByteArray> linesOf(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<QByteArray> lines = file.readAll().split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

// The message part of each line ("<time> <LEVEL> <> - <message>").
QStringList messagesOf(const QString& path)
{
    static const QRegularExpression line(QStringLiteral(
        "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} (ERROR|WARN|INFO|DEBUG) <> - (.*)$"));
    QStringList messages;
    for (const QByteArray& bytes : linesOf(path)) {
        const QRegularExpressionMatch m = line.match(QString::fromUtf8(bytes));
        messages.append(m.hasMatch() ? m.captured(1) + QLatin1Char(' ') + m.captured(2)
                                     : QStringLiteral("MALFORMED: ") + QString::fromUtf8(bytes));
    }
    return messages;
}

} // namespace

class LoggerObjectTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void nothingBeforeInit();
    void debugFilteredInfoWritten();
    void nullAndLatin1Texts();
    void reinitMovesToSecondFileWithoutDuplicates();
    void releaseDropsThenReinitResumes();
    void appendsAcrossProcesses();
    void monthRolloverKeepsPlainName();
    void createsNoFolder();
    void linesFromManyThreadsStayWhole();

private:
    QString logPath(const char* name) const
    {
        return m_dir->path() + QStringLiteral("/log/") + QLatin1String(name);
    }
    QByteArray base() const { return m_dir->path().toLocal8Bit(); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void LoggerObjectTest::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("log")));
}

void LoggerObjectTest::cleanup()
{
    LoggerObject::ReleaseLogger();
}

void LoggerObjectTest::nothingBeforeInit()
{
    LoggerObject::info("lost");
    LoggerObject::error("lost");
    QVERIFY(QDir(m_dir->path() + QStringLiteral("/log")).isEmpty());
}

void LoggerObjectTest::debugFilteredInfoWritten()
{
    LoggerObject::InitLogger("app.log", base().constData());
    LoggerObject::debug("hidden");
    LoggerObject::info("one");
    LoggerObject::warn("two");
    LoggerObject::error("three");
    LoggerObject::ReleaseLogger(); // buffered: the lines reach the disk on release

    QCOMPARE(messagesOf(logPath("app.log")),
        QStringList({QStringLiteral("INFO one"), QStringLiteral("WARN two"), QStringLiteral("ERROR three")}));
}

void LoggerObjectTest::nullAndLatin1Texts()
{
    LoggerObject::InitLogger("app.log", base().constData());
    LoggerObject::info(nullptr);
    LoggerObject::info("caf\xe9"); // Latin-1 in, UTF-8 on disk
    LoggerObject::ReleaseLogger();

    QCOMPARE(
        messagesOf(logPath("app.log")), QStringList({QStringLiteral("INFO "), QStringLiteral("INFO café")}));
}

void LoggerObjectTest::reinitMovesToSecondFileWithoutDuplicates()
{
    LoggerObject::InitLogger("first.log", base().constData());
    LoggerObject::info("to first");
    LoggerObject::InitLogger("second.log", base().constData());
    LoggerObject::info("to second");
    LoggerObject::ReleaseLogger();

    QCOMPARE(messagesOf(logPath("first.log")), QStringList(QStringLiteral("INFO to first")));
    QCOMPARE(messagesOf(logPath("second.log")), QStringList(QStringLiteral("INFO to second")));
}

void LoggerObjectTest::releaseDropsThenReinitResumes()
{
    LoggerObject::InitLogger("app.log", base().constData());
    LoggerObject::info("before");
    LoggerObject::ReleaseLogger();
    LoggerObject::info("dropped");
    LoggerObject::ReleaseLogger(); // a second release is harmless
    LoggerObject::InitLogger("app.log", base().constData());
    LoggerObject::info("after");
    LoggerObject::ReleaseLogger();

    QCOMPARE(messagesOf(logPath("app.log")),
        QStringList({QStringLiteral("INFO before"), QStringLiteral("INFO after")}));
}

// A restarted application continues the same file instead of truncating it.
void LoggerObjectTest::appendsAcrossProcesses()
{
    const QString writer = QCoreApplication::applicationDirPath() + QStringLiteral("/logwriter");
    for (const QString& text : {QStringLiteral("first run"), QStringLiteral("second run")}) {
        QCOMPARE(QProcess::execute(writer, {QStringLiteral("app.log"), m_dir->path(), text}), 0);
    }
    QCOMPARE(messagesOf(logPath("app.log")),
        QStringList({QStringLiteral("INFO first run"), QStringLiteral("INFO second run")}));
}

// The first line of a new month moves the finished file aside under a name with
// the year and month; the current file keeps the plain name.
void LoggerObjectTest::monthRolloverKeepsPlainName()
{
    LoggerObject::InitLogger("app.log", base().constData());
    LoggerObject::info("this month");
    const QDate nextMonth = QDate::currentDate().addMonths(1);
    const QDateTime nextMonthStart(QDate(nextMonth.year(), nextMonth.month(), 2), QTime(0, 0));
    LoggerObjectPrivate::getInstance()->infoAt(
        "next month", std::chrono::system_clock::from_time_t(nextMonthStart.toSecsSinceEpoch()));
    LoggerObject::ReleaseLogger();

    const QString finished
        = logPath("app.log") + QLatin1Char('.') + QDate::currentDate().toString(QStringLiteral("yyyy-MM"));
    QCOMPARE(messagesOf(finished), QStringList(QStringLiteral("INFO this month")));
    QCOMPARE(messagesOf(logPath("app.log")), QStringList(QStringLiteral("INFO next month")));
}

void LoggerObjectTest::createsNoFolder()
{
    const QByteArray missing = base() + "/missing";
    LoggerObject::InitLogger("app.log", missing.constData());
    LoggerObject::info("nowhere to go");
    LoggerObject::ReleaseLogger();
    QVERIFY(!QFileInfo::exists(QString::fromLocal8Bit(missing)));

    LoggerObject::InitLogger(nullptr, nullptr); // "/log/" is a folder: no file, no crash
    LoggerObject::info("nowhere to go");
}

void LoggerObjectTest::linesFromManyThreadsStayWhole()
{
    LoggerObject::InitLogger("app.log", base().constData());
    constexpr int threads = 4;
    constexpr int perThread = 500;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([t] {
            const QByteArray text = "thread " + QByteArray::number(t) + ' ' + QByteArray(100, 'x');
            for (int i = 0; i < perThread; ++i)
                LoggerObject::info(text.constData());
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    LoggerObject::ReleaseLogger();

    const QStringList messages = messagesOf(logPath("app.log"));
    QCOMPARE(messages.size(), threads * perThread);
    QCOMPARE(messages.filter(QStringLiteral("MALFORMED")).size(), 0);
}

QTEST_GUILESS_MAIN(LoggerObjectTest)
#include "tst_loggerobject.moc"

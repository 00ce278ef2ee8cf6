// Several threads posting through one client while another changes its endpoint
// and keys: every post arrives intact. CI also runs this under ThreadSanitizer.
//
// The loopback service runs in a child process (this program with --serve): its
// Qt internals are not instrumented and would drown the client's own threads in
// false reports, so the child runs with reports off and the client is checked
// alone.
#include "LogTestClient.h"

#include <QProcess>
#include <QSet>
#include <QTest>

#include <atomic>
#include <iostream>
#include <thread>
#include <vector>

using namespace cloudlog_sdk_v6;

// Serves until stdin closes, then prints one line per received group:
// number of logs, time, then every content value.
static int serve()
{
    ZrLoopback::LoopbackLogService service("id", "key");
    std::cout << service.port() << std::endl;
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
    for (const ZrLoopback::ReceivedLogGroup& group : service.received()) {
        std::cout << group.logs.size();
        for (const ZrLoopback::ReceivedLog& log : group.logs) {
            std::cout << ' ' << log.time;
            for (const auto& content : log.contents)
                std::cout << ' ' << content.second.constData();
        }
        std::cout << '\n';
    }
    return 0;
}

class LogConcurrencyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parallelPostsLostOrMixed_data();
    void parallelPostsLostOrMixed();
};

void LogConcurrencyTest::parallelPostsLostOrMixed_data()
{
    QTest::addColumn<bool>("compress");
    QTest::newRow("plain") << false;
    QTest::newRow("lz4") << true;
}

void LogConcurrencyTest::parallelPostsLostOrMixed()
{
    QFETCH(bool, compress);
    const int threads = 4, postsPerThread = 20;
    QProcess server;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TSAN_OPTIONS"), QStringLiteral("report_bugs=0"));
    server.setProcessEnvironment(environment);
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--serve")});
    QVERIFY(server.waitForStarted(10000));
    QVERIFY(server.waitForReadyRead(30000));
    const QByteArray port = server.readLine().trimmed();
    QVERIFY(port.toUShort() > 0);

    LOGClient client("127.0.0.1:" + port.toStdString(), "id", "key", 10, "src", compress);
    std::atomic<bool> posting {true};
    std::atomic<int> failures {0};
    // Rewrites the endpoint and the keys with the values they already hold, so
    // every post must still succeed while the writes race with its reads.
    std::thread setter([&] {
        const std::string endpoint = "http://" + client.GetLogHost() + "/ignored/path";
        while (posting) {
            client.SetLogHost(endpoint);
            client.SetAccessKeyId("id");
            client.SetAccessKey("key");
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> posters;
    for (int t = 0; t < threads; ++t) {
        posters.emplace_back([&, t] {
            for (int i = 0; i < postsPerThread; ++i) {
                const LogItem item {uint32_t(t * 1000 + i), "", "",
                    {{"thread", std::to_string(t)}, {"post", std::to_string(i)}}};
                try {
                    failures += client.PostLogStoreLogs("p", "store", "topic", {item}, "").statusCode != 200;
                } catch (const LOGException&) {
                    ++failures;
                }
            }
        });
    }
    for (std::thread& poster : posters)
        poster.join();
    posting = false;
    setter.join();
    QCOMPARE(failures.load(), 0);

    server.closeWriteChannel();
    QVERIFY(server.waitForFinished(30000));
    QCOMPARE(server.exitCode(), 0);
    const QList<QByteArray> lines = server.readAllStandardOutput().trimmed().split('\n');
    QCOMPARE(lines.size(), threads * postsPerThread);
    QSet<QByteArray> distinct;
    for (const QByteArray& line : lines) {
        const QList<QByteArray> fields = line.split(' '); // logs, time, thread, post
        QCOMPARE(fields.size(), 4);
        QCOMPARE(fields[0], QByteArray("1"));
        QCOMPARE(fields[1].toUInt(), fields[2].toUInt() * 1000 + fields[3].toUInt());
        distinct.insert(fields[1]);
    }
    QCOMPARE(distinct.size(), threads * postsPerThread);
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "--serve") == 0)
        return serve();
    LogConcurrencyTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logconcurrency.moc"

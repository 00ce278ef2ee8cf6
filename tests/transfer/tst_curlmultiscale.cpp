#include <ZrUtils/CurlEasy.h>
#include <ZrUtils/CurlMulti.h>

#include "NginxServer.h"

#include <QFile>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include <sys/resource.h>

using namespace ZrLoopback;

using Watching = CurlMulti::SocketWatching;
Q_DECLARE_METATYPE(CurlMulti::SocketWatching)

// Many transfers at once on one multi, against a real nginx, in both ways of watching
// sockets.
class TestCurlMultiScale : public QObject
{
    Q_OBJECT
    static constexpr int Files = 1000;
    QTemporaryDir m_root;
    std::unique_ptr<NginxServer> m_nginx;
    std::vector<QByteArray> m_bodies;

    // The index of the first body that is not the file served, or -1.
    int firstWrongBody(const std::vector<QByteArray>& bodies) const
    {
        const auto wrong = std::mismatch(bodies.cbegin(), bodies.cend(), m_bodies.cbegin());
        return wrong.first == bodies.cend() ? -1 : int(wrong.first - bodies.cbegin());
    }

private Q_SLOTS:
    void initTestCase()
    {
        // A thousand sockets here and as many in nginx, beside the usual descriptors.
        rlimit limit {};
        QCOMPARE(getrlimit(RLIMIT_NOFILE, &limit), 0);
        limit.rlim_cur = limit.rlim_max;
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &limit), 0);
        if (limit.rlim_cur < rlim_t(Files) * 2 + 100)
            QSKIP("the file-descriptor limit is too low for a thousand transfers");
        if (!NginxServer::available())
            QSKIP("nginx is not installed");
        // A body of its own for each transfer, of sizes around libcurl's buffer, so that
        // a body landing in the wrong transfer or cut short shows.
        for (int i = 0; i < Files; ++i) {
            const QString path = m_root.filePath(QStringLiteral("%1.bin").arg(i));
            QVERIFY(writePatternFile(path, 1000 + qint64(i) * 61, quint32(i + 1)));
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadOnly));
            m_bodies.push_back(file.readAll());
        }
        m_nginx = std::make_unique<NginxServer>(m_root.path());
        QVERIFY2(m_nginx->start(QStringLiteral("location /slow/ { alias @ROOT@/; limit_rate 8k; }")),
            qPrintable(m_nginx->errorString()));
    }

    void thousandTransfersAtOnce_data()
    {
        QTest::addColumn<Watching>("watching");
        QTest::addColumn<QString>("folder");
        QTest::newRow("notifier per socket") << Watching::NotifierPerSocket << QString("/");
        QTest::newRow("event set") << Watching::EventSet << QString("/");
        // Held open for about a second each, all at once.
        QTest::newRow("notifier per socket, slow") << Watching::NotifierPerSocket << QString("/slow/");
        QTest::newRow("event set, slow") << Watching::EventSet << QString("/slow/");
    }
    void thousandTransfersAtOnce()
    {
        QFETCH(Watching, watching);
        QFETCH(QString, folder);
        CurlMulti multi;
        QVERIFY(multi.setSocketWatching(watching));
        std::vector<std::unique_ptr<CurlEasy>> transfers;
        std::vector<QByteArray> bodies(Files);
        int finished = 0;
        int failed = 0;
        for (int i = 0; i < Files; ++i) {
            auto* easy = transfers.emplace_back(new CurlEasy).get();
            easy->setPreferredMulti(&multi);
            easy->set(CURLOPT_URL, m_nginx->url(folder + QStringLiteral("%1.bin").arg(i)));
            QByteArray* body = &bodies[size_t(i)];
            easy->setWriteFunction(
                [body](char* data, size_t size) { return body->append(data, int(size)), size; });
            connect(easy, &CurlEasy::done, this, [&](CURLcode result) {
                ++finished;
                failed += result != CURLE_OK;
            });
            easy->perform();
        }
        QCOMPARE(multi.transfers().size(), Files);
        QTRY_COMPARE_WITH_TIMEOUT(finished, Files, 120000);
        QCOMPARE(failed, 0);
        QCOMPARE(firstWrongBody(bodies), -1);
        QVERIFY(multi.transfers().isEmpty());
    }

    // Finished transfers are announced in batches. Each slot here starts the next
    // transfer and deletes its own; every tenth also aborts a running transfer and
    // starts it over, which takes a running handle from libcurl between two actions:
    // no later finish may go unannounced.
    void transfersStartedFromFinishedOnes_data()
    {
        QTest::addColumn<Watching>("watching");
        QTest::newRow("notifier per socket") << Watching::NotifierPerSocket;
        QTest::newRow("event set") << Watching::EventSet;
    }
    void transfersStartedFromFinishedOnes()
    {
        QFETCH(Watching, watching);
        constexpr int Live = 50;
        CurlMulti multi;
        QVERIFY(multi.setSocketWatching(watching));
        std::vector<QByteArray> bodies(Files);
        QSet<CurlEasy*> running;
        int started = 0;
        int finished = 0;
        int failed = 0;
        int restarted = 0;
        std::function<void()> startNext = [&] {
            const int i = started++;
            auto* easy = new CurlEasy;
            running.insert(easy);
            easy->setPreferredMulti(&multi);
            easy->set(CURLOPT_URL, m_nginx->url(QStringLiteral("/%1.bin").arg(i)));
            QByteArray* body = &bodies[size_t(i)];
            easy->setWriteFunction(
                [body](char* data, size_t size) { return body->append(data, int(size)), size; });
            connect(easy, &CurlEasy::aborted, this, [body] { body->clear(); });
            connect(easy, &CurlEasy::done, this, [&, easy](CURLcode result) {
                running.remove(easy);
                delete easy;
                failed += result != CURLE_OK;
                if (++finished % 10 == 0 && !running.isEmpty()) {
                    CurlEasy* other = *running.cbegin();
                    other->abort();
                    other->perform();
                    ++restarted;
                }
                if (started < Files)
                    startNext();
            });
            easy->perform();
        };
        while (started < Live)
            startNext();
        QTRY_COMPARE_WITH_TIMEOUT(finished, Files, 60000);
        QCOMPARE(failed, 0);
        QVERIFY(restarted > 0);
        QCOMPARE(firstWrongBody(bodies), -1);
        QVERIFY(multi.transfers().isEmpty());
    }

    // Sockets watched one way cannot be handed to the other halfway.
    void watchingSwitchedWhileSocketsOpen()
    {
        CurlMulti multi;
        QCOMPARE(multi.socketWatching(), Watching::NotifierPerSocket);
        CurlEasy slow;
        slow.setPreferredMulti(&multi);
        slow.set(CURLOPT_URL, m_nginx->url(QStringLiteral("/slow/999.bin")));
        slow.setWriteFunction([](char*, size_t size) { return size; });
        QSignalSpy done(&slow, &CurlEasy::done);
        slow.perform();
        QSignalSpy progress(&slow, &CurlEasy::progress);
        QTRY_VERIFY(!progress.isEmpty() && progress.constLast().at(1).toLongLong() > 0);
        QVERIFY(!multi.setSocketWatching(Watching::EventSet));
        QCOMPARE(multi.socketWatching(), Watching::NotifierPerSocket);
        QVERIFY(done.wait(20000));
        QCOMPARE(done.constFirst().at(0).value<CURLcode>(), CURLE_OK);
    }

    // An event set sees a connection that never opens and a transfer that fails on an
    // answer, and each still ends once.
    void eventSetReportsFailures_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("expected");
        QTest::newRow("connection refused") << QString("http://127.0.0.1:1/") << int(CURLE_COULDNT_CONNECT);
        QTest::newRow("missing") << QString("/none.bin") << int(CURLE_HTTP_RETURNED_ERROR);
    }
    void eventSetReportsFailures()
    {
        QFETCH(QString, url);
        QFETCH(int, expected);
        CurlMulti multi;
        QVERIFY(multi.setSocketWatching(Watching::EventSet));
        CurlEasy easy;
        easy.setPreferredMulti(&multi);
        easy.set(CURLOPT_URL, url.startsWith('/') ? m_nginx->url(url) : QUrl(url));
        curl_easy_setopt(easy.handle(), CURLOPT_FAILONERROR, 1L);
        easy.setWriteFunction([](char*, size_t size) { return size; });
        QSignalSpy done(&easy, &CurlEasy::done);
        easy.perform();
        QVERIFY(done.wait(20000));
        QCOMPARE(done.size(), 1);
        QCOMPARE(int(done.constFirst().at(0).value<CURLcode>()), expected);
        // Idle again, so the multi can go back.
        QTRY_VERIFY(multi.setSocketWatching(Watching::NotifierPerSocket));
    }
};

QTEST_GUILESS_MAIN(TestCurlMultiScale)
#include "tst_curlmultiscale.moc"

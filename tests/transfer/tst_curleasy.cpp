#include <ZrUtils/CurlEasy.h>
#include <ZrUtils/CurlMulti.h>

#include "LoopbackHttpServer.h"
#include "NginxServer.h"

#include <QCryptographicHash>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <climits>
#include <cstdio>
#include <memory>
#include <vector>

using namespace ZrLoopback;

namespace
{

HttpResponse neverAnswer()
{
    HttpResponse response;
    response.fault = HttpResponse::Fault::NeverAnswer;
    return response;
}

} // namespace

class TestCurlEasy : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void performTwiceAddsOnce();
    void abortSemantics_data();
    void abortSemantics();
    void doneDeliveredAfterRemoval();
    void destroyedMultiAbortsItsTransfers();
    void timerRules_data();
    void timerRules();
    void headerEncodingOnTheWire_data();
    void headerEncodingOnTheWire();
    void rewindNeedsSeekFunction_data();
    void rewindNeedsSeekFunction();
    void shortWriteFailsTransfer();
    void manyTransfersOnOneMulti();
    void eachThreadHasItsOwnMulti();
};

void TestCurlEasy::performTwiceAddsOnce()
{
    LoopbackHttpServer server([](const HttpRequest&) { return HttpResponse(200, "hello"); });
    CurlEasy easy;
    easy.setWriteFunction([](char*, size_t size) { return size; });
    QSignalSpy done(&easy, &CurlEasy::done);
    easy.set(CURLOPT_URL, server.url(QStringLiteral("/once")));
    easy.perform();
    easy.perform();
    QVERIFY(easy.isRunning());
    QCOMPARE(easy.runningOnMulti(), CurlMulti::threadInstance());
    QCOMPARE(easy.runningOnMulti()->transfers().size(), 1);
    QVERIFY(done.wait(10000));
    QCOMPARE(done.count(), 1);
    QCOMPARE(done.at(0).at(0).value<CURLcode>(), CURLE_OK);
    QCOMPARE(server.requestCount(), 1);
}

void TestCurlEasy::abortSemantics_data()
{
    QTest::addColumn<QString>("when");
    QTest::addColumn<int>("expectedAborted");
    QTest::newRow("idle") << QStringLiteral("idle") << 0;
    QTest::newRow("waiting for the answer") << QStringLiteral("waiting") << 1;
    QTest::newRow("inside a progress slot") << QStringLiteral("progress") << 1;
}

void TestCurlEasy::abortSemantics()
{
    QFETCH(QString, when);
    QFETCH(int, expectedAborted);
    const bool trickle = when == QLatin1String("progress");
    LoopbackHttpServer server([trickle](const HttpRequest& request) {
        if (request.path != "/slow")
            return HttpResponse(200, "fine");
        if (!trickle)
            return neverAnswer();
        HttpResponse response(200, QByteArray(64 * 1024, 'x'));
        response.bytesPerSecond = 16 * 1024;
        return response;
    });
    CurlEasy easy;
    easy.setWriteFunction([](char*, size_t size) { return size; });
    QSignalSpy aborted(&easy, &CurlEasy::aborted);
    QSignalSpy done(&easy, &CurlEasy::done);
    easy.set(CURLOPT_URL, server.url(QStringLiteral("/slow")));
    if (trickle) {
        // libcurl refuses to drop a handle from inside its callbacks: the multi must defer it.
        connect(&easy, &CurlEasy::progress, &easy, [&easy](qint64, qint64 now) {
            if (now > 0)
                easy.abort();
        });
    }
    if (when != QLatin1String("idle")) {
        easy.perform();
        if (trickle)
            QTRY_COMPARE_WITH_TIMEOUT(aborted.count(), 1, 10000);
        else
            QTRY_COMPARE_WITH_TIMEOUT(server.requestCount(), 1, 10000);
    }
    easy.abort();
    QCOMPARE(aborted.count(), expectedAborted);
    QVERIFY(!easy.isRunning());
    QVERIFY(CurlMulti::threadInstance()->transfers().isEmpty());

    // The same transfer runs again; a done for the aborted run would arrive first.
    easy.disconnect(&easy);
    easy.set(CURLOPT_URL, server.url(QStringLiteral("/again")));
    easy.perform();
    QVERIFY(done.wait(10000));
    QCOMPARE(done.count(), 1);
    QCOMPARE(done.at(0).at(0).value<CURLcode>(), CURLE_OK);
    QCOMPARE(aborted.count(), expectedAborted);
    QCOMPARE(server.requestCount(), expectedAborted + 1); // a fresh request, not the old one going on
}

void TestCurlEasy::doneDeliveredAfterRemoval()
{
    LoopbackHttpServer server([](const HttpRequest&) { return HttpResponse(200, "body"); });
    CurlEasy easy;
    easy.setWriteFunction([](char*, size_t size) { return size; });
    easy.set(CURLOPT_URL, server.url(QStringLiteral("/")));
    QList<bool> runningInSlot;
    QList<bool> listedInSlot;
    QSignalSpy done(&easy, &CurlEasy::done);
    connect(&easy, &CurlEasy::done, this, [&] {
        runningInSlot << easy.isRunning();
        listedInSlot << CurlMulti::threadInstance()->transfers().contains(&easy);
        if (runningInSlot.size() == 1)
            easy.perform(); // already idle, so it may start over from here
    });
    easy.perform();
    QTRY_COMPARE_WITH_TIMEOUT(done.count(), 2, 10000);
    QCOMPARE(runningInSlot, QList<bool>({false, false}));
    QCOMPARE(listedInSlot, QList<bool>({false, false}));
    QCOMPARE(server.requestCount(), 2);
}

void TestCurlEasy::destroyedMultiAbortsItsTransfers()
{
    LoopbackHttpServer server([](const HttpRequest&) { return neverAnswer(); });
    auto* multi = new CurlMulti;
    CurlEasy easy;
    easy.setWriteFunction([](char*, size_t size) { return size; });
    easy.setPreferredMulti(multi);
    QSignalSpy aborted(&easy, &CurlEasy::aborted);
    easy.set(CURLOPT_URL, server.url(QStringLiteral("/")));
    easy.perform();
    QCOMPARE(easy.runningOnMulti(), multi);
    QTRY_COMPARE_WITH_TIMEOUT(server.requestCount(), 1, 10000);
    delete multi;
    QCOMPARE(aborted.count(), 1);
    QVERIFY(!easy.isRunning());
}

void TestCurlEasy::timerRules_data()
{
    QTest::addColumn<long>("timeout");
    QTest::addColumn<bool>("active");
    QTest::addColumn<int>("interval");
    QTest::newRow("negative stops") << -1L << false << -1;
    QTest::newRow("zero fires at once") << 0L << true << 0;
    QTest::newRow("plain") << 1500L << true << 1500;
    QTest::newRow("too long is clamped") << 3000000000L << true << INT_MAX;
}

void TestCurlEasy::timerRules()
{
    QFETCH(long, timeout);
    QFETCH(bool, active);
    QFETCH(int, interval);
    CurlMulti multi;
    auto* timer = multi.findChild<QTimer*>();
    QVERIFY(timer);
    QVERIFY(timer->isSingleShot());
    timer->start(100000);
    QSignalSpy fired(timer, &QTimer::timeout);
    CurlMulti::staticCurlTimerFunction(multi.handle(), timeout, &multi);
    QCOMPARE(timer->isActive(), active);
    if (active)
        QCOMPARE(timer->interval(), interval);
    if (timeout == 0)
        QVERIFY(fired.wait(1000));
}

void TestCurlEasy::headerEncodingOnTheWire_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<QByteArray>("onTheWire");
    QTest::newRow("encoded") << QStringLiteral("encoded") << QByteArray("a%20b%2Fc%C3%A9");
    QTest::newRow("raw") << QStringLiteral("raw") << QByteArray("a b/c\xC3\xA9");
    QTest::newRow("removed again") << QStringLiteral("removed") << QByteArray();
}

void TestCurlEasy::headerEncodingOnTheWire()
{
    QFETCH(QString, how);
    QFETCH(QByteArray, onTheWire);
    LoopbackHttpServer server([](const HttpRequest&) { return HttpResponse(200, "ok"); });
    CurlEasy easy;
    easy.setWriteFunction([](char*, size_t size) { return size; });
    QSignalSpy done(&easy, &CurlEasy::done);
    const QString value = QStringLiteral("a b/c\u00e9");
    const QString name = QStringLiteral("X-Zr-Test");
    if (how == QLatin1String("raw")) {
        easy.setHttpHeaderRaw(name, value.toUtf8());
    } else {
        easy.setHttpHeader(name, value);
        QCOMPARE(easy.httpHeader(name), value);
        QCOMPARE(easy.httpHeaderRaw(name), QByteArray("a%20b%2Fc%C3%A9"));
    }
    easy.set(CURLOPT_URL, server.url(QStringLiteral("/h")));
    easy.perform();
    QVERIFY(done.wait(10000));
    if (how == QLatin1String("removed")) {
        // The list is rebuilt on every later perform(), so the header is gone from the wire.
        QCOMPARE(easy.removeHttpHeader(name), 1);
        QVERIFY(!easy.hasHttpHeader(name));
        easy.perform();
        QVERIFY(done.wait(10000));
    }
    const HttpRequest seen = server.requests().constLast();
    QCOMPARE(seen.hasHeader("X-Zr-Test"), !onTheWire.isEmpty());
    QCOMPARE(seen.header("X-Zr-Test"), onTheWire);
}

void TestCurlEasy::rewindNeedsSeekFunction_data()
{
    QTest::addColumn<QString>("seek");
    QTest::addColumn<int>("expected");
    QTest::newRow("none") << QStringLiteral("none") << int(CURLE_SEND_FAIL_REWIND);
    QTest::newRow("cannot seek") << QStringLiteral("cantseek") << int(CURLE_SEND_FAIL_REWIND);
    QTest::newRow("rewinds") << QStringLiteral("rewinds") << int(CURLE_OK);
}

void TestCurlEasy::rewindNeedsSeekFunction()
{
    QFETCH(QString, seek);
    QFETCH(int, expected);
    // A 307 makes libcurl send the body again, which needs the upload rewound.
    LoopbackHttpServer server([](const HttpRequest& request) {
        if (request.path == "/first")
            return HttpResponse(307, "").withHeader("Location", "/second");
        return HttpResponse(200, "stored");
    });
    const QByteArray body = "the body to send twice";
    qint64 offset = 0;
    CurlEasy easy;
    easy.setWriteFunction([](char*, size_t size) { return size; });
    QCOMPARE(CurlEasy::staticCurlSeekFunction(&easy, 0, SEEK_SET), CURL_SEEKFUNC_CANTSEEK);
    easy.setReadFunction([&](char* data, size_t size) {
        const QByteArray chunk = body.mid(int(offset), int(size));
        memcpy(data, chunk.constData(), size_t(chunk.size()));
        offset += chunk.size();
        return size_t(chunk.size());
    });
    if (seek == QLatin1String("rewinds"))
        easy.setSeekFunction([&](qint64 to, int) {
            offset = to;
            return CURL_SEEKFUNC_OK;
        });
    else if (seek == QLatin1String("cantseek"))
        easy.setSeekFunction([](qint64, int) { return CURL_SEEKFUNC_CANTSEEK; });
    easy.set(CURLOPT_URL, server.url(QStringLiteral("/first")));
    curl_easy_setopt(easy.handle(), CURLOPT_POST, 1L);
    curl_easy_setopt(easy.handle(), CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
    curl_easy_setopt(easy.handle(), CURLOPT_FOLLOWLOCATION, 1L);
    QSignalSpy done(&easy, &CurlEasy::done);
    easy.perform();
    QVERIFY(done.wait(10000));
    QCOMPARE(int(easy.lastResult()), expected);
    if (expected == CURLE_OK) {
        QCOMPARE(server.requests().constLast().path, QByteArray("/second"));
        QCOMPARE(server.requests().constLast().body, body);
    }
}

void TestCurlEasy::shortWriteFailsTransfer()
{
    LoopbackHttpServer server([](const HttpRequest&) { return HttpResponse(200, "some bytes"); });
    CurlEasy easy;
    easy.setWriteFunction([](char*, size_t size) { return size - 1; });
    easy.set(CURLOPT_URL, server.url(QStringLiteral("/")));
    QSignalSpy done(&easy, &CurlEasy::done);
    easy.perform();
    QVERIFY(done.wait(10000));
    QCOMPARE(done.at(0).at(0).value<CURLcode>(), CURLE_WRITE_ERROR);
    QCOMPARE(easy.lastResult(), CURLE_WRITE_ERROR);
}

void TestCurlEasy::manyTransfersOnOneMulti()
{
    if (!NginxServer::available())
        QSKIP("nginx is not installed");
    QTemporaryDir root;
    QVERIFY(writePatternFile(root.filePath(QStringLiteral("64k.bin")), 64 * 1024 + 17));
    QFile served(root.filePath(QStringLiteral("64k.bin")));
    QVERIFY(served.open(QIODevice::ReadOnly));
    const QByteArray expected = QCryptographicHash::hash(served.readAll(), QCryptographicHash::Sha256);
    NginxServer nginx(root.path());
    QVERIFY2(nginx.start(), qPrintable(nginx.errorString()));

    constexpr int Count = 200;
    std::vector<std::unique_ptr<CurlEasy>> transfers;
    std::vector<QByteArray> bodies(Count);
    int finished = 0;
    int failed = 0;
    for (int i = 0; i < Count; ++i) {
        transfers.push_back(std::make_unique<CurlEasy>());
        CurlEasy* easy = transfers.back().get();
        easy->set(CURLOPT_URL, nginx.url(QStringLiteral("/64k.bin?n=%1").arg(i)));
        easy->setWriteFunction([&bodies, i](char* data, size_t size) {
            bodies[size_t(i)].append(data, int(size));
            return size;
        });
        connect(easy, &CurlEasy::done, this, [&](CURLcode result) {
            ++finished;
            failed += result != CURLE_OK;
        });
        easy->perform();
    }
    QCOMPARE(CurlMulti::threadInstance()->transfers().size(), Count);
    QTRY_COMPARE_WITH_TIMEOUT(finished, Count, 60000);
    QCOMPARE(failed, 0);
    for (const QByteArray& body : bodies)
        QCOMPARE(QCryptographicHash::hash(body, QCryptographicHash::Sha256), expected);
}

void TestCurlEasy::eachThreadHasItsOwnMulti()
{
    LoopbackHttpServer server([](const HttpRequest& request) { return HttpResponse(200, request.path); });
    CurlMulti* mainMulti = CurlMulti::threadInstance();
    QPointer<CurlMulti> workerMulti;
    QByteArray workerBody;
    std::unique_ptr<QThread> worker(QThread::create([&] {
        QEventLoop loop;
        CurlEasy easy;
        easy.setWriteFunction(
            [&](char* data, size_t size) { return workerBody.append(data, int(size)), size; });
        easy.set(CURLOPT_URL, server.url(QStringLiteral("/worker")));
        QObject::connect(&easy, &CurlEasy::done, &loop, &QEventLoop::quit);
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        easy.perform();
        workerMulti = easy.runningOnMulti();
        loop.exec();
    }));
    worker->start();
    QVERIFY(worker->wait(15000));
    QCOMPARE(workerBody, QByteArray("/worker"));
    // The worker's multi was its own and went with its thread.
    QVERIFY(workerMulti.isNull());
    QCOMPARE(CurlMulti::threadInstance(), mainMulti);
    QVERIFY(mainMulti->transfers().isEmpty());
}

QTEST_GUILESS_MAIN(TestCurlEasy)
#include "tst_curleasy.moc"

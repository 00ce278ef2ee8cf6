#include <ZrUtils/CurlEasy.h>
#include <ZrUtils/CurlMulti.h>

#include "LoopbackHttpServer.h"

#include <QBuffer>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <climits>
#include <memory>
#include <vector>

using namespace ZrLoopback;

// A transfer of url that keeps the body (libcurl would print it) and records how it ends.
struct Transfer : CurlEasy {
    explicit Transfer(const QUrl& url)
    {
        setWriteFunction([this](char* data, size_t size) { return body.append(data, int(size)), size; });
        set(CURLOPT_URL, url);
    }
    bool finish() { return perform(), done.wait(10000); }

    QByteArray body;
    QSignalSpy done {this, &CurlEasy::done};
    QSignalSpy aborted {this, &CurlEasy::aborted};
};

class TestCurlEasy : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void abortSemantics_data()
    {
        QTest::addColumn<QString>("when");
        QTest::newRow("idle: nothing") << QStringLiteral("idle");
        QTest::newRow("waiting for the answer") << QStringLiteral("waiting");
        QTest::newRow("inside a progress slot") << QStringLiteral("progress");
        QTest::newRow("its multi destroyed") << QStringLiteral("multi");
    }
    void abortSemantics()
    {
        QFETCH(QString, when);
        const bool trickle = when == QLatin1String("progress");
        LoopbackHttpServer server([trickle](const HttpRequest& request) {
            HttpResponse response(200, request.path == "/slow" ? QByteArray(64 * 1024, 'x') : "fine");
            if (request.path == "/slow" && !trickle)
                response.fault = HttpResponse::Fault::NeverAnswer;
            response.bytesPerSecond = 16 * 1024;
            return response;
        });
        Transfer easy(server.url(QStringLiteral("/slow")));
        std::unique_ptr<CurlMulti> multi(when == QLatin1String("multi") ? new CurlMulti : nullptr);
        easy.setPreferredMulti(multi.get());
        // libcurl refuses to drop a handle from inside its callbacks: the multi must defer it.
        if (trickle)
            connect(&easy, &CurlEasy::progress, &easy, [&easy](qint64, qint64 now) {
                if (now > 0)
                    easy.abort();
            });
        if (when != QLatin1String("idle")) {
            easy.perform();
            QCOMPARE(easy.runningOnMulti(), multi ? multi.get() : CurlMulti::threadInstance());
            QTRY_COMPARE_WITH_TIMEOUT(trickle ? easy.aborted.count() : server.requestCount(), 1, 10000);
        }
        multi.reset(); // a destroyed multi aborts what runs on it
        easy.setPreferredMulti(nullptr);
        easy.abort();
        const int expectedAborted = when == QLatin1String("idle") ? 0 : 1;
        QCOMPARE(easy.aborted.count(), expectedAborted);

        // The same transfer runs again; a done for the aborted run would arrive first.
        easy.disconnect(&easy);
        easy.set(CURLOPT_URL, server.url(QStringLiteral("/again")));
        QVERIFY(easy.finish());
        QCOMPARE(easy.done.count(), 1);
        QCOMPARE(easy.lastResult(), CURLE_OK);
        QCOMPARE(easy.aborted.count(), expectedAborted);
        QCOMPARE(server.requestCount(), expectedAborted + 1); // a fresh request, not the old one going on
    }

    void timerRules_data()
    {
        QTest::addColumn<long>("timeout");
        QTest::addColumn<int>("interval");
        QTest::newRow("negative stops") << -1L << -1;
        QTest::newRow("zero fires at once") << 0L << 0;
        QTest::newRow("plain") << 1500L << 1500;
        QTest::newRow("too long is clamped") << 3000000000L << INT_MAX;
    }
    void timerRules()
    {
        QFETCH(long, timeout);
        QFETCH(int, interval);
        CurlMulti multi;
        auto* timer = multi.findChild<QTimer*>();
        QVERIFY(timer && timer->isSingleShot());
        timer->start(100000);
        QSignalSpy fired(timer, &QTimer::timeout);
        CurlMulti::staticCurlTimerFunction(multi.handle(), timeout, &multi);
        QCOMPARE(timer->isActive() ? timer->interval() : -1, interval);
        if (timeout == 0)
            QVERIFY(fired.wait(1000));
    }

    void headerEncodingOnTheWire_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<QByteArray>("onTheWire");
        QTest::newRow("encoded") << QStringLiteral("encoded") << QByteArray("a%20b%2Fc%C3%A9");
        QTest::newRow("raw") << QStringLiteral("raw") << QByteArray("a b/c\xC3\xA9");
        QTest::newRow("removed again") << QStringLiteral("removed") << QByteArray();
    }
    void headerEncodingOnTheWire()
    {
        QFETCH(QString, how);
        QFETCH(QByteArray, onTheWire);
        LoopbackHttpServer server([](const HttpRequest&) { return HttpResponse(200, "ok"); });
        Transfer easy(server.url(QStringLiteral("/h")));
        const QString value = QStringLiteral("a b/c\u00e9");
        const QString name = QStringLiteral("X-Zr-Test");
        if (how == QLatin1String("raw")) {
            easy.setHttpHeaderRaw(name, value.toUtf8());
        } else {
            easy.setHttpHeader(name, value);
            QCOMPARE(easy.httpHeader(name), value);
        }
        QVERIFY(easy.finish());
        if (how == QLatin1String("removed")) {
            // The list is rebuilt on every later perform(), so the header is gone from the wire.
            QCOMPARE(easy.removeHttpHeader(name), 1);
            QVERIFY(!easy.hasHttpHeader(name));
            QVERIFY(easy.finish());
        }
        const HttpRequest seen = server.requests().constLast();
        QCOMPARE(seen.hasHeader("X-Zr-Test"), !onTheWire.isEmpty());
        QCOMPARE(seen.header("X-Zr-Test"), onTheWire);
    }

    void rewindNeedsSeekFunction_data()
    {
        QTest::addColumn<bool>("seekable");
        QTest::newRow("no seek function") << false;
        QTest::newRow("rewinds") << true;
    }
    void rewindNeedsSeekFunction()
    {
        QFETCH(bool, seekable);
        // A 307 makes libcurl send the body again, which needs the upload rewound.
        LoopbackHttpServer server([](const HttpRequest& request) {
            return request.path == "/first" ? HttpResponse(307, "").withHeader("Location", "/second")
                                            : HttpResponse(200, "stored");
        });
        QBuffer body;
        body.setData("the body to send twice");
        QVERIFY(body.open(QIODevice::ReadOnly));
        Transfer easy(server.url(QStringLiteral("/first")));
        easy.setReadFunction([&](char* data, size_t size) { return size_t(body.read(data, qint64(size))); });
        if (seekable)
            easy.setSeekFunction(
                [&](qint64 to, int) { return body.seek(to) ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL; });
        curl_easy_setopt(easy.handle(), CURLOPT_POST, 1L);
        curl_easy_setopt(easy.handle(), CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
        curl_easy_setopt(easy.handle(), CURLOPT_FOLLOWLOCATION, 1L);
        QVERIFY(easy.finish());
        QCOMPARE(easy.lastResult(), seekable ? CURLE_OK : CURLE_SEND_FAIL_REWIND);
        if (seekable) {
            QCOMPARE(server.requests().constLast().path, QByteArray("/second"));
            QCOMPARE(server.requests().constLast().body, body.data());
        }
    }

    void manyTransfersRestartedFromDone()
    {
        const QByteArray expected(64 * 1024 + 17, 'm');
        LoopbackHttpServer server([&expected](const HttpRequest&) { return HttpResponse(200, expected); });
        std::vector<std::unique_ptr<Transfer>> transfers;
        int busy = 0; // transfers still running or listed when their done came
        for (int i = 0; i < 200; ++i) {
            Transfer* transfer = transfers.emplace_back(new Transfer(server.url())).get();
            // done comes when the transfer is already off its multi, so it may start over from there.
            connect(transfer, &CurlEasy::done, this, [&busy, transfer] {
                busy += transfer->isRunning() || CurlMulti::threadInstance()->transfers().contains(transfer);
                if (transfer->done.count() == 1)
                    transfer->perform();
            });
            transfer->perform();
            transfer->perform(); // adds nothing: the transfer already runs
        }
        QCOMPARE(CurlMulti::threadInstance()->transfers().size(), 200);
        for (const auto& transfer : transfers) {
            QTRY_COMPARE_WITH_TIMEOUT(transfer->done.count(), 2, 60000);
            QCOMPARE(transfer->done.at(1).at(0).value<CURLcode>(), CURLE_OK);
            QVERIFY(transfer->body == expected + expected);
        }
        QCOMPARE(busy, 0);
        QCOMPARE(server.requestCount(), 400);
    }

    void eachThreadHasItsOwnMulti()
    {
        LoopbackHttpServer server([](const HttpRequest& request) { return HttpResponse(200, request.path); });
        QPointer<CurlMulti> workerMulti;
        QByteArray workerBody;
        std::unique_ptr<QThread> worker(QThread::create([&] {
            Transfer easy(server.url(QStringLiteral("/worker")));
            easy.perform();
            workerMulti = easy.runningOnMulti();
            easy.done.wait(10000);
            workerBody = easy.body;
        }));
        worker->start();
        QVERIFY(worker->wait(15000));
        QCOMPARE(workerBody, QByteArray("/worker"));
        // The worker's multi was its own (this thread's one lives on) and went with its thread.
        QVERIFY(workerMulti.isNull());
    }
};

QTEST_GUILESS_MAIN(TestCurlEasy)
#include "tst_curleasy.moc"

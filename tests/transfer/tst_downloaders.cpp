#include <ZrUtils/CurlDownloader.h>
#include <ZrUtils/ZrDownloader.h>

#include "LoopbackHttpServer.h"
#include "MessageCapture.h"
#include "NginxServer.h"
#include "transfer/DownloadCommon.h"

#include <QCryptographicHash>
#include <QDir>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>
#include <sys/resource.h>

using namespace ZrLoopback;
using ZrUtils::CurlDownloader;
using ZrUtils::ZrDownloader;

static QByteArray fileHash(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

// The downloader named by the row's "kind": both offer the same progress and finish signals.
struct Downloader {
    Downloader()
    {
        QFETCH(QString, kind);
        QObject* o = kind == QLatin1String("qt") ? static_cast<QObject*>(qt = new ZrDownloader)
                                                 : (curl = new CurlDownloader);
        object.reset(o);
        done = std::make_unique<QSignalSpy>(o, SIGNAL(signalDownloadFinished(bool, QString)));
        progress = std::make_unique<QSignalSpy>(o, SIGNAL(signalDownloadProgress(qint64, qint64, QString)));
        // The Qt downloader has no abort signal; its finished() stands in here.
        aborted = std::make_unique<QSignalSpy>(o, qt ? SIGNAL(finished()) : SIGNAL(signalDownloadAborted()));
    }
    bool start(const QUrl& url, const QString& dir)
    {
        return qt ? qt->StartDownload(url, dir) : curl->StartDownload(url, dir);
    }
    void stop() { qt ? qt->StopDownload() : curl->StopDownload(); }
    // The Qt one logs its start, then the saved path or a failure matching the pattern given.
    void expectLog(const QUrl& url, const QString& savedTo, const QString& failure = QString()) const
    {
        if (!qt)
            return;
        QTest::ignoreMessage(QtDebugMsg, ("ZrDownloader: downloading " + url.toEncoded()).constData());
        if (!savedTo.isEmpty())
            QTest::ignoreMessage(QtDebugMsg, qPrintable("ZrDownloader: succeeded " + savedTo));
        if (!failure.isEmpty())
            QTest::ignoreMessage(
                QtWarningMsg, QRegularExpression(QStringLiteral("^ZrDownloader: failed: ") + failure));
    }
    // Success and saved path of the finished download; empty when it never finished.
    QVariantList end() { return done->count() || done->wait(60000) ? done->at(0) : QVariantList(); }

    ZrDownloader* qt = nullptr;
    CurlDownloader* curl = nullptr;
    std::unique_ptr<QObject> object;
    std::unique_ptr<QSignalSpy> done, progress, aborted;
};

class TestDownloaders : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(getrlimit(RLIMIT_FSIZE, &m_fileSizeLimit) == 0);
        signal(SIGXFSZ, SIG_IGN); // a write past the limit fails instead of killing the process
        MessageCapture::install();
        QVERIFY(m_root.isValid() && QDir(m_root.path()).mkdir(QStringLiteral("dir")));
        const std::pair<const char*, qint64> files[] = {{"empty.bin", 0}, {"1k.bin", 1024},
            {"my file.bin", 10}, {"1m.bin", 1 << 20}, {"100m.bin", 100 << 20}, {"dir/index.html", 333}};
        quint32 seed = 0;
        for (const auto& file : files)
            QVERIFY(writePatternFile(m_root.filePath(QLatin1String(file.first)), file.second, ++seed));
        if (!NginxServer::available())
            QSKIP("nginx is not installed");
        QString config = QStringLiteral("location = /notmodified { return 304; }\n"
                                        "location /slow/ { alias @ROOT@/; limit_rate 512k; }\n");
        for (int code : {301, 302, 303, 307, 308})
            config
                += QStringLiteral("location = /abs%1 { return %1 http://127.0.0.1:@PORT@/1k.bin; }\n"
                                  "location = /sub/rel%1 { absolute_redirect off; return %1 ../1k.bin; }\n")
                       .arg(code);
        m_nginx = std::make_unique<NginxServer>(m_root.path());
        QVERIFY2(m_nginx->start(config), qPrintable(m_nginx->errorString()));
    }
    void init()
    {
        m_out = std::make_unique<QTemporaryDir>();
        QVERIFY(m_out->isValid() && QDir::setCurrent(m_out->path())); // for downloads without a folder
    }
    void cleanup() { setrlimit(RLIMIT_FSIZE, &m_fileSizeLimit); }

    void speedText_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<qint64>("ms");
        QTest::addColumn<QString>("text");
        QTest::newRow("0 ms counts as 1") << qint64(100) << qint64(0) << QStringLiteral("97.7 kB/s");
        QTest::newRow("2 ms counts") << qint64(100) << qint64(2) << QStringLiteral("48.8 kB/s");
        QTest::newRow("under 1 kB/s") << qint64(1023) << qint64(1000) << QStringLiteral("1023.0 bytes/sec");
        QTest::newRow("1 kB/s") << qint64(1024) << qint64(1000) << QStringLiteral("1.0 kB/s");
        QTest::newRow("1.5 MB/s") << qint64(3 << 20) << qint64(2000) << QStringLiteral("1.5 MB/s");
    }
    void speedText()
    {
        QFETCH(qint64, bytes);
        QFETCH(qint64, ms);
        QTEST(ZrUtils::Internal::downloadSpeedText(bytes, ms), "text");
    }

    void download_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("savedAs");
        QTest::addColumn<QString>("served");
        QTest::addColumn<bool>("noFolder");
        QTest::addColumn<bool>("redirect");
        addKinds("0 B", "/empty.bin", "empty.bin", "empty.bin", false, false);
        addKinds("100 MiB", "/100m.bin", "100m.bin", "100m.bin", false, false);
        addKinds("name decoded", "/my%20file.bin", "my file.bin", "my file.bin", false, false);
        addKinds("path ending in a slash", "/dir/", "download", "dir/index.html", false, false);
        addKinds("304 is no redirect", "/notmodified", "notmodified", "empty.bin", false, false);
        addKinds("no folder means the current one", "/1k.bin", "1k.bin", "1k.bin", true, false);
        for (int code : {301, 302, 303, 307, 308})
            for (const char* form : {"/abs%1", "/sub/rel%1"}) {
                const QString path = QString::fromLatin1(form).arg(code);
                addKinds(qPrintable(QStringLiteral("redirect ") + path), path, QUrl(path).fileName(),
                    "1k.bin", false, true);
            }
    }
    void download()
    {
        QFETCH(QString, path);
        QFETCH(QString, savedAs);
        QFETCH(QString, served);
        QFETCH(bool, noFolder);
        QFETCH(bool, redirect);
        Downloader d;
        const QUrl url = m_nginx->url(path);
        const QString target = m_out->filePath(savedAs);
        QVERIFY(writePatternFile(target, 3 << 20, 9)); // an older, longer download of that name is replaced
        // libcurl follows redirects; the Qt downloader only logs them and fails.
        const bool saved = !d.qt || !redirect;
        d.expectLog(url, saved ? target : QString());
        if (!saved) {
            QTest::ignoreMessage(QtWarningMsg,
                qPrintable(
                    QStringLiteral("ZrDownloader: redirect %1 for %2").arg(path.right(3), url.toString())));
            // A relative Location is reported resolved against the request.
            QTest::ignoreMessage(QtWarningMsg,
                qPrintable(
                    "ZrDownloader: redirected to " + m_nginx->url(QStringLiteral("/1k.bin")).toString()));
        }
        QVERIFY(d.start(url, noFolder ? QString() : m_out->path()));
        QCOMPARE(d.end(), (QVariantList {saved, saved ? target : QString()}));
        QCOMPARE(d.done->count(), 1);
        QCOMPARE(fileHash(target), saved ? fileHash(m_root.filePath(served)) : QByteArray());
    }

    void outcomes_data()
    {
        QTest::addColumn<QString>("fault");
        for (const char* fault : {"none, size known", "none, size unknown", "404",
                 "connection dropped mid-body", "body shorter than its length", "server never answers",
                 "stopped mid-body", "unknown scheme", "disk refuses writes", "missing folder"})
            addKinds(fault, fault);
    }
    void outcomes()
    {
        QFETCH(QString, fault);
        const auto is = [&fault](const char* name) { return fault == QLatin1String(name); };
        const QByteArray body(300 * 1024, 'z');
        LoopbackHttpServer server([&](const HttpRequest&) {
            HttpResponse response(200, body);
            if (is("body shorter than its length"))
                response.fault = HttpResponse::Fault::ShortBody;
            else if (is("connection dropped mid-body"))
                response.fault = HttpResponse::Fault::DropMidBody;
            else if (is("server never answers"))
                response.fault = HttpResponse::Fault::NeverAnswer;
            response.sendContentLength = !is("none, size unknown");
            response.bytesPerSecond = is("stopped mid-body") ? 64 * 1024 : 1 << 20;
            return response;
        });
        Downloader d;
        QUrl url = server.url(QStringLiteral("/z.bin"));
        if (is("404"))
            url = m_nginx->url(QStringLiteral("/missing.bin"));
        else if (is("unknown scheme"))
            url = QUrl(QStringLiteral("zrnope://127.0.0.1/z.bin"));
        const QString dir
            = is("missing folder") ? m_out->filePath(QStringLiteral("no/such/folder")) : m_out->path();
        const QString target = QDir(dir).filePath(url.fileName());
        if (is("missing folder")) {
            if (d.qt)
                QTest::ignoreMessage(QtWarningMsg,
                    QRegularExpression(QStringLiteral("^ZrDownloader: cannot open '%1' for '%2': .+")
                                           .arg(target, url.toString())));
            QVERIFY(!d.start(url, dir)); // refused, and nothing is reported
            QCOMPARE(d.done->count() + d.progress->count(), 0);
            return;
        }
        const bool ok = fault.startsWith(QLatin1String("none")),
                   stopped = is("stopped mid-body") || is("server never answers");
        d.expectLog(url, ok ? target : QString(),
            ok            ? QString()
                : stopped ? QStringLiteral("Operation canceled$")
                          : QStringLiteral(".+"));
        if (is("disk refuses writes")) {
            rlimit limit = m_fileSizeLimit;
            limit.rlim_cur = 64 * 1024;
            QCOMPARE(setrlimit(RLIMIT_FSIZE, &limit), 0);
        }
        QVERIFY(d.start(url, dir));
        if (is("body shorter than its length")) {
            // A short body keeps the connection open: nothing ends until the server closes it.
            QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(target).size() > 0, 10000);
            server.closeConnections();
        } else if (stopped) { // once the body flows, or the request has arrived
            QTRY_VERIFY_WITH_TIMEOUT(
                is("stopped mid-body") ? QFileInfo(target).size() > 0 : server.requestCount() == 1, 10000);
            d.stop();
        }
        // A stopped libcurl download reports an abort and nothing else; Qt's finished() ends every download.
        if (!stopped || d.qt)
            QCOMPARE(d.end(), (QVariantList {ok, ok ? target : QString()}));
        QCOMPARE(d.aborted->count(), int(stopped || d.qt));
        QCOMPARE(d.done->count(), int(!stopped || d.qt));
        QCOMPARE(
            fileHash(target), ok ? QCryptographicHash::hash(body, QCryptographicHash::Sha256) : QByteArray());
        if (!ok)
            return;

        QVERIFY(d.progress->count() > 2);
        const bool sizeKnown = is("none, size known");
        const QRegularExpression speed(QStringLiteral("^\\d+\\.\\d (bytes/sec|kB/s|MB/s)$"));
        qint64 last = 0;
        for (const QVariantList& report : qAsConst(*d.progress)) {
            if (!d.qt && report.at(1).toLongLong() == 0) { // libcurl before (or without) a size: fixed
                QCOMPARE(report, (QVariantList {qint64(0), qint64(0), QStringLiteral("0 kB/s")}));
                continue;
            }
            // Qt passes on -1 for an unknown size, and the size it counted with its last report.
            QCOMPARE(report.at(1).toLongLong(),
                sizeKnown || &report == &d.progress->constLast() ? qint64(body.size()) : -1);
            QVERIFY2(speed.match(report.at(2).toString()).hasMatch(), qPrintable(report.at(2).toString()));
            QVERIFY(report.at(0).toLongLong() >= last);
            last = report.at(0).toLongLong();
        }
        QCOMPARE(last, sizeKnown || d.qt ? qint64(body.size()) : 0);
    }

    // A password in the URL stays out of the Qt downloader's log, whether the download
    // starts, fails with an answer (Qt quotes the URL in its error text) or meets no server.
    void passwordInLog_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("404") << QStringLiteral("/missing.bin");
        QTest::newRow("connection refused") << QString();
    }
    void passwordInLog()
    {
        QFETCH(QString, path);
        const QString password = QStringLiteral("pa55-secret-7d1");
        QUrl url = m_nginx->url(path);
        if (path.isEmpty()) {
            QTcpServer closed;
            QVERIFY(closed.listen(QHostAddress::LocalHost));
            url = QUrl(QStringLiteral("http://127.0.0.1:%1/z.bin").arg(closed.serverPort()));
        }
        url.setUserName(QStringLiteral("user"));
        url.setPassword(password);
        MessageCapture::clear();
        ZrDownloader downloader;
        QSignalSpy done(&downloader, &ZrDownloader::signalDownloadFinished);
        QVERIFY(downloader.StartDownload(url, m_out->path()));
        QVERIFY(done.wait(30000));
        QCOMPARE(done.at(0).at(0).toBool(), false);
        const QStringList said = MessageCapture::messages();
        QCOMPARE(said.size(), 2);
        QCOMPARE(
            said.at(0), QStringLiteral("ZrDownloader: downloading ") + url.toString(QUrl::RemovePassword));
        QVERIFY(said.at(1).startsWith(QStringLiteral("ZrDownloader: failed: ")));
        QVERIFY2(!said.join('\n').contains(password), qPrintable(said.join('\n')));
    }

    void startWhileRunning_data() { addKinds("second start"); }
    void startWhileRunning()
    {
        Downloader d;
        // The dropped download must still be running when the second one starts.
        const QString slowName = d.qt ? QStringLiteral("100m.bin") : QStringLiteral("1m.bin");
        const QString slowTarget = m_out->filePath(slowName),
                      otherTarget = m_out->filePath(QStringLiteral("1k.bin"));
        const QUrl slow = m_nginx->url(QStringLiteral("/slow/") + slowName),
                   other = m_nginx->url(QStringLiteral("/1k.bin"));
        d.expectLog(slow, QString());
        QVERIFY(d.start(slow, m_out->path()));
        QTRY_VERIFY_WITH_TIMEOUT(
            !d.progress->isEmpty() && d.progress->constLast().at(0).toLongLong() > 0, 10000);
        if (!d.qt) {
            // Refused; the running download goes on untouched.
            QVERIFY(!d.start(other, m_out->path()));
            QCOMPARE(d.end(), (QVariantList {true, slowTarget}));
            QCOMPARE(fileHash(slowTarget), fileHash(m_root.filePath(slowName)));
            QVERIFY(!QFile::exists(otherTarget));
            d.stop(); // stopping when idle does nothing
            QCOMPARE(d.aborted->count(), 0);
        } else {
            // The first download is dropped without a signal; its partial file stays.
            d.expectLog(other, otherTarget);
            QVERIFY(d.start(other, m_out->path()));
            QCOMPARE(d.end(), (QVariantList {true, otherTarget}));
            QVERIFY(QFileInfo(slowTarget).size() > 0 && QFileInfo(slowTarget).size() < (100 << 20));
        }
        QCOMPARE(d.done->count(), 1);
    }

private:
    // One row per downloader, named "<kind> <name>", with the cells given and then the
    // kind, in a last column "kind" added with the first row.
    static QString cell(const char* text) { return QString::fromUtf8(text); }
    template<class T> static const T& cell(const T& value) { return value; }
    template<class... Cells> void addKinds(const char* name, const Cells&... cells)
    {
        if (m_kindColumnFor != QTest::currentTestFunction())
            QTest::addColumn<QString>("kind"), m_kindColumnFor = QTest::currentTestFunction();
        for (const char* kind : {"curl", "qt"})
            ((QTest::addRow("%s %s", kind, name) << ... << cell(cells)) << QString::fromLatin1(kind));
    }

    QTemporaryDir m_root;
    std::unique_ptr<QTemporaryDir> m_out;
    std::unique_ptr<NginxServer> m_nginx;
    rlimit m_fileSizeLimit {};
    QByteArray m_kindColumnFor;
};

QTEST_GUILESS_MAIN(TestDownloaders)
#include "tst_downloaders.moc"

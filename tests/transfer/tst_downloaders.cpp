#include <ZrUtils/CurlDownloader.h>
#include <ZrUtils/ZrDownloader.h>

#include "LoopbackHttpServer.h"
#include "NginxServer.h"
#include "transfer/DownloadCommon.h"

#include <QCryptographicHash>
#include <QDir>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <functional>
#include <memory>
#include <sys/resource.h>
#include <unistd.h>

using namespace ZrLoopback;
using ZrUtils::CurlDownloader;
using ZrUtils::ZrDownloader;

namespace
{

QByteArray fileHash(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

QString rx(const QString& text)
{
    return QRegularExpression::escape(text);
}

// Either downloader behind one face: both offer the same progress and finish signals.
struct Downloader {
    explicit Downloader(const QString& kind)
    {
        if (kind == QLatin1String("curl")) {
            auto* d = new CurlDownloader;
            start = [d](const QUrl& url, const QString& dir) { return d->StartDownload(url, dir); };
            stop = [d] { d->StopDownload(); };
            object.reset(d);
            aborted = std::make_unique<QSignalSpy>(d, &CurlDownloader::signalDownloadAborted);
        } else {
            auto* d = new ZrDownloader;
            start = [d](const QUrl& url, const QString& dir) { return d->StartDownload(url, dir); };
            stop = [d] { d->StopDownload(); };
            object.reset(d);
            aborted = std::make_unique<QSignalSpy>(d, &ZrDownloader::finished);
        }
        finished = std::make_unique<QSignalSpy>(object.get(), SIGNAL(signalDownloadFinished(bool, QString)));
        progress = std::make_unique<QSignalSpy>(
            object.get(), SIGNAL(signalDownloadProgress(qint64, qint64, QString)));
    }
    bool waitFinished() { return finished->count() > 0 || finished->wait(60000); }
    bool succeeded() const { return finished->at(0).at(0).toBool(); }
    QString path() const { return finished->at(0).at(1).toString(); }

    std::unique_ptr<QObject> object;
    std::function<bool(const QUrl&, const QString&)> start;
    std::function<void()> stop;
    std::unique_ptr<QSignalSpy> finished, progress;
    std::unique_ptr<QSignalSpy> aborted; // the Qt downloader's finished() stands in here
};

} // namespace

class TestDownloaders : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init()
    {
        m_out = std::make_unique<QTemporaryDir>();
        QVERIFY(m_out->isValid());
    }
    void speedText_data();
    void speedText();
    void servedFileArrivesIntact_data();
    void servedFileArrivesIntact();
    void redirects_data();
    void redirects();
    void errorStatusLeavesNoFile_data();
    void errorStatusLeavesNoFile();
    void serverFaults_data();
    void serverFaults();
    void progressReports_data();
    void progressReports();
    void startWhileRunning_data();
    void startWhileRunning();
    void badInput_data();
    void badInput();

private:
    void addKinds(const char* name, std::function<void(QTestData&)> rest = {})
    {
        for (const char* kind : {"curl", "qt"}) {
            QTestData& row = QTest::newRow(qPrintable(
                                 QStringLiteral("%1 %2").arg(QLatin1String(kind), QLatin1String(name))))
                << QString::fromLatin1(kind);
            if (rest)
                rest(row);
        }
    }
    void expectQtStartLine(const QString& kind, const QUrl& url)
    {
        if (kind == QLatin1String("qt"))
            QTest::ignoreMessage(QtDebugMsg,
                qPrintable(
                    QStringLiteral("ZrDownloader: downloading ") + QString::fromLatin1(url.toEncoded())));
    }

    QTemporaryDir m_root;
    std::unique_ptr<QTemporaryDir> m_out;
    std::unique_ptr<NginxServer> m_nginx;
};

void TestDownloaders::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_root.isValid());
    QVERIFY(writePatternFile(m_root.filePath(QStringLiteral("empty.bin")), 0));
    QVERIFY(writePatternFile(m_root.filePath(QStringLiteral("1k.bin")), 1024, 2));
    QVERIFY(writePatternFile(m_root.filePath(QStringLiteral("my file.bin")), 10, 7));
    QVERIFY(writePatternFile(m_root.filePath(QStringLiteral("1m.bin")), 1 << 20, 3));
    QVERIFY(writePatternFile(m_root.filePath(QStringLiteral("100m.bin")), 100 << 20, 4));
    QVERIFY(QDir(m_root.path()).mkdir(QStringLiteral("dir")));
    QVERIFY(writePatternFile(m_root.filePath(QStringLiteral("dir/index.html")), 333, 5));
    QVERIFY(writePatternFile(m_root.filePath(QStringLiteral("index.html")), 444, 6));
    if (!NginxServer::available())
        QSKIP("nginx is not installed");
    QString config = QStringLiteral("location = /notmodified { return 304; }\n"
                                    "location = /error500 { return 500; }\n"
                                    "location /slow/ { alias @ROOT@/; limit_rate 512k; }\n");
    for (int code : {301, 302, 303, 307, 308}) {
        config += QStringLiteral("location = /abs%1 { return %1 http://127.0.0.1:@PORT@/1k.bin; }\n"
                                 "location = /sub/rel%1 { absolute_redirect off; return %1 ../1k.bin; }\n")
                      .arg(code);
    }
    m_nginx = std::make_unique<NginxServer>(m_root.path());
    QVERIFY2(m_nginx->start(config), qPrintable(m_nginx->errorString()));
}

void TestDownloaders::speedText_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<QString>("text");
    QTest::newRow("2 KiB in a second") << qint64(2048) << qint64(1000) << QStringLiteral("2.0 kB/s");
    QTest::newRow("0 ms counts as 1") << qint64(100) << qint64(0) << QStringLiteral("97.7 kB/s");
    QTest::newRow("2 ms counts") << qint64(100) << qint64(2) << QStringLiteral("48.8 kB/s");
    QTest::newRow("bytes") << qint64(512) << qint64(1000) << QStringLiteral("512.0 bytes/sec");
    QTest::newRow("just under 1 kB/s") << qint64(1023) << qint64(1000) << QStringLiteral("1023.0 bytes/sec");
    QTest::newRow("1 kB/s") << qint64(1024) << qint64(1000) << QStringLiteral("1.0 kB/s");
    QTest::newRow("1 MB/s") << qint64(1048576) << qint64(1000) << QStringLiteral("1.0 MB/s");
    QTest::newRow("1.5 MB/s") << qint64(3 << 20) << qint64(2000) << QStringLiteral("1.5 MB/s");
}

void TestDownloaders::speedText()
{
    QFETCH(qint64, bytes);
    QFETCH(qint64, ms);
    QFETCH(QString, text);
    QCOMPARE(ZrUtils::Internal::downloadSpeedText(bytes, ms), text);
}

void TestDownloaders::servedFileArrivesIntact_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("savedAs");
    QTest::addColumn<QString>("served");
    auto rows = [this](const char* name, const char* path, const char* savedAs, const char* served) {
        addKinds(name, [=](QTestData& row) {
            row << QString::fromLatin1(path) << QString::fromLatin1(savedAs) << QString::fromLatin1(served);
        });
    };
    rows("0 B", "/empty.bin", "empty.bin", "empty.bin");
    rows("1 KiB", "/1k.bin", "1k.bin", "1k.bin");
    rows("100 MiB", "/100m.bin", "100m.bin", "100m.bin");
    rows("name decoded", "/my%20file.bin", "my file.bin", "my file.bin");
    rows("path ending in a slash", "/dir/", "download", "dir/index.html");
    rows("no path", "", "download", "index.html");
    rows("304 is no redirect", "/notmodified", "notmodified", "empty.bin");
}

void TestDownloaders::servedFileArrivesIntact()
{
    QFETCH(QString, kind);
    QFETCH(QString, path);
    QFETCH(QString, savedAs);
    QFETCH(QString, served);
    Downloader d(kind);
    const QUrl url = m_nginx->url(path);
    const QString target = m_out->filePath(savedAs);
    expectQtStartLine(kind, url);
    if (kind == QLatin1String("qt"))
        QTest::ignoreMessage(QtDebugMsg, qPrintable(QStringLiteral("ZrDownloader: succeeded ") + target));
    QVERIFY(d.start(url, m_out->path()));
    QVERIFY(d.waitFinished());
    QCOMPARE(d.finished->count(), 1);
    QVERIFY(d.succeeded());
    QCOMPARE(d.path(), target);
    QCOMPARE(fileHash(target), fileHash(m_root.filePath(served)));
}

void TestDownloaders::redirects_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("path");
    for (int code : {301, 302, 303, 307, 308}) {
        for (const char* form : {"abs", "sub/rel"}) {
            const QString path = QStringLiteral("/%1%2").arg(QLatin1String(form)).arg(code);
            addKinds(qPrintable(path), [=](QTestData& row) { row << path; });
        }
    }
}

void TestDownloaders::redirects()
{
    QFETCH(QString, kind);
    QFETCH(QString, path);
    Downloader d(kind);
    const QUrl url = m_nginx->url(path);
    const QString target = m_out->filePath(QUrl(path).fileName());
    expectQtStartLine(kind, url);
    const bool followed = kind == QLatin1String("curl");
    if (!followed) {
        const QString code = path.right(3);
        QTest::ignoreMessage(QtWarningMsg,
            qPrintable(QStringLiteral("ZrDownloader: redirect %1 for %2").arg(code, url.toString())));
        // A relative Location is reported resolved against the request.
        QTest::ignoreMessage(QtWarningMsg,
            qPrintable(QStringLiteral("ZrDownloader: redirected to ")
                + m_nginx->url(QStringLiteral("/1k.bin")).toString()));
    }
    QVERIFY(d.start(url, m_out->path()));
    QVERIFY(d.waitFinished());
    QCOMPARE(d.succeeded(), followed);
    QCOMPARE(d.path(), followed ? target : QString());
    QCOMPARE(QFile::exists(target), followed);
    if (followed)
        QCOMPARE(fileHash(target), fileHash(m_root.filePath(QStringLiteral("1k.bin"))));
}

void TestDownloaders::errorStatusLeavesNoFile_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("path");
    addKinds("404", [](QTestData& row) { row << QStringLiteral("/missing.bin"); });
    addKinds("500", [](QTestData& row) { row << QStringLiteral("/error500"); });
}

void TestDownloaders::errorStatusLeavesNoFile()
{
    QFETCH(QString, kind);
    QFETCH(QString, path);
    Downloader d(kind);
    const QUrl url = m_nginx->url(path);
    const QString target = m_out->filePath(url.fileName());
    QVERIFY(writePatternFile(target, 100)); // an older download of that name is replaced, even by a failure
    expectQtStartLine(kind, url);
    if (kind == QLatin1String("qt"))
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^ZrDownloader: failed: .+")));
    QVERIFY(d.start(url, m_out->path()));
    QVERIFY(d.waitFinished());
    QVERIFY(!d.succeeded());
    QCOMPARE(d.path(), QString());
    QVERIFY(!QFile::exists(target));
}

void TestDownloaders::serverFaults_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("fault");
    addKinds(
        "connection dropped mid-body", [](QTestData& row) { row << int(HttpResponse::Fault::DropMidBody); });
    addKinds(
        "body shorter than its length", [](QTestData& row) { row << int(HttpResponse::Fault::ShortBody); });
    addKinds("server never answers, stopped",
        [](QTestData& row) { row << int(HttpResponse::Fault::NeverAnswer); });
    addKinds("stopped mid-body", [](QTestData& row) { row << -1; }); // from the rate-limited nginx
}

void TestDownloaders::serverFaults()
{
    QFETCH(QString, kind);
    QFETCH(int, fault);
    const auto kindOfFault = HttpResponse::Fault(fault);
    const bool midBody = fault < 0;
    const bool stopped = midBody || kindOfFault == HttpResponse::Fault::NeverAnswer;
    LoopbackHttpServer server([kindOfFault](const HttpRequest&) {
        HttpResponse response(200, QByteArray(256 * 1024, 'z'));
        response.fault = kindOfFault;
        return response;
    });
    Downloader d(kind);
    const QUrl url = midBody ? m_nginx->url(QStringLiteral("/slow/100m.bin"))
                             : server.url(QStringLiteral("/faulty.bin"));
    const QString target = m_out->filePath(url.fileName());
    expectQtStartLine(kind, url);
    if (kind == QLatin1String("qt") && stopped)
        QTest::ignoreMessage(QtWarningMsg, "ZrDownloader: failed: Operation canceled");
    else if (kind == QLatin1String("qt"))
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^ZrDownloader: failed: .+")));
    QVERIFY(d.start(url, m_out->path()));
    if (kindOfFault == HttpResponse::Fault::ShortBody || midBody) {
        // A short body keeps the connection open: nothing ends until the server closes it.
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(target).size() > 0, 10000);
        midBody ? d.stop() : server.closeConnections();
    } else if (kindOfFault == HttpResponse::Fault::NeverAnswer) {
        QTRY_COMPARE_WITH_TIMEOUT(server.requestCount(), 1, 10000);
        d.stop();
    }
    if (stopped && kind == QLatin1String("curl")) {
        // The libcurl downloader reports an abort, and only that.
        QCOMPARE(d.aborted->count(), 1);
        QCOMPARE(d.finished->count(), 0);
    } else {
        QVERIFY(d.waitFinished());
        QVERIFY(!d.succeeded());
        QCOMPARE(d.path(), QString());
    }
    QVERIFY(!QFile::exists(target));
}

void TestDownloaders::progressReports_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("sizeKnown");
    addKinds("size known", [](QTestData& row) { row << true; });
    addKinds("size unknown", [](QTestData& row) { row << false; });
}

void TestDownloaders::progressReports()
{
    QFETCH(QString, kind);
    QFETCH(bool, sizeKnown);
    const QByteArray body(300 * 1024, 'p');
    LoopbackHttpServer server([&body, sizeKnown](const HttpRequest&) {
        HttpResponse response(200, body);
        response.sendContentLength = sizeKnown;
        response.bytesPerSecond = 1 << 20;
        return response;
    });
    Downloader d(kind);
    const bool curl = kind == QLatin1String("curl");
    expectQtStartLine(kind, server.url(QStringLiteral("/p.bin")));
    if (!curl)
        QTest::ignoreMessage(QtDebugMsg,
            qPrintable(
                QStringLiteral("ZrDownloader: succeeded ") + m_out->filePath(QStringLiteral("p.bin"))));
    QVERIFY(d.start(server.url(QStringLiteral("/p.bin")), m_out->path()));
    QVERIFY(d.waitFinished());
    QVERIFY(d.succeeded());
    QVERIFY(d.progress->count() > 2);
    const QRegularExpression speed(QStringLiteral("^\\d+\\.\\d (bytes/sec|kB/s|MB/s)$"));
    qint64 last = 0;
    // Qt reports the size it has counted along with its last report.
    if (!curl && !sizeKnown)
        QCOMPARE(d.progress->takeLast().at(1).toLongLong(), qint64(body.size()));
    for (const QList<QVariant>& report : *d.progress) {
        const qint64 received = report.at(0).toLongLong();
        const qint64 total = report.at(1).toLongLong();
        const QString text = report.at(2).toString();
        if (curl && total == 0) {
            // libcurl before (or without) a size: the fixed report.
            QCOMPARE(received, 0);
            QCOMPARE(text, QStringLiteral("0 kB/s"));
            continue;
        }
        QVERIFY(sizeKnown || !curl);
        QCOMPARE(total, sizeKnown ? qint64(body.size()) : -1); // Qt passes on -1 for unknown
        QVERIFY2(speed.match(text).hasMatch(), qPrintable(text));
        QVERIFY(received >= last);
        last = received;
    }
    if (sizeKnown || curl)
        QCOMPARE(last, sizeKnown ? qint64(body.size()) : 0);
}

void TestDownloaders::startWhileRunning_data()
{
    QTest::addColumn<QString>("kind");
    addKinds("second start");
}

void TestDownloaders::startWhileRunning()
{
    QFETCH(QString, kind);
    Downloader d(kind);
    const bool curl = kind == QLatin1String("curl");
    // The dropped download must still be running when the second one starts.
    const QString slowName = curl ? QStringLiteral("1m.bin") : QStringLiteral("100m.bin");
    const QUrl slow = m_nginx->url(QStringLiteral("/slow/") + slowName);
    const QUrl other = m_nginx->url(QStringLiteral("/1k.bin"));
    const QString slowTarget = m_out->filePath(slowName);
    expectQtStartLine(kind, slow);
    QVERIFY(d.start(slow, m_out->path()));
    QTRY_VERIFY_WITH_TIMEOUT(!d.progress->isEmpty() && d.progress->constLast().at(0).toLongLong() > 0, 10000);
    if (curl) {
        // Refused; the running download goes on untouched.
        QVERIFY(!d.start(other, m_out->path()));
        QVERIFY(d.waitFinished());
        QVERIFY(d.succeeded());
        QCOMPARE(fileHash(slowTarget), fileHash(m_root.filePath(QStringLiteral("1m.bin"))));
        QVERIFY(!QFile::exists(m_out->filePath(QStringLiteral("1k.bin"))));
        // Stopping when idle does nothing.
        d.stop();
        QCOMPARE(d.aborted->count(), 0);
    } else {
        // The first download is dropped without a signal; its partial file stays.
        expectQtStartLine(kind, other);
        QTest::ignoreMessage(QtDebugMsg,
            qPrintable(
                QStringLiteral("ZrDownloader: succeeded ") + m_out->filePath(QStringLiteral("1k.bin"))));
        QVERIFY(d.start(other, m_out->path()));
        QVERIFY(d.waitFinished());
        QVERIFY(d.succeeded());
        QCOMPARE(d.path(), m_out->filePath(QStringLiteral("1k.bin")));
        QVERIFY(QFile::exists(slowTarget));
        QVERIFY(QFileInfo(slowTarget).size() < (100 << 20));
        d.stop();
    }
    QCOMPARE(d.finished->count(), 1);
}

void TestDownloaders::badInput_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("input");
    for (const char* input : {"missing folder", "folder is a file", "read-only folder", "empty folder",
             "unknown scheme", "unresolvable host", "disk refuses writes"})
        addKinds(input, [=](QTestData& row) { row << QString::fromLatin1(input); });
}

void TestDownloaders::badInput()
{
    QFETCH(QString, kind);
    QFETCH(QString, input);
    const bool curl = kind == QLatin1String("curl");
    Downloader d(kind);
    QUrl url = m_nginx->url(QStringLiteral("/1m.bin"));
    QString dir = m_out->path();
    if (input == QLatin1String("missing folder")) {
        dir = m_out->filePath(QStringLiteral("no/such/folder"));
    } else if (input == QLatin1String("folder is a file")) {
        dir = m_out->filePath(QStringLiteral("plain"));
        QVERIFY(writePatternFile(dir, 1));
    } else if (input == QLatin1String("read-only folder")) {
        if (geteuid() == 0)
            QSKIP("root writes into read-only folders");
        dir = m_out->filePath(QStringLiteral("ro"));
        QVERIFY(QDir().mkdir(dir));
        QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::ExeOwner));
    } else if (input == QLatin1String("empty folder")) {
        dir.clear();
    } else if (input == QLatin1String("unknown scheme")) {
        url = QUrl(QStringLiteral("zrnope://127.0.0.1/1m.bin"));
    } else if (input == QLatin1String("unresolvable host")) {
        // A 70-letter label cannot be put into a DNS query, so the lookup fails
        // on this machine without any packet leaving it.
        url = QUrl(QStringLiteral("http://%1.invalid/1m.bin").arg(QString(70, QLatin1Char('a'))));
    }
    const QString target = QDir(dir.isEmpty() ? m_out->path() : dir).filePath(QStringLiteral("1m.bin"));
    const bool opens = input != QLatin1String("missing folder") && input != QLatin1String("folder is a file")
        && input != QLatin1String("read-only folder");
    if (!curl && !opens) {
        QTest::ignoreMessage(QtWarningMsg,
            QRegularExpression(QStringLiteral("^ZrDownloader: cannot open '%1' for '%2': .+")
                                   .arg(rx(target), rx(url.toString()))));
    }
    if (!opens) {
        QVERIFY(!d.start(url, dir));
        QCOMPARE(d.finished->count(), 0);
        QCOMPARE(d.progress->count(), 0);
        return;
    }

    // The current folder stands in for an empty one.
    const QString previous = QDir::currentPath();
    if (dir.isEmpty())
        QDir::setCurrent(m_out->path());
    // A file-size limit makes the disk refuse writes past 64 KiB.
    const bool refuse = input == QLatin1String("disk refuses writes");
    rlimit limit {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit original = limit;
    if (refuse) {
        signal(SIGXFSZ, SIG_IGN);
        limit.rlim_cur = 64 * 1024;
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    expectQtStartLine(kind, url);
    const bool fails = input != QLatin1String("empty folder");
    if (!curl && fails)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^ZrDownloader: failed: .+")));
    if (!curl && !fails)
        QTest::ignoreMessage(QtDebugMsg, qPrintable(QStringLiteral("ZrDownloader: succeeded ") + target));
    const bool started = d.start(url, dir);
    const bool ended = started && d.waitFinished();
    setrlimit(RLIMIT_FSIZE, &original);
    QDir::setCurrent(previous);
    QVERIFY(ended);
    QCOMPARE(d.succeeded(), !fails);
    QCOMPARE(QFile::exists(target), !fails);
    if (input == QLatin1String("empty folder"))
        QCOMPARE(fileHash(target), fileHash(m_root.filePath(QStringLiteral("1m.bin"))));
}

QTEST_GUILESS_MAIN(TestDownloaders)
#include "tst_downloaders.moc"

// ZrFilePath, and ZrString's masks.
#include <ZrUtils/ZrFilePath.h>
#include <ZrUtils/ZrString.h>

#include "FileHelpers.h"
#include "files/FilePathInternal.h"

#include <QtTest>

#include <climits>

using ZrUtils::ZrFilePath;
using ZrUtils::ZrString;

class TestZrFilePath : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

    QString path(const QString& name) const { return m_dir.filePath(name); }
    QString touch(const QString& name, const QByteArray& content = QByteArray())
    {
        writeFile(path(name), content);
        return path(name);
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
    }

    void sizeOrDurationTextWrong_data()
    {
        QTest::addColumn<qint64>("size"); // -1: a duration instead
        QTest::addColumn<int>("seconds");
        QTest::addColumn<QString>("text");
        QTest::newRow("just below a KB") << qint64(1023) << 0 << "1023.00 B";
        QTest::newRow("one KB") << qint64(1024) << 0 << "1.00 KB";
        QTest::newRow("just below a MB stays KB") << qint64(1048575) << 0 << "1024.00 KB";
        QTest::newRow("beyond TB stays TB") << (qint64(2048) << 40) << 0 << "2048.00 TB";
        QTest::newRow("1 h 2 min 5 s") << qint64(-1) << 3725 << "01:02:05";
        QTest::newRow("hours past two digits") << qint64(-1) << 360000 << "100:00:00";
    }
    void sizeOrDurationTextWrong()
    {
        QFETCH(qint64, size);
        QFETCH(int, seconds);
        QTEST(size < 0 ? ZrFilePath::FormatTimeDuration(seconds) : ZrFilePath::FormatFileSize(size), "text");
    }

    void nameOrPathOrUrlMisjudged_data()
    {
        QTest::addColumn<char>("kind"); // n: file name, p: drive path, u: URL
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::newRow("plain name") << 'n' << "report (1).txt" << true;
        QTest::newRow("empty name") << 'n' << "" << true;
        for (const QChar c : QStringLiteral("\\/:*?\"<>|"))
            QTest::newRow(qPrintable(QString("name with %1").arg(c)))
                << 'n' << QString("a%1b").arg(c) << false;
        QTest::newRow("drive path") << 'p' << "C:\\dir\\f.txt" << true;
        QTest::newRow("posix path has no colon") << 'p' << "/Users/a" << false;
        QTest::newRow("path too short") << 'p' << "C:" << false;
        QTest::newRow("path with question mark") << 'p' << "C:\\a?b" << false;
        QTest::newRow("forbidden only in the prefix") << 'p' << "*:?rest" << true;
        QTest::newRow("trimmed upper-case https") << 'u' << " HTTPS://x " << true;
        QTest::newRow("unknown scheme") << 'u' << "gopher://x" << false;
        QTest::newRow("no scheme") << 'u' << "www.example.com" << false;
        QTest::newRow("invalid URL") << 'u' << "http://exa mple.com:99999" << false;
    }
    void nameOrPathOrUrlMisjudged()
    {
        QFETCH(char, kind);
        QFETCH(QString, text);
        QTEST(kind == 'n'     ? ZrFilePath::CheckFileNameValid(text)
                : kind == 'p' ? ZrFilePath::CheckFilePathValid(text)
                              : ZrFilePath::IsUrl(text),
            "valid");
    }

    void uniqueNameReusesExistingOrDropsDot()
    {
        for (const char* name : {"a.txt", "a(1).txt", "report", "pack.tar.gz"})
            touch(QString("unique/") + name);
        const QString dir = path("unique/");
        QCOMPARE(ZrFilePath::GetUniqueFileName(dir + "free.txt"), dir + "free.txt");
        QCOMPARE(ZrFilePath::GetUniqueFileName(dir + "a.txt"), dir + "a(2).txt");
        QCOMPARE(ZrFilePath::GetUniqueFileName(dir + "report"), dir + "report(1).");
        QCOMPARE(ZrFilePath::GetUniqueFileName(dir + "pack.tar.gz"), dir + "pack.tar(1).gz");
    }

    void fileFactsMisjudged()
    {
        const QString file = touch("same.txt");
        QVERIFY(QFile::link(file, path("same-link.txt")));
        QVERIFY(ZrFilePath::IsTheSameFile(file, path("same-link.txt")));
        QVERIFY(ZrFilePath::IsTheSameFile("missing", "missing"));
        QVERIFY(!ZrFilePath::IsTheSameFile(path("missing"), path("missing2")));
        QVERIFY(ZrFilePath::IsLocalFile("file:///nowhere/at/all"));
        QVERIFY(!ZrFilePath::IsLocalFile(path("missing")));
        // The writable probe leaves nothing behind.
        QVERIFY(ZrFilePath::IsFolderWritable(m_dir.path()));
        QVERIFY(QDir(m_dir.path()).entryList({"zr_write_test_temp_0*"}).isEmpty());
        QVERIFY(!ZrFilePath::IsFolderWritable(QString()));
        QVERIFY(!ZrFilePath::IsFolderWritable(path("no/such/folder")));
        QVERIFY(!ZrFilePath::IsFolderWritable("/proc")); // not even for root
    }

    void imageNameNotFlat()
    {
        QCOMPARE(ZrFilePath::FormatFilePath("https://x.cn/a\\b.jpg?v=1"), "https__x_cn_a_b_jpg?v=1.png");
        const QString last200(200, 'b'); // of 300 characters
        QCOMPARE(ZrFilePath::FormatFilePath(QString(100, 'a') + last200), last200 + ".png");
    }

    void randomNumberMissesAnEndOrLeavesRange_data()
    {
        QTest::addColumn<int>("a");
        QTest::addColumn<int>("b");
        QTest::newRow("reversed") << 5 << 1;
        QTest::newRow("equal") << 3 << 3;
        QTest::newRow("top of the int range") << INT_MAX << INT_MAX - 1;
    }
    void randomNumberMissesAnEndOrLeavesRange()
    {
        QFETCH(int, a);
        QFETCH(int, b);
        QSet<int> seen, all;
        for (int i = 0; i < 2000; ++i)
            seen.insert(ZrFilePath::GetRandomNum(a, b));
        for (qint64 n = qMin(a, b); n <= qMax(a, b); ++n)
            all.insert(int(n));
        QCOMPARE(seen, all);
        ZrFilePath::GetRandomNum(INT_MIN, INT_MAX); // the sanitizer catches an overflow
    }

    void appFoldersNotBesideExecutable()
    {
        using ZrUtils::Internal::resourceDirPath;
        QCOMPARE(resourceDirPath("/A/Foo.app/Contents/MacOS", "skin"), "/A/Foo.app/Contents/Resources/skin");
        QCOMPARE(resourceDirPath("C:\\Foo\\bin", "skin"), "C:/Foo/Resources/skin");
        QCOMPARE(resourceDirPath("", "skin"), "/Resources/skin");
        const QString exe = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
        QCOMPARE(ZrFilePath::GetAppFilePath(), exe);
        QCOMPARE(ZrFilePath::GetConfigDirPath(), QFileInfo(QFileInfo(exe).path()).path() + "/Resources/conf");
    }

    void linkTargetWrong()
    {
        touch("links/bin/app");
        QVERIFY(QFile::link("bin/../bin/app", path("links/second")));
        QVERIFY(QFile::link("second", path("links/first")));
        QVERIFY(QFile::link("gone", path("links/dangling")));
        const auto target = [this](const QString& link) {
            return QString::fromStdString(
                ZrUtils::Internal::resolvedLinkTarget(QFile::encodeName(path(link))));
        };
        const QString root = QFileInfo(m_dir.path()).canonicalFilePath() + "/links/";
        QCOMPARE(target("links/first"), root + "bin/app"); // a chain of relative links
        QCOMPARE(target("links/dangling"), root + "gone"); // the target kept
        QCOMPARE(target("links/missing"), QString());
        QCOMPARE(target("links/bin/app"), QString()); // not a link
    }

    void fileMd5WrongAtChunkBoundaries_data()
    {
        QTest::addColumn<int>("size");
        for (int size : {0, 4095, 4096, 4097})
            QTest::newRow(qPrintable(QString::number(size))) << size;
    }
    void fileMd5WrongAtChunkBoundaries()
    {
        QFETCH(int, size);
        QByteArray content(size, Qt::Uninitialized);
        for (int i = 0; i < size; ++i)
            content[i] = char(i * 7 + i / 256);
        const QString file = touch("md5.bin", content);
        const QByteArray digest = QCryptographicHash::hash(content, QCryptographicHash::Md5);
        QCOMPARE(getBigFileMd5(file), digest);
        QCOMPARE(ZrFilePath::GetFileMd5(file), QString::fromLatin1(digest.toHex()));
        QCOMPARE(getBigFileMd5(path("missing")), QByteArray());
        QCOMPARE(ZrFilePath::GetFileMd5(m_dir.path()), QString());
    }

    void fileTextNotCutAtNulOrLost()
    {
        QCOMPARE(ZrFilePath::ReadFileData(touch("nul", QByteArray("before\0after", 12))), "before");
        QCOMPARE(ZrFilePath::ReadFileData(touch("latin1", "caf\xe9")), "caf" + QString(QChar(0xfffd)));
        const QString file = touch("text", QByteArray(100, 'x'));
        ZrFilePath::WriteFileData(file, QString::fromUtf8("héllo"));
        QCOMPARE(ZrFilePath::ReadFileData(file), QString::fromUtf8("héllo"));
        ZrFilePath::WriteFileData("/proc/zr-cannot-write", "x");
    }

    void emptyPathDeletesWorkingFolder()
    {
        touch("cwd/keep.txt");
        const QString cwd = QDir::currentPath();
        QDir::setCurrent(path("cwd"));
        const bool deleted = ZrFilePath::DeleteDirPath(QString());
        QDir::setCurrent(cwd);
        QVERIFY(!deleted);
        QVERIFY(QFileInfo::exists(path("cwd/keep.txt")));
    }

    void maskedWrongly_data()
    {
        QTest::addColumn<bool>("email"); // else a phone number
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("head"); // the e-mail's keep
        QTest::addColumn<int>("tail");
        QTest::addColumn<QString>("masked");
        QTest::newRow("email keep 2") << true << "alice@x.cn" << 2 << 0 << "al***@x.cn";
        QTest::newRow("email negative keep masks all") << true << "alice@x.cn" << -3 << 0 << "*****@x.cn";
        QTest::newRow("email huge keep") << true << "alice@x.cn" << INT_MAX << 0 << "alice@x.cn";
        QTest::newRow("email no at sign") << true << "alice" << 1 << 0 << "alice";
        QTest::newRow("email first at sign counts") << true << "a.b@c@d" << 1 << 0 << "a**@c@d";
        QTest::newRow("phone mobile") << false << "13812345678" << 3 << 4 << "138****5678";
        QTest::newRow("phone negative counts mask all") << false << "12345" << -1 << -9 << "*****";
        QTest::newRow("phone no tail") << false << "12345" << 2 << 0 << "12***";
        QTest::newRow("phone huge counts do not wrap") << false << "12345" << INT_MAX << INT_MAX << "12345";
    }
    void maskedWrongly()
    {
        QFETCH(bool, email);
        QFETCH(QString, text);
        QFETCH(int, head);
        QFETCH(int, tail);
        QTEST(email ? ZrString::MaskEmailString(text, head) : ZrString::MaskPhoneString(text, head, tail),
            "masked");
    }
};

QTEST_GUILESS_MAIN(TestZrFilePath)
#include "tst_zrfilepath.moc"

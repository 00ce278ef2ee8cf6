#include <ZrUtils/ZrFilePath.h>

#include "files/FilePathInternal.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSet>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <climits>

using ZrUtils::ZrFilePath;

class TestZrFilePath : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString path(const QString& name) const { return m_dir.filePath(name); }
    void touch(const QString& name, const QByteArray& content = QByteArray())
    {
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
    }

    void sizeTextWrongUnitOrRounding_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << qint64(0) << "0.00 B";
        QTest::newRow("just below a KB") << qint64(1023) << "1023.00 B";
        QTest::newRow("one KB") << qint64(1024) << "1.00 KB";
        QTest::newRow("one and a half KB") << qint64(1536) << "1.50 KB";
        QTest::newRow("one MB") << qint64(1048576) << "1.00 MB";
        QTest::newRow("just below a MB stays KB") << qint64(1048575) << "1024.00 KB";
        QTest::newRow("beyond TB stays TB") << (qint64(2048) << 40) << "2048.00 TB";
        QTest::newRow("negative stays bytes") << qint64(-5) << "-5.00 B";
    }
    void sizeTextWrongUnitOrRounding()
    {
        QFETCH(qint64, size);
        QFETCH(QString, text);
        QCOMPARE(ZrFilePath::FormatFileSize(size), text);
    }

    void durationTextNotPadded_data()
    {
        QTest::addColumn<int>("seconds");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << 0 << "00:00:00";
        QTest::newRow("59 s") << 59 << "00:00:59";
        QTest::newRow("1 h 2 min 5 s") << 3725 << "01:02:05";
        QTest::newRow("hours past two digits") << 360000 << "100:00:00";
    }
    void durationTextNotPadded()
    {
        QFETCH(int, seconds);
        QFETCH(QString, text);
        QCOMPARE(ZrFilePath::FormatTimeDuration(seconds), text);
    }

    void forbiddenNameCharacterMissed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("valid");
        QTest::newRow("plain") << "report.txt" << true;
        QTest::newRow("empty") << "" << true;
        QTest::newRow("unicode") << QString::fromUtf8("报告 (1).txt") << true;
        const QString forbidden = QStringLiteral("\\/:*?\"<>|");
        for (const QChar c : forbidden)
            QTest::newRow(qPrintable(QStringLiteral("with %1").arg(c)))
                << QStringLiteral("a%1b").arg(c) << false;
    }
    void forbiddenNameCharacterMissed()
    {
        QFETCH(QString, name);
        QFETCH(bool, valid);
        QCOMPARE(ZrFilePath::CheckFileNameValid(name), valid);
    }

    void drivePathRuleBroken_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("valid");
        QTest::newRow("drive path") << "C:\\dir\\f.txt" << true;
        QTest::newRow("drive with slashes") << "D:/dir/f.txt" << true;
        QTest::newRow("posix path has no colon") << "/Users/a" << false;
        QTest::newRow("too short") << "C:" << false;
        QTest::newRow("question mark") << "C:\\a?b" << false;
        QTest::newRow("second colon") << "C:\\a:b" << false;
        QTest::newRow("bar") << "C:\\a|b" << false;
        // The first three characters are never looked at.
        QTest::newRow("forbidden only in prefix") << "*:?rest" << true;
    }
    void drivePathRuleBroken()
    {
        QFETCH(QString, path);
        QFETCH(bool, valid);
        QCOMPARE(ZrFilePath::CheckFilePathValid(path), valid);
    }

    void uniqueNameReusesExistingOrDropsDot()
    {
        QDir(m_dir.path()).mkdir(QStringLiteral("unique"));
        touch(QStringLiteral("unique/a.txt"));
        touch(QStringLiteral("unique/a(1).txt"));
        touch(QStringLiteral("unique/report"));
        touch(QStringLiteral("unique/pack.tar.gz"));
        const QString dir = path(QStringLiteral("unique"));
        QCOMPARE(ZrFilePath::GetUniqueFileName(dir + "/free.txt"), dir + "/free.txt");
        QCOMPARE(ZrFilePath::GetUniqueFileName(dir + "/a.txt"), dir + "/a(2).txt");
        QCOMPARE(ZrFilePath::GetUniqueFileName(dir + "/report"), dir + "/report(1).");
        QCOMPARE(ZrFilePath::GetUniqueFileName(dir + "/pack.tar.gz"), dir + "/pack.tar(1).gz");
    }

    void urlSchemeMisjudged_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("isUrl");
        QTest::newRow("trimmed upper-case https") << " HTTPS://x " << true;
        QTest::newRow("ftp") << "ftp://host/file" << true;
        QTest::newRow("mailto") << "mailto:a@b.c" << true;
        QTest::newRow("sftp") << "sftp://h/p" << true;
        QTest::newRow("unknown scheme") << "gopher://x" << false;
        QTest::newRow("no scheme") << "www.example.com" << false;
        QTest::newRow("empty") << "" << false;
        QTest::newRow("invalid") << "http://exa mple.com:99999" << false;
    }
    void urlSchemeMisjudged()
    {
        QFETCH(QString, text);
        QFETCH(bool, isUrl);
        QCOMPARE(ZrFilePath::IsUrl(text), isUrl);
    }

    void localFileAndSameFileMisjudged()
    {
        touch(QStringLiteral("same.txt"));
        const QString file = path(QStringLiteral("same.txt"));
        QVERIFY(QFile::link(file, path(QStringLiteral("same-link.txt"))));
        QVERIFY(ZrFilePath::IsLocalFile(file));
        QVERIFY(ZrFilePath::IsLocalFile(QStringLiteral("file:///nowhere/at/all")));
        QVERIFY(!ZrFilePath::IsLocalFile(QStringLiteral("http://x/y")));
        QVERIFY(!ZrFilePath::IsLocalFile(path(QStringLiteral("missing"))));

        QVERIFY(ZrFilePath::IsTheSameFile(QStringLiteral("missing"), QStringLiteral("missing")));
        QVERIFY(ZrFilePath::IsTheSameFile(file, path(QStringLiteral("same-link.txt"))));
        QVERIFY(ZrFilePath::IsTheSameFile(file, m_dir.path() + "/./same.txt"));
        QVERIFY(!ZrFilePath::IsTheSameFile(file, path(QStringLiteral("missing"))));
        QVERIFY(
            !ZrFilePath::IsTheSameFile(path(QStringLiteral("missing")), path(QStringLiteral("missing2"))));
    }

    void writableProbeWrongOrLeftBehind()
    {
        QVERIFY(ZrFilePath::IsFolderWritable(m_dir.path()));
        QCOMPARE(QDir(m_dir.path()).entryList({QStringLiteral("zr_write_test_temp_0*")}, QDir::Files),
            QStringList());
        QVERIFY(!ZrFilePath::IsFolderWritable(QString()));
        QVERIFY(!ZrFilePath::IsFolderWritable(path(QStringLiteral("no/such/folder"))));
        // Not writable even for root.
        QVERIFY(!ZrFilePath::IsFolderWritable(QStringLiteral("/proc")));
    }

    void imageNameNotFlat_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("name");
        QTest::newRow("url") << "https://cdn.x.com/a/b.jpg?v=1"
                             << "https__cdn_x_com_a_b_jpg?v=1.png";
        QTest::newRow("backslashes") << "C:\\a\\b.c"
                                     << "C_a_b_c.png";
        QTest::newRow("empty") << ""
                               << ".png";
        const QString long300 = QString(100, QLatin1Char('a')) + QString(200, QLatin1Char('b'));
        QTest::newRow("300 chars keep the last 200") << long300 << QString(200, QLatin1Char('b')) + ".png";
        QTest::newRow("exactly 200 chars")
            << QString(200, QLatin1Char('c')) << QString(200, QLatin1Char('c')) + ".png";
    }
    void imageNameNotFlat()
    {
        QFETCH(QString, text);
        QFETCH(QString, name);
        QCOMPARE(ZrFilePath::FormatFilePath(text), name);
    }

    void randomNumberMissesAnEndOrLeavesRange_data()
    {
        QTest::addColumn<int>("a");
        QTest::addColumn<int>("b");
        QTest::newRow("reversed") << 5 << 1;
        QTest::newRow("two values") << -1 << 0;
        QTest::newRow("equal") << 3 << 3;
    }
    void randomNumberMissesAnEndOrLeavesRange()
    {
        QFETCH(int, a);
        QFETCH(int, b);
        const int lo = qMin(a, b), hi = qMax(a, b);
        QSet<int> seen;
        for (int i = 0; i < 2000; ++i) {
            const int n = ZrFilePath::GetRandomNum(a, b);
            QVERIFY2(n >= lo && n <= hi, qPrintable(QString::number(n)));
            seen.insert(n);
        }
        QCOMPARE(seen.size(), hi - lo + 1);
    }

    void randomNumberOverflowsOnFullRange()
    {
        for (int i = 0; i < 1000; ++i) {
            const int n = ZrFilePath::GetRandomNum(INT_MAX, INT_MIN);
            Q_UNUSED(n); // any int is in range; the sanitizer catches an overflow
        }
        const int n = ZrFilePath::GetRandomNum(INT_MAX - 1, INT_MAX);
        QVERIFY(n == INT_MAX - 1 || n == INT_MAX);
    }

    void diskSpaceNotFromRoot()
    {
        const QString largest = ZrFilePath::GetLargestFreeDisk();
        QVERIFY(!largest.isEmpty());
        QVERIFY(QStorageInfo(largest).bytesAvailable() >= QStorageInfo::root().bytesAvailable());
        QCOMPARE(ZrFilePath::GetLeftSpace(QStringLiteral("/no/such/volume")),
            QStorageInfo::root().bytesAvailable());
    }

    void resourceFolderNotBesideExecutable_data()
    {
        QTest::addColumn<QString>("appDir");
        QTest::addColumn<QString>("leaf");
        QTest::addColumn<QString>("result");
        QTest::newRow("bundle skin") << "/Apps/Foo.app/Contents/MacOS"
                                     << "skin"
                                     << "/Apps/Foo.app/Contents/Resources/skin";
        QTest::newRow("bundle conf") << "/Apps/Foo.app/Contents/MacOS"
                                     << "conf"
                                     << "/Apps/Foo.app/Contents/Resources/conf";
        QTest::newRow("backslashes") << "C:\\Foo\\bin"
                                     << "skin"
                                     << "C:/Foo/Resources/skin";
        QTest::newRow("unknown folder") << ""
                                        << "skin"
                                        << "/Resources/skin";
    }
    void resourceFolderNotBesideExecutable()
    {
        QFETCH(QString, appDir);
        QFETCH(QString, leaf);
        QFETCH(QString, result);
        QCOMPARE(ZrUtils::Internal::resourceDirPath(appDir, leaf), result);
    }

    void executablePathNotResolved()
    {
        const QString exe = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
        QCOMPARE(ZrFilePath::GetAppFilePath(), exe);
        QCOMPARE(ZrFilePath::GetAppDirPath(), QFileInfo(exe).path());
        QCOMPARE(ZrFilePath::GetSkinDirPath(), QFileInfo(QFileInfo(exe).path()).path() + "/Resources/skin");
    }

    void linkTargetWrong_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("expected"); // relative to the scratch folder; "" = empty
        QTest::newRow("chain of relative links") << "links/first"
                                                 << "links/bin/app";
        QTest::newRow("dangling keeps the target") << "links/dangling"
                                                   << "links/gone";
        QTest::newRow("missing link") << "links/missing"
                                      << "";
        QTest::newRow("not a link") << "links/bin/app"
                                    << "";
    }
    void linkTargetWrong()
    {
        QFETCH(QString, link);
        QFETCH(QString, expected);
        QDir dir(m_dir.path());
        if (!dir.exists(QStringLiteral("links"))) {
            dir.mkpath(QStringLiteral("links/bin"));
            touch(QStringLiteral("links/bin/app"));
            QVERIFY(QFile::link(QStringLiteral("bin/../bin/app"), path(QStringLiteral("links/second"))));
            QVERIFY(QFile::link(QStringLiteral("second"), path(QStringLiteral("links/first"))));
            QVERIFY(QFile::link(QStringLiteral("gone"), path(QStringLiteral("links/dangling"))));
        }
        const std::string target
            = ZrUtils::Internal::resolvedLinkTarget(path(link).toLocal8Bit().constData());
        const QString root = QFileInfo(m_dir.path()).canonicalFilePath();
        QCOMPARE(QString::fromStdString(target), expected.isEmpty() ? QString() : root + "/" + expected);
    }

    void fileMd5WrongForChunkBoundaries_data()
    {
        QTest::addColumn<int>("size");
        for (int size : {0, 1, 4095, 4096, 4097, 3 * 4096 + 17})
            QTest::newRow(qPrintable(QString::number(size))) << size;
    }
    void fileMd5WrongForChunkBoundaries()
    {
        QFETCH(int, size);
        QByteArray content(size, Qt::Uninitialized);
        for (int i = 0; i < size; ++i)
            content[i] = char((i * 7 + i / 256) & 0xff);
        touch(QStringLiteral("md5.bin"), content);
        const QByteArray digest = QCryptographicHash::hash(content, QCryptographicHash::Md5);
        QCOMPARE(getBigFileMd5(path(QStringLiteral("md5.bin"))), digest);
        QCOMPARE(
            ZrFilePath::GetFileMd5(path(QStringLiteral("md5.bin"))), QString::fromLatin1(digest.toHex()));
    }

    void md5OfUnreadableNotEmpty()
    {
        QCOMPARE(getBigFileMd5(path(QStringLiteral("missing"))), QByteArray());
        QCOMPARE(ZrFilePath::GetFileMd5(path(QStringLiteral("missing"))), QString());
        QCOMPARE(ZrFilePath::GetFileMd5(m_dir.path()), QString());
        QCOMPARE(ZrFilePath::GetStringMd5(QStringLiteral("a")),
            QStringLiteral("0cc175b9c0f1b6a831c399e269772661"));
    }

    void readWriteHelpersLoseOrKeepBytes()
    {
        const QString file = path(QStringLiteral("text.txt"));
        ZrFilePath::WriteFileData(file, QString::fromUtf8("héllo, 世界"));
        QCOMPARE(ZrFilePath::ReadFileData(file), QString::fromUtf8("héllo, 世界"));
        ZrFilePath::WriteFileData(file, QStringLiteral("x")); // truncates
        QCOMPARE(ZrFilePath::ReadFileData(file), QStringLiteral("x"));

        touch(QStringLiteral("nul.bin"), QByteArray("before\0after", 12));
        QCOMPARE(ZrFilePath::ReadFileData(path(QStringLiteral("nul.bin"))), QStringLiteral("before"));
        touch(QStringLiteral("latin1.txt"), QByteArray("caf\xe9"));
        QCOMPARE(ZrFilePath::ReadFileData(path(QStringLiteral("latin1.txt"))),
            QStringLiteral("caf") + QChar(0xfffd));
        QCOMPARE(ZrFilePath::ReadFileData(path(QStringLiteral("missing"))), QString());
        ZrFilePath::WriteFileData(
            QStringLiteral("/proc/zr-cannot-write"), QStringLiteral("x")); // silently nothing

        QCOMPARE(ZrFilePath::GetFileSize(file), QStringLiteral("1.00 B"));
        QCOMPARE(ZrFilePath::GetFileSize(path(QStringLiteral("missing"))), QString());
    }

    void copyOverwriteIgnored()
    {
        touch(QStringLiteral("from.txt"), "new");
        touch(QStringLiteral("to.txt"), "old");
        QVERIFY(!ZrFilePath::CopyFileHandle(
            path(QStringLiteral("from.txt")), path(QStringLiteral("to.txt")), false));
        QCOMPARE(ZrFilePath::ReadFileData(path(QStringLiteral("to.txt"))), QStringLiteral("old"));
        QVERIFY(ZrFilePath::CopyFileHandle(
            path(QStringLiteral("from.txt")), path(QStringLiteral("to.txt")), true));
        QCOMPARE(ZrFilePath::ReadFileData(path(QStringLiteral("to.txt"))), QStringLiteral("new"));
        QVERIFY(!ZrFilePath::CopyFileHandle(
            path(QStringLiteral("missing")), path(QStringLiteral("to2.txt")), true));
    }

    void folderHelpersTouchWrongFolder()
    {
        const QString nested = path(QStringLiteral("make/a/b"));
        QVERIFY(ZrFilePath::MakeDirPath(nested));
        QVERIFY(ZrFilePath::MakeDirPath(nested));
        touch(QStringLiteral("make/a/b/f.txt"));
        QVERIFY(ZrFilePath::DeleteDirPath(path(QStringLiteral("make"))));
        QVERIFY(!QFileInfo::exists(path(QStringLiteral("make"))));
        QVERIFY(!ZrFilePath::DeleteDirPath(path(QStringLiteral("make"))));
        // An empty path must not be taken for the working folder.
        const QString cwd = QDir::currentPath();
        QDir::setCurrent(m_dir.path());
        const bool deleted = ZrFilePath::DeleteDirPath(QString());
        QDir::setCurrent(cwd);
        QVERIFY(!deleted);
        QVERIFY(QFileInfo::exists(path(QStringLiteral("same.txt"))));

        QCOMPARE(ZrFilePath::CombinePath(QStringLiteral("/a/b"), QStringLiteral("c.txt")),
            QStringLiteral("/a/b/c.txt"));
        QCOMPARE(ZrFilePath::CombinePath(QStringLiteral("/a/b/"), QStringLiteral("c.txt")),
            QStringLiteral("/a/b/c.txt"));
        const QString cache = ZrFilePath::GetCacheDirPath();
        QCOMPARE(cache, QStandardPaths::writableLocation(QStandardPaths::AppDataLocation));
        QVERIFY(QFileInfo(cache).isDir());
    }

    void platformStubsDoSomething()
    {
        std::string version = "unchanged";
        QVERIFY(ZrFilePath::GetFileVersion(path(QStringLiteral("x")), version));
        QCOMPARE(version, std::string("unchanged"));
        QVERIFY(ZrFilePath::CreateDesktopLink(QString(), QString(), QString(), QString()));
        QCOMPARE(ZrFilePath::GetPublicDesktopPath(), QString());
        ZrFilePath::RunShellCmd(QStringLiteral("touch"), path(QStringLiteral("ran")));
        QVERIFY(!QFileInfo::exists(path(QStringLiteral("ran"))));
    }
};

QTEST_GUILESS_MAIN(TestZrFilePath)
#include "tst_zrfilepath.moc"

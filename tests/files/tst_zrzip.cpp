#include <ZrUtils/ZrZip.h>

#include "FileHelpers.h"

#include <QtTest>

#include <atomic>
#include <thread>

// Writes archives of any kind, the hostile one included. Arguments: pairs of an archive
// path and its entries, "|"-separated; "name -> target" is a symbolic link, and "<NUL>"
// in a target stands for a zero byte.
static const char CraftScript[] = R"(
import sys, zipfile
for path, entries in zip(sys.argv[1::2], sys.argv[2::2]):
    with zipfile.ZipFile(path, 'w', zipfile.ZIP_DEFLATED) as z:
        for entry in entries.split('|'):
            name, link, target = entry.partition(' -> ')
            info = zipfile.ZipInfo(name)
            info.create_system = 3
            info.external_attr = (0o120777 if link else 0o100644) << 16
            z.writestr(info, target.replace('<NUL>', '\0') if link else 'evil')
)";

// Entries reaching outside the destination, each by another way; the destination
// holds "out" (a link to a folder beside it) and "dangling" beforehand.
static const QPair<const char*, const char*> EscapingArchives[] = {
    {"parent", "ok.txt|../x"},
    {"absolute", "ok.txt|/tmp/zr-absolute-entry"},
    {"parent in the middle", "a/../../x"},
    {"backslash parent", "..\\x"},
    {"drive", "C:/x"},
    {"link to absolute folder", "lnk -> /tmp|lnk/zr-through-link"},
    {"link up and out", "lnk -> ../..|lnk/x"},
    {"link alone pointing out", "lnk -> ../outside"},
    {"chain of links out", "a -> b/..|b -> c|c -> ..|a/x"},
    {"link loop", "a -> b|b -> a|a/x"},
    {"through a link already there", "out/x"},
    {"into a dangling link already there", "dangling"},
    {"onto a link already there", "in -> out|in/x"},
    {"link made through another link", "here -> .|here/up -> ../outside|here/up/x"},
    {"link named with a dot part", "./up -> ../outside|up/x"},
    {"link target cut short by a zero byte", "up -> ..<NUL>|up/x"},
};

// Packs the current folder with every header in its ZIP64 form.
static const char ZipfileZip64Script[] = R"(
import os, sys, zipfile
with zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED) as z:
    for folder, _, files in os.walk('.'):
        for name in files:
            path = os.path.join(folder, name)
            info = zipfile.ZipInfo.from_file(path, os.path.normpath(path))
            with open(path, 'rb') as f, z.open(info, 'w', force_zip64=True) as out:
                out.write(f.read())
)";

static const char CheckScript[] = "import sys, zipfile\nz = zipfile.ZipFile(sys.argv[1])\nassert z.testzip() "
                                  "is None\nz.extractall(sys.argv[2])";

class TestZrZip : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    int m_case = 0;
    QByteArray m_goodArchive;

    QString newFolder()
    {
        const QString path = m_dir.filePath(QString("case%1").arg(++m_case));
        QDir().mkpath(path);
        return path;
    }
    QString escapingArchive(int i) const { return m_dir.filePath(QString("escaping%1.zip").arg(i)); }

    // Relative path -> content of every file (or "<link>target") below root; folders are
    // left out, since archives need not list them.
    static QMap<QString, QByteArray> tree(const QString& root)
    {
        QMap<QString, QByteArray> result;
        QDirIterator it(root, QDir::Files | QDir::System | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            result.insert(QDir(root).relativeFilePath(path),
                it.fileInfo().isSymLink() ? "<link>" + it.fileInfo().symLinkTarget().toUtf8()
                                          : readFile(path));
        }
        return result;
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        // One interpreter for all the archives: starting it is the slow part.
        QStringList craft {
            "-c", CraftScript, m_dir.filePath("inside.zip"), "data/f.txt|current -> data|data/up -> ../data"};
        for (int i = 0; i < int(std::size(EscapingArchives)); ++i)
            craft << escapingArchive(i) << EscapingArchives[i].second;
        if (!QStandardPaths::findExecutable("python3").isEmpty())
            QCOMPARE(QProcess::execute("python3", craft), 0);
        const QString folder = newFolder() + "/pack";
        QVERIFY(writeFile(folder + "/a.txt", QByteArray(5000, 'a')));
        QVERIFY(ZrUtils::zipWriter(folder, {}));
        m_goodArchive = readFile(folder + "/pack.zip");
        QVERIFY(!m_goodArchive.isEmpty());
    }

    void archiveUnreadableByPeers()
    {
        REQUIRE_TOOL("unzip");
        REQUIRE_TOOL("python3");
        const QString folder = newFolder() + "/logs";
        const QMap<QString, QByteArray> files {{"a.log", "line\n"}, {"empty.log", ""},
            {"random.bin", randomBytes(300 * 1024)}, {"space name.txt", "x"}};
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            QVERIFY(writeFile(folder + "/" + it.key(), it.value()));
        QVERIFY(writeFile(folder + "/sub/never-packed.txt", "sub"));
        QVERIFY(QFile::setPermissions(
            folder + "/a.log", QFile::permissions(folder + "/a.log") | QFile::ExeOwner));
        // Twice: the second run must not pack the first archive, nor the one being written.
        QVERIFY(ZrUtils::zipWriter(folder, {}));
        QVERIFY(ZrUtils::zipWriter(folder + "/", {}));

        const QString archive = folder + "/logs.zip", byUnzip = newFolder(), byPython = newFolder();
        QCOMPARE(QProcess::execute("unzip", {"-q", archive, "-d", byUnzip}), 0);
        QCOMPARE(tree(byUnzip), files);
        QCOMPARE(QProcess::execute("python3", {"-c", CheckScript, archive, byPython}), 0);
        QCOMPARE(tree(byPython), files);
        const QString byReader = newFolder();
        QVERIFY(ZrUtils::zipReader(archive, byReader));
        QCOMPARE(tree(byReader), files);
        for (const QString& out : {byUnzip, byReader})
            QVERIFY(QFileInfo(out + "/a.log").permissions() & QFile::ExeOwner);
    }

    void emptyFolderArchiveUnreadable()
    {
        REQUIRE_TOOL("python3");
        const QString folder = newFolder() + "/empty";
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(ZrUtils::zipWriter(folder, {}));
        const QString listing = "import sys, zipfile\nassert zipfile.ZipFile(sys.argv[1]).namelist() == []";
        QCOMPARE(QProcess::execute("python3", {"-c", listing, folder + "/empty.zip"}), 0);
        QVERIFY(ZrUtils::zipReader(folder + "/empty.zip", folder + "/out"));
        QCOMPARE(tree(folder + "/out"), (QMap<QString, QByteArray>()));
    }

    // A crooked entry after good ones: the call takes back the files and folders it
    // made, restores nothing it was not asked to touch, and leaves no piece behind.
    void crookedArchivePartlyExtracted_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("checksum mismatch") << "crc";
        QTest::newRow("local header lies about the size") << "local-size";
        QTest::newRow("inflates beyond its declared size") << "inflates-beyond";
        QTest::newRow("declares more than the disk holds") << "petabyte";
    }
    void crookedArchivePartlyExtracted()
    {
        QFETCH(QString, kind);
        REQUIRE_TOOL("python3");
        const QString folder = newFolder(), archive = folder + "/crooked.zip", dest = folder + "/dest";
        QCOMPARE(QProcess::execute("python3", {QFINDTESTDATA("zipcraft.py"), kind, archive}), 0);
        QVERIFY(writeFile(dest + "/good.txt", "old"));
        QVERIFY(writeFile(dest + "/made/mine.txt", "mine"));
        const QMap<QString, QByteArray> before = tree(dest);

        QVERIFY(!ZrUtils::zipReader(archive, dest));
        QCOMPARE(tree(dest), before);
        QVERIFY(!QFileInfo::exists(dest + "/made/deep"));
        QCOMPARE(entries(dest), (QStringList {"good.txt", "made"}));
    }

    // "here" points at the destination itself, so the folder "here/up" is made as "up";
    // then the file "here/up" cannot land on it. Taking back the link before the folder
    // made through it would leave "up" behind.
    void folderMadeThroughArchiveLinkTakenBack_data()
    {
        QTest::addColumn<bool>("destExists");
        QTest::newRow("new destination") << false;
        QTest::newRow("existing destination") << true;
    }
    void folderMadeThroughArchiveLinkTakenBack()
    {
        QFETCH(bool, destExists);
        REQUIRE_TOOL("python3");
        const QString folder = newFolder(), archive = folder + "/crooked.zip", dest = folder + "/dest";
        QCOMPARE(
            QProcess::execute("python3", {"-c", CraftScript, archive, "here -> .|here/up|here/up/x"}), 0);
        if (destExists)
            QVERIFY(writeFile(dest + "/old.txt", "old"));

        QVERIFY(!ZrUtils::zipReader(archive, dest));
        QCOMPARE(QFileInfo::exists(dest), destExists);
        QCOMPARE(entries(dest), destExists ? QStringList {"old.txt"} : QStringList());
    }

    // The file is cut short while it is being compressed: the archive must not keep
    // what was read so far as if it were the whole file.
    void fileShrinksWhilePacked()
    {
        const QString folder = newFolder() + "/pack";
        QVERIFY(writeFile(folder + "/big.bin", QByteArray()));
        QVERIFY(QFile::resize(folder + "/big.bin", qint64(1) << 30)); // sparse: cheap to make
        std::atomic<bool> cut {false};
        std::thread cutter([&] {
            // libzip writes beside the archive; once that file is there, packing has begun.
            const QDeadlineTimer deadline(30000);
            while (!deadline.hasExpired()) {
                if (!QDir(folder).entryList({"pack.zip.*"}, QDir::Files | QDir::Hidden).isEmpty()) {
                    cut = QFile::resize(folder + "/big.bin", 1 << 20);
                    return;
                }
                QThread::usleep(200);
            }
        });
        const bool packed = ZrUtils::zipWriter(folder, {});
        cutter.join();
        QVERIFY(cut);
        QVERIFY(!packed);
        QCOMPARE(entries(folder), QStringList {"big.bin"});
    }

    void nameFiltersOrMissingFolderIgnored()
    {
        const QString folder = newFolder() + "/pack";
        QVERIFY(writeFile(folder + "/a.log", "a"));
        QVERIFY(writeFile(folder + "/b.txt", "b"));
        ZrUtils::ZrZip zip;
        QVERIFY(zip.ZipDir(folder, {"*.log"}));
        QVERIFY(zip.UnzipFile(folder + "/pack.zip", QString())); // beside the archive, named after it
        QCOMPARE(tree(folder + "/pack").keys(), QStringList {"a.log"});
        QVERIFY(!ZrUtils::zipWriter(folder + "/missing", {}));
        QVERIFY(!QFileInfo::exists(folder + "/missing"));
    }

    void peerArchiveNotExtracted_data()
    {
        // Run in the folder to pack; "%1" is the archive.
        QTest::addColumn<QStringList>("command");
        QTest::newRow("zip, folder entries") << QStringList {"zip", "-qr", "%1", "."};
        QTest::newRow("zip, no folder entries") << QStringList {"zip", "-qrD", "%1", "."};
        QTest::newRow("zip, stored") << QStringList {"zip", "-qr0", "%1", "."};
        QTest::newRow("zip, ZIP64 forced") << QStringList {"zip", "-qr", "-fz", "%1", "."};
        QTest::newRow("zipfile, ZIP64 forced") << QStringList {"python3", "-c", ZipfileZip64Script, "%1"};
    }
    void peerArchiveNotExtracted()
    {
        QFETCH(QStringList, command);
        REQUIRE_TOOL(qPrintable(command.first()));
        const QString source = newFolder();
        QVERIFY(writeFile(source + "/top.txt", "top"));
        QVERIFY(writeFile(source + "/deep/er/random.bin", randomBytes(100 * 1024)));
        QVERIFY(writeFile(source + "/deep/text.txt", QByteArray(5000, 'z')));
        QVERIFY(QFile::setPermissions(
            source + "/top.txt", QFile::permissions(source + "/top.txt") | QFile::ExeOwner));
        const QString archive = newFolder() + "/peer.v2.zip", dest = newFolder() + "/out/nested";
        QProcess peer;
        peer.setWorkingDirectory(source); // the entries are named relative to it
        peer.start(command.takeFirst(), command.replaceInStrings("%1", archive));
        QVERIFY(peer.waitForFinished(60000));
        QCOMPARE(peer.exitCode(), 0);
        QVERIFY(ZrUtils::zipReader(archive, dest));
        QCOMPARE(tree(dest), tree(source));
        QVERIFY(QFileInfo(dest + "/top.txt").permissions() & QFile::ExeOwner);
    }

    void zipEntryOutsideDestination_data()
    {
        QTest::addColumn<int>("index");
        for (int i = 0; i < int(std::size(EscapingArchives)); ++i)
            QTest::newRow(EscapingArchives[i].first) << i;
    }
    void zipEntryOutsideDestination()
    {
        QFETCH(int, index);
        REQUIRE_TOOL("python3");
        const QString folder = newFolder(), archive = folder + "/evil.zip", dest = folder + "/inner/dest";
        QVERIFY(QFile::copy(escapingArchive(index), archive));
        QVERIFY(QDir().mkpath(folder + "/inner/outside") && QDir().mkpath(dest));
        QVERIFY(QFile::link("../outside", dest + "/out"));
        QVERIFY(QFile::link("../nowhere", dest + "/dangling"));

        QVERIFY(!ZrUtils::zipReader(archive, dest));
        QCOMPARE(entries(folder), (QStringList {"evil.zip", "inner"}));
        QCOMPARE(entries(folder + "/inner"), (QStringList {"dest", "outside"}));
        QCOMPARE(entries(dest), (QStringList {"dangling", "out"}));
        QCOMPARE(entries(folder + "/inner/outside"), QStringList());
        QVERIFY(!QFileInfo::exists("/tmp/zr-absolute-entry"));
        QVERIFY(!QFileInfo::exists("/tmp/zr-through-link"));
    }

    void linkInsideDestinationRefused()
    {
        REQUIRE_TOOL("python3");
        const QString out = newFolder();
        QVERIFY(ZrUtils::zipReader(m_dir.filePath("inside.zip"), out));
        QCOMPARE(tree(out + "/current").value("f.txt"), QByteArray("evil"));
        QCOMPARE(QFileInfo(out + "/current").symLinkTarget(), QFileInfo(out + "/data").canonicalFilePath());
    }

    void brokenArchiveAccepted_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("end record pointing nowhere")
            << QByteArray("PK\x05\x06\0\0\0\0\x01\0\x01\0\x2e\0\0\0\xff\xff\xff\x0f\0\0", 22);
        QTest::newRow("end cut off") << m_goodArchive.chopped(10);
        QTest::newRow("start cut off") << m_goodArchive.mid(10);
    }
    void brokenArchiveAccepted()
    {
        QFETCH(QByteArray, content);
        const QString folder = newFolder();
        QVERIFY(writeFile(folder + "/broken.zip", content));
        QVERIFY(!ZrUtils::zipReader(folder + "/broken.zip", folder + "/out"));
        QVERIFY(!QFileInfo::exists(folder + "/out/a.txt"));
        QVERIFY(!ZrUtils::zipReader(folder + "/missing.zip", QString()));
        QVERIFY(!ZrUtils::zipReader(QString(), folder + "/out"));
    }
};

QTEST_GUILESS_MAIN(TestZrZip)
#include "tst_zrzip.moc"

#include <ZrUtils/ZrZip.h>

#include <QtTest>

// Writes archives of any kind, the hostile one included. Arguments: pairs of an archive
// path and its entries, "|"-separated; "name -> target" is a symbolic link.
static const char CraftScript[] = R"(
import sys, zipfile
for path, entries in zip(sys.argv[1::2], sys.argv[2::2]):
    with zipfile.ZipFile(path, 'w', zipfile.ZIP_DEFLATED) as z:
        for entry in entries.split('|'):
            name, link, target = entry.partition(' -> ')
            info = zipfile.ZipInfo(name)
            info.create_system = 3
            info.external_attr = (0o120777 if link else 0o100644) << 16
            z.writestr(info, target if link else 'evil')
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
};

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

    static void write(const QString& path, const QByteArray& content)
    {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }
    static QByteArray randomBytes(int size)
    {
        QByteArray bytes(size, Qt::Uninitialized);
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(bytes.data()), size / 4);
        return bytes;
    }
    // Relative path -> content of every file (or "<link>target") below root; folders are
    // left out, since archives need not list them.
    static QMap<QString, QByteArray> tree(const QString& root)
    {
        QMap<QString, QByteArray> result;
        QDirIterator it(root, QDir::Files | QDir::System | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile file(it.next());
            file.open(QIODevice::ReadOnly);
            result.insert(QDir(root).relativeFilePath(file.fileName()),
                it.fileInfo().isSymLink() ? "<link>" + it.fileInfo().symLinkTarget().toUtf8()
                                          : file.readAll());
        }
        return result;
    }
    static void requireTool(const char* tool)
    {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(QString("%1 is not installed").arg(tool)));
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
        write(folder + "/a.txt", QByteArray(5000, 'a'));
        QVERIFY(ZrUtils::zipWriter(folder, {}));
        QFile good(folder + "/pack.zip");
        QVERIFY(good.open(QIODevice::ReadOnly));
        m_goodArchive = good.readAll();
    }

    void archiveUnreadableByPeers()
    {
        requireTool("unzip");
        requireTool("python3");
        const QString folder = newFolder() + "/logs";
        const QMap<QString, QByteArray> files {{"a.log", "line\n"}, {"empty.log", ""},
            {"random.bin", randomBytes(300 * 1024)}, {"space name.txt", "x"}};
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            write(folder + "/" + it.key(), it.value());
        write(folder + "/sub/never-packed.txt", "sub");
        // Twice: the second run must not pack the first archive, nor the one being written.
        QVERIFY(ZrUtils::zipWriter(folder, {}));
        QVERIFY(ZrUtils::zipWriter(folder + "/", {}));

        const QString archive = folder + "/logs.zip", byUnzip = newFolder(), byPython = newFolder();
        QCOMPARE(QProcess::execute("unzip", {"-q", archive, "-d", byUnzip}), 0);
        QCOMPARE(tree(byUnzip), files);
        QCOMPARE(QProcess::execute("python3", {"-c", CheckScript, archive, byPython}), 0);
        QCOMPARE(tree(byPython), files);
    }

    void nameFiltersOrMissingFolderIgnored()
    {
        const QString folder = newFolder() + "/pack";
        write(folder + "/a.log", "a");
        write(folder + "/b.txt", "b");
        ZrUtils::ZrZip zip;
        QVERIFY(zip.ZipDir(folder, {"*.log"}));
        QVERIFY(zip.UnzipFile(folder + "/pack.zip", QString())); // beside the archive, named after it
        QCOMPARE(tree(folder + "/pack").keys(), QStringList {"a.log"});
        QVERIFY(!ZrUtils::zipWriter(folder + "/missing", {}));
        QVERIFY(!QFileInfo::exists(folder + "/missing"));
    }

    void peerArchiveNotExtracted_data()
    {
        QTest::addColumn<QString>("zipOptions");
        QTest::newRow("with folder entries") << "-qr";
        QTest::newRow("without folder entries") << "-qrD";
        QTest::newRow("stored, not deflated") << "-qr0";
    }
    void peerArchiveNotExtracted()
    {
        QFETCH(QString, zipOptions);
        requireTool("zip");
        const QString source = newFolder();
        write(source + "/top.txt", "top");
        write(source + "/deep/er/random.bin", randomBytes(100 * 1024));
        write(source + "/deep/text.txt", QByteArray(5000, 'z'));
        const QString archive = newFolder() + "/peer.v2.zip", dest = newFolder() + "/out/nested";
        const QString cwd = QDir::currentPath();
        QDir::setCurrent(source); // the entries are named relative to it
        const int zipped = QProcess::execute("zip", {zipOptions, archive, "."});
        QDir::setCurrent(cwd);
        QCOMPARE(zipped, 0);
        QVERIFY(ZrUtils::zipReader(archive, dest));
        QCOMPARE(tree(dest), tree(source));
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
        requireTool("python3");
        const QString folder = newFolder(), archive = folder + "/evil.zip", dest = folder + "/inner/dest";
        QVERIFY(QFile::copy(escapingArchive(index), archive));
        QVERIFY(QDir().mkpath(folder + "/inner/outside") && QDir().mkpath(dest));
        QVERIFY(QFile::link("../outside", dest + "/out"));
        QVERIFY(QFile::link("../nowhere", dest + "/dangling"));

        QVERIFY(!ZrUtils::zipReader(archive, dest));
        const auto entries = [](const QString& dir) {
            return QDir(dir).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
        };
        QCOMPARE(entries(folder), (QStringList {"evil.zip", "inner"}));
        QCOMPARE(entries(folder + "/inner"), (QStringList {"dest", "outside"}));
        QCOMPARE(entries(dest), (QStringList {"dangling", "out"}));
        QCOMPARE(entries(folder + "/inner/outside"), QStringList());
        QVERIFY(!QFileInfo::exists("/tmp/zr-absolute-entry"));
        QVERIFY(!QFileInfo::exists("/tmp/zr-through-link"));
    }

    void linkInsideDestinationRefused()
    {
        requireTool("python3");
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
        QTest::newRow("cut in half") << m_goodArchive.left(m_goodArchive.size() / 2);
        QTest::newRow("start cut off") << m_goodArchive.mid(10);
    }
    void brokenArchiveAccepted()
    {
        QFETCH(QByteArray, content);
        const QString folder = newFolder();
        write(folder + "/broken.zip", content);
        QVERIFY(!ZrUtils::zipReader(folder + "/broken.zip", folder + "/out"));
        QVERIFY(!QFileInfo::exists(folder + "/out/a.txt"));
        QVERIFY(!ZrUtils::zipReader(folder + "/missing.zip", QString()));
        QVERIFY(!ZrUtils::zipReader(QString(), folder + "/out"));
    }
};

QTEST_GUILESS_MAIN(TestZrZip)
#include "tst_zrzip.moc"

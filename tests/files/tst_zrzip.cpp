#include <ZrUtils/ZrZip.h>

#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace
{

// Writes any archives, the hostile kind included: {path: [[name, content, isLink], ...]}.
const char CraftScript[] = R"(
import json, sys, zipfile
for path, entries in json.loads(sys.argv[1]).items():
    with zipfile.ZipFile(path, 'w', zipfile.ZIP_DEFLATED) as z:
        for name, data, link in entries:
            info = zipfile.ZipInfo(name)
            info.create_system = 3
            info.external_attr = (0o120777 if link else 0o100644) << 16
            z.writestr(info, data)
)";

QJsonArray file(const char* name, const char* content = "evil")
{
    return QJsonArray {QLatin1String(name), QLatin1String(content), false};
}

QJsonArray link(const char* name, const char* target)
{
    return QJsonArray {QLatin1String(name), QLatin1String(target), true};
}

// An archive's entries; QJsonArray{oneArray} would copy the one entry instead.
QJsonArray entries(std::initializer_list<QJsonArray> items)
{
    QJsonArray result;
    for (const QJsonArray& item : items)
        result.append(item);
    return result;
}

// Archives whose entries reach outside the destination, each by another way.
const QList<QPair<const char*, QJsonArray>>& escapingArchives()
{
    static const QList<QPair<const char*, QJsonArray>> cases = {
        {"parent", entries({file("ok.txt"), file("../x")})},
        {"absolute", entries({file("ok.txt"), file("/tmp/zr-absolute-entry")})},
        {"parent in the middle", entries({file("a/../../x")})},
        {"backslash parent", entries({file("..\\x")})},
        {"drive", entries({file("C:/x")})},
        {"link to absolute folder", entries({link("lnk", "/tmp"), file("lnk/zr-through-link")})},
        {"link up and out", entries({link("lnk", "../.."), file("lnk/x")})},
        {"link alone pointing out", entries({link("lnk", "../outside")})},
        {"chain of links out", entries({link("a", "b/.."), link("b", "c"), link("c", ".."), file("a/x")})},
        {"link loop", entries({link("a", "b"), link("b", "a"), file("a/x")})},
    };
    return cases;
}

const char CheckScript[] = R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as z:
    assert z.testzip() is None
    z.extractall(sys.argv[2])
)";

} // namespace

class TestZrZip : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    int m_case = 0;

    QString newFolder()
    {
        const QString path = m_dir.filePath(QStringLiteral("case%1").arg(++m_case));
        QDir().mkpath(path);
        return path;
    }

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
        for (char& c : bytes)
            c = char(QRandomGenerator::global()->bounded(256));
        return bytes;
    }

    // Relative path -> content of every file below @p root ("<dir>" for folders).
    static QMap<QString, QByteArray> tree(const QString& root)
    {
        QMap<QString, QByteArray> result;
        QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
            QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QString relative = QDir(root).relativeFilePath(path);
            if (it.fileInfo().isSymLink())
                result.insert(relative, "<link>" + it.fileInfo().symLinkTarget().toUtf8());
            else if (it.fileInfo().isDir())
                result.insert(relative, "<dir>");
            else {
                QFile file(path);
                file.open(QIODevice::ReadOnly);
                result.insert(relative, file.readAll());
            }
        }
        return result;
    }

    static int run(const QString& program, const QStringList& arguments, const QString& workDir = QString())
    {
        QProcess process;
        process.setWorkingDirectory(workDir);
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(program, arguments);
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            return -1;
        }
        process.readAllStandardOutput();
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

    static void requireTool(const char* tool)
    {
        if (QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty())
            QSKIP(qPrintable(QStringLiteral("%1 is not installed").arg(QLatin1String(tool))));
    }

    // One interpreter for many archives: starting it is the slow part.
    static bool craft(const QJsonObject& archives)
    {
        return run(QStringLiteral("python3"),
                   {QStringLiteral("-c"), QLatin1String(CraftScript),
                       QString::fromUtf8(QJsonDocument(archives).toJson(QJsonDocument::Compact))})
            == 0;
    }
    static bool craft(const QString& archive, const QJsonArray& entries)
    {
        return craft(QJsonObject {{archive, entries}});
    }
    QString escapingArchive(int i) const { return m_dir.filePath(QStringLiteral("escaping%1.zip").arg(i)); }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        if (!QStandardPaths::findExecutable(QStringLiteral("python3")).isEmpty()) {
            QJsonObject archives;
            for (int i = 0; i < escapingArchives().size(); ++i)
                archives.insert(escapingArchive(i), escapingArchives().at(i).second);
            QVERIFY(craft(archives));
        }
    }

    void archiveUnreadableByPeers()
    {
        requireTool("unzip");
        requireTool("python3");
        const QString folder = newFolder() + QStringLiteral("/logs");
        QMap<QString, QByteArray> files;
        files.insert(QStringLiteral("a.txt"), "first line\nsecond line\n");
        files.insert(QStringLiteral("empty.log"), QByteArray());
        files.insert(QStringLiteral("random.bin"), randomBytes(300 * 1024));
        files.insert(QStringLiteral("zeros.bin"), QByteArray(200 * 1024, '\0'));
        files.insert(QStringLiteral("space name.txt"), "x");
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            write(folder + "/" + it.key(), it.value());
        write(folder + "/sub/never-packed.txt", "sub");

        QVERIFY(ZrUtils::zipWriter(folder, {}));
        const QString archive = folder + "/logs.zip";
        QVERIFY(QFile::exists(archive));
        QCOMPARE(run(QStringLiteral("unzip"), {QStringLiteral("-tq"), archive}), 0);

        const QString byUnzip = newFolder();
        QCOMPARE(
            run(QStringLiteral("unzip"), {QStringLiteral("-q"), archive, QStringLiteral("-d"), byUnzip}), 0);
        QCOMPARE(tree(byUnzip), files);
        const QString byPython = newFolder();
        QCOMPARE(run(QStringLiteral("python3"),
                     {QStringLiteral("-c"), QLatin1String(CheckScript), archive, byPython}),
            0);
        QCOMPARE(tree(byPython), files);

        // Packing again must not swallow the previous archive or the one being written.
        QVERIFY(ZrUtils::zipWriter(folder + "/", {}));
        const QString again = newFolder();
        QCOMPARE(
            run(QStringLiteral("unzip"), {QStringLiteral("-q"), archive, QStringLiteral("-d"), again}), 0);
        QCOMPARE(tree(again), files);
    }

    void nameFiltersIgnored()
    {
        const QString folder = newFolder() + QStringLiteral("/pack");
        write(folder + "/a.log", "a");
        write(folder + "/b.txt", "b");
        write(folder + "/c.log", "c");
        ZrUtils::ZrZip zip;
        QVERIFY(zip.ZipDir(folder, {QStringLiteral("*.log")}));
        const QString out = newFolder();
        QVERIFY(zip.UnzipFile(folder + "/pack.zip", out));
        QCOMPARE(tree(out).keys(), (QStringList {QStringLiteral("a.log"), QStringLiteral("c.log")}));
    }

    void missingFolderPacked()
    {
        const QString folder = newFolder();
        QVERIFY(!ZrUtils::zipWriter(folder + "/missing", {}));
        QVERIFY(tree(folder).isEmpty());
        QVERIFY(!ZrUtils::zipWriter(QString(), {}) || QFile::exists(QStringLiteral("./.zip")) == false);
    }

    void peerArchiveNotExtracted_data()
    {
        QTest::addColumn<QStringList>("zipOptions");
        QTest::newRow("with folder entries") << QStringList {QStringLiteral("-qr")};
        QTest::newRow("without folder entries") << QStringList {QStringLiteral("-qrD")};
        QTest::newRow("stored, not deflated") << QStringList {QStringLiteral("-qr0")};
    }
    void peerArchiveNotExtracted()
    {
        QFETCH(QStringList, zipOptions);
        requireTool("zip");
        const QString source = newFolder();
        write(source + "/top.txt", "top");
        write(source + "/empty", QByteArray());
        write(source + "/deep/er/random.bin", randomBytes(100 * 1024));
        write(source + "/deep/text.txt", QByteArray(5000, 'z'));
        const QString archive = newFolder() + "/peer.zip";
        QCOMPARE(
            run(QStringLiteral("zip"), zipOptions + QStringList {archive, QStringLiteral(".")}, source), 0);

        const QString dest = newFolder() + "/out/nested";
        QVERIFY(ZrUtils::zipReader(archive, dest));
        QMap<QString, QByteArray> expected = tree(source);
        if (zipOptions.first().contains(QLatin1Char('D'))) {
            expected.remove(QStringLiteral("deep"));
            expected.remove(QStringLiteral("deep/er"));
            QMap<QString, QByteArray> got = tree(dest);
            got.remove(QStringLiteral("deep"));
            got.remove(QStringLiteral("deep/er"));
            QCOMPARE(got, expected);
        } else {
            QCOMPARE(tree(dest), expected);
        }
    }

    void emptyDestinationNotBesideArchive()
    {
        requireTool("python3");
        const QString folder = newFolder();
        QVERIFY(craft(folder + "/pack.v2.zip", entries({file("f.txt", "F")})));
        QVERIFY(ZrUtils::zipReader(folder + "/pack.v2.zip", QString()));
        QCOMPARE(tree(folder + "/pack.v2").value(QStringLiteral("f.txt")), QByteArray("F"));
    }

    void zipEntryOutsideDestination_data()
    {
        QTest::addColumn<int>("index");
        for (int i = 0; i < escapingArchives().size(); ++i)
            QTest::newRow(escapingArchives().at(i).first) << i;
    }
    void zipEntryOutsideDestination()
    {
        QFETCH(int, index);
        requireTool("python3");
        const QString folder = newFolder();
        const QString archive = folder + "/evil.zip";
        QVERIFY(QFile::copy(escapingArchive(index), archive));
        QVERIFY(!ZrUtils::zipReader(archive, folder + "/inner/dest"));
        // Nothing beside the archive, no destination left behind, nothing in /tmp.
        QCOMPARE(tree(folder).keys(), QStringList {QStringLiteral("evil.zip")});
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/zr-absolute-entry")));
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/zr-through-link")));
    }

    void linkInsideDestinationRefused()
    {
        requireTool("python3");
        const QString folder = newFolder();
        QVERIFY(craft(folder + "/ok.zip",
            entries({file("data/f.txt", "F"), link("current", "data"), link("data/up", "../data")})));
        QVERIFY(ZrUtils::zipReader(folder + "/ok.zip", folder + "/out"));
        QCOMPARE(tree(folder + "/out/current").value(QStringLiteral("f.txt")), QByteArray("F"));
        QCOMPARE(QFileInfo(folder + "/out/current").symLinkTarget(),
            QFileInfo(folder + "/out/data").canonicalFilePath());
    }

    void existingLinkInDestinationFollowed()
    {
        requireTool("python3");
        const QString folder = newFolder();
        QDir().mkpath(folder + "/outside");
        QDir().mkpath(folder + "/dest");
        QVERIFY(QFile::link(QStringLiteral("../outside"), folder + "/dest/out"));
        QVERIFY(QFile::link(QStringLiteral("../nowhere"), folder + "/dest/dangling"));
        QVERIFY(craft(QJsonObject {{folder + "/a.zip", entries({file("out/x")})},
            {folder + "/b.zip", entries({file("dangling")})},
            {folder + "/c.zip", entries({link("in", "out"), file("in/x")})}}));
        for (const char* name : {"/a.zip", "/b.zip", "/c.zip"}) {
            QVERIFY2(!ZrUtils::zipReader(folder + QLatin1String(name), folder + "/dest"), name);
            QVERIFY(tree(folder + "/outside").isEmpty());
            QVERIFY(!QFileInfo::exists(folder + "/nowhere"));
        }
    }

    void brokenArchiveAccepted_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("exists");
        QTest::newRow("missing") << QByteArray() << false;
        QTest::newRow("empty") << QByteArray() << true;
        QTest::newRow("not a zip") << QByteArray("{\"json\": true}") << true;
        QTest::newRow("random") << randomBytes(64 * 1024) << true;
        QTest::newRow("only an end record")
            << QByteArray("PK\x05\x06\0\0\0\0\x01\0\x01\0\x2e\0\0\0\xff\xff\xff\x0f\0\0", 22) << true;
    }
    void brokenArchiveAccepted()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, exists);
        const QString folder = newFolder();
        if (exists)
            write(folder + "/broken.zip", content);
        QVERIFY(!ZrUtils::zipReader(folder + "/broken.zip", folder + "/out"));
        QVERIFY(!ZrUtils::zipReader(QString(), folder + "/out"));
    }

    void truncatedArchiveAccepted()
    {
        requireTool("python3");
        const QString folder = newFolder();
        QVERIFY(craft(folder + "/whole.zip",
            entries({file("a.txt",
                "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa")})));
        QFile whole(folder + "/whole.zip");
        QVERIFY(whole.open(QIODevice::ReadOnly));
        const QByteArray bytes = whole.readAll();
        for (int cut : {10, int(bytes.size()) / 2, int(bytes.size()) - 10}) {
            write(folder + "/cut.zip", bytes.left(cut));
            QVERIFY(!ZrUtils::zipReader(folder + "/cut.zip", folder + "/out"));
        }
    }
};

QTEST_GUILESS_MAIN(TestZrZip)
#include "tst_zrzip.moc"

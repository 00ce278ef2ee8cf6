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

// Archives whose entries reach outside the destination, each by another way; the
// destination holds "out" (a link to a folder beside it) and "dangling" beforehand.
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
        {"through a link already there", entries({file("out/x")})},
        {"into a dangling link already there", entries({file("dangling")})},
        {"onto a link already there", entries({link("in", "out"), file("in/x")})},
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

    // Relative path -> content of every file (or "<link>target") below @p root; folders
    // are left out, since archives need not list them.
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

    static int run(const QString& program, const QStringList& arguments, const QString& workDir = QString())
    {
        QProcess process;
        process.setWorkingDirectory(workDir);
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(program, arguments);
        const bool finished = process.waitForFinished(60000);
        return finished && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
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
        QMap<QString, QByteArray> files {{QStringLiteral("a.log"), "line\n"},
            {QStringLiteral("empty.log"), ""}, {QStringLiteral("random.bin"), randomBytes(300 * 1024)},
            {QStringLiteral("space name.txt"), "x"}};
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            write(folder + "/" + it.key(), it.value());
        write(folder + "/sub/never-packed.txt", "sub");
        // Twice: the second run must not pack the first archive, nor the one being written.
        QVERIFY(ZrUtils::zipWriter(folder, {}));
        QVERIFY(ZrUtils::zipWriter(folder + "/", {}));

        const QString archive = folder + "/logs.zip";
        const QString byUnzip = newFolder(), byPython = newFolder();
        QCOMPARE(
            run(QStringLiteral("unzip"), {QStringLiteral("-q"), archive, QStringLiteral("-d"), byUnzip}), 0);
        QCOMPARE(tree(byUnzip), files);
        QCOMPARE(run(QStringLiteral("python3"),
                     {QStringLiteral("-c"), QLatin1String(CheckScript), archive, byPython}),
            0);
        QCOMPARE(tree(byPython), files);
    }

    void nameFiltersOrMissingFolderIgnored()
    {
        const QString folder = newFolder() + QStringLiteral("/pack");
        write(folder + "/a.log", "a");
        write(folder + "/b.txt", "b");
        ZrUtils::ZrZip zip;
        QVERIFY(zip.ZipDir(folder, {QStringLiteral("*.log")}));
        QVERIFY(zip.UnzipFile(folder + "/pack.zip", QString())); // beside the archive, named after it
        QCOMPARE(tree(folder + "/pack").keys(), QStringList {QStringLiteral("a.log")});
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
        const QString archive = newFolder() + "/peer.v2.zip";
        QCOMPARE(run(QStringLiteral("zip"), {zipOptions, archive, QStringLiteral(".")}, source), 0);
        const QString dest = newFolder() + "/out/nested";
        QVERIFY(ZrUtils::zipReader(archive, dest));
        QCOMPARE(tree(dest), tree(source));
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
        // The destination already holds a link out of it and a dangling one.
        const QString dest = folder + "/inner/dest";
        QDir().mkpath(folder + "/inner/outside");
        QDir().mkpath(dest);
        QVERIFY(QFile::link(QStringLiteral("../outside"), dest + "/out"));
        QVERIFY(QFile::link(QStringLiteral("../nowhere"), dest + "/dangling"));

        QVERIFY(!ZrUtils::zipReader(archive, dest));
        const auto entries = [](const QString& dir) {
            return QDir(dir).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
        };
        QCOMPARE(entries(folder), (QStringList {QStringLiteral("evil.zip"), QStringLiteral("inner")}));
        QCOMPARE(
            entries(folder + "/inner"), (QStringList {QStringLiteral("dest"), QStringLiteral("outside")}));
        QCOMPARE(entries(dest), (QStringList {QStringLiteral("dangling"), QStringLiteral("out")}));
        QCOMPARE(entries(folder + "/inner/outside"), QStringList());
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/zr-absolute-entry")));
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/zr-through-link")));
    }

    void linkInsideDestinationRefused()
    {
        requireTool("python3");
        const QString folder = newFolder();
        QVERIFY(craft(QJsonObject {{folder + "/ok.zip",
            entries({file("data/f.txt", "F"), link("current", "data"), link("data/up", "../data")})}}));
        QVERIFY(ZrUtils::zipReader(folder + "/ok.zip", folder + "/out"));
        QCOMPARE(tree(folder + "/out/current").value(QStringLiteral("f.txt")), QByteArray("F"));
        QCOMPARE(QFileInfo(folder + "/out/current").symLinkTarget(),
            QFileInfo(folder + "/out/data").canonicalFilePath());
    }

    void brokenArchiveAccepted_data()
    {
        QTest::addColumn<int>("cut"); // bytes of a good archive kept: > 0 from the start, < 0 from the end
        QTest::addColumn<QByteArray>("content"); // used when cut is 0
        QTest::newRow("empty") << 0 << QByteArray();
        QTest::newRow("not a zip") << 0 << QByteArray("{\"json\": true}");
        QTest::newRow("random") << 0 << randomBytes(64 * 1024);
        QTest::newRow("end record pointing nowhere")
            << 0 << QByteArray("PK\x05\x06\0\0\0\0\x01\0\x01\0\x2e\0\0\0\xff\xff\xff\x0f\0\0", 22);
        QTest::newRow("end cut off") << -10 << QByteArray();
        QTest::newRow("cut in half") << 1 << QByteArray();
        QTest::newRow("start cut off") << 10 << QByteArray();
    }
    void brokenArchiveAccepted()
    {
        QFETCH(int, cut);
        QFETCH(QByteArray, content);
        const QString folder = newFolder() + "/pack";
        write(folder + "/a.txt", QByteArray(5000, 'a'));
        QVERIFY(ZrUtils::zipWriter(folder, {}));
        QFile whole(folder + "/pack.zip");
        QVERIFY(whole.open(QIODevice::ReadOnly));
        const QByteArray bytes = whole.readAll();
        if (cut < 0)
            content = bytes.left(bytes.size() + cut);
        else if (cut == 1)
            content = bytes.left(bytes.size() / 2);
        else if (cut > 0)
            content = bytes.mid(cut);
        write(folder + "/broken.zip", content);
        QVERIFY(!ZrUtils::zipReader(folder + "/broken.zip", folder + "/out"));
        QVERIFY(!QFileInfo::exists(folder + "/out/a.txt"));
        QVERIFY(!ZrUtils::zipReader(folder + "/missing.zip", QString()));
        QVERIFY(!ZrUtils::zipReader(QString(), folder + "/out"));
    }
};

QTEST_GUILESS_MAIN(TestZrZip)
#include "tst_zrzip.moc"

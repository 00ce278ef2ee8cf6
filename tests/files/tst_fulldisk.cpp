#include "FileHelpers.h"
#include "SavedObjects.h"

#include <ZrUtils/ZrZip.h>

#include <QtTest>

using SavedObjects::Form;

// A small tmpfs of its own, so that a disk can really be full (needs the right to mount,
// which CI's root has).
class Tmpfs
{
public:
    Tmpfs(const QString& path, const QString& options)
        : m_path(path)
    {
        QDir().mkpath(path);
        m_mounted = QProcess::execute("mount", {"-t", "tmpfs", "-o", options, "tmpfs", path}) == 0;
    }
    ~Tmpfs()
    {
        if (m_mounted)
            QProcess::execute("umount", {m_path});
    }
    bool mounted() const { return m_mounted; }
    QStringList entries(const QString& below = QString()) const { return ::entries(m_path + below); }

private:
    QString m_path;
    bool m_mounted = false;
};

class TestFullDisk : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    int m_case = 0;

    QString newMountPoint() { return m_dir.filePath(QString("disk%1").arg(++m_case)); }

    // Writes until the disk refuses.
    static void fill(const QString& path)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        const QByteArray chunk(4096, 'f');
        while (file.write(chunk) == chunk.size()) { }
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        const Tmpfs probe(newMountPoint(), "size=1m");
        if (!probe.mounted())
            QSKIP("mounting a tmpfs is not allowed here");
    }

    void archiveLeftOnFullDisk()
    {
        const QString disk = newMountPoint();
        const Tmpfs tmpfs(disk, "size=4m");
        QVERIFY(writeFile(disk + "/pack/random.bin", randomBytes(3 << 20)));

        QVERIFY(!ZrUtils::zipWriter(disk + "/pack", {}));
        QCOMPARE(tmpfs.entries("/pack"), QStringList {"random.bin"});
    }

    void extractedBeyondFreeSpace()
    {
        // Six megabytes of zeros pack into a few kilobytes; the disk holds four.
        const QString source = m_dir.filePath("zeros");
        QVERIFY(writeFile(source + "/zeros.bin", QByteArray(6 << 20, '\0')));
        QVERIFY(ZrUtils::zipWriter(source, {}));
        const QString disk = newMountPoint();
        const Tmpfs tmpfs(disk, "size=4m");

        QVERIFY(!ZrUtils::zipReader(source + "/zeros.zip", disk + "/out"));
        QCOMPARE(tmpfs.entries(), QStringList());
    }

    void extractionRunsOutOfFiles()
    {
        const QString source = m_dir.filePath("many");
        for (int i = 0; i < 40; ++i)
            QVERIFY(writeFile(source + QString("/f%1.txt").arg(i, 2, 10, QLatin1Char('0')), "x"));
        QVERIFY(ZrUtils::zipWriter(source, {}));
        const QString disk = newMountPoint();
        const Tmpfs tmpfs(disk, "size=4m,nr_inodes=20");
        QVERIFY(writeFile(disk + "/before.txt", "before"));

        QVERIFY(!ZrUtils::zipReader(source + "/many.zip", disk + "/out"));
        QCOMPARE(tmpfs.entries(), QStringList {"before.txt"});
    }

    void saveOnFullDisk_data()
    {
        QTest::addColumn<int>("form");
        for (int form = 0; form < SavedObjects::FormNames.size(); ++form)
            QTest::newRow(qPrintable(SavedObjects::FormNames.at(form))) << form;
    }
    void saveOnFullDisk()
    {
        QFETCH(int, form);
        const QString disk = newMountPoint(), path = disk + "/saved.json";
        const Tmpfs tmpfs(disk, "size=1m");
        const QJsonObject old = SavedObjects::object(1, 1000);
        SavedObjects::save(Form(form), path, old);
        fill(disk + "/filler");

        SavedObjects::save(Form(form), path, SavedObjects::object(2, 300 << 10));
        QCOMPARE(SavedObjects::load(Form(form), path), old);
        QCOMPARE(tmpfs.entries(), (QStringList {"filler", "saved.json"}));
    }
};

QTEST_GUILESS_MAIN(TestFullDisk)
#include "tst_fulldisk.moc"

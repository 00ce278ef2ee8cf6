#include "FileHelpers.h"
#include "SavedObjects.h"
#include "system/SystemInternal.h"

#include <ZrUtils/ZrZip.h>

#include <QtTest>

#include <unistd.h>

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

class TestFileSaves : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    int m_case = 0;
    bool m_canMount = false;

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
        m_canMount = Tmpfs(newMountPoint(), "size=1m").mounted();
    }

    // A save killed at any moment leaves one of the objects written, whole: never an
    // empty, truncated or mixed file.
    void killedWhileSaving_data()
    {
        QTest::addColumn<QString>("form");
        for (const char* form : {"plain", "encrypted"})
            QTest::newRow(form) << QString(form);
    }
    void killedWhileSaving()
    {
        QFETCH(QString, form);
        const Form kind = Form(SavedObjects::FormNames.indexOf(form));
        const QString path = m_dir.filePath(form + ".json");
        SavedObjects::save(kind, path, SavedObjects::object(0));
        int next = 1;
        for (int kill = 0; kill < 200; ++kill) {
            QProcess saver;
            saver.start(FILESAVER, {form, path, QString::number(next)});
            // Once a save of this run is complete, anywhere in the next few.
            QVERIFY(saver.waitForReadyRead(10000));
            QTest::qWait(QRandomGenerator::global()->bounded(60));
            saver.kill();
            QVERIFY(saver.waitForFinished(10000));

            const QJsonObject saved = SavedObjects::load(kind, path);
            const int number = saved.value("number").toInt(-1);
            QVERIFY2(number >= next && number < next + 1000, qPrintable(QString("after kill %1").arg(kill)));
            QCOMPARE(saved, SavedObjects::object(number));
            next += 1000; // every run writes numbers of its own
        }
    }

    // The folder lets the file be written but no file be made beside it: the save
    // still happens, in place.
    void savedWhereNoSiblingCanBeMade_data()
    {
        QTest::addColumn<QString>("form");
        for (const QString& form : SavedObjects::FormNames + QStringList {"identity"})
            QTest::newRow(qPrintable(form)) << form;
    }
    void savedWhereNoSiblingCanBeMade()
    {
        QFETCH(QString, form);
        const QString folder = m_dir.filePath("locked-" + form), path = folder + "/saved";
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(writeFile(path, QByteArray()));
        QVERIFY(QFile::setPermissions(path, QFile::Permissions(0x6666))); // rw- for everyone
        QVERIFY(QFile::setPermissions(folder, QFile::Permissions(0x5555))); // r-x for everyone
        QVERIFY(QFile::setPermissions(m_dir.path(), QFile::permissions(folder)));
        // Permissions do not hold for root: save as nobody instead.
        const bool root = geteuid() == 0;
        QVERIFY(!root || seteuid(65534) == 0);
        const QJsonObject object = SavedObjects::object(7, 100);
        const Form kind = Form(SavedObjects::FormNames.indexOf(form)); // none for the identity
        QString pcid;
        if (form == "identity")
            pcid = ZrUtils::Internal::pcidFor(
                path, [] { return QString("uuid"); }, [] { return QString("mac"); });
        else
            SavedObjects::save(kind, path, object);
        QVERIFY(!root || seteuid(0) == 0);
        QVERIFY(QFile::setPermissions(m_dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

        QCOMPARE(entries(folder), QStringList {"saved"});
        if (form == "identity") {
            QCOMPARE(pcid, ZrUtils::Internal::composePcid("uuid", "mac"));
            QCOMPARE(QSettings(path, QSettings::NativeFormat).value("PCID").toString(), pcid);
        } else {
            QCOMPARE(SavedObjects::load(kind, path), object);
        }
    }

    void archiveLeftOnFullDisk()
    {
        if (!m_canMount)
            QSKIP("mounting a tmpfs is not allowed here");
        const QString disk = newMountPoint();
        const Tmpfs tmpfs(disk, "size=4m");
        QVERIFY(writeFile(disk + "/pack/random.bin", randomBytes(3 << 20)));

        QVERIFY(!ZrUtils::zipWriter(disk + "/pack", {}));
        QCOMPARE(tmpfs.entries("/pack"), QStringList {"random.bin"});
    }

    void extractedBeyondFreeSpace()
    {
        if (!m_canMount)
            QSKIP("mounting a tmpfs is not allowed here");
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
        if (!m_canMount)
            QSKIP("mounting a tmpfs is not allowed here");
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
        if (!m_canMount)
            QSKIP("mounting a tmpfs is not allowed here");
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

QTEST_GUILESS_MAIN(TestFileSaves)
#include "tst_filesaves.moc"

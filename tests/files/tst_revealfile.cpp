// Revealing a file in the desktop's file manager, against a private message bus and
// a stand-in file manager, so no real desktop is touched.
#include <ZrUtils/ZrFilePath.h>

#include "FileHelpers.h"
#include "files/FilePathInternal.h"

#include <QtDBus>
#include <QtTest>

using namespace ZrUtils::Internal;
Q_DECLARE_METATYPE(RevealOutcome)

class FakeFileManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QAtomicInt answer = 1;
    QMutex mutex;
    QStringList shown;

public slots:
    void ShowItems(const QStringList& uris, const QString& startupId)
    {
        Q_UNUSED(startupId);
        QMutexLocker lock(&mutex);
        shown += uris;
        if (!answer.loadRelaxed())
            setDelayedReply(true); // and never reply: a hung file manager
    }
};

class TestRevealFile : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QProcess m_bus;
    QString m_address;
    QThread m_serviceThread;
    FakeFileManager* m_fake = nullptr;
    const QString m_file = "sub dir/report #1.txt";

    QString path(const QString& name) const { return m_dir.filePath(name); }
    QString uri(const QString& name) const { return QUrl::fromLocalFile(path(name)).toEncoded(); }
    bool write(const QString& name, const QByteArray& content) { return writeFile(path(name), content); }
    // What the folder opener was started on; empty when it was not.
    QString opened() const { return QString::fromUtf8(readFile(path("opened"))); }
    QStringList shown(bool clear = false)
    {
        QMutexLocker lock(&m_fake->mutex);
        return clear ? std::exchange(m_fake->shown, {}) : m_fake->shown;
    }
    void setFileManager(bool present, bool answers)
    {
        QDBusConnection service("fake-file-manager");
        if (present)
            QVERIFY(service.registerService("org.freedesktop.FileManager1"));
        else
            service.unregisterService("org.freedesktop.FileManager1");
        m_fake->answer.storeRelaxed(answers);
        shown(true);
        QFile::remove(path("opened"));
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        if (QStandardPaths::findExecutable("dbus-daemon").isEmpty())
            QSKIP("dbus-daemon is not installed");
        // A bus of our own without service activation: nothing on the machine starts.
        QVERIFY(write("bus.conf",
            "<busconfig><type>session</type><listen>unix:tmpdir=" + m_dir.path().toUtf8()
                + "</listen><policy context=\"default\"><allow user=\"*\"/><allow send_destination=\"*\"/>"
                  "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n"));
        m_bus.start("dbus-daemon", {"--nofork", "--print-address", "--config-file=" + path("bus.conf")});
        QVERIFY(m_bus.waitForStarted(10000) && m_bus.waitForReadyRead(10000));
        m_address = QString::fromUtf8(m_bus.readLine()).trimmed();
        QVERIFY(!m_address.isEmpty());
        // The public call uses the session bus: make ours the session bus.
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());

        QDBusConnection service = QDBusConnection::connectToBus(m_address, "fake-file-manager");
        QVERIFY(service.isConnected());
        m_serviceThread.start();
        m_fake = new FakeFileManager;
        m_fake->moveToThread(&m_serviceThread); // answers while the caller blocks
        QVERIFY(
            service.registerObject("/org/freedesktop/FileManager1", m_fake, QDBusConnection::ExportAllSlots));

        // The stand-in folder opener writes its argument to "opened" in one step.
        const QByteArray opened = path("opened").toUtf8();
        QVERIFY(write("opener.sh",
            "#!/bin/sh\nprintf '%s' \"$1\" > \"" + opened + ".tmp\"\nmv \"" + opened + ".tmp\" \"" + opened
                + "\"\n"));
        QVERIFY(
            QFile::setPermissions(path("opener.sh"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(QDir(m_dir.path()).mkdir("sub dir") && write(m_file, ""));
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus("fake-file-manager");
        m_serviceThread.quit();
        m_serviceThread.wait();
        delete m_fake;
        m_bus.kill();
        m_bus.waitForFinished();
    }

    void revealNotSelectedOrFallbackWrong_data()
    {
        QTest::addColumn<char>("fileManager"); // y: present, h: present but hung, n: absent
        QTest::addColumn<QString>("bus"); // empty: ours; "session": the public call
        QTest::addColumn<QString>("file");
        QTest::addColumn<RevealOutcome>("outcome");
        QTest::newRow("file manager selects") << 'y' << "" << m_file << RevealOutcome::Selected;
        QTest::newRow("public call misses it") << 'y' << "session" << m_file << RevealOutcome::Selected;
        QTest::newRow("no file manager: folder opened") << 'n' << "" << m_file << RevealOutcome::FolderOpened;
        QTest::newRow("no bus: folder opened")
            << 'n' << "unix:path=/nonexistent/bus" << m_file << RevealOutcome::FolderOpened;
        // Bounded by the time limit; no folder window on top of the late selection.
        QTest::newRow("hung file manager") << 'h' << "" << m_file << RevealOutcome::Nothing;
        QTest::newRow("missing file") << 'y' << ""
                                      << "missing.txt" << RevealOutcome::Nothing;
    }
    void revealNotSelectedOrFallbackWrong()
    {
        QFETCH(char, fileManager);
        QFETCH(QString, bus);
        QFETCH(QString, file);
        QFETCH(RevealOutcome, outcome);
        setFileManager(fileManager != 'n', fileManager != 'h');
        RevealOptions options;
        options.busAddress = bus.isEmpty() ? m_address : bus;
        options.folderOpener = path("opener.sh");
        options.timeoutMs = 500;
        if (bus == "session")
            ZrUtils::ZrFilePath::OpenFolderAndSelectFile(path(file));
        else
            QCOMPARE(revealInFileManager(path(file), options), outcome);
        // An answered request was recorded before the answer; a hung one may still be on its way.
        if (fileManager == 'h')
            QTRY_COMPARE(shown(), QStringList {uri(file)});
        else
            QCOMPARE(shown(), outcome == RevealOutcome::Selected ? QStringList {uri(file)} : QStringList());
        QTRY_COMPARE(opened(), outcome == RevealOutcome::FolderOpened ? path("sub dir") : QString());
    }
};

QTEST_GUILESS_MAIN(TestRevealFile)
#include "tst_revealfile.moc"

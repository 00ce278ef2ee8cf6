// Revealing a file in the desktop's file manager, against a private message bus and
// a stand-in file manager, so no real desktop is touched.
#include <ZrUtils/ZrFilePath.h>

#include "files/FilePathInternal.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusContext>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

using ZrUtils::Internal::RevealOptions;
using ZrUtils::Internal::RevealOutcome;

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

private:
    QTemporaryDir m_dir;
    QProcess m_bus;
    QString m_address;
    QThread m_serviceThread;
    FakeFileManager* m_fake = nullptr;

    QString path(const QString& name) const { return m_dir.filePath(name); }

    void setFileManagerPresent(bool present)
    {
        QDBusConnection service(QStringLiteral("fake-file-manager"));
        if (present)
            QVERIFY(service.registerService(QStringLiteral("org.freedesktop.FileManager1")));
        else
            service.unregisterService(QStringLiteral("org.freedesktop.FileManager1"));
    }

    QStringList shown()
    {
        QMutexLocker lock(&m_fake->mutex);
        return m_fake->shown;
    }
    void clearShown()
    {
        QMutexLocker lock(&m_fake->mutex);
        m_fake->shown.clear();
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
            QSKIP("dbus-daemon is not installed");
        // A bus of our own without service activation: nothing on the machine starts.
        QFile config(path(QStringLiteral("bus.conf")));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("<busconfig><type>session</type><listen>unix:tmpdir=" + m_dir.path().toUtf8()
            + "</listen><policy context=\"default\"><allow user=\"*\"/><allow send_destination=\"*\"/>"
              "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n");
        config.close();
        m_bus.start(QStringLiteral("dbus-daemon"),
            {QStringLiteral("--nofork"), QStringLiteral("--print-address"),
                QStringLiteral("--config-file=") + config.fileName()});
        QVERIFY(m_bus.waitForStarted(10000));
        QVERIFY(m_bus.waitForReadyRead(10000));
        m_address = QString::fromUtf8(m_bus.readLine()).trimmed();
        QVERIFY(!m_address.isEmpty());
        // The public call uses the session bus: make ours the session bus.
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());

        QDBusConnection service
            = QDBusConnection::connectToBus(m_address, QStringLiteral("fake-file-manager"));
        QVERIFY(service.isConnected());
        m_serviceThread.start();
        m_fake = new FakeFileManager;
        m_fake->moveToThread(&m_serviceThread); // answers while the caller blocks
        QVERIFY(service.registerObject(
            QStringLiteral("/org/freedesktop/FileManager1"), m_fake, QDBusConnection::ExportAllSlots));

        QFile opener(path(QStringLiteral("opener.sh")));
        QVERIFY(opener.open(QIODevice::WriteOnly));
        opener.write("#!/bin/sh\nprintf '%s' \"$1\" > \"" + path(QStringLiteral("opened.tmp")).toUtf8()
            + "\"\nmv \"" + path(QStringLiteral("opened.tmp")).toUtf8() + "\" \""
            + path(QStringLiteral("opened")).toUtf8() + "\"\n");
        opener.close();
        QVERIFY(opener.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QFile target(path(QStringLiteral("sub dir/report #1.txt")));
        QVERIFY(QDir(m_dir.path()).mkdir(QStringLiteral("sub dir")));
        QVERIFY(target.open(QIODevice::WriteOnly));
    }

    void cleanupTestCase()
    {
        if (m_fake) {
            QDBusConnection::disconnectFromBus(QStringLiteral("fake-file-manager"));
            m_serviceThread.quit();
            m_serviceThread.wait();
            delete m_fake;
        }
        if (m_bus.state() != QProcess::NotRunning) {
            m_bus.terminate();
            if (!m_bus.waitForFinished(5000))
                m_bus.kill();
            m_bus.waitForFinished(5000);
        }
    }

    void revealNotSelectedOrFallbackWrong_data()
    {
        QTest::addColumn<bool>("fileManager");
        QTest::addColumn<bool>("answers");
        QTest::addColumn<QString>("bus");
        QTest::addColumn<QString>("file");
        QTest::addColumn<RevealOutcome>("outcome");
        const QString file = QStringLiteral("sub dir/report #1.txt");
        QTest::newRow("file manager selects") << true << true << QString() << file << RevealOutcome::Selected;
        QTest::newRow("no file manager: folder opened")
            << false << true << QString() << file << RevealOutcome::FolderOpened;
        QTest::newRow("no bus: folder opened")
            << false << true << QStringLiteral("unix:path=/nonexistent/bus") << file
            << RevealOutcome::FolderOpened;
        QTest::newRow("hung file manager: bounded, no second window")
            << true << false << QString() << file << RevealOutcome::Nothing;
        QTest::newRow("missing file")
            << true << true << QString() << QStringLiteral("missing.txt") << RevealOutcome::Nothing;
    }
    void revealNotSelectedOrFallbackWrong()
    {
        QFETCH(bool, fileManager);
        QFETCH(bool, answers);
        QFETCH(QString, bus);
        QFETCH(QString, file);
        QFETCH(RevealOutcome, outcome);
        setFileManagerPresent(fileManager);
        m_fake->answer.storeRelaxed(answers ? 1 : 0);
        QFile::remove(path(QStringLiteral("opened")));
        clearShown();

        RevealOptions options;
        options.busAddress = bus.isEmpty() ? m_address : bus;
        options.folderOpener = path(QStringLiteral("opener.sh"));
        options.timeoutMs = 500;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(ZrUtils::Internal::revealInFileManager(path(file), options), outcome);
        QVERIFY2(clock.elapsed() < 5000, "the reveal must stay within its time limit");

        const QString uri = QUrl::fromLocalFile(path(file)).toEncoded();
        if (outcome == RevealOutcome::Selected || !answers)
            QTRY_COMPARE(shown(), QStringList {uri});
        else
            QCOMPARE(shown(), QStringList());
        if (outcome == RevealOutcome::FolderOpened) {
            QTRY_VERIFY(QFile::exists(path(QStringLiteral("opened"))));
            QFile opened(path(QStringLiteral("opened")));
            QVERIFY(opened.open(QIODevice::ReadOnly));
            QCOMPARE(QString::fromUtf8(opened.readAll()), path(QStringLiteral("sub dir")));
        } else {
            QVERIFY(!QFile::exists(path(QStringLiteral("opened"))));
        }
    }

    void publicCallMissesSessionFileManager()
    {
        setFileManagerPresent(true);
        m_fake->answer.storeRelaxed(1);
        clearShown();
        ZrUtils::ZrFilePath::OpenFolderAndSelectFile(path(QStringLiteral("sub dir/report #1.txt")));
        QCOMPARE(shown(),
            QStringList {QUrl::fromLocalFile(path(QStringLiteral("sub dir/report #1.txt"))).toEncoded()});
    }
};

QTEST_GUILESS_MAIN(TestRevealFile)
#include "tst_revealfile.moc"

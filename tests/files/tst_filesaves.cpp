#include "FileHelpers.h"
#include "SavedObjects.h"
#include "system/SystemInternal.h"

#include <QtTest>

#include <unistd.h>

using SavedObjects::Form;

class TestFileSaves : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
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
};

QTEST_GUILESS_MAIN(TestFileSaves)
#include "tst_filesaves.moc"

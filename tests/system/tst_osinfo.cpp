#include "system/SystemInternal.h"

#include <ZrUtils/COperateSystem.h>
#include <ZrUtils/ZrSystem.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace ZrUtils;

class OsInfoTest : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    QString write(const QString& name, const QByteArray& content)
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(content);
        return path;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
    }

    void osReleaseNameMisread_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("kylin");
        QTest::addColumn<bool>("uos");
        QTest::newRow("quotesKept") << QByteArray("NAME=\"Kylin Linux Advanced Server\"\nVERSION=\"V10\"\n")
                                    << "Kylin Linux Advanced Server" << true << false;
        QTest::newRow("lowerCaseKylinMissed") << QByteArray("NAME=kylin\n") << "kylin" << true << false;
        QTest::newRow("prettyNameTakenForName")
            << QByteArray("PRETTY_NAME=\"UOS 20\"\nID=uos\n") << "Unknown" << false << false;
        QTest::newRow("prettyNameBeforeName")
            << QByteArray("PRETTY_NAME=\"Debian 12\"\nNAME=\"Debian GNU/Linux\"\n") << "Debian GNU/Linux"
            << false << false;
        QTest::newRow("splitAtLastEquals") << QByteArray("NAME=a=b\n") << "a=b" << false << false;
        QTest::newRow("secondNameWins")
            << QByteArray("NAME=First\nNAME=Second\n") << "First" << false << false;
        QTest::newRow("keyCaseIgnored") << QByteArray("name=Kylin\n") << "Unknown" << false << false;
        QTest::newRow("unionTech") << QByteArray("NAME=\"UnionTech OS Desktop\"\r\n")
                                   << "UnionTech OS Desktop" << false << true;
        QTest::newRow("uosAnyCase") << QByteArray("NAME=Uos\n") << "Uos" << false << true;
        QTest::newRow("utf8Misdecoded")
            << QByteArray("NAME=\"\xe9\xba\x92\xe9\xba\x9f Kylin\"\n")
            << QString::fromUtf8("\xe9\xba\x92\xe9\xba\x9f Kylin") << true << false;
        QTest::newRow("emptyFile") << QByteArray() << "Unknown" << false << false;
    }
    void osReleaseNameMisread()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, name);
        const QString path = write(QStringLiteral("os-release"), content);
        const QString read = Internal::linuxOsInfo(path);
        QCOMPARE(read, name);
        QFETCH(bool, kylin);
        QFETCH(bool, uos);
        QCOMPARE(Internal::isKylinName(read), kylin);
        QCOMPARE(Internal::isUosName(read), uos);
    }

    void osReleaseUnreadable_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("missing") << m_dir.filePath(QStringLiteral("no-such-file"));
        QTest::newRow("directory") << m_dir.path();
    }
    void osReleaseUnreadable()
    {
        QFETCH(QString, path);
        QCOMPARE(Internal::linuxOsInfo(path), QStringLiteral("Unknown"));
    }

    void publicCallsIgnoreEtcOsRelease()
    {
        QCOMPARE(ZrSystem::GetLinuxOsInfo(), Internal::linuxOsInfo(QStringLiteral("/etc/os-release")));
        QCOMPARE(ZrSystem::IsKylinOs(), Internal::isKylinName(ZrSystem::GetLinuxOsInfo()));
        QCOMPARE(ZrSystem::GetSystemVersion(), QSysInfo::prettyProductName());
    }

    void platformUuidMisread_data()
    {
        QTest::addColumn<QByteArray>("first");
        QTest::addColumn<QByteArray>("second");
        QTest::addColumn<QString>("uuid");
        const QByteArray dmi("4c4c4544-0042-3510-8052-b4c04f4b4d32\n");
        const QString dmiUuid = QStringLiteral("4C4C4544-0042-3510-8052-B4C04F4B4D32");
        QTest::newRow("machineIdNotGrouped") << QByteArray("3d1219c7c4c5404aaa1f6d2a48adfda4\n") << dmi
                                             << "3D1219C7-C4C5-404A-AA1F-6D2A48ADFDA4";
        QTest::newRow("missingFirstFile") << QByteArray() << dmi << dmiUuid;
        QTest::newRow("uninitializedTaken") << QByteArray("uninitialized\n") << dmi << dmiUuid;
        QTest::newRow("zeroPlaceholderTaken")
            << QByteArray("00000000-0000-0000-0000-000000000000") << dmi << dmiUuid;
        QTest::newRow("shortIdTaken") << QByteArray("3d1219c7c4c5404aaa1f6d2a48adfd") << dmi << dmiUuid;
        QTest::newRow("nonHexTaken") << QByteArray("3d1219c7c4c5404aaa1f6d2a48adfdzz") << QByteArray()
                                     << QString();
        QTest::newRow("nothingUsable") << QByteArray("\n") << QByteArray() << QString();
    }
    void platformUuidMisread()
    {
        QFETCH(QByteArray, first);
        QFETCH(QByteArray, second);
        QFETCH(QString, uuid);
        QFile::remove(m_dir.filePath(QStringLiteral("first")));
        QFile::remove(m_dir.filePath(QStringLiteral("second")));
        const QString firstPath = first.isEmpty() ? m_dir.filePath(QStringLiteral("first"))
                                                  : write(QStringLiteral("first"), first);
        const QString secondPath = write(QStringLiteral("second"), second);
        QCOMPARE(QString::fromStdString(Internal::platformUuidFromFiles({firstPath, secondPath})), uuid);
    }

    void linuxUdidFromMachineId()
    {
        if (!QFile::exists(QStringLiteral("/etc/machine-id")))
            QSKIP("this machine has no machine id");
        QCOMPARE(COperateSystem::GetSystemUDID().size(), size_t(36));
        QCOMPARE(COperateSystem::GetSystemUDID(), COperateSystem::GetSystemUDID());
        QVERIFY(!COperateSystem::IsDarkTheme());
        QVERIFY(ZrSystem::GetBundleIdentifier().isEmpty());
    }

    void highDpiArgumentHonoured()
    {
        // main() called EnableHighDPISupport(false) before the application existed.
        QVERIFY(QCoreApplication::testAttribute(Qt::AA_EnableHighDpiScaling));
        QVERIFY(QCoreApplication::testAttribute(Qt::AA_UseHighDpiPixmaps));
    }
};

int main(int argc, char** argv)
{
    ZrSystem::EnableHighDPISupport(false);
    QCoreApplication app(argc, argv);
    OsInfoTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_osinfo.moc"

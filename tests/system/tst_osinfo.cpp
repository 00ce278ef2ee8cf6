#include "system/SystemInternal.h"

#include <ZrUtils/ZrSystem.h>

#include <QtTest>

using namespace ZrUtils;

class OsInfoTest : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

    // A null content leaves the file missing.
    QString file(const QString& name, const QByteArray& content)
    {
        const QString path = m_dir.filePath(name);
        QFile::remove(path);
        QFile f(path);
        if (!content.isNull() && f.open(QIODevice::WriteOnly))
            f.write(content);
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
        QTest::addColumn<char>("distribution"); // k: taken for Kylin, u: for UOS
        QTest::newRow("quotesKept") << QByteArray(
            "VERSION=10\nNAME=\"Kylin Linux Advanced Server\"\nNAME=Other\n")
                                    << "Kylin Linux Advanced Server" << 'k';
        QTest::newRow("lowerCaseKylinMissed") << QByteArray("NAME=kylin\n") << "kylin" << 'k';
        QTest::newRow("prettyNameTakenForName")
            << QByteArray("PRETTY_NAME=\"UOS 20\"\nID=uos\n") << "Unknown" << '-';
        QTest::newRow("splitAtLastEquals") << QByteArray("NAME=a=b\n") << "a=b" << '-';
        QTest::newRow("keyCaseIgnored") << QByteArray("name=Kylin\n") << "Unknown" << '-';
        QTest::newRow("crlfKept") << QByteArray("NAME=\"UnionTech OS\"\r\n") << "UnionTech OS" << 'u';
        QTest::newRow("uosCaseSensitive") << QByteArray("NAME=Uos\n") << "Uos" << 'u';
        QTest::newRow("utf8Misdecoded") << QByteArray("NAME=\"\xe9\xba\x92\xe9\xba\x9f Kylin\"\n")
                                        << QString::fromUtf8("\xe9\xba\x92\xe9\xba\x9f Kylin") << 'k';
        QTest::newRow("missingFileCrashes") << QByteArray() << "Unknown" << '-';
    }
    void osReleaseNameMisread()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, name);
        QFETCH(char, distribution);
        const QString read = Internal::linuxOsInfo(file("os-release", content));
        QCOMPARE(read, name);
        QCOMPARE(Internal::isKylinName(read), distribution == 'k');
        QCOMPARE(Internal::isUosName(read), distribution == 'u');
        QCOMPARE(Internal::linuxOsInfo(m_dir.path()), "Unknown"); // a folder is unreadable
    }

    void platformUuidMisread_data()
    {
        QTest::addColumn<QByteArray>("first");
        QTest::addColumn<QByteArray>("second");
        QTest::addColumn<QString>("uuid");
        const QByteArray dmi("4c4c4544-0042-3510-8052-b4c04f4b4d32\n");
        const QString dmiUuid = "4C4C4544-0042-3510-8052-B4C04F4B4D32";
        QTest::newRow("machineIdNotGrouped") << QByteArray("3d1219c7c4c5404aaa1f6d2a48adfda4\n") << dmi
                                             << "3D1219C7-C4C5-404A-AA1F-6D2A48ADFDA4";
        QTest::newRow("missingFirstFile") << QByteArray() << dmi << dmiUuid;
        QTest::newRow("uninitializedTaken") << QByteArray("uninitialized\n") << dmi << dmiUuid;
        QTest::newRow("zeroPlaceholderTaken")
            << QByteArray("00000000-0000-0000-0000-000000000000") << dmi << dmiUuid;
        QTest::newRow("nonHexTaken") << QByteArray("3d1219c7c4c5404aaa1f6d2a48adfdzz") << QByteArray("")
                                     << "";
    }
    void platformUuidMisread()
    {
        QFETCH(QByteArray, first);
        QFETCH(QByteArray, second);
        QFETCH(QString, uuid);
        const QStringList paths {file("first", first), file("second", second)};
        QCOMPARE(QString::fromStdString(Internal::platformUuidFromFiles(paths)), uuid);
    }

    void highDpiArgumentHonoured()
    {
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
        // s_highDpi asked for EnableHighDPISupport(false).
        QVERIFY(QCoreApplication::testAttribute(Qt::AA_EnableHighDpiScaling));
        QVERIFY(QCoreApplication::testAttribute(Qt::AA_UseHighDpiPixmaps));
#else
        QSKIP("Qt 6 always scales for high DPI; the call has nothing to set");
#endif
    }
};

// Before main(), so before the application exists, as Qt requires for these attributes.
[[maybe_unused]] static const bool s_highDpi = (ZrSystem::EnableHighDPISupport(false), true);
QTEST_GUILESS_MAIN(OsInfoTest)
#include "tst_osinfo.moc"

#include "system/SystemInternal.h"

#include <ZrUtils/COperateSystem.h>
#include <ZrUtils/ZrSystem.h>

#include <QtTest>

using namespace ZrUtils;
using Facts = QVector<Internal::InterfaceFacts>;
Q_DECLARE_METATYPE(Facts)

// md5("ABC") followed by characters 12 to 19 of md5("00:11:22:33:44:55"), by md5sum.
static const QString PcidOfUuidAndMac = "902fbdd2b1df0c4f70b4a5d23525e932a32cd257";

static bool isPcid(const QString& id)
{
    return QRegularExpression("^[0-9a-f]{40}$").match(id).hasMatch();
}

static QString runPeer(const QStringList& args)
{
    QProcess peer;
    peer.start(IDENTITY_PEER, args);
    const bool ok = peer.waitForFinished(20000) && peer.exitCode() == 0;
    return ok ? QString::fromUtf8(peer.readAllStandardOutput()) : "<peer failed>";
}

class IdentityTest : public QObject
{
    Q_OBJECT
    QTemporaryDir m_home;
    int m_sourceCalls = 0;

    // A null content leaves the file missing.
    QString file(const QString& name, const QByteArray& content)
    {
        const QString path = m_home.filePath(name);
        QFile::remove(path);
        QFile f(path);
        if (!content.isNull() && f.open(QIODevice::WriteOnly))
            f.write(content);
        return path;
    }
    QString pcid(const QString& path, const QString& uuid = "ABC", const QString& mac = "00:11:22:33:44:55")
    {
        const auto source
            = [this](const QString& value) { return [this, value] { return ++m_sourceCalls, value; }; };
        return Internal::pcidFor(path, source(uuid), source(mac));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        // Test mode puts the configuration folder under $HOME: keep it in our own folder,
        // inherited by the peer processes.
        qputenv("HOME", QFile::encodeName(m_home.path()));
        QStandardPaths::setTestModeEnabled(true);
    }

    void stringMd5NotOfUtf8() { QCOMPARE(getStringMd5("\u00e9"), "66ddcd97cfdeabb2f6fb8a999b4bc76f"); }

    void missingSourcesGiveNoId()
    {
        const QString first = m_home.filePath("fallback1.plist");
        const QString id = pcid(first, QString(), QString());
        QVERIFY2(isPcid(id) && id != PcidOfUuidAndMac, qPrintable(id));
        QCOMPARE(pcid(first, QString(), QString()), id); // stable through the file only
        QVERIFY(pcid(m_home.filePath("fallback2.plist"), QString(), QString()) != id);
    }

    void identityFileMisread_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("id");
        // Whatever is stored wins, even an id that is not 40 characters long.
        QTest::newRow("storedIdRecomputed") << QByteArray("[General]\nPCID=legacy id\n") << "legacy id";
        QTest::newRow("binaryGarbage")
            << QByteArray("\x00\x01\xff\xfe\n[[[\n=\n\x80", 12) << PcidOfUuidAndMac;
        QTest::newRow("emptyPcidValue") << QByteArray("[General]\nPCID=\n") << PcidOfUuidAndMac;
    }
    void identityFileMisread()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, id);
        const QString path = file("identity.plist", content);
        m_sourceCalls = 0;
        QCOMPARE(pcid(path), id);
        QCOMPARE(m_sourceCalls, id == PcidOfUuidAndMac ? 2 : 0);
        QCOMPARE(readRegeditValue(path, "PCID").toString(), id); // rewritten as a settings file
    }

    void pcidDiffersBetweenProcesses()
    {
        const QString path = Internal::identityFilePath("x", "y");
        QCOMPARE(QFileInfo(path).fileName(), "com.xy.info.plist");
        QVERIFY(path.startsWith(m_home.path()));
        QFile::remove(path);

        // Another process computes and writes; this one and a third read the same id.
        const QString fromPeer = runPeer({"pcid", "x", "y"});
        QVERIFY2(isPcid(fromPeer), qPrintable(fromPeer));
        QVERIFY(QFile::exists(path));
        QCOMPARE(ZrSystem::GetPCID("x", "y"), fromPeer);
        QCOMPARE(runPeer({"read", path, "PCID"}), fromPeer);

        // Computed afresh in this process, from the same machine id and address.
        QFile::remove(path);
        QCOMPARE(ZrSystem::GetPCID("x", "y").size(), 40);
        if (!getMainMacAddress().isEmpty() && !COperateSystem::GetSystemUDID().empty())
            QCOMPARE(ZrSystem::GetPCID("x", "y"), fromPeer);
    }

    void noChannelNotOfficial() { QCOMPARE(ZrSystem::GetChannel("a", "b", QString()), "official"); }

    // Applications built on Qt 5 share the file and read raw bytes as Latin-1: the
    // file must hold the escapes Qt 5 writes, whichever Qt the library is built with.
    void channelFileUnreadableByQt5_data()
    {
        QTest::addColumn<QString>("channel");
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("ascii") << "store" << QByteArray("Channel=store");
        QTest::newRow("cjk") << QString::fromUtf8("官方") << QByteArray("Channel=\\x5b98\\x65b9");
        QTest::newRow("hexDigitsAfterEscape")
            << QString::fromUtf8("é1a-x") << QByteArray("Channel=\\xe9\\x31\\x61-x");
        QTest::newRow("outsideBmpAndDelete")
            << QString::fromUtf8("\U0001F600\x7f") << QByteArray("Channel=\\xd83d\\xde00\\x7f");
        QTest::newRow("quoted") << QString::fromUtf8("a, ü") << QByteArray("Channel=\"a, \\xfc\"");
    }
    void channelFileUnreadableByQt5()
    {
        QFETCH(QString, channel);
        QFETCH(QByteArray, line);
        const QString tag = QTest::currentDataTag();
        QCOMPARE(ZrSystem::GetChannel("qt5", tag, channel), channel);
        QFile file(Internal::identityFilePath("qt5", tag));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray content = file.readAll();
        QVERIFY2(content.split('\n').contains(line), content.constData());
        QCOMPARE(ZrSystem::GetChannel("qt5", tag, "other"), channel);
    }

    void newUserFlagInverted()
    {
        QVERIFY(ZrSystem::IsNewUser("new", "user"));
        QVERIFY(!ZrSystem::IsNewUser("new", "user"));
        QVERIFY(ZrSystem::IsNewUser("new", "user2"));
        // Presence means "not new", yet the value stored is true: existing files rely on it.
        QCOMPARE(runPeer({"read", Internal::identityFilePath("new", "user"), "NewUser"}), "true");
    }

    void wrongInterfaceChosen_data()
    {
        using F = QNetworkInterface;
        const auto up = F::IsUp | F::IsRunning;
        QTest::addColumn<Facts>("interfaces");
        QTest::addColumn<QString>("address");
        QTest::newRow("loopbackTaken")
            << Facts {{up | F::IsLoopBack, "LO"}, {up, "02:FC:00:00:00:01"}} << "02:FC:00:00:00:01";
        QTest::newRow("pointToPointTaken") << Facts {{up | F::IsPointToPoint, "AA"}, {F::IsUp, "BB"}} << "BB";
        QTest::newRow("downTaken") << Facts {{F::IsRunning, "AA"}, {F::IsUp, "BB"}} << "BB";
        QTest::newRow("emptyAddressTaken") << Facts {{up, ""}, {up, "CC"}} << "CC";
        QTest::newRow("notRunningSkipped") << Facts {{F::IsUp, "DD"}, {up, "EE"}} << "DD";
        QTest::newRow("noneQualifies") << Facts {{up | F::IsLoopBack, "FF"}, {F::CanBroadcast, "GG"}} << "";
    }
    void wrongInterfaceChosen()
    {
        QFETCH(Facts, interfaces);
        QTEST(Internal::mainHardwareAddress(interfaces), "address");
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
        QFETCH(char, distribution);
        const QString read = Internal::linuxOsInfo(file("os-release", content));
        QTEST(read, "name");
        QCOMPARE(Internal::isKylinName(read), distribution == 'k');
        QCOMPARE(Internal::isUosName(read), distribution == 'u');
        QCOMPARE(Internal::linuxOsInfo(m_home.path()), "Unknown"); // a folder is unreadable
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
        const QStringList paths {file("first", first), file("second", second)};
        QTEST(QString::fromStdString(Internal::platformUuidFromFiles(paths)), "uuid");
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
QTEST_GUILESS_MAIN(IdentityTest)
#include "tst_identity.moc"

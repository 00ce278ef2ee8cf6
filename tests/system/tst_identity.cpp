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

    void pcidWronglyComposed()
    {
        QCOMPARE(Internal::composePcid("ABC", "00:11:22:33:44:55"), PcidOfUuidAndMac);
        QCOMPARE(getStringMd5("\u00e9"), "66ddcd97cfdeabb2f6fb8a999b4bc76f"); // of the UTF-8 bytes
    }

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
        QFile file(m_home.filePath("identity.plist"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        file.close();
        m_sourceCalls = 0;
        QCOMPARE(pcid(file.fileName()), id);
        QCOMPARE(m_sourceCalls, id == PcidOfUuidAndMac ? 2 : 0);
        QCOMPARE(readRegeditValue(file.fileName(), "PCID").toString(), id); // rewritten as a settings file
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

    void channelOverwritten()
    {
        QCOMPARE(ZrSystem::GetChannel("a", "b", QString()), "official");
        QCOMPARE(ZrSystem::GetChannel("a", "b", "store"), "official");
        QCOMPARE(ZrSystem::GetChannel("c", "d", "store"), "store");
        QCOMPARE(readRegeditValue(Internal::identityFilePath("c", "d"), "Channel"), QVariant("store"));
    }

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
        QFETCH(QString, address);
        QCOMPARE(Internal::mainHardwareAddress(interfaces), address);
    }
};

QTEST_GUILESS_MAIN(IdentityTest)
#include "tst_identity.moc"

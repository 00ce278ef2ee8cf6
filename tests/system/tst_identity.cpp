#include "system/SystemInternal.h"

#include <ZrUtils/COperateSystem.h>
#include <ZrUtils/ZrSystem.h>

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

using namespace ZrUtils;
using Facts = QVector<Internal::InterfaceFacts>;
Q_DECLARE_METATYPE(Facts)

namespace
{
const QString Uuid = "ABC";
const QString Mac = "00:11:22:33:44:55";
// md5("ABC") followed by characters 12 to 19 of md5("00:11:22:33:44:55"), by md5sum.
const QString PcidOfUuidAndMac = "902fbdd2b1df0c4f70b4a5d23525e932a32cd257";

template<int N> QByteArray raw(const char (&bytes)[N])
{
    return QByteArray(bytes, N - 1); // keeps embedded NUL bytes
}

bool isPcid(const QString& id)
{
    return QRegularExpression("^[0-9a-f]{40}$").match(id).hasMatch();
}

QString runPeer(const QStringList& args)
{
    QProcess peer;
    peer.start(QStringLiteral(IDENTITY_PEER), args);
    if (!peer.waitForFinished(20000) || peer.exitCode() != 0)
        return "<peer failed>";
    return QString::fromUtf8(peer.readAllStandardOutput());
}
} // namespace

class IdentityTest : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_home;
    int m_sourceCalls = 0;
    QString pcid(const QString& path, const QString& uuid = Uuid, const QString& mac = Mac)
    {
        const auto source
            = [this](const QString& value) { return [this, value] { return ++m_sourceCalls, value; }; };
        return Internal::pcidFor(path, source(uuid), source(mac));
    }
    QString file(const QString& name, const QByteArray& content)
    {
        const QString path = m_home.filePath(name);
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(content);
        return path;
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
        QCOMPARE(Internal::composePcid(Uuid, Mac), PcidOfUuidAndMac);
        QCOMPARE(getStringMd5(QStringLiteral("\u00e9")), "66ddcd97cfdeabb2f6fb8a999b4bc76f"); // UTF-8
    }

    void missingSourcesGiveNoId()
    {
        const QString first = m_home.filePath("fallback1.plist");
        const QString second = m_home.filePath("fallback2.plist");
        const QString id = pcid(first, QString(), QString());
        QVERIFY2(isPcid(id), qPrintable(id));
        QVERIFY(id != PcidOfUuidAndMac);
        QCOMPARE(pcid(first, QString(), QString()), id); // stable through the file only
        QVERIFY(pcid(second, QString(), QString()) != id);
    }

    void identityFileMisread_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("id");
        // Whatever is stored wins, even an id that is not 40 characters long.
        QTest::newRow("storedIdRecomputed") << QByteArray("[General]\nPCID=legacy id\n") << "legacy id";
        QTest::newRow("binaryGarbage") << raw("\x00\x01\xff\xfe\n[[[\n=\n\x80") << PcidOfUuidAndMac;
        QTest::newRow("binaryPropertyList") << raw("bplist00\xd1\x01\x02TPCID_\x10(") << PcidOfUuidAndMac;
        QTest::newRow("unterminatedSection") << QByteArray("[General\nPCID") << PcidOfUuidAndMac;
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

    void channelOverwritten()
    {
        QCOMPARE(ZrSystem::GetChannel("a", "b", QString()), "official");
        QCOMPARE(ZrSystem::GetChannel("a", "b", "store"), "official");
        QCOMPARE(ZrSystem::GetChannel("c", "d", "store"), "store");
        QCOMPARE(readRegeditValue(Internal::identityFilePath("c", "d"), "Channel"), QVariant("store"));
    }

    void newUserFlagInverted()
    {
        QVERIFY(ZrSystem::IsNewUser("new", "user"));
        QVERIFY(!ZrSystem::IsNewUser("new", "user"));
        QVERIFY(ZrSystem::IsNewUser("new", "user2"));
        // Presence means "not new", yet the value stored is true: existing files rely on it.
        const QString path = Internal::identityFilePath("new", "user");
        QCOMPARE(runPeer({"read", path, "NewUser"}), "true");
    }

    void wrongInterfaceChosen_data()
    {
        using F = QNetworkInterface;
        const auto up = F::IsUp | F::IsRunning;
        QTest::addColumn<Facts>("interfaces");
        QTest::addColumn<QString>("address");
        QTest::newRow("loopbackTaken") << Facts {{up | F::IsLoopBack, "00:00:00:00:00:00"},
            {up, "02:FC:00:00:00:01"}} << "02:FC:00:00:00:01";
        QTest::newRow("pointToPointTaken")
            << Facts {{up | F::IsPointToPoint, "AA:AA:AA:AA:AA:AA"}, {F::IsUp, "B"}} << "B";
        QTest::newRow("downTaken") << Facts {{F::IsRunning, "AA"}, {F::IsUp, "BB"}} << "BB";
        QTest::newRow("emptyAddressTaken") << Facts {{up, ""}, {up, "CC"}} << "CC";
        QTest::newRow("notRunningSkipped") << Facts {{F::IsUp, "DD"}, {up, "EE"}} << "DD";
        QTest::newRow("noneQualifies")
            << Facts {{up | F::IsLoopBack, "FF"}, {F::CanBroadcast, "GG"}} << QString();
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

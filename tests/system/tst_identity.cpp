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
const QString Uuid = QStringLiteral("ABC");
const QString Mac = QStringLiteral("00:11:22:33:44:55");
// md5("ABC") followed by characters 12 to 19 of md5("00:11:22:33:44:55"), by md5sum.
const QString PcidOfUuidAndMac = QStringLiteral("902fbdd2b1df0c4f70b4a5d23525e932a32cd257");

template<int N> QByteArray raw(const char (&bytes)[N])
{
    return QByteArray(bytes, N - 1); // keeps embedded NUL bytes
}

bool isPcid(const QString& id)
{
    return QRegularExpression(QStringLiteral("^[0-9a-f]{40}$")).match(id).hasMatch();
}

QString runPeer(const QStringList& args)
{
    QProcess peer;
    peer.start(QStringLiteral(IDENTITY_PEER), args);
    if (!peer.waitForFinished(20000) || peer.exitCode() != 0)
        return QStringLiteral("<peer failed>");
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
        return Internal::pcidFor(
            path,
            [&] {
                ++m_sourceCalls;
                return uuid;
            },
            [&] {
                ++m_sourceCalls;
                return mac;
            });
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

    void pcidWronglyComposed() { QCOMPARE(Internal::composePcid(Uuid, Mac), PcidOfUuidAndMac); }

    void storedPcidRecomputed_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::newRow("full") << QStringLiteral("0123456789abcdef0123456789abcdef01234567");
        QTest::newRow("notFortyCharacters") << QStringLiteral("legacy id");
        QTest::newRow("upperCase") << QStringLiteral("ABCDEF");
    }
    void storedPcidRecomputed()
    {
        QFETCH(QString, stored);
        const QString path = m_home.filePath(QStringLiteral("stored.plist"));
        QFile::remove(path);
        QSettings(path, QSettings::NativeFormat).setValue(QStringLiteral("PCID"), stored);
        m_sourceCalls = 0;
        QCOMPARE(pcid(path), stored);
        QCOMPARE(m_sourceCalls, 0);
    }

    void missingSourcesGiveNoId()
    {
        const QString first = m_home.filePath(QStringLiteral("fallback1.plist"));
        const QString second = m_home.filePath(QStringLiteral("fallback2.plist"));
        const QString id = pcid(first, QString(), QString());
        QVERIFY2(isPcid(id), qPrintable(id));
        QVERIFY(id != PcidOfUuidAndMac);
        QCOMPARE(pcid(first, QString(), QString()), id); // stable through the file only
        QVERIFY(pcid(second, QString(), QString()) != id);
    }

    void corruptIdentityFileBreaksPcid_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("binaryGarbage") << raw("\x00\x01\xff\xfe\n[[[\n=\n\x80");
        QTest::newRow("binaryPropertyList") << raw("bplist00\xd1\x01\x02TPCID_\x10(");
        QTest::newRow("unterminatedSection") << QByteArray("[General\nPCID");
        QTest::newRow("emptyPcidValue") << QByteArray("[General]\nPCID=\n");
        QTest::newRow("emptyFile") << QByteArray();
    }
    void corruptIdentityFileBreaksPcid()
    {
        QFETCH(QByteArray, content);
        const QString path = file(QStringLiteral("corrupt.plist"), content);
        QCOMPARE(pcid(path), PcidOfUuidAndMac);
        QCOMPARE(readRegeditValue(path, QStringLiteral("PCID")).toString(), PcidOfUuidAndMac);
    }

    void pcidDiffersBetweenProcesses()
    {
        const QString path = Internal::identityFilePath(QStringLiteral("x"), QStringLiteral("y"));
        QCOMPARE(QFileInfo(path).fileName(), QStringLiteral("com.xy.info.plist"));
        QVERIFY(path.startsWith(m_home.path()));
        QFile::remove(path);

        // Another process computes and writes; this one and a third read the same id.
        const QString fromPeer = runPeer({QStringLiteral("pcid"), QStringLiteral("x"), QStringLiteral("y")});
        QVERIFY2(isPcid(fromPeer), qPrintable(fromPeer));
        QVERIFY(QFile::exists(path));
        QCOMPARE(ZrSystem::GetPCID(QStringLiteral("x"), QStringLiteral("y")), fromPeer);
        QCOMPARE(runPeer({QStringLiteral("read"), path, QStringLiteral("PCID")}), fromPeer);

        // Computed afresh in this process, from the same machine id and address.
        QFile::remove(path);
        QCOMPARE(ZrSystem::GetPCID(QStringLiteral("x"), QStringLiteral("y")).size(), 40);
        if (!getMainMacAddress().isEmpty() && !COperateSystem::GetSystemUDID().empty())
            QCOMPARE(ZrSystem::GetPCID(QStringLiteral("x"), QStringLiteral("y")), fromPeer);
    }

    void channelOverwritten_data()
    {
        QTest::addColumn<QString>("firstDefault");
        QTest::addColumn<QString>("laterDefault");
        QTest::addColumn<QString>("channel");
        QTest::newRow("emptyDefaultNotOfficial") << QString() << QStringLiteral("store") << "official";
        QTest::newRow("laterDefaultWins") << QStringLiteral("store") << QString() << "store";
    }
    void channelOverwritten()
    {
        QFETCH(QString, firstDefault);
        QFETCH(QString, laterDefault);
        QFETCH(QString, channel);
        const QString a = QString::fromLatin1(QTest::currentDataTag());
        QCOMPARE(ZrSystem::GetChannel(a, QStringLiteral("c"), firstDefault), channel);
        QCOMPARE(ZrSystem::GetChannel(a, QStringLiteral("c"), laterDefault), channel);
        QCOMPARE(
            readRegeditValue(Internal::identityFilePath(a, QStringLiteral("c")), QStringLiteral("Channel")),
            QVariant(channel));
    }

    void newUserFlagInverted()
    {
        QVERIFY(ZrSystem::IsNewUser(QStringLiteral("new"), QStringLiteral("user")));
        QVERIFY(!ZrSystem::IsNewUser(QStringLiteral("new"), QStringLiteral("user")));
        QVERIFY(ZrSystem::IsNewUser(QStringLiteral("new"), QStringLiteral("user2")));
        // Presence means "not new", yet the value stored is true: existing files rely on it.
        const QString path = Internal::identityFilePath(QStringLiteral("new"), QStringLiteral("user"));
        QCOMPARE(runPeer({QStringLiteral("read"), path, QStringLiteral("NewUser")}), QStringLiteral("true"));
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

    void md5OfWrongBytes_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("md5");
        QTest::newRow("empty") << QString() << "d41d8cd98f00b204e9800998ecf8427e";
        QTest::newRow("latin1InsteadOfUtf8")
            << QStringLiteral("\u00e9") << "66ddcd97cfdeabb2f6fb8a999b4bc76f";
    }
    void md5OfWrongBytes()
    {
        QFETCH(QString, text);
        QFETCH(QString, md5);
        QCOMPARE(getStringMd5(text), md5);
    }
};

QTEST_GUILESS_MAIN(IdentityTest)
#include "tst_identity.moc"

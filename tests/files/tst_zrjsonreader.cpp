#include <ZrUtils/ZrJsonReader.h>

#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

using ZrUtils::ZrJsonReader;

namespace
{

const QByteArray KeyBytes
    = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
const QByteArray IvBytes = QByteArray::fromHex("f0e0d0c0b0a090807060504030201000");
const QString Key = QString::fromLatin1(KeyBytes.toBase64());
const QString Iv = QString::fromLatin1(IvBytes.toBase64());

QJsonObject sample()
{
    return QJsonObject {{QStringLiteral("name"), QString::fromUtf8("Zoë 世界")},
        {QStringLiteral("count"), 42}, {QStringLiteral("list"), QJsonArray {1, 2.5, true, QJsonValue()}},
        {QStringLiteral("nested"), QJsonObject {{QStringLiteral("k"), QStringLiteral("v")}}}};
}

} // namespace

class TestZrJsonReader : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString write(const QString& name, const QByteArray& content)
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(content);
        return path;
    }

    static QByteArray read(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // Runs openssl with the test key and IV; false when it fails.
    static bool openssl(const QStringList& arguments, const QByteArray& input, QByteArray& output)
    {
        QProcess process;
        process.start(QStringLiteral("openssl"),
            QStringList {QStringLiteral("enc"), QStringLiteral("-aes-256-cbc"), QStringLiteral("-K"),
                QString::fromLatin1(KeyBytes.toHex()), QStringLiteral("-iv"),
                QString::fromLatin1(IvBytes.toHex()), QStringLiteral("-a"), QStringLiteral("-A")}
                + arguments);
        if (!process.waitForStarted(10000))
            return false;
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(30000))
            return false;
        output = process.readAllStandardOutput();
        return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
    }

    void plainFileMisread_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QJsonValue>("valueOfB"); // ParseJsonFile(path, "b")
        QTest::addColumn<int>("objectSize");
        QTest::addColumn<int>("arraySize");
        const QJsonValue null;
        QTest::newRow("object") << QByteArray("{\"a\": 1, \"b\": \"x\"}") << QJsonValue(QStringLiteral("x"))
                                << 2 << 0;
        QTest::newRow("missing key is undefined")
            << QByteArray("{\"a\": 1}") << QJsonValue(QJsonValue::Undefined) << 1 << 0;
        QTest::newRow("empty object is null") << QByteArray("{}") << null << 0 << 0;
        QTest::newRow("array") << QByteArray("[{\"b\": 1}, 2]") << null << 0 << 2;
        QTest::newRow("not JSON") << QByteArray("\x89PNG\r\n") << null << 0 << 0;
        QTest::newRow("empty file") << QByteArray() << null << 0 << 0;
        QTest::newRow("bad UTF-8") << QByteArray("{\"b\": \"caf\xe9\"}") << null << 0 << 0;
    }
    void plainFileMisread()
    {
        QFETCH(QByteArray, content);
        QFETCH(QJsonValue, valueOfB);
        QFETCH(int, objectSize);
        QFETCH(int, arraySize);
        const QString path = write(QStringLiteral("plain.json"), content);
        const QJsonValue got = ZrJsonReader::ParseJsonFile(path, QStringLiteral("b"));
        QCOMPARE(got.type(), valueOfB.type());
        QCOMPARE(got, valueOfB);
        QCOMPARE(ZrJsonReader::ParseJsonFileToObject(path).size(), objectSize);
        QCOMPARE(ZrJsonReader::ParseJsonFileToArray(path).size(), arraySize);
        QVERIFY(ZrJsonReader::ParseJsonFile(m_dir.filePath(QStringLiteral("missing")), QStringLiteral("b"))
                    .isNull());
        QVERIFY(ZrJsonReader::ParseJsonFileToArray(m_dir.filePath(QStringLiteral("missing"))).isEmpty());
    }

    void savedFileNotIndentedOrNotReplaced()
    {
        const QString path = write(QStringLiteral("save.json"), QByteArray(10000, 'x'));
        ZrJsonReader::SaveJsonFile(path, sample());
        QCOMPARE(read(path), QJsonDocument(sample()).toJson(QJsonDocument::Indented));
        QCOMPARE(ZrJsonReader::ParseJsonFileToObject(path), sample());
        // Unwritable places: nothing happens, nothing breaks.
        ZrJsonReader::SaveJsonFile(QStringLiteral("/proc/zr-save.json"), sample());
        ZrJsonReader::SaveJsonFile(m_dir.filePath(QStringLiteral("no/folder/x.json")), sample());
        ZrJsonReader::CryptSaveJsonFile(QStringLiteral("/proc/zr-save.json"), sample(), Key, Iv);
        QVERIFY(!QFile::exists(m_dir.filePath(QStringLiteral("no"))));
    }

    void encryptedFileNotReadBack()
    {
        const QString path = write(QStringLiteral("secret.dat"), QByteArray(5000, 'x'));
        ZrJsonReader::CryptSaveJsonFile(path, sample(), Key, Iv);
        const QByteArray stored = read(path);
        QVERIFY(!stored.contains("Zo"));
        QVERIFY(QByteArray::fromBase64(stored, QByteArray::AbortOnBase64DecodingErrors).size() % 16 == 0);
        QCOMPARE(ZrJsonReader::DecryptParseJsonFile(path, Key, Iv), sample());
        QVERIFY(
            ZrJsonReader::DecryptParseJsonFile(m_dir.filePath(QStringLiteral("missing")), Key, Iv).isEmpty());
    }

    void encryptedFileNotStandardCbc()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty())
            QSKIP("openssl is not installed");
        const QString ours = m_dir.filePath(QStringLiteral("ours.dat"));
        ZrJsonReader::CryptSaveJsonFile(ours, sample(), Key, Iv);
        QByteArray plain;
        QVERIFY(openssl({QStringLiteral("-d")}, read(ours), plain));
        QCOMPARE(plain, QJsonDocument(sample()).toJson());

        QByteArray cipher;
        QVERIFY(openssl({}, QJsonDocument(sample()).toJson(QJsonDocument::Compact), cipher));
        QCOMPARE(ZrJsonReader::DecryptParseJsonFile(write(QStringLiteral("theirs.dat"), cipher), Key, Iv),
            sample());
    }

    void damagedEncryptedFileNotEmpty_data()
    {
        QTest::addColumn<int>("damage");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("iv");
        const QString otherKey = QString::fromLatin1(QByteArray(32, 'k').toBase64());
        const QString shortIv = QString::fromLatin1(QByteArray(8, 'i').toBase64());
        QTest::newRow("wrong key") << 0 << otherKey << Iv;
        QTest::newRow("IV too short") << 0 << Key << shortIv;
        QTest::newRow("cut in half") << 1 << Key << Iv;
        QTest::newRow("byte changed in the middle") << 3 << Key << Iv;
        QTest::newRow("NUL early") << 5 << Key << Iv;
        QTest::newRow("plain JSON, not encrypted") << 6 << Key << Iv;
        QTest::newRow("random bytes") << 7 << Key << Iv;
    }
    void damagedEncryptedFileNotEmpty()
    {
        QFETCH(int, damage);
        QFETCH(QString, key);
        QFETCH(QString, iv);
        const QString path = m_dir.filePath(QStringLiteral("damaged.dat"));
        ZrJsonReader::CryptSaveJsonFile(path, sample(), Key, Iv);
        QByteArray cipher = QByteArray::fromBase64(read(path));
        switch (damage) {
        case 1:
            cipher.truncate(cipher.size() / 2 + 3);
            break;
        case 3:
            cipher[cipher.size() / 2] = char(cipher.at(cipher.size() / 2) ^ 0x55);
            break;
        }
        QByteArray content = cipher.toBase64();
        if (damage == 5)
            content.insert(8, '\0');
        if (damage == 6)
            content = QJsonDocument(sample()).toJson();
        if (damage == 7) {
            content.resize(1 << 20);
            for (char& c : content)
                c = char(QRandomGenerator::global()->bounded(256));
        }
        write(QStringLiteral("damaged.dat"), content);
        QCOMPARE(ZrJsonReader::DecryptParseJsonFile(path, key, iv), QJsonObject());
    }
};

QTEST_GUILESS_MAIN(TestZrJsonReader)
#include "tst_zrjsonreader.moc"

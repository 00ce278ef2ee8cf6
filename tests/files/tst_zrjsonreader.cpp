#include <ZrUtils/ZrJsonReader.h>

#include <QtTest>

using ZrUtils::ZrJsonReader;

// 32 bytes 00 01 .. 1f and 16 bytes f0 e0 .. 00, in Base64.
static const QString Key = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";
static const QString Iv = "8ODQwLCgkIBwYFBAMCAQAA==";

static QJsonObject sample()
{
    return QJsonObject {{"name", QString::fromUtf8("Zoë 世界")}, {"count", 42},
        {"list", QJsonArray {1, 2.5, true, QJsonValue()}}, {"nested", QJsonObject {{"k", "v"}}}};
}

class TestZrJsonReader : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

    QString write(const QString& name, const QByteArray& content)
    {
        QFile file(m_dir.filePath(name));
        if (file.open(QIODevice::WriteOnly))
            file.write(content);
        return file.fileName();
    }
    static QByteArray read(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    // openssl enc with the test key and IV, Base64 on one line; empty when it fails.
    static QByteArray openssl(const QStringList& arguments, const QByteArray& input)
    {
        const auto hex
            = [](const QString& base64) { return QByteArray::fromBase64(base64.toLatin1()).toHex(); };
        QProcess process;
        process.start("openssl",
            QStringList {"enc", "-aes-256-cbc", "-K", hex(Key), "-iv", hex(Iv), "-a", "-A"} + arguments);
        process.write(input);
        process.closeWriteChannel();
        const bool ok = process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
        return ok ? process.readAllStandardOutput() : QByteArray();
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
        QTest::addColumn<int>("arraySize");
        const QJsonValue null;
        QTest::newRow("object") << QByteArray("{\"a\": 1, \"b\": \"x\"}") << QJsonValue("x") << 0;
        QTest::newRow("missing key is undefined")
            << QByteArray("{\"a\": 1}") << QJsonValue(QJsonValue::Undefined) << 0;
        QTest::newRow("empty object is null") << QByteArray("{}") << null << 0;
        QTest::newRow("array") << QByteArray("[{\"b\": 1}, 2]") << null << 2;
        QTest::newRow("not JSON") << QByteArray("\x89PNG\r\n") << null << 0;
        QTest::newRow("bad UTF-8") << QByteArray("{\"b\": \"caf\xe9\"}") << null << 0;
    }
    void plainFileMisread()
    {
        QFETCH(QByteArray, content);
        QFETCH(QJsonValue, valueOfB);
        QFETCH(int, arraySize);
        const QString path = write("plain.json", content);
        const QJsonValue got = ZrJsonReader::ParseJsonFile(path, "b");
        QCOMPARE(got.type(), valueOfB.type());
        QCOMPARE(got, valueOfB);
        QCOMPARE(ZrJsonReader::ParseJsonFileToArray(path).size(), arraySize);
        QCOMPARE(ZrJsonReader::ParseJsonFileToObject(path).isEmpty(), got.isNull());
        QVERIFY(ZrJsonReader::ParseJsonFile(m_dir.filePath("missing"), "b").isNull());
    }

    void savedFileNotIndentedOrNotReadBack()
    {
        // Longer old contents: the saves must truncate.
        const QString plain = write("save.json", QByteArray(10000, 'x'));
        ZrJsonReader::SaveJsonFile(plain, sample());
        QCOMPARE(read(plain), QJsonDocument(sample()).toJson(QJsonDocument::Indented));
        QCOMPARE(ZrJsonReader::ParseJsonFileToObject(plain), sample());
        const QString secret = write("secret.dat", QByteArray(5000, 'x'));
        ZrJsonReader::CryptSaveJsonFile(secret, sample(), Key, Iv);
        QVERIFY(!read(secret).contains("Zo"));
        QCOMPARE(ZrJsonReader::DecryptParseJsonFile(secret, Key, Iv), sample());
        QVERIFY(ZrJsonReader::DecryptParseJsonFile(m_dir.filePath("missing"), Key, Iv).isEmpty());
        // Unwritable places: nothing happens, nothing breaks.
        ZrJsonReader::SaveJsonFile("/proc/zr-save.json", sample());
        ZrJsonReader::SaveJsonFile(m_dir.filePath("no/folder/x.json"), sample());
        ZrJsonReader::CryptSaveJsonFile("/proc/zr-save.json", sample(), Key, Iv);
        QVERIFY(!QFile::exists(m_dir.filePath("no")));
    }

    void encryptedFileNotStandardCbc()
    {
        if (QStandardPaths::findExecutable("openssl").isEmpty())
            QSKIP("openssl is not installed");
        const QString ours = m_dir.filePath("ours.dat");
        ZrJsonReader::CryptSaveJsonFile(ours, sample(), Key, Iv);
        QCOMPARE(openssl({"-d"}, read(ours)), QJsonDocument(sample()).toJson());
        const QByteArray theirs = openssl({}, QJsonDocument(sample()).toJson(QJsonDocument::Compact));
        QCOMPARE(ZrJsonReader::DecryptParseJsonFile(write("theirs.dat", theirs), Key, Iv), sample());
    }

    void damagedEncryptedFileNotEmpty_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("iv");
        const QString path = m_dir.filePath("good.dat");
        ZrJsonReader::CryptSaveJsonFile(path, sample(), Key, Iv);
        const QByteArray good = read(path), cipher = QByteArray::fromBase64(good);
        QByteArray changed = cipher;
        changed[changed.size() / 2] = char(changed.at(changed.size() / 2) ^ 0x55);
        QTest::newRow("wrong key") << good << QString(QByteArray(32, 'k').toBase64()) << Iv;
        QTest::newRow("IV too short") << good << Key << QString(QByteArray(8, 'i').toBase64());
        QTest::newRow("cut in half") << cipher.left(cipher.size() / 2 + 3).toBase64() << Key << Iv;
        QTest::newRow("byte changed in the middle") << changed.toBase64() << Key << Iv;
        QTest::newRow("NUL early") << QByteArray(good).insert(8, '\0') << Key << Iv;
        QTest::newRow("plain JSON, not encrypted") << QJsonDocument(sample()).toJson() << Key << Iv;
    }
    void damagedEncryptedFileNotEmpty()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, key);
        QFETCH(QString, iv);
        QCOMPARE(ZrJsonReader::DecryptParseJsonFile(write("damaged.dat", content), key, iv), QJsonObject());
    }
};

QTEST_GUILESS_MAIN(TestZrJsonReader)
#include "tst_zrjsonreader.moc"

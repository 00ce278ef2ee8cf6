// The JSON files, and the JSON text the library writes, which must be byte for byte the
// same on the Qt 5 and the Qt 6 build. The expected texts are what Qt 5 writes: the Qt 5
// run checks them against Qt's own writer, the Qt 6 run against the library's.
#include <ZrUtils/ZrJsonReader.h>
#include <ZrUtils/ZrSystem.h>

#include "FileHelpers.h"
#include "common/JsonText.h"

#include <QtTest>

#include <cmath>
#include <limits>

using ZrUtils::ZrJsonReader;
using ZrUtils::Internal::qt5JsonText;

// 32 bytes 00 01 .. 1f and 16 bytes f0 e0 .. 00, in Base64.
static const QString Key = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";
static const QString Iv = "8ODQwLCgkIBwYFBAMCAQAA==";

static QJsonObject sample()
{
    return QJsonObject {{"name", QString::fromUtf8("Zoë 世界")}, {"count", 42},
        {"list", QJsonArray {1, 2.5, true, QJsonValue()}}, {"nested", QJsonObject {{"k", "v"}}}};
}

static QJsonObject nested()
{
    return QJsonObject {
        {"b", QJsonObject {{"x", QJsonArray {1, QJsonObject()}}, {"y", QJsonArray()}}}, {"a", 0.0001}};
}
static QByteArray nestedText()
{
    return "{\n"
           "    \"a\": 0.0001,\n"
           "    \"b\": {\n"
           "        \"x\": [\n"
           "            1,\n"
           "            {\n"
           "            }\n"
           "        ],\n"
           "        \"y\": [\n"
           "        ]\n"
           "    }\n"
           "}\n";
}

class TestZrJsonReader : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

    QString write(const QString& name, const QByteArray& content)
    {
        writeFile(m_dir.filePath(name), content);
        return m_dir.filePath(name);
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
        const QString path = write("plain.json", content);
        const QJsonValue got = ZrJsonReader::ParseJsonFile(path, "b"); // == tells null from undefined
        QTEST(got, "valueOfB");
        QTEST(int(ZrJsonReader::ParseJsonFileToArray(path).size()), "arraySize");
        QCOMPARE(ZrJsonReader::ParseJsonFileToObject(path).isEmpty(), got.isNull());
        QVERIFY(ZrJsonReader::ParseJsonFile(m_dir.filePath("missing"), "b").isNull());
    }

    // Both saves write Qt 5's text, over longer old contents that they must cut off.
    void savedFileNotAsQt5WritesOrNotReadBack()
    {
        const QString plain = write("save.json", QByteArray(10000, 'x'));
        ZrJsonReader::SaveJsonFile(plain, nested());
        QCOMPARE(readFile(plain), nestedText());
        ZrJsonReader::SaveJsonFile(plain, sample());
        QCOMPARE(ZrJsonReader::ParseJsonFileToObject(plain), sample());
        const QString secret = write("secret.dat", QByteArray(5000, 'x'));
        ZrJsonReader::CryptSaveJsonFile(secret, nested(), Key, Iv);
        QCOMPARE(ZrUtils::ZrSystem::AesCbcDecryptFromBase64(QString::fromLatin1(readFile(secret)), Key, Iv),
            nestedText());
        QVERIFY(ZrJsonReader::DecryptParseJsonFile(m_dir.filePath("missing"), Key, Iv).isEmpty());
        // Unwritable places: nothing happens, nothing breaks.
        ZrJsonReader::SaveJsonFile("/proc/zr-save.json", sample());
        ZrJsonReader::SaveJsonFile(m_dir.filePath("no/folder/x.json"), sample());
        ZrJsonReader::CryptSaveJsonFile("/proc/zr-save.json", sample(), Key, Iv);
        QVERIFY(!QFile::exists(m_dir.filePath("no")));
    }

    void encryptedFileNotStandardCbc()
    {
        REQUIRE_TOOL("openssl");
        const QString ours = m_dir.filePath("ours.dat");
        ZrJsonReader::CryptSaveJsonFile(ours, sample(), Key, Iv);
        QCOMPARE(openssl({"-d"}, readFile(ours)), QJsonDocument(sample()).toJson());
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
        const QByteArray good = readFile(path), cipher = QByteArray::fromBase64(good);
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

    void textDiffersFromQt5_data()
    {
        QTest::addColumn<QJsonArray>("values");
        QTest::addColumn<QByteArray>("text");

        // Qt 6 writes 1e-04 and 1e+16; Qt 5 keeps the decimal form up to these bounds.
        QTest::newRow("smallFractions") << QJsonArray {0.0001, 0.00012, 0.00001, -2.5e-7}
                                        << QByteArray("[0.0001,0.00012,1e-05,-2.5e-07]");
        QTest::newRow("integralDoubles") << QJsonArray {1e16, 1.5e19, 18446744073709551616.0, 1e20, -3.0}
                                         << QByteArray("[10000000000000000,15000000000000000000,"
                                                       "18446744073709552000,1e+20,-3]");
        QTest::newRow("fractionsAroundExponentForm") << QJsonArray {1500000.0, 15000000.0, 123456.789,
            1234567.5, 12345678.5} << QByteArray("[1500000,15000000,123456.789,1234567.5,12345678.5]");
        // Qt 6 keeps 64-bit integers exact; Qt 5 stores every number as a double.
        QTest::newRow("int64RoundedAsDouble")
            << QJsonArray {qint64(9007199254740993), std::numeric_limits<qint64>::max(), qint64(-42)}
            << QByteArray("[9007199254740992,9223372036854776000,-42]");
        QTest::newRow("notFiniteAndNegativeZero")
            << QJsonArray {std::nan(""), std::numeric_limits<double>::infinity(), -0.0}
            << QByteArray("[null,null,0]");
        QTest::newRow("strings")
            << QJsonArray {QString::fromUtf8("\"\\/\b\f\n\r\t\x01\x1f\x7f é\u2028\U0001F600"),
                   QString(QChar(0xd800)) + "x", QString(QChar(0xdc00))}
            << QByteArray(
                   "[\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7f \xc3\xa9\xe2\x80\xa8\xf0\x9f\x98\x80\","
                   "\"\\ud800x\",\"\\udc00\"]");
        QTest::newRow("emptyAndNull") << QJsonArray {QJsonArray(), QJsonObject(), QJsonValue(), false,
            QString()} << QByteArray("[[],{},null,false,\"\"]");
    }
    void textDiffersFromQt5()
    {
        QFETCH(QJsonArray, values);
        QFETCH(QByteArray, text);
        const QJsonObject object {{"v", values}};
        const QByteArray expected = "{\"v\":" + text + "}";
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
        QCOMPARE(QJsonDocument(object).toJson(QJsonDocument::Compact), expected);
#endif
        QCOMPARE(qt5JsonText(object, QJsonDocument::Compact), expected);
    }

    void indentationDiffersFromQt5()
    {
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
        QCOMPARE(QJsonDocument(nested()).toJson(), nestedText());
        QCOMPARE(QJsonDocument(QJsonObject()).toJson(), QByteArray("{\n}\n"));
#endif
        QCOMPARE(qt5JsonText(nested(), QJsonDocument::Indented), nestedText());
        QCOMPARE(qt5JsonText(QJsonObject(), QJsonDocument::Indented), QByteArray("{\n}\n"));
    }
};

QTEST_GUILESS_MAIN(TestZrJsonReader)
#include "tst_zrjsonreader.moc"

// The JSON text the library writes must be byte for byte the same on the Qt 5 and
// the Qt 6 build. The expected texts are what Qt 5 writes: the Qt 5 run checks them
// against Qt's own writer, the Qt 6 run against the library's.
#include <ZrUtils/ZrJsonReader.h>
#include <ZrUtils/ZrSystem.h>

#include "common/JsonText.h"

#include <QtTest>

#include <cmath>
#include <limits>

using ZrUtils::Internal::qt5JsonText;

class TestJsonText : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

    static QByteArray read(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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

private slots:
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

    // The file store writes the same text, plain and under AES.
    void filesNotWrittenAsQt5Does()
    {
        QVERIFY(m_dir.isValid());
        const QString plain = m_dir.filePath("plain.json");
        ZrUtils::ZrJsonReader::SaveJsonFile(plain, nested());
        QCOMPARE(read(plain), nestedText());

        const QString key = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";
        const QString iv = "8ODQwLCgkIBwYFBAMCAQAA==";
        const QString crypted = m_dir.filePath("crypted.json");
        ZrUtils::ZrJsonReader::CryptSaveJsonFile(crypted, nested(), key, iv);
        QCOMPARE(ZrUtils::ZrSystem::AesCbcDecryptFromBase64(QString::fromLatin1(read(crypted)), key, iv),
            nestedText());
    }
};

QTEST_GUILESS_MAIN(TestJsonText)
#include "tst_jsontext.moc"

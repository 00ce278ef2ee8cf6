// Signatures are compared with MD5 digests computed by Python's hashlib over the
// expected string to sign, so a fault in our MD5 use cannot hide a fault in the
// string itself.
#include <ZrUtils/ZrHttpRequest.h>

#include <QJsonArray>
#include <QRegularExpression>
#include <QTest>

using ZrUtils::ZrHttpRequest;

class RequestSigningTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signObject_data();
    void signObject();
    void md5OfUtf8Bytes();
};

void RequestSigningTest::signObject_data()
{
    QTest::addColumn<QJsonObject>("object");
    QTest::addColumn<QString>("secret");
    QTest::addColumn<QString>("expected"); // md5(string to sign + secret)

    QTest::newRow("example") << QJsonObject {{"uid", "42"}, {"ts", 17}, {"vip", false}}
                             << QStringLiteral("k3y")
                             << QStringLiteral(
                                    "3e1b1a672b2faa827afb7d4fffbedef5"); // ts=17&uid=42&vip=falsek3y
    QTest::newRow("emptyObjectSignsSecretAlone")
        << QJsonObject() << QStringLiteral("secret") << QStringLiteral("5ebe2294ecd0e0f08eab7690d2a6ee69");
    QTest::newRow("emptySecretAddsNothing") << QJsonObject {{"a", 1}, {"b", "x"}} << QString()
                                            << QStringLiteral("6585055f1c6843313bebc3b76f94ee57");
    QTest::newRow("upperCaseKeySortsFirst")
        << QJsonObject {{"name", "a"}, {"Name", "B"}} << QStringLiteral("s")
        << QStringLiteral("ba5ed329a327b4d0888a5b4a1c36c2d5");
    QTest::newRow("nestedValuesLeftOut")
        << QJsonObject {{"z", 1}, {"arr", QJsonArray {1, 2}}, {"obj", QJsonObject {{"k", "v"}}},
               {"n", QJsonValue::Null}}
        << QStringLiteral("s") << QStringLiteral("5dc43e74a62f5c9d5ec592768ab588a8"); // arr=&n=&obj=&z=1
    QTest::newRow("integralDoublesWithoutFraction") << QJsonObject {{"a", 3.0}, {"b", -7.0},
        {"c", 0.0}} << QStringLiteral("s") << QStringLiteral("435c055ea17af7126f7b769ecd08cc72");
    QTest::newRow("fractionsFifteenDigits")
        << QJsonObject {{"a", 0.5}, {"b", 1e20}, {"c", 0.1}, {"d", -2.5e-7}} << QStringLiteral("s")
        << QStringLiteral("dea2711d75d0480aea31fe1f47dccb82");
    // 2^63 passes the inclusive bound and wraps to the lowest 64-bit value.
    QTest::newRow("twoPow63Wraps") << QJsonObject {{"big", 9223372036854775808.0},
        {"neg", -9223372036854775808.0}}
                                   << QStringLiteral("s")
                                   << QStringLiteral("ba059c3d7ec0032e48cc14306efab175");
    QTest::newRow("beyondTwoPow63IsFloatText")
        << QJsonObject {{"big", 18446744073709551616.0}} << QStringLiteral("s")
        << QStringLiteral("f93d7f12df8a003f3ab5e6c204cf26f4");
    QTest::newRow("nonAsciiAsUtf8") << QJsonObject {{"name", QStringLiteral("张三")},
        {"city", QStringLiteral("Zürich")}}
                                    << QStringLiteral("密钥")
                                    << QStringLiteral("ff4656bbf84b6da472fb1e8586b06fcd");
    QTest::newRow("emptyStringEndsWithEquals") << QJsonObject {{"a", ""}, {"b", "x"}} << QStringLiteral("s")
                                               << QStringLiteral("1d879ffe20442da31850e9e81142f1b1");
    // U+1D11E is the surrogate pair D834 DD1E, which sorts before U+FFFF by code units.
    QTest::newRow("keysInUtf16Order")
        << QJsonObject {{QStringLiteral("\uFFFF"), 4}, {QString::fromUtf8("\xF0\x9D\x84\x9E"), 3}, {"a", 2},
               {"Z", 1}}
        << QStringLiteral("s") << QStringLiteral("a310e856275e52e1713e09bfe561f3ff");
}

void RequestSigningTest::signObject()
{
    QFETCH(QJsonObject, object);
    QFETCH(QString, secret);
    QFETCH(QString, expected);

    const QString signature = ZrHttpRequest::SignObject(object, secret);
    QCOMPARE(signature, expected);
    QVERIFY(QRegularExpression(QStringLiteral("^[0-9a-f]{32}$")).match(signature).hasMatch());
}

void RequestSigningTest::md5OfUtf8Bytes()
{
    QCOMPARE(ZrHttpRequest::GetStringMd5(QString()), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    // "é" must be hashed as C3 A9, not as the Latin-1 byte E9.
    QCOMPARE(
        ZrHttpRequest::GetStringMd5(QStringLiteral("é")), QStringLiteral("66ddcd97cfdeabb2f6fb8a999b4bc76f"));
}

QTEST_GUILESS_MAIN(RequestSigningTest)
#include "tst_requestsigning.moc"

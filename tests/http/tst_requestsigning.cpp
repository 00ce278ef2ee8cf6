// Each row is named after the string it signs; the expected digest is Python's
// hashlib MD5 of that string, so a fault in our MD5 use cannot hide a fault in it.
#include <ZrUtils/ZrHttpRequest.h>

#include <QJsonArray>
#include <QTest>

using ZrUtils::ZrHttpRequest;

class RequestSigningTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signObject_data()
    {
        QTest::addColumn<QJsonObject>("object");
        QTest::addColumn<QString>("secret");
        QTest::addColumn<QString>("expected");
        auto row = [](const char* name, const char* secret, const char* md5, const QJsonObject& object) {
            QTest::newRow(name) << object << QString::fromUtf8(secret) << QString::fromLatin1(md5);
        };
        row("ts=17&uid=42&vip=falsek3y", "k3y", "3e1b1a672b2faa827afb7d4fffbedef5",
            {{"uid", "42"}, {"ts", 17}, {"vip", false}});
        row("secret: an empty object", "secret", "5ebe2294ecd0e0f08eab7690d2a6ee69", {});
        row("a=&b=x: no secret, empty string", "", "55a2e24c272250ed039ce0124aa0af13",
            {{"a", ""}, {"b", "x"}});
        // Case-sensitive, and U+1D11E is the surrogate pair D834 DD1E, which sorts before U+FFFF.
        row("Name=B&Z=1&a=2&name=a&U+1D11E=3&U+FFFF=4s", "s", "ac01b3e39c5892cb22d8ede26178b88d",
            {{"name", "a"}, {"Name", "B"}, {QStringLiteral("\uFFFF"), 4},
                {QString::fromUtf8("\xF0\x9D\x84\x9E"), 3}, {"a", 2}, {"Z", 1}});
        row("arr=&n=&obj=&z=1s", "s", "5dc43e74a62f5c9d5ec592768ab588a8",
            {{"z", 1}, {"arr", QJsonArray {1, 2}}, {"obj", QJsonObject {{"k", "v"}}},
                {"n", QJsonValue::Null}});
        row("a=3&b=-7&c=0&d=0.5&e=1e+20&f=0.1&g=-2.5e-07s", "s", "e130d0aef330574f7f249d2f3807b593",
            {{"a", 3.0}, {"b", -7.0}, {"c", 0.0}, {"d", 0.5}, {"e", 1e20}, {"f", 0.1}, {"g", -2.5e-7}});
        // 2^63 passes the inclusive bound and wraps to the lowest 64-bit value; 2^64 does not.
        row("big=-9223372036854775808&huge=1.84467440737096e+19&neg=-9223372036854775808s", "s",
            "10f5acdaf69ce76dbac955f9c5a8971b",
            {{"big", 9223372036854775808.0}, {"neg", -9223372036854775808.0},
                {"huge", 18446744073709551616.0}});
        row("city=Zürich&name=张三密钥", "密钥", "ff4656bbf84b6da472fb1e8586b06fcd",
            {{"name", QStringLiteral("张三")}, {"city", QStringLiteral("Zürich")}});
    }
    void signObject()
    {
        QFETCH(QJsonObject, object);
        QFETCH(QString, secret);
        QTEST(ZrHttpRequest::SignObject(object, secret), "expected");
    }
};

QTEST_GUILESS_MAIN(RequestSigningTest)
#include "tst_requestsigning.moc"

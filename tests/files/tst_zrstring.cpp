#include <ZrUtils/ZrString.h>

#include <QtTest>

#include <climits>

using ZrUtils::ZrString;

class TestZrString : public QObject
{
    Q_OBJECT

private slots:
    void maskedWrongly_data()
    {
        QTest::addColumn<bool>("email"); // else a phone number
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("head"); // the e-mail's keep
        QTest::addColumn<int>("tail");
        QTest::addColumn<QString>("masked");
        QTest::newRow("email keep 2") << true << "alice@x.cn" << 2 << 0 << "al***@x.cn";
        QTest::newRow("email keep whole local part") << true << "alice@x.cn" << 5 << 0 << "alice@x.cn";
        QTest::newRow("email negative keep masks all") << true << "alice@x.cn" << -3 << 0 << "*****@x.cn";
        QTest::newRow("email huge keep") << true << "alice@x.cn" << INT_MAX << 0 << "alice@x.cn";
        QTest::newRow("email no at sign") << true << "alice" << 1 << 0 << "alice";
        QTest::newRow("email first at sign counts") << true << "a.b@c@d" << 1 << 0 << "a**@c@d";
        QTest::newRow("email at first") << true << "@x.cn" << 0 << 0 << "@x.cn";
        QTest::newRow("phone mobile") << false << "13812345678" << 3 << 4 << "138****5678";
        QTest::newRow("phone exactly head plus tail") << false << "1234567" << 3 << 4 << "1234567";
        QTest::newRow("phone negative counts mask all") << false << "12345" << -1 << -9 << "*****";
        QTest::newRow("phone no tail") << false << "12345" << 2 << 0 << "12***";
        QTest::newRow("phone huge counts do not wrap") << false << "12345" << INT_MAX << INT_MAX << "12345";
    }
    void maskedWrongly()
    {
        QFETCH(bool, email);
        QFETCH(QString, text);
        QFETCH(int, head);
        QFETCH(int, tail);
        QFETCH(QString, masked);
        QCOMPARE(email ? ZrString::MaskEmailString(text, head) : ZrString::MaskPhoneString(text, head, tail),
            masked);
    }
};

QTEST_GUILESS_MAIN(TestZrString)
#include "tst_zrstring.moc"

#include <ZrUtils/ZrString.h>

#include <QtTest>

#include <climits>

using ZrUtils::ZrString;

class TestZrString : public QObject
{
    Q_OBJECT

private slots:
    void emailMaskedWrongly_data()
    {
        QTest::addColumn<QString>("email");
        QTest::addColumn<int>("keep");
        QTest::addColumn<QString>("masked");
        QTest::newRow("keep 2") << "alice@example.com" << 2 << "al***@example.com";
        QTest::newRow("keep all of the local part") << "alice@example.com" << 5 << "alice@example.com";
        QTest::newRow("keep more than the local part") << "alice@example.com" << 9 << "alice@example.com";
        QTest::newRow("negative keep masks all") << "alice@example.com" << -3 << "*****@example.com";
        QTest::newRow("huge keep") << "alice@example.com" << INT_MAX << "alice@example.com";
        QTest::newRow("no at sign") << "alice" << 1 << "alice";
        QTest::newRow("first at sign counts") << "a.b@c@d" << 1 << "a**@c@d";
        QTest::newRow("empty") << "" << 0 << "";
        QTest::newRow("at first") << "@example.com" << 0 << "@example.com";
    }
    void emailMaskedWrongly()
    {
        QFETCH(QString, email);
        QFETCH(int, keep);
        QFETCH(QString, masked);
        QCOMPARE(ZrString::MaskEmailString(email, keep), masked);
    }

    void phoneMaskedWrongly_data()
    {
        QTest::addColumn<QString>("phone");
        QTest::addColumn<int>("head");
        QTest::addColumn<int>("tail");
        QTest::addColumn<QString>("masked");
        QTest::newRow("mobile") << "13812345678" << 3 << 4 << "138****5678";
        QTest::newRow("exactly head plus tail") << "1234567" << 3 << 4 << "1234567";
        QTest::newRow("shorter") << "123" << 3 << 4 << "123";
        QTest::newRow("negative counts mask all") << "12345" << -1 << -9 << "*****";
        QTest::newRow("no tail") << "12345" << 2 << 0 << "12***";
        QTest::newRow("huge counts do not wrap") << "12345" << INT_MAX << INT_MAX << "12345";
        QTest::newRow("empty") << "" << 0 << 0 << "";
    }
    void phoneMaskedWrongly()
    {
        QFETCH(QString, phone);
        QFETCH(int, head);
        QFETCH(int, tail);
        QFETCH(QString, masked);
        QCOMPARE(ZrString::MaskPhoneString(phone, head, tail), masked);
    }
};

QTEST_GUILESS_MAIN(TestZrString)
#include "tst_zrstring.moc"

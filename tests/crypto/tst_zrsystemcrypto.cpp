// The AES-CBC text helpers are pinned to the published AES-256-CBC vectors, so a
// fault in the base64/hex plumbing cannot hide behind a round trip.
#include <ZrUtils/ZrSystem.h>

#include <QTest>

using ZrUtils::ZrSystem;

namespace
{

const QByteArray kKey
    = QByteArray::fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
const QByteArray kIv = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
const QByteArray kPlain
    = QByteArray::fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                          "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
const QByteArray kCipher
    = QByteArray::fromHex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                          "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");

QString b64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

} // namespace

class ZrSystemCryptoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void base64EncryptionNotStandardCbc();
    void base64DecryptionLeavesPadding();
    void hexAndStringFormsDisagree();
    void badInputNotEmpty_data();
    void badInputNotEmpty();
    void xorNotInvolutive_data();
    void xorNotInvolutive();
    void reservedEntryPointsNotEmpty();
};

void ZrSystemCryptoTest::base64EncryptionNotStandardCbc()
{
    const QByteArray out = ZrSystem::AesCbcCryptFromBase64(b64(kPlain), b64(kKey), b64(kIv));
    const QByteArray raw = QByteArray::fromBase64(out);
    // Four published blocks, then a whole block of PKCS #7 padding; no IV in front.
    QCOMPARE(raw.size(), 80);
    QCOMPARE(raw.left(64).toHex(), kCipher.toHex());
    QCOMPARE(out, raw.toBase64());

    // Sixteen bytes in: thirty-two out.
    const QByteArray one = ZrSystem::AesCbcCryptFromBase64(b64(kPlain.left(16)), b64(kKey), b64(kIv));
    QCOMPARE(QByteArray::fromBase64(one).size(), 32);
    QCOMPARE(
        ZrSystem::AesCbcDecryptFromBase64(QString::fromLatin1(one), b64(kKey), b64(kIv)), kPlain.left(16));
}

void ZrSystemCryptoTest::base64DecryptionLeavesPadding()
{
    for (int length : {0, 1, 15, 16, 17, 63}) {
        const QByteArray plain = kPlain.left(length);
        const QByteArray cipher = ZrSystem::AesCbcCryptFromBase64(b64(plain), b64(kKey), b64(kIv));
        QCOMPARE(ZrSystem::AesCbcDecryptFromBase64(QString::fromLatin1(cipher), b64(kKey), b64(kIv)), plain);
    }
}

void ZrSystemCryptoTest::hexAndStringFormsDisagree()
{
    const QByteArray cipher
        = QByteArray::fromBase64(ZrSystem::AesCbcCryptFromBase64(b64("hello, world"), b64(kKey), b64(kIv)));
    const QByteArray expected = "hello, world";
    QCOMPARE(ZrSystem::AesCbcDecryptFromBase64(b64(cipher), b64(kKey), b64(kIv)), expected);
    QCOMPARE(ZrSystem::AesCbcDecryptFromString(b64(kIv + cipher), b64(kKey)), expected);
    QCOMPARE(ZrSystem::AesCbcDecryptFromHex(
                 QString::fromLatin1((kIv + cipher).toHex()), QString::fromLatin1(kKey.toHex())),
        expected);
    // Upper-case hex and stray separators are read the same way.
    QCOMPARE(ZrSystem::AesCbcDecryptFromHex(
                 QString::fromLatin1((kIv + cipher).toHex(':').toUpper()), QString::fromLatin1(kKey.toHex())),
        expected);
}

void ZrSystemCryptoTest::badInputNotEmpty_data()
{
    QTest::addColumn<int>("function");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("iv");

    QTest::newRow("encryptShortIv") << 0 << b64("abc") << b64(kKey) << b64(kIv.left(15));
    QTest::newRow("encryptLongIv") << 0 << b64("abc") << b64(kKey) << b64(kIv + "x");
    QTest::newRow("decryptEmptyIv") << 1 << b64(kCipher) << b64(kKey) << QString();
    QTest::newRow("decryptEmptyText") << 1 << QString() << b64(kKey) << b64(kIv);
    QTest::newRow("hexShorterThanIv")
        << 2 << QString::fromLatin1(kIv.left(15).toHex()) << QString::fromLatin1(kKey.toHex()) << QString();
    QTest::newRow("hexIvOnly") << 2 << QString::fromLatin1(kIv.toHex()) << QString::fromLatin1(kKey.toHex())
                               << QString();
    QTest::newRow("hexNotHexAtAll") << 2 << QStringLiteral("zz-not-hex") << QStringLiteral("??") << QString();
    QTest::newRow("stringShorterThanIv") << 3 << b64(kIv.left(10)) << b64(kKey) << QString();
    QTest::newRow("stringEmpty") << 3 << QString() << QString() << QString();
}

void ZrSystemCryptoTest::badInputNotEmpty()
{
    QFETCH(int, function);
    QFETCH(QString, text);
    QFETCH(QString, key);
    QFETCH(QString, iv);
    QByteArray result;
    switch (function) {
    case 0:
        result = ZrSystem::AesCbcCryptFromBase64(text, key, iv);
        break;
    case 1:
        result = ZrSystem::AesCbcDecryptFromBase64(text, key, iv);
        break;
    case 2:
        result = ZrSystem::AesCbcDecryptFromHex(text, key);
        break;
    default:
        result = ZrSystem::AesCbcDecryptFromString(text, key);
        break;
    }
    QVERIFY(result.isEmpty());
}

void ZrSystemCryptoTest::xorNotInvolutive_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<char>("key");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("empty") << QByteArray() << char(0x5a) << QByteArray();
    QTest::newRow("zeroKeyIsIdentity") << QByteArray("abc") << char(0) << QByteArray("abc");
    QTest::newRow("everyByte") << QByteArray::fromHex("00ff0f") << char(0x0f)
                               << QByteArray::fromHex("0ff000");
    QTest::newRow("highBitKey") << QByteArray::fromHex("80017f") << char(0x80)
                                << QByteArray::fromHex("0081ff");
}

void ZrSystemCryptoTest::xorNotInvolutive()
{
    QFETCH(QByteArray, data);
    QFETCH(char, key);
    QFETCH(QByteArray, expected);
    const QByteArray once = ZrSystem::GetEncryptDecryptByte(data, key);
    QCOMPARE(once.toHex(), expected.toHex());
    QCOMPARE(ZrSystem::GetEncryptDecryptByte(once, key), data);
}

void ZrSystemCryptoTest::reservedEntryPointsNotEmpty()
{
    QVERIFY(ZrSystem::RsaPublicEncrypt(QStringLiteral("text"), QStringLiteral("key")).isEmpty());
    QVERIFY(ZrSystem::RsaPrivateDecrypt(QStringLiteral("text"), QStringLiteral("key")).isEmpty());
    const QByteArray gcm
        = ZrSystem::AesGcmDecryptFromHex(QStringLiteral("00"), QStringLiteral("11"), QStringLiteral("22"));
    QVERIFY(gcm.isEmpty());
    QVERIFY(!gcm.isNull());
}

QTEST_GUILESS_MAIN(ZrSystemCryptoTest)
#include "tst_zrsystemcrypto.moc"

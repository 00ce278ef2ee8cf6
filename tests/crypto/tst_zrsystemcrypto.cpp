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

const auto b64 = [](const QByteArray& bytes) { return QString::fromLatin1(bytes.toBase64()); };
const auto hexText = [](const QByteArray& bytes) { return QString::fromLatin1(bytes.toHex()); };

} // namespace

class ZrSystemCryptoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cbcDisagreesWithVectors()
    {
        const QByteArray raw
            = QByteArray::fromBase64(ZrSystem::AesCbcCryptFromBase64(b64(kPlain), b64(kKey), b64(kIv)));
        // Four published blocks, then a whole block of PKCS #7 padding; no IV in front.
        QCOMPARE(raw.size(), 80);
        QCOMPARE(raw.left(64).toHex(), kCipher.toHex());
        // Upper-case hex and stray separators are read the same way.
        QCOMPARE(ZrSystem::AesCbcDecryptFromHex(
                     QString::fromLatin1((kIv + raw).toHex(':').toUpper()), hexText(kKey)),
            kPlain);

        // Every decrypting form strips the padding again, whatever the length.
        for (int length : {0, 1, 15, 16, 17, 63}) {
            const QByteArray plain = kPlain.left(length);
            const QByteArray cipher
                = QByteArray::fromBase64(ZrSystem::AesCbcCryptFromBase64(b64(plain), b64(kKey), b64(kIv)));
            QCOMPARE(cipher.size(), (length / 16 + 1) * 16);
            QCOMPARE(ZrSystem::AesCbcDecryptFromBase64(b64(cipher), b64(kKey), b64(kIv)), plain);
            QCOMPARE(ZrSystem::AesCbcDecryptFromString(b64(kIv + cipher), b64(kKey)), plain);
            QCOMPARE(ZrSystem::AesCbcDecryptFromHex(hexText(kIv + cipher), hexText(kKey)), plain);
        }
    }
    void badInputNotEmpty_data()
    {
        QTest::addColumn<QByteArray>("result");
        QTest::newRow("encryptLongIv")
            << ZrSystem::AesCbcCryptFromBase64(b64("abc"), b64(kKey), b64(kIv + "x"));
        QTest::newRow("decryptEmptyIv")
            << ZrSystem::AesCbcDecryptFromBase64(b64(kCipher), b64(kKey), QString());
        QTest::newRow("hexShorterThanIv")
            << ZrSystem::AesCbcDecryptFromHex(hexText(kIv.left(15)), hexText(kKey));
        QTest::newRow("hexNotHexAtAll") << ZrSystem::AesCbcDecryptFromHex(QStringLiteral("zz-not-hex"), "??");
        QTest::newRow("stringShorterThanIv")
            << ZrSystem::AesCbcDecryptFromString(b64(kIv.left(10)), b64(kKey));
    }
    void badInputNotEmpty()
    {
        QFETCH(QByteArray, result);
        QVERIFY(result.isEmpty());
    }
    void xorNotInvolutive_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<char>("key");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("empty") << QByteArray() << char(0x5a) << QByteArray();
        QTest::newRow("zeroKeyIsIdentity") << QByteArray("abc") << char(0) << QByteArray("abc");
        QTest::newRow("highBitKey") << QByteArray::fromHex("80017f") << char(0x80)
                                    << QByteArray::fromHex("0081ff");
    }
    void xorNotInvolutive()
    {
        QFETCH(QByteArray, data);
        QFETCH(char, key);
        QFETCH(QByteArray, expected);
        QCOMPARE(ZrSystem::GetEncryptDecryptByte(data, key).toHex(), expected.toHex());
        QCOMPARE(ZrSystem::GetEncryptDecryptByte(expected, key), data);
    }
    void reservedEntryPointsNotEmpty()
    {
        QVERIFY(ZrSystem::RsaPublicEncrypt(QStringLiteral("text"), QStringLiteral("key")).isEmpty());
        QVERIFY(ZrSystem::RsaPrivateDecrypt(QStringLiteral("text"), QStringLiteral("key")).isEmpty());
        const QByteArray gcm
            = ZrSystem::AesGcmDecryptFromHex(QStringLiteral("00"), QStringLiteral("11"), "22");
        QVERIFY(gcm.isEmpty() && !gcm.isNull());
    }
};

QTEST_GUILESS_MAIN(ZrSystemCryptoTest)
#include "tst_zrsystemcrypto.moc"

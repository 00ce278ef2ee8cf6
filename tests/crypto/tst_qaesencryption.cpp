// The cipher is checked against OpenSSL's EVP ciphers (padding applied by hand), on
// both the AES-instruction path and the portable path, which must also agree with each
// other byte for byte. The AES-CBC text helpers of ZrSystem are pinned to the published
// AES-256-CBC vectors, so a fault in their base64/hex plumbing cannot hide behind a
// round trip.
#include <ZrUtils/QAESEncryption.h>
#include <ZrUtils/ZrSystem.h>

#include "crypto/AesEngine.h"

#include <QRandomGenerator>
#include <QTest>

#include <openssl/evp.h>

#include <memory>

using AES = ZrUtils::QAESEncryption;
using ZrUtils::ZrSystem;
namespace Internal = ZrUtils::Internal;

Q_DECLARE_METATYPE(AES::Aes)
Q_DECLARE_METATYPE(AES::Mode)
Q_DECLARE_METATYPE(AES::Padding)

namespace
{

const char* const kModes[] = {"ecb", "cbc", "cfb", "ofb"};

const auto unhex = [](const char* text) { return QByteArray::fromHex(text); };
const auto bytes = [](const QByteArray& a) { return reinterpret_cast<const unsigned char*>(a.constData()); };
const auto b64 = [](const QByteArray& a) { return QString::fromLatin1(a.toBase64()); };
const auto hexText = [](const QByteArray& a) { return QString::fromLatin1(a.toHex()); };

// NIST SP 800-38A, AES-256-CBC.
const QByteArray kKey = unhex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
const QByteArray kIv = unhex("000102030405060708090a0b0c0d0e0f");
const QByteArray kPlain = unhex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                                "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
const QByteArray kCipher = unhex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                                 "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");

QByteArray randomBytes(QRandomGenerator& rng, int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& b : bytes)
        b = static_cast<char>(rng.bounded(256));
    return bytes;
}

// Runs the checks on the portable path and on the AES instructions (the portable path
// twice where there are none); a failure names the path it happened on.
template<typename Checks> void onEachEngine(Checks checks)
{
    for (bool hardware : {false, Internal::aesHardwareSupported()}) {
        Internal::setAesHardwareAllowed(hardware);
        checks(hardware);
        if (QTest::currentTestFailed())
            return qWarning("on the %s path", hardware ? "AES-instruction" : "portable");
    }
}

// PKCS7 adds a whole block to aligned text and ISO adds nothing: both on purpose.
QByteArray handPadding(AES::Padding padding, int size)
{
    const int missing = (16 - size % 16) % 16;
    if (padding == AES::PKCS7) {
        const int count = missing == 0 ? 16 : missing;
        return QByteArray(count, static_cast<char>(count));
    }
    if (padding == AES::ISO)
        return missing == 0 ? QByteArray() : '\x80' + QByteArray(missing - 1, '\0');
    return QByteArray(missing, '\0');
}

QByteArray openSslEncrypt(
    AES::Aes level, AES::Mode mode, const QByteArray& padded, const QByteArray& key, const QByteArray& iv)
{
    static const EVP_CIPHER* (*const ciphers[3][4])() = {
        {EVP_aes_128_ecb, EVP_aes_128_cbc, EVP_aes_128_cfb128, EVP_aes_128_ofb},
        {EVP_aes_192_ecb, EVP_aes_192_cbc, EVP_aes_192_cfb128, EVP_aes_192_ofb},
        {EVP_aes_256_ecb, EVP_aes_256_cbc, EVP_aes_256_cfb128, EVP_aes_256_ofb},
    };
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(
        EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    QByteArray out(padded.size() + 32, '\0');
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    int len = 0;
    int tail = 0;
    EVP_EncryptInit_ex(
        ctx.get(), ciphers[level][mode](), nullptr, bytes(key), mode == AES::ECB ? nullptr : bytes(iv));
    EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
    EVP_EncryptUpdate(ctx.get(), o, &len, bytes(padded), padded.size());
    EVP_EncryptFinal_ex(ctx.get(), o + len, &tail);
    return out.left(len + tail);
}

} // namespace

class QAESEncryptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { Internal::setAesHardwareAllowed(true); }

    void disagreesWithOpenSsl_data()
    {
        QTest::addColumn<AES::Aes>("level");
        QTest::addColumn<AES::Mode>("mode");
        for (int level = 0; level < 3; ++level)
            for (int mode = 0; mode < 4; ++mode)
                QTest::addRow("aes%d/%s", 128 + 64 * level, kModes[mode])
                    << AES::Aes(level) << AES::Mode(mode);
    }
    void disagreesWithOpenSsl()
    {
        QFETCH(AES::Aes, level);
        QFETCH(AES::Mode, mode);
        // Decoding the unaligned plain text as well makes both paths run the short tails,
        // which must agree.
        QByteArrayList tails[2];
        onEachEngine([&](bool hardware) {
            QRandomGenerator rng(0x5eed0000u + 16 * level + mode);
            QVector<int> lengths = {0, 1, 15, 16, 17, 31, 32, 33, 127, 128, 129, 4099};
            for (int i = 0; i < 24; ++i)
                lengths.append(rng.bounded(600));
            for (int length : qAsConst(lengths)) {
                for (AES::Padding padding : {AES::ZERO, AES::PKCS7, AES::ISO, AES::Padding(7)}) {
                    const QByteArray key = randomBytes(rng, 16 + 8 * level);
                    const QByteArray iv = randomBytes(rng, 16);
                    const QByteArray plain = randomBytes(rng, length);
                    const QByteArray padded = plain + handPadding(padding, length);
                    const QByteArray ours = AES::Crypt(level, mode, plain, key, iv, padding);
                    QVERIFY2(ours == openSslEncrypt(level, mode, padded, key, iv),
                        qPrintable(QStringLiteral("length %1 padding %2").arg(length).arg(padding)));
                    QCOMPARE(AES::Decrypt(level, mode, ours, key, iv, padding), padded);
                    tails[hardware].append(AES::Decrypt(level, mode, plain, key, iv, padding));
                }
            }
        });
        if (Internal::aesHardwareSupported())
            QVERIFY(tails[1] == tails[0]);
    }
    void paddingRemovedWrongly_data()
    {
        QTest::addColumn<AES::Padding>("padding");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("expected");
        auto row = [](const char* name, AES::Padding padding, const char* text, const char* expected) {
            QTest::newRow(name) << padding << unhex(text) << unhex(expected);
        };
        row("emptyStaysEmpty", AES::PKCS7, "", "");
        row("pkcs7CountFromLastByte", AES::PKCS7, "aa030303", "aa");
        row("pkcs7PadBytesNotChecked", AES::PKCS7, "aa0b0b02", "aa0b");
        row("pkcs7ZeroCountKeepsText", AES::PKCS7, "aa00", "aa00");
        row("pkcs7NegativeCountKeepsText", AES::PKCS7, "aa90", "aa90");
        row("pkcs7CountBeyondTextKeepsText", AES::PKCS7, "0505", "0505");
        row("isoMarkerAndZeros", AES::ISO, "aa800000", "aa");
        row("isoOtherByteKeepsText", AES::ISO, "aa8100", "aa8100");
        row("isoAllZerosKept", AES::ISO, "000000", "000000");
        row("zeroStripsEveryTrailingZero", AES::ZERO, "00aa000000", "00aa");
        row("zeroStopsOnEmpty", AES::ZERO, "000000", "");
        row("unknownPaddingKeepsText", AES::Padding(9), "aa00", "aa00");
    }
    void paddingRemovedWrongly()
    {
        QFETCH(AES::Padding, padding);
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, expected);
        QCOMPARE(AES::RemovePadding(text, padding).toHex(), expected.toHex());
        QCOMPARE(AES(AES::AES_128, AES::ECB, padding).removePadding(text).toHex(), expected.toHex());
    }
    void badParameterNotRejected()
    {
        const QByteArray key(32, 'k');
        const QByteArray data(48, 'd');
        for (AES::Mode mode : {AES::CBC, AES::CFB, AES::OFB}) {
            for (int ivLength : {0, 15, 17}) {
                const QByteArray iv(ivLength, 'i');
                QVERIFY2(AES::Crypt(AES::AES_256, mode, data, key, iv, AES::PKCS7).isEmpty(), kModes[mode]);
                QVERIFY2(AES::Decrypt(AES::AES_256, mode, data, key, iv, AES::PKCS7).isEmpty(), kModes[mode]);
            }
        }
        // ECB never looks at the IV.
        QCOMPARE(AES::Crypt(AES::AES_256, AES::ECB, data, key, "short"),
            AES::Crypt(AES::AES_256, AES::ECB, data, key));

        const QByteArray iv(16, 'i');
        QVERIFY(AES::Crypt(AES::AES_128, AES::Mode(4), "text", key, iv).isEmpty());
        QVERIFY(AES::Decrypt(AES::AES_128, AES::Mode(-1), data, key, iv).isEmpty());
        // An unknown level is AES-128, even with a longer key.
        QCOMPARE(AES::Crypt(AES::Aes(5), AES::CBC, "text", key, iv),
            AES::Crypt(AES::AES_128, AES::CBC, "text", key.left(16), iv));

        // A ciphertext tail shorter than a block decodes as a short block: a whole block
        // out in ECB and CBC, its own length in CFB and OFB; the blocks in front decode as usual.
        for (AES::Mode mode : {AES::ECB, AES::CBC, AES::CFB, AES::OFB}) {
            const QByteArray plain = AES::Decrypt(AES::AES_256, mode, data + "tail", key, iv);
            QCOMPARE(plain.size(), mode == AES::ECB || mode == AES::CBC ? 64 : 52);
            QCOMPARE(plain.left(48), AES::Decrypt(AES::AES_256, mode, data, key, iv));
        }
    }
    void keyScheduleWrong()
    {
        const QByteArray key = unhex("2b7e151628aed2a6abf7158809cf4f3c2b7e151628aed2a6abf7158809cf4f3c");
        // The AES-128 key and its last round key are the worked example of the standard.
        const QByteArray schedule = AES::ExpandKey(AES::AES_128, AES::CBC, key.left(16));
        QCOMPARE(schedule.size(), 176);
        QCOMPARE(schedule.right(16).toHex(), QByteArray("d014f9a8c9ee2589e13f0cc8b6630ca6"));
        QCOMPARE(AES::ExpandKey(AES::AES_192, AES::CBC, key.left(24)).size(), 208); // whole words
        // The nominal figure stays 209 on purpose, although nothing reads it.
        QCOMPARE(AES(AES::AES_192, AES::CBC).expandedKey, 209);
        QCOMPARE(AES::ExpandKey(AES::AES_256, AES::CBC, key).size(), 240);

        // A key surplus rides behind the schedule and never reaches the cipher.
        const QByteArray longKey = key + "surplus!";
        const QByteArray iv(16, '\x07');
        QCOMPARE(AES::ExpandKey(AES::AES_256, AES::ECB, longKey),
            AES::ExpandKey(AES::AES_256, AES::ECB, key) + "surplus!");
        QCOMPARE(AES::Crypt(AES::AES_256, AES::CBC, "secret", longKey, iv),
            AES::Crypt(AES::AES_256, AES::CBC, "secret", key, iv));

        // A short key acts as if zero-filled; under AddressSanitizer this also proves
        // nothing reads past its end.
        onEachEngine([&](bool) {
            QCOMPARE(AES::Crypt(AES::AES_256, AES::CBC, "secret", unhex("0102030405"), iv),
                AES::Crypt(AES::AES_256, AES::CBC, "secret", unhex("0102030405") + QByteArray(27, '\0'), iv));
            QCOMPARE(AES::Crypt(AES::AES_128, AES::ECB, "secret", QByteArray()),
                AES::Crypt(AES::AES_128, AES::ECB, "secret", QByteArray(16, '\0')));
        });
    }
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
        QTest::newRow("hexShorterThanIv")
            << ZrSystem::AesCbcDecryptFromHex(hexText(kIv.left(15)), hexText(kKey));
        QTest::newRow("hexNotHexAtAll") << ZrSystem::AesCbcDecryptFromHex(QStringLiteral("zz-not-hex"), "??");
    }
    void badInputNotEmpty()
    {
        QFETCH(QByteArray, result);
        QVERIFY(result.isEmpty());
    }
    void xorNotInvolutive()
    {
        // The high bit of the key must not spread as a sign.
        QCOMPARE(ZrSystem::GetEncryptDecryptByte(unhex("80017f"), char(0x80)).toHex(), QByteArray("0081ff"));
        QCOMPARE(ZrSystem::GetEncryptDecryptByte(unhex("0081ff"), char(0x80)).toHex(), QByteArray("80017f"));
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

QTEST_GUILESS_MAIN(QAESEncryptionTest)
#include "tst_qaesencryption.moc"

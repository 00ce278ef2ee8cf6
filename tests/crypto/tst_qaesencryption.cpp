// The cipher is checked against published known-answer vectors and against
// OpenSSL's EVP ciphers (padding applied by hand), on both the AES-instruction path
// and the portable path, which must also agree with each other byte for byte.
#include <ZrUtils/QAESEncryption.h>

#include "crypto/AesEngine.h"

#include <QRandomGenerator>
#include <QTest>

#include <openssl/evp.h>

#include <memory>

using AES = ZrUtils::QAESEncryption;
namespace Internal = ZrUtils::Internal;

Q_DECLARE_METATYPE(AES::Aes)
Q_DECLARE_METATYPE(AES::Mode)
Q_DECLARE_METATYPE(AES::Padding)

namespace
{

const char* const kModes[] = {"ecb", "cbc", "cfb", "ofb"};

const auto unhex = [](const char* text) { return QByteArray::fromHex(text); };
const auto bytes = [](const QByteArray& a) { return reinterpret_cast<const unsigned char*>(a.constData()); };

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

    void disagreesWithKnownAnswers_data()
    {
        QTest::addColumn<AES::Aes>("level");
        QTest::addColumn<AES::Mode>("mode");
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("iv");
        QTest::addColumn<QByteArray>("plain");
        QTest::addColumn<QByteArray>("cipher");

        // FIPS-197 appendix: the block cipher alone, as ECB on one block (aligned input
        // takes no ZERO padding).
        const QByteArray fipsKey = unhex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
        const char* fips[] = {"69c4e0d86a7b0430d8cdb78070b4c55a", "dda97ca4864cdfe06eaf70a0ec0d7191",
            "8ea2b7ca516745bfeafc49904b496089"};
        for (int level = 0; level < 3; ++level)
            QTest::addRow("fips197/aes%d", 128 + 64 * level)
                << AES::Aes(level) << AES::ECB << fipsKey.left(16 + 8 * level) << QByteArray()
                << unhex("00112233445566778899aabbccddeeff") << unhex(fips[level]);

        // NIST SP 800-38A: four chained blocks, by mode then level (ECB once: the block
        // cipher itself is pinned above).
        const char* nistKeys[]
            = {"2b7e151628aed2a6abf7158809cf4f3c", "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
                "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4"};
        const char* const nist[4][3] = {
            {"3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
             "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4",
                nullptr, nullptr},
            {"7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
             "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7",
                "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"
                "571b242012fb7ae07fa9baac3df102e008b0e27988598881d920a9e64f5615cd",
                "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
            {"3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b"
             "26751f67a3cbb140b1808cf187a4f4dfc04b05357c5d1c0eeac4c66f9ff7f2e6",
                "cdc80d6fddf18cab34c25909c99a417467ce7f7f81173621961a2b70171d3d7a"
                "2e1e8a1dd59b88b1c8e60fed1efac4c9c05f9f9ca9834fa042ae8fba584b09ff",
                "dc7e84bfda79164b7ecd8486985d386039ffed143b28b1c832113c6331e5407b"
                "df10132415e54b92a13ed0a8267ae2f975a385741ab9cef82031623d55b1e471"},
            {"3b3fd92eb72dad20333449f8e83cfb4a7789508d16918f03f53c52dac54ed825"
             "9740051e9c5fecf64344f7a82260edcc304c6528f659c77866a510d9c1d6ae5e",
                "cdc80d6fddf18cab34c25909c99a4174fcc28b8d4c63837c09e81700c1100401"
                "8d9a9aeac0f6596f559c6d4daf59a5f26d9f200857ca6c3e9cac524bd9acc92a",
                "dc7e84bfda79164b7ecd8486985d38604febdc6740d20b3ac88f6ad82a4fb08d"
                "71ab47a086e86eedf39d1c5bba97c4080126141d67f37be8538f5a8be740e484"},
        };
        for (int mode = 0; mode < 4; ++mode)
            for (int level = 0; level < 3; ++level)
                if (nist[mode][level])
                    QTest::addRow("nist/%s%d", kModes[mode], 128 + 64 * level)
                        << AES::Aes(level) << AES::Mode(mode) << unhex(nistKeys[level])
                        << unhex("000102030405060708090a0b0c0d0e0f")
                        << unhex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                                 "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710")
                        << unhex(nist[mode][level]);
    }
    void disagreesWithKnownAnswers()
    {
        QFETCH(AES::Aes, level);
        QFETCH(AES::Mode, mode);
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, iv);
        QFETCH(QByteArray, plain);
        QFETCH(QByteArray, cipher);
        onEachEngine([&](bool) {
            QCOMPARE(AES::Crypt(level, mode, plain, key, iv, AES::ZERO).toHex(), cipher.toHex());
            QCOMPARE(AES::Decrypt(level, mode, cipher, key, iv, AES::ZERO).toHex(), plain.toHex());
        });
    }
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
};

QTEST_GUILESS_MAIN(QAESEncryptionTest)
#include "tst_qaesencryption.moc"

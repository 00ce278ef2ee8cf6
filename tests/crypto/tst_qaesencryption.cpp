// The cipher is checked against published known-answer vectors and against
// OpenSSL's EVP ciphers (padding applied by hand), on both the AES-instruction path
// and the portable path, which must also agree with each other byte for byte.
#include <ZrUtils/QAESEncryption.h>

#include "crypto/AesEngine.h"

#include <QRandomGenerator>
#include <QTest>

#include <openssl/evp.h>

#include <memory>

using ZrUtils::QAESEncryption;
namespace Internal = ZrUtils::Internal;

Q_DECLARE_METATYPE(QAESEncryption::Aes)
Q_DECLARE_METATYPE(QAESEncryption::Mode)
Q_DECLARE_METATYPE(QAESEncryption::Padding)

namespace
{

const char* const kEngines[] = {"portable", "hardware"};

QByteArray randomBytes(QRandomGenerator& rng, int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& b : bytes)
        b = static_cast<char>(rng.bounded(256));
    return bytes;
}

QByteArray handPadding(QAESEncryption::Padding padding, int size)
{
    const int missing = (16 - size % 16) % 16;
    if (padding == QAESEncryption::PKCS7) {
        const int count = missing == 0 ? 16 : missing;
        return QByteArray(count, static_cast<char>(count));
    }
    if (padding == QAESEncryption::ISO)
        return missing == 0 ? QByteArray() : QByteArray(1, '\x80') + QByteArray(missing - 1, '\0');
    return QByteArray(missing, '\0');
}

const EVP_CIPHER* evpCipher(QAESEncryption::Aes level, QAESEncryption::Mode mode)
{
    static const EVP_CIPHER* (*const table[3][4])() = {
        {EVP_aes_128_ecb, EVP_aes_128_cbc, EVP_aes_128_cfb128, EVP_aes_128_ofb},
        {EVP_aes_192_ecb, EVP_aes_192_cbc, EVP_aes_192_cfb128, EVP_aes_192_ofb},
        {EVP_aes_256_ecb, EVP_aes_256_cbc, EVP_aes_256_cfb128, EVP_aes_256_ofb},
    };
    return table[level][mode]();
}

QByteArray openSslEncrypt(QAESEncryption::Aes level, QAESEncryption::Mode mode, const QByteArray& padded,
    const QByteArray& key, const QByteArray& iv)
{
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(
        EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    const auto* k = reinterpret_cast<const unsigned char*>(key.constData());
    const auto* v
        = mode == QAESEncryption::ECB ? nullptr : reinterpret_cast<const unsigned char*>(iv.constData());
    if (!ctx || EVP_EncryptInit_ex(ctx.get(), evpCipher(level, mode), nullptr, k, v) != 1)
        return QByteArray("openssl init failed");
    EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
    QByteArray out(padded.size() + 32, '\0');
    int len = 0;
    int tail = 0;
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    EVP_EncryptUpdate(
        ctx.get(), o, &len, reinterpret_cast<const unsigned char*>(padded.constData()), padded.size());
    EVP_EncryptFinal_ex(ctx.get(), o + len, &tail);
    out.truncate(len + tail);
    return out;
}

} // namespace

class QAESEncryptionTest : public QObject
{
    Q_OBJECT

private:
    // Adds one row per engine; the test body calls useEngine().
    static void addEngineColumn() { QTest::addColumn<bool>("hardware"); }
    static bool useEngine();

private Q_SLOTS:
    void cleanup();

    void blockCipherDisagreesWithFips197_data();
    void blockCipherDisagreesWithFips197();
    void chainingDisagreesWithNistModes_data();
    void chainingDisagreesWithNistModes();
    void disagreesWithOpenSsl_data();
    void disagreesWithOpenSsl();
    void enginesDisagree_data();
    void enginesDisagree();
    void paddingAddedWrongly_data();
    void paddingAddedWrongly();
    void paddingRemovedWrongly_data();
    void paddingRemovedWrongly();
    void wrongIvNotRejected_data();
    void wrongIvNotRejected();
    void unknownModeOrLevelMisread();
    void keySurplusNotIgnored();
    void shortKeyReadsPastItsEnd();
    void scheduleSizeWrong_data();
    void scheduleSizeWrong();
    void oddLengthCiphertextMishandled_data();
    void oddLengthCiphertextMishandled();
};

bool QAESEncryptionTest::useEngine()
{
    QFETCH(bool, hardware);
    if (hardware && !Internal::aesHardwareSupported())
        return false;
    Internal::setAesHardwareAllowed(hardware);
    return true;
}

#define USE_ENGINE()                                                                                         \
    do {                                                                                                     \
        if (!useEngine())                                                                                    \
            QSKIP("this processor has no AES instructions");                                                 \
    } while (false)

void QAESEncryptionTest::cleanup()
{
    Internal::setAesHardwareAllowed(true);
}

void QAESEncryptionTest::blockCipherDisagreesWithFips197_data()
{
    addEngineColumn();
    QTest::addColumn<QAESEncryption::Aes>("level");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("cipher");

    const QByteArray key
        = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    for (bool hardware : {false, true}) {
        const char* engine = kEngines[hardware];
        QTest::addRow("%s/aes128", engine) << hardware << QAESEncryption::AES_128 << key.left(16)
                                           << QByteArray::fromHex("69c4e0d86a7b0430d8cdb78070b4c55a");
        QTest::addRow("%s/aes192", engine) << hardware << QAESEncryption::AES_192 << key.left(24)
                                           << QByteArray::fromHex("dda97ca4864cdfe06eaf70a0ec0d7191");
        QTest::addRow("%s/aes256", engine) << hardware << QAESEncryption::AES_256 << key
                                           << QByteArray::fromHex("8ea2b7ca516745bfeafc49904b496089");
    }
}

void QAESEncryptionTest::blockCipherDisagreesWithFips197()
{
    USE_ENGINE();
    QFETCH(QAESEncryption::Aes, level);
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, cipher);
    const QByteArray plain = QByteArray::fromHex("00112233445566778899aabbccddeeff");

    // Aligned input takes no ZERO padding, so the block comes out alone.
    QCOMPARE(
        QAESEncryption::Crypt(level, QAESEncryption::ECB, plain, key, QByteArray(), QAESEncryption::ZERO),
        cipher);
    QCOMPARE(
        QAESEncryption::Decrypt(level, QAESEncryption::ECB, cipher, key, QByteArray(), QAESEncryption::ZERO),
        plain);
}

void QAESEncryptionTest::chainingDisagreesWithNistModes_data()
{
    addEngineColumn();
    QTest::addColumn<QAESEncryption::Aes>("level");
    QTest::addColumn<QAESEncryption::Mode>("mode");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("cipher");

    const QByteArray k128 = QByteArray::fromHex("2b7e151628aed2a6abf7158809cf4f3c");
    const QByteArray k192 = QByteArray::fromHex("8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b");
    const QByteArray k256
        = QByteArray::fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
    struct Vector {
        const char* name;
        QAESEncryption::Aes level;
        QAESEncryption::Mode mode;
        const QByteArray& key;
        const char* cipher;
    };
    const Vector vectors[] = {
        {"ecb128", QAESEncryption::AES_128, QAESEncryption::ECB, k128,
            "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
            "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4"},
        {"cbc128", QAESEncryption::AES_128, QAESEncryption::CBC, k128,
            "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
            "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
        {"cbc192", QAESEncryption::AES_192, QAESEncryption::CBC, k192,
            "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"
            "571b242012fb7ae07fa9baac3df102e008b0e27988598881d920a9e64f5615cd"},
        {"cbc256", QAESEncryption::AES_256, QAESEncryption::CBC, k256,
            "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
            "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
        {"cfb128", QAESEncryption::AES_128, QAESEncryption::CFB, k128,
            "3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b"
            "26751f67a3cbb140b1808cf187a4f4dfc04b05357c5d1c0eeac4c66f9ff7f2e6"},
        {"cfb192", QAESEncryption::AES_192, QAESEncryption::CFB, k192,
            "cdc80d6fddf18cab34c25909c99a417467ce7f7f81173621961a2b70171d3d7a"
            "2e1e8a1dd59b88b1c8e60fed1efac4c9c05f9f9ca9834fa042ae8fba584b09ff"},
        {"cfb256", QAESEncryption::AES_256, QAESEncryption::CFB, k256,
            "dc7e84bfda79164b7ecd8486985d386039ffed143b28b1c832113c6331e5407b"
            "df10132415e54b92a13ed0a8267ae2f975a385741ab9cef82031623d55b1e471"},
        {"ofb128", QAESEncryption::AES_128, QAESEncryption::OFB, k128,
            "3b3fd92eb72dad20333449f8e83cfb4a7789508d16918f03f53c52dac54ed825"
            "9740051e9c5fecf64344f7a82260edcc304c6528f659c77866a510d9c1d6ae5e"},
        {"ofb192", QAESEncryption::AES_192, QAESEncryption::OFB, k192,
            "cdc80d6fddf18cab34c25909c99a4174fcc28b8d4c63837c09e81700c1100401"
            "8d9a9aeac0f6596f559c6d4daf59a5f26d9f200857ca6c3e9cac524bd9acc92a"},
        {"ofb256", QAESEncryption::AES_256, QAESEncryption::OFB, k256,
            "dc7e84bfda79164b7ecd8486985d38604febdc6740d20b3ac88f6ad82a4fb08d"
            "71ab47a086e86eedf39d1c5bba97c4080126141d67f37be8538f5a8be740e484"},
    };
    for (bool hardware : {false, true})
        for (const Vector& v : vectors)
            QTest::addRow("%s/%s", kEngines[hardware], v.name)
                << hardware << v.level << v.mode << v.key << QByteArray::fromHex(v.cipher);
}

void QAESEncryptionTest::chainingDisagreesWithNistModes()
{
    USE_ENGINE();
    QFETCH(QAESEncryption::Aes, level);
    QFETCH(QAESEncryption::Mode, mode);
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, cipher);
    const QByteArray plain
        = QByteArray::fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                              "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    const QByteArray iv = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");

    QCOMPARE(QAESEncryption::Crypt(level, mode, plain, key, iv, QAESEncryption::ZERO), cipher);
    QCOMPARE(QAESEncryption::Decrypt(level, mode, cipher, key, iv, QAESEncryption::ZERO), plain);
}

void QAESEncryptionTest::disagreesWithOpenSsl_data()
{
    addEngineColumn();
    QTest::addColumn<QAESEncryption::Aes>("level");
    QTest::addColumn<QAESEncryption::Mode>("mode");
    const char* levels[] = {"aes128", "aes192", "aes256"};
    const char* modes[] = {"ecb", "cbc", "cfb", "ofb"};
    for (bool hardware : {false, true})
        for (int level = 0; level < 3; ++level)
            for (int mode = 0; mode < 4; ++mode)
                QTest::addRow("%s/%s/%s", kEngines[hardware], levels[level], modes[mode])
                    << hardware << QAESEncryption::Aes(level) << QAESEncryption::Mode(mode);
}

void QAESEncryptionTest::disagreesWithOpenSsl()
{
    USE_ENGINE();
    QFETCH(QAESEncryption::Aes, level);
    QFETCH(QAESEncryption::Mode, mode);
    QRandomGenerator rng(0x5eed0000u + 16 * level + mode);
    const int keyLen = 16 + 8 * level;

    QVector<int> lengths = {0, 1, 15, 16, 17, 31, 32, 33, 127, 128, 129, 4099};
    for (int i = 0; i < 24; ++i)
        lengths.append(rng.bounded(600));
    for (int length : qAsConst(lengths)) {
        for (QAESEncryption::Padding padding :
            {QAESEncryption::ZERO, QAESEncryption::PKCS7, QAESEncryption::ISO}) {
            const QByteArray key = randomBytes(rng, keyLen);
            const QByteArray iv = randomBytes(rng, 16);
            const QByteArray plain = randomBytes(rng, length);
            const QByteArray padded = plain + handPadding(padding, length);

            const QByteArray ours = QAESEncryption::Crypt(level, mode, plain, key, iv, padding);
            const QByteArray reference = openSslEncrypt(level, mode, padded, key, iv);
            if (ours != reference)
                qWarning("length %d padding %d", length, int(padding));
            QCOMPARE(ours.toHex(), reference.toHex());
            QCOMPARE(QAESEncryption::Decrypt(level, mode, ours, key, iv, padding), padded);
        }
    }
}

void QAESEncryptionTest::enginesDisagree_data()
{
    QTest::addColumn<QAESEncryption::Aes>("level");
    QTest::addColumn<QAESEncryption::Mode>("mode");
    for (int level = 0; level < 3; ++level)
        for (int mode = 0; mode < 4; ++mode)
            QTest::addRow("level%d/mode%d", level, mode)
                << QAESEncryption::Aes(level) << QAESEncryption::Mode(mode);
}

void QAESEncryptionTest::enginesDisagree()
{
    if (!Internal::aesHardwareSupported())
        QSKIP("this processor has no AES instructions");
    QFETCH(QAESEncryption::Aes, level);
    QFETCH(QAESEncryption::Mode, mode);
    QRandomGenerator rng(0xe4e4u + 16 * level + mode);

    // Decoding runs on every length, not just whole blocks, to cover the short tails.
    for (int length = 0; length < 300; length += 1 + rng.bounded(7)) {
        const QByteArray key = randomBytes(rng, 32);
        const QByteArray iv = randomBytes(rng, 16);
        const QByteArray data = randomBytes(rng, length);

        QByteArray encoded[2];
        QByteArray decoded[2];
        for (bool hardware : {false, true}) {
            Internal::setAesHardwareAllowed(hardware);
            encoded[hardware] = QAESEncryption::Crypt(level, mode, data, key, iv, QAESEncryption::PKCS7);
            decoded[hardware] = QAESEncryption::Decrypt(level, mode, data, key, iv, QAESEncryption::PKCS7);
        }
        QCOMPARE(encoded[1].toHex(), encoded[0].toHex());
        QCOMPARE(decoded[1].toHex(), decoded[0].toHex());
    }
}

void QAESEncryptionTest::paddingAddedWrongly_data()
{
    addEngineColumn();
    QTest::addColumn<QAESEncryption::Padding>("padding");
    QTest::addColumn<int>("length");
    QTest::addColumn<QByteArray>("pad");

    for (bool hardware : {false, true}) {
        const char* e = kEngines[hardware];
        QTest::addRow("%s/pkcs7FullBlockWhenAligned", e)
            << hardware << QAESEncryption::PKCS7 << 16 << QByteArray(16, '\x10');
        QTest::addRow("%s/pkcs7OnEmpty", e)
            << hardware << QAESEncryption::PKCS7 << 0 << QByteArray(16, '\x10');
        QTest::addRow("%s/pkcs7Partial", e)
            << hardware << QAESEncryption::PKCS7 << 5 << QByteArray(11, '\x0b');
        QTest::addRow("%s/isoPartial", e)
            << hardware << QAESEncryption::ISO << 5 << QByteArray::fromHex("8000000000000000000000");
        QTest::addRow("%s/isoOneByte", e)
            << hardware << QAESEncryption::ISO << 15 << QByteArray::fromHex("80");
        QTest::addRow("%s/isoNothingWhenAligned", e) << hardware << QAESEncryption::ISO << 32 << QByteArray();
        QTest::addRow("%s/zeroPartial", e) << hardware << QAESEncryption::ZERO << 5 << QByteArray(11, '\0');
        QTest::addRow("%s/zeroNothingWhenAligned", e)
            << hardware << QAESEncryption::ZERO << 16 << QByteArray();
        QTest::addRow("%s/unknownPaddingActsAsZero", e)
            << hardware << QAESEncryption::Padding(7) << 3 << QByteArray(13, '\0');
    }
}

void QAESEncryptionTest::paddingAddedWrongly()
{
    USE_ENGINE();
    QFETCH(QAESEncryption::Padding, padding);
    QFETCH(int, length);
    QFETCH(QByteArray, pad);
    const QByteArray key(16, 'k');
    const QByteArray plain(length, '\x11');

    for (QAESEncryption::Mode mode :
        {QAESEncryption::ECB, QAESEncryption::CBC, QAESEncryption::CFB, QAESEncryption::OFB}) {
        const QByteArray iv(16, 'i');
        const QByteArray encoded
            = QAESEncryption::Crypt(QAESEncryption::AES_128, mode, plain, key, iv, padding);
        QCOMPARE(encoded.size(), length + pad.size());
        QCOMPARE(
            QAESEncryption::Decrypt(QAESEncryption::AES_128, mode, encoded, key, iv, padding), plain + pad);
    }
}

void QAESEncryptionTest::paddingRemovedWrongly_data()
{
    QTest::addColumn<QAESEncryption::Padding>("padding");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("expected");

    auto row = [](const char* name, QAESEncryption::Padding padding, const char* text, const char* expected) {
        QTest::newRow(name) << padding << QByteArray::fromHex(text) << QByteArray::fromHex(expected);
    };
    row("emptyStaysEmpty", QAESEncryption::PKCS7, "", "");
    row("pkcs7CountFromLastByte", QAESEncryption::PKCS7, "aa030303", "aa");
    row("pkcs7PadBytesNotChecked", QAESEncryption::PKCS7, "aa0b0b02", "aa0b");
    row("pkcs7ZeroCountKeepsText", QAESEncryption::PKCS7, "aa00", "aa00");
    row("pkcs7NegativeCountKeepsText", QAESEncryption::PKCS7, "aa90", "aa90");
    row("pkcs7CountBeyondTextKeepsText", QAESEncryption::PKCS7, "0505", "0505");
    row("pkcs7CountEqualToTextEmptiesIt", QAESEncryption::PKCS7, "0202", "");
    row("isoMarkerAndZeros", QAESEncryption::ISO, "aa800000", "aa");
    row("isoMarkerOnly", QAESEncryption::ISO, "aa80", "aa");
    row("isoOtherByteKeepsText", QAESEncryption::ISO, "aa8100", "aa8100");
    row("isoAllZerosKept", QAESEncryption::ISO, "000000", "000000");
    row("isoMarkerAtStart", QAESEncryption::ISO, "8000", "");
    row("zeroStripsEveryTrailingZero", QAESEncryption::ZERO, "aa000000", "aa");
    row("zeroStopsOnEmpty", QAESEncryption::ZERO, "000000", "");
    row("zeroKeepsInnerZeros", QAESEncryption::ZERO, "00aa00", "00aa");
    row("unknownPaddingKeepsText", QAESEncryption::Padding(9), "aa00", "aa00");
}

void QAESEncryptionTest::paddingRemovedWrongly()
{
    QFETCH(QAESEncryption::Padding, padding);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, expected);

    QCOMPARE(QAESEncryption::RemovePadding(text, padding).toHex(), expected.toHex());
    QAESEncryption object(QAESEncryption::AES_128, QAESEncryption::ECB, padding);
    QCOMPARE(object.removePadding(text).toHex(), expected.toHex());
}

void QAESEncryptionTest::wrongIvNotRejected_data()
{
    addEngineColumn();
    QTest::addColumn<QAESEncryption::Mode>("mode");
    QTest::addColumn<int>("ivLength");
    for (bool hardware : {false, true}) {
        for (QAESEncryption::Mode mode : {QAESEncryption::CBC, QAESEncryption::CFB, QAESEncryption::OFB}) {
            for (int ivLength : {0, 15, 17})
                QTest::addRow("%s/mode%d/iv%d", kEngines[hardware], int(mode), ivLength)
                    << hardware << mode << ivLength;
        }
    }
}

void QAESEncryptionTest::wrongIvNotRejected()
{
    USE_ENGINE();
    QFETCH(QAESEncryption::Mode, mode);
    QFETCH(int, ivLength);
    const QByteArray key(32, 'k');
    const QByteArray iv(ivLength, 'i');
    const QByteArray data(48, 'd');

    QVERIFY(
        QAESEncryption::Crypt(QAESEncryption::AES_256, mode, data, key, iv, QAESEncryption::PKCS7).isEmpty());
    QVERIFY(QAESEncryption::Decrypt(QAESEncryption::AES_256, mode, data, key, iv, QAESEncryption::PKCS7)
                .isEmpty());
    // ECB never looks at the IV.
    QCOMPARE(QAESEncryption::Crypt(QAESEncryption::AES_256, QAESEncryption::ECB, data, key, iv),
        QAESEncryption::Crypt(QAESEncryption::AES_256, QAESEncryption::ECB, data, key));
}

void QAESEncryptionTest::unknownModeOrLevelMisread()
{
    const QByteArray key(16, 'k');
    const QByteArray iv(16, 'i');
    for (int mode : {4, 100, -1}) {
        QVERIFY(QAESEncryption::Crypt(QAESEncryption::AES_128, QAESEncryption::Mode(mode), "text", key, iv)
                    .isEmpty());
        QVERIFY(QAESEncryption::Decrypt(QAESEncryption::AES_128, QAESEncryption::Mode(mode), key, key, iv)
                    .isEmpty());
    }
    // An unknown level is AES-128, even with a longer key.
    const QByteArray longKey(32, 'k');
    QCOMPARE(QAESEncryption::Crypt(QAESEncryption::Aes(5), QAESEncryption::CBC, "text", longKey, iv),
        QAESEncryption::Crypt(QAESEncryption::AES_128, QAESEncryption::CBC, "text", key, iv));
}

void QAESEncryptionTest::keySurplusNotIgnored()
{
    QRandomGenerator rng(40);
    const QByteArray key = randomBytes(rng, 40);
    const QByteArray iv = randomBytes(rng, 16);
    const QByteArray text = randomBytes(rng, 100);
    QCOMPARE(QAESEncryption::Crypt(QAESEncryption::AES_256, QAESEncryption::CBC, text, key, iv),
        QAESEncryption::Crypt(QAESEncryption::AES_256, QAESEncryption::CBC, text, key.left(32), iv));
    // The surplus rides behind the schedule.
    const QByteArray schedule = QAESEncryption::ExpandKey(QAESEncryption::AES_256, QAESEncryption::ECB, key);
    QCOMPARE(schedule.size(), 248);
    QCOMPARE(schedule.left(240),
        QAESEncryption::ExpandKey(QAESEncryption::AES_256, QAESEncryption::ECB, key.left(32)));
    QCOMPARE(schedule.mid(240), key.mid(32));
}

void QAESEncryptionTest::shortKeyReadsPastItsEnd()
{
    // A short key acts as if zero-filled; under AddressSanitizer this also proves
    // nothing reads past its end.
    const QByteArray shortKey = QByteArray::fromHex("0102030405");
    const QByteArray filled = shortKey + QByteArray(27, '\0');
    const QByteArray iv(16, '\x07');
    for (bool hardware : {false, true}) {
        if (hardware && !Internal::aesHardwareSupported())
            continue;
        Internal::setAesHardwareAllowed(hardware);
        QCOMPARE(QAESEncryption::Crypt(QAESEncryption::AES_256, QAESEncryption::CBC, "secret", shortKey, iv),
            QAESEncryption::Crypt(QAESEncryption::AES_256, QAESEncryption::CBC, "secret", filled, iv));
        QCOMPARE(QAESEncryption::Crypt(QAESEncryption::AES_128, QAESEncryption::ECB, "secret", QByteArray()),
            QAESEncryption::Crypt(
                QAESEncryption::AES_128, QAESEncryption::ECB, "secret", QByteArray(16, '\0')));
    }
}

void QAESEncryptionTest::scheduleSizeWrong_data()
{
    QTest::addColumn<QAESEncryption::Aes>("level");
    QTest::addColumn<int>("keyLength");
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("lastRoundKey");
    // The AES-128 key and its last round key are the worked example of the standard.
    QTest::newRow("aes128") << QAESEncryption::AES_128 << 16 << 176
                            << QByteArray::fromHex("d014f9a8c9ee2589e13f0cc8b6630ca6");
    QTest::newRow("aes192IsWholeWordsNot209") << QAESEncryption::AES_192 << 24 << 208 << QByteArray();
    QTest::newRow("aes256") << QAESEncryption::AES_256 << 32 << 240 << QByteArray();
}

void QAESEncryptionTest::scheduleSizeWrong()
{
    QFETCH(QAESEncryption::Aes, level);
    QFETCH(int, keyLength);
    QFETCH(int, size);
    QFETCH(QByteArray, lastRoundKey);
    const QByteArray key
        = QByteArray::fromHex("2b7e151628aed2a6abf7158809cf4f3c2b7e151628aed2a6abf7158809cf4f3c");
    const QByteArray schedule = QAESEncryption::ExpandKey(level, QAESEncryption::CBC, key.left(keyLength));
    QCOMPARE(schedule.size(), size);
    QCOMPARE(schedule.left(keyLength), key.left(keyLength));
    if (!lastRoundKey.isEmpty())
        QCOMPARE(schedule.right(16).toHex(), lastRoundKey.toHex());
}

void QAESEncryptionTest::oddLengthCiphertextMishandled_data()
{
    addEngineColumn();
    QTest::addColumn<QAESEncryption::Mode>("mode");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("expectedLength");
    for (bool hardware : {false, true}) {
        const char* e = kEngines[hardware];
        QTest::addRow("%s/ecbShortTailBecomesBlock", e) << hardware << QAESEncryption::ECB << 20 << 32;
        QTest::addRow("%s/cbcShortTailBecomesBlock", e) << hardware << QAESEncryption::CBC << 37 << 48;
        QTest::addRow("%s/cbcShorterThanBlock", e) << hardware << QAESEncryption::CBC << 3 << 16;
        QTest::addRow("%s/cfbKeepsLength", e) << hardware << QAESEncryption::CFB << 37 << 37;
        QTest::addRow("%s/ofbKeepsLength", e) << hardware << QAESEncryption::OFB << 5 << 5;
        QTest::addRow("%s/emptyStaysEmpty", e) << hardware << QAESEncryption::CBC << 0 << 0;
    }
}

void QAESEncryptionTest::oddLengthCiphertextMishandled()
{
    USE_ENGINE();
    QFETCH(QAESEncryption::Mode, mode);
    QFETCH(int, length);
    QFETCH(int, expectedLength);
    const QByteArray key(24, 'k');
    const QByteArray iv(16, 'i');
    const QByteArray cipher(length, '\x5a');
    const QByteArray plain = QAESEncryption::Decrypt(QAESEncryption::AES_192, mode, cipher, key, iv);
    QCOMPARE(plain.size(), expectedLength);
    // The whole blocks in front of the tail decode as usual.
    const int whole = length - length % 16;
    QCOMPARE(plain.left(whole),
        QAESEncryption::Decrypt(QAESEncryption::AES_192, mode, cipher.left(whole), key, iv));
}

QTEST_GUILESS_MAIN(QAESEncryptionTest)
#include "tst_qaesencryption.moc"

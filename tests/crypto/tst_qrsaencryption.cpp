// Key pairs are checked against GMP's own functions (block values, distinct primes,
// modulus width), not only by round trips through the class itself.
#include <ZrUtils/QRSAEncryption.h>

#include "Mpz.h"
#include "crypto/RsaMath.h"

#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using RSA = ZrUtils::QRSAEncryption;
namespace Internal = ZrUtils::Internal;

Q_DECLARE_METATYPE(RSA::Rsa)

namespace
{

QByteArray randomBytes(int size, quint32 seed)
{
    QRandomGenerator rng(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& b : bytes)
        b = static_cast<char>(rng.bounded(256));
    return bytes;
}

} // namespace

class QRSAEncryptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keyPairBroken_data()
    {
        QTest::addColumn<RSA::Rsa>("rsa");
        for (RSA::Rsa rsa :
            {RSA::RSA_64, RSA::RSA_128, RSA::RSA_256, RSA::RSA_512, RSA::RSA_1024, RSA::RSA_2048})
            QTest::addRow("rsa%d", int(rsa)) << rsa;
    }
    void keyPairBroken()
    {
        QFETCH(RSA::Rsa, rsa);
        const int half = rsa / 8;
        RSA cipher(rsa);
        QByteArray pub, priv;
        QVERIFY(cipher.generatePairKey(pub, priv));
        QCOMPARE(pub.size(), RSA::getKeyBytesSize(rsa));
        QCOMPARE(pub.mid(half), priv.mid(half)); // same modulus
        // The modulus fills its width exactly and is no square: p and q differ.
        const Mpz n(pub.mid(half));
        QCOMPARE(int(mpz_sizeinbase(n.value, 2)), int(rsa));
        QVERIFY(!mpz_perfect_square_p(n.value));
        QVERIFY(cipher.testKeyPair(pub, priv));

        // OneByte costs a full exponentiation per byte: a short text is enough.
        QByteArray data = randomBytes(3 * half + 5, rsa);
        QCOMPARE(cipher.decode(cipher.encode(data.left(40), pub, RSA::OneByte), priv, RSA::OneByte),
            data.left(40));
        data[(data.size() - 1) / (half - 1) * (half - 1)] = 'x'; // no leading zero in the last Auto block
        const QByteArray encoded = cipher.encode(data, pub);
        QCOMPARE(cipher.decode(encoded, priv), data);
        // Each Auto block is block^e mod n, written at the modulus width: checked with GMP.
        QCOMPARE(encoded.size(), (data.size() + half - 2) / (half - 1) * half);
        const Mpz e(pub.left(half));
        for (int i = 0; i * (half - 1) < data.size(); ++i) {
            Mpz m(data.mid(i * (half - 1), half - 1));
            mpz_powm(m.value, m.value, e.value, n.value);
            QCOMPARE(mpz_cmp(m.value, Mpz(encoded.mid(i * half, half)).value), 0);
        }

        // One modulus-wide block per digest byte, in lower-case hex between the markers.
        const QByteArray signedMessage = RSA::signMessage("pay 10 to bob", priv, rsa);
        QVERIFY(signedMessage.startsWith("pay 10 to bob-SIGN-") && signedMessage.endsWith("-SIGN-"));
        const QByteArray hex = signedMessage.mid(19, signedMessage.size() - 25);
        QCOMPARE(hex.size(), 32 * half * 2);
        QCOMPARE(hex, hex.toLower());
        QVERIFY(RSA::checkSignMessage(signedMessage, pub, rsa));
        QVERIFY(!RSA::checkSignMessage(QByteArray(signedMessage).replace(4, 1, "9"), pub, rsa)); // pay 90
    }
    void autoModeKeepsLeadingZero()
    {
        QByteArray pub, priv;
        QVERIFY(RSA::generatePairKey(pub, priv, RSA::RSA_128));
        // Blocks of 15 bytes: the second block starts with a zero byte.
        const QByteArray data = QByteArray(15, 'a') + QByteArray::fromHex("0042");
        QTest::ignoreMessage(QtWarningMsg,
            "When trying to encrypt data, problems arose, the last block contains non-significant "
            "zeros. These zeros will be deleted during the decryption process. For encode and decode "
            "data with non-significant zeros use BlockSize::OneByte");
        QCOMPARE(RSA::decode(RSA::encode(data, pub, RSA::RSA_128), priv, RSA::RSA_128).toHex(),
            (QByteArray(15, 'a') + '\x42').toHex());
        QCOMPARE(
            RSA::decode(RSA::encode(data, pub, RSA::RSA_128, RSA::OneByte), priv, RSA::RSA_128, RSA::OneByte),
            data);
    }
    void signatureCheckFooled()
    {
        QByteArray pub, priv, otherPub, otherPriv;
        QVERIFY(RSA::generatePairKey(pub, priv, "signer", RSA::RSA_256));
        QVERIFY(RSA::generatePairKey(otherPub, otherPriv, "someone else", RSA::RSA_256));
        RSA cipher(RSA::RSA_256);
        QVERIFY(!cipher.checkSignMessage(cipher.signMessage("abc", priv), otherPub));
        // A message that itself contains the marker still checks: the last pair counts.
        QVERIFY(cipher.checkSignMessage(cipher.signMessage("a-SIGN-b-SIGN-", priv), pub));

        for (const char* malformed : {"", "abc", "abc-SIGN-", "-SIGN-abc", "-SIGN-", "abc-SIGN--SIGN-",
                 "abc-SIGN-zz-SIGN-", "abc-SIGN-abc-SIGN-", "abc-SIGN-00ff-SIGN-", "-SIGN-SIGN-"})
            QVERIFY2(!cipher.checkSignMessage(malformed, pub), malformed);
    }
    void wrongKeySizeAccepted_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<int>("bitsSize");
        QTest::addColumn<int>("rsaType");
        QTest::newRow("empty") << QByteArray() << 0 << 0;
        QTest::newRow("hundredBytes") << QByteArray(100, '\x11') << 0 << 0;
        QTest::newRow("validButUnlisted") << QByteArray(48, '\x11') << 192 << 0;
        QTest::newRow("rsa64") << QByteArray(16, '\x11') << 64 << 64;
        QTest::newRow("rsa8192") << QByteArray(2048, '\x11') << 8192 << 8192;
    }
    void wrongKeySizeAccepted()
    {
        QFETCH(QByteArray, key);
        QFETCH(int, bitsSize);
        QFETCH(int, rsaType);
        QCOMPARE(RSA::isValidRsaKey(key), bitsSize != 0);
        QCOMPARE(RSA::getBitsSize(key), bitsSize);
        QCOMPARE(int(RSA::getKeyRsaType(key)), rsaType);
        // A 512-bit object takes none of these keys.
        RSA cipher(RSA::RSA_512);
        QVERIFY(cipher.encode("data", key).isEmpty());
        QVERIFY(cipher.decode(QByteArray(64, '\x01'), key).isEmpty());
        QVERIFY(!cipher.checkSignMessage(cipher.signMessage("data", key), key));
    }
    void oneByteModulusEncodes()
    {
        // e = 3, n = 0x0f: a one-byte modulus leaves no room for an Auto block.
        const QByteArray key = QByteArray::fromHex("0000000000000003000000000000000f");
        QTest::ignoreMessage(QtDebugMsg, "module of key small! size = 1 byte, 2 byte is minimum");
        QVERIFY(RSA::encode("abc", key, RSA::RSA_64).isEmpty());
        QCOMPARE(RSA::encode("\x02", key, RSA::RSA_64, RSA::OneByte), QByteArray("\x08", 1));
        // A zero modulus must not reach GMP's division by zero; Auto decoding widens
        // none but the last one-byte slice.
        const QByteArray zeroKey(16, '\0');
        QCOMPARE(RSA::encode("ab", zeroKey, RSA::RSA_64, RSA::OneByte), QByteArray(2, '\0'));
        QCOMPARE(RSA::decode("ab", zeroKey, RSA::RSA_64).toHex(), QByteArray("00"));
    }
    void keysRepeatOrDiffer()
    {
        QByteArray pub1, priv1, pub2, priv2, pub3, priv3;
        QVERIFY(RSA::generatePairKey(pub1, priv1, "the same genesis", RSA::RSA_512));
        QVERIFY(RSA::generatePairKey(pub2, priv2, "the same genesis", RSA::RSA_512));
        QVERIFY(RSA::generatePairKey(pub3, priv3, "another genesis", RSA::RSA_512));
        QCOMPARE(pub1, pub2);
        QCOMPARE(priv1, priv2);
        QVERIFY(pub1 != pub3);
        QVERIFY(RSA::testKeyPair(pub1, priv1, RSA::RSA_512));

        // Without a genesis, seeds drawn within the same clock tick still differ.
        QSet<unsigned int> seeds;
        for (int i = 0; i < 1000; ++i)
            seeds.insert(Internal::randomSeed());
        QCOMPARE(seeds.size(), 1000);
        QVERIFY(*std::max_element(seeds.begin(), seeds.end()) < 2147483647u);
    }
    void keyFileNotRestored()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QByteArray key = QByteArray::fromHex("00ff10") + QByteArray(61, '\x7f');
        QVERIFY(RSA::save(dir.filePath(QStringLiteral("key.pub")), key));
        QCOMPARE(RSA::load(dir.filePath(QStringLiteral("key.pub"))), key);
        QVERIFY(RSA::load(dir.filePath(QStringLiteral("missing"))).isEmpty());
        QVERIFY(!RSA::save(dir.filePath(QStringLiteral("no/such/folder/key")), key));
    }
    void helperMathWrong()
    {
        QCOMPARE(RSA::toArray(BigInt(0x1234), 4).toHex(), QByteArray("00001234"));
        QCOMPARE(RSA::toArray(BigInt(0x1234), 1).toHex(), QByteArray("12")); // the leading bytes stay
        QCOMPARE(RSA::toArray(BigInt(0x123), -1).toHex(), QByteArray("0123"));
        QVERIFY(RSA::fromArray(QByteArray::fromHex("0001ff")) == 511);
        QCOMPARE(RSA::getBitsSize(BigInt(5)), 64);
        QCOMPARE(RSA::getBitsSize(BigInt("340282366920938463463374607431768211456", 10)), 256);

        QVERIFY(!Internal::isMutuallyPrime(11 * 13, 11 * 17)); // beyond the small factors tried first
        QVERIFY(Internal::isMutuallyPrime(120, 7));
    }
};

QTEST_GUILESS_MAIN(QRSAEncryptionTest)
#include "tst_qrsaencryption.moc"

// Key pairs are checked against GMP's own functions (block values, distinct primes,
// modulus width), not only by round trips through the class itself.
#include <ZrUtils/QRSAEncryption.h>

#include "crypto/RsaMath.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <gmp.h>

using ZrUtils::QRSAEncryption;
namespace Internal = ZrUtils::Internal;

Q_DECLARE_METATYPE(QRSAEncryption::Rsa)

namespace
{

const char kAutoLossWarning[] = "When trying to encrypt data, problems arose, the last block contains "
                                "non-significant zeros. These zeros "
                                "will be deleted during the decryption process. For encode and decode data "
                                "with non-significant zeros use "
                                "BlockSize::OneByte";

// A GMP integer for reference computations, RAII.
struct Mpz {
    mpz_t value;
    explicit Mpz(const QByteArray& bigEndian)
    {
        mpz_init(value);
        if (!bigEndian.isEmpty())
            mpz_import(value, static_cast<size_t>(bigEndian.size()), 1, 1, 1, 0, bigEndian.constData());
    }
    ~Mpz() { mpz_clear(value); }
    Mpz(const Mpz&) = delete;
    Mpz& operator=(const Mpz&) = delete;
};

QByteArray randomBytes(QRandomGenerator& rng, int size)
{
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
    void keyPairBroken_data();
    void keyPairBroken();
    void blockValueWrong();
    void autoModeKeepsLeadingZero();
    void signatureNotChecked();
    void malformedSignedMessageAccepted_data();
    void malformedSignedMessageAccepted();
    void wrongKeySizeAccepted_data();
    void wrongKeySizeAccepted();
    void oneByteModulusEncodes();
    void genesisNotDeterministic();
    void clockSeedRepeatsKeys();
    void keyFileNotRestored();
    void arrayConversionWrong();
    void numberTheoryWrong();
};

void QRSAEncryptionTest::keyPairBroken_data()
{
    QTest::addColumn<QRSAEncryption::Rsa>("rsa");
    for (QRSAEncryption::Rsa rsa : {QRSAEncryption::RSA_64, QRSAEncryption::RSA_128, QRSAEncryption::RSA_256,
             QRSAEncryption::RSA_512, QRSAEncryption::RSA_1024, QRSAEncryption::RSA_2048})
        QTest::addRow("rsa%d", int(rsa)) << rsa;
}

void QRSAEncryptionTest::keyPairBroken()
{
    QFETCH(QRSAEncryption::Rsa, rsa);
    QRSAEncryption cipher(rsa);
    QCOMPARE(cipher.getRsa(), rsa);
    QByteArray pub, priv;
    QVERIFY(cipher.generatePairKey(pub, priv));

    QCOMPARE(pub.size(), QRSAEncryption::getKeyBytesSize(rsa));
    QCOMPARE(priv.size(), rsa / 4);
    QCOMPARE(QRSAEncryption::getKeyRsaType(pub), rsa);
    QCOMPARE(pub.mid(rsa / 8), priv.mid(rsa / 8)); // same modulus
    // The modulus fills its width exactly and is no square: p and q differ.
    const Mpz n(pub.mid(rsa / 8));
    QCOMPARE(int(mpz_sizeinbase(n.value, 2)), int(rsa));
    QVERIFY(!mpz_perfect_square_p(n.value));
    QVERIFY(cipher.testKeyPair(pub, priv));

    QRandomGenerator rng(rsa);
    const QByteArray data = randomBytes(rng, 3 * (rsa / 8) + 5);
    // OneByte costs a full exponentiation per byte: a short text is enough.
    const QByteArray few = data.left(40);
    QCOMPARE(
        cipher.decode(cipher.encode(few, pub, QRSAEncryption::OneByte), priv, QRSAEncryption::OneByte), few);
    QByteArray autoData = data;
    autoData[(autoData.size() - 1) / (rsa / 8 - 1) * (rsa / 8 - 1)]
        = 'x'; // no leading zero in the last block
    const QByteArray encoded = cipher.encode(autoData, pub);
    QCOMPARE(encoded.size() % (rsa / 8), 0);
    QCOMPARE(cipher.decode(encoded, priv), autoData);

    // Signatures made with the private key check with the public one, and only then.
    const QByteArray signedMessage = QRSAEncryption::signMessage("pay 10 to bob", priv, rsa);
    QVERIFY(QRSAEncryption::checkSignMessage(signedMessage, pub, rsa));
    QByteArray changed = signedMessage;
    changed[4] = '9';
    QVERIFY(!QRSAEncryption::checkSignMessage(changed, pub, rsa));
}

void QRSAEncryptionTest::blockValueWrong()
{
    // Each Auto block is block^e mod n, written at the modulus width: checked with GMP.
    QByteArray pub, priv;
    QVERIFY(QRSAEncryption::generatePairKey(pub, priv, QRSAEncryption::RSA_512));
    const Mpz e(pub.left(64)), n(pub.mid(64));
    QRandomGenerator rng(512);
    const QByteArray data = QByteArray("\x01", 1) + randomBytes(rng, 62) + QByteArray("\x02", 1);
    const QByteArray encoded = QRSAEncryption::encode(data, pub, QRSAEncryption::RSA_512);
    QCOMPARE(encoded.size(), 2 * 64);

    for (int block = 0; block < 2; ++block) {
        const Mpz m(data.mid(block * 63, 63));
        mpz_t expected;
        mpz_init(expected);
        mpz_powm(expected, m.value, e.value, n.value);
        const Mpz actual(encoded.mid(block * 64, 64));
        QCOMPARE(mpz_cmp(expected, actual.value), 0);
        mpz_clear(expected);
    }
}

void QRSAEncryptionTest::autoModeKeepsLeadingZero()
{
    QByteArray pub, priv;
    QVERIFY(QRSAEncryption::generatePairKey(pub, priv, QRSAEncryption::RSA_128));
    // Blocks of 15 bytes: the second block starts with a zero byte.
    const QByteArray data = QByteArray(15, 'a') + QByteArray::fromHex("0042");
    QTest::ignoreMessage(QtWarningMsg, kAutoLossWarning);
    const QByteArray decoded = QRSAEncryption::decode(
        QRSAEncryption::encode(data, pub, QRSAEncryption::RSA_128), priv, QRSAEncryption::RSA_128);
    QCOMPARE(decoded.toHex(), (QByteArray(15, 'a') + QByteArray::fromHex("42")).toHex());

    const QByteArray exact = QRSAEncryption::decode(
        QRSAEncryption::encode(data, pub, QRSAEncryption::RSA_128, QRSAEncryption::OneByte), priv,
        QRSAEncryption::RSA_128, QRSAEncryption::OneByte);
    QCOMPARE(exact, data);
}

void QRSAEncryptionTest::signatureNotChecked()
{
    QByteArray pub, priv, otherPub, otherPriv;
    QVERIFY(QRSAEncryption::generatePairKey(pub, priv, QRSAEncryption::RSA_256));
    QVERIFY(QRSAEncryption::generatePairKey(otherPub, otherPriv, QRSAEncryption::RSA_256));
    QRSAEncryption cipher(QRSAEncryption::RSA_256);

    const QByteArray signedMessage = cipher.signMessage("abc", priv);
    QVERIFY(signedMessage.startsWith("abc-SIGN-"));
    QVERIFY(signedMessage.endsWith("-SIGN-"));
    // One modulus-wide block per digest byte, in lower-case hex.
    const QByteArray hex = signedMessage.mid(9, signedMessage.size() - 15);
    QCOMPARE(hex.size(), 32 * 32 * 2);
    QCOMPARE(hex, hex.toLower());
    QVERIFY(cipher.checkSignMessage(signedMessage, pub));
    QVERIFY(!cipher.checkSignMessage(signedMessage, otherPub));

    QByteArray changedText = signedMessage;
    changedText[1] = 'B';
    QVERIFY(!cipher.checkSignMessage(changedText, pub));
    QByteArray changedSignature = signedMessage;
    changedSignature[20] = changedSignature[20] == '0' ? '1' : '0';
    QVERIFY(!cipher.checkSignMessage(changedSignature, pub));

    // A message that itself contains the marker still checks: the last pair counts.
    const QByteArray tricky = cipher.signMessage("a-SIGN-b-SIGN-", priv);
    QVERIFY(cipher.checkSignMessage(tricky, pub));
}

void QRSAEncryptionTest::malformedSignedMessageAccepted_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("noMarkers") << QByteArray("abc");
    QTest::newRow("oneMarkerAtEnd") << QByteArray("abc-SIGN-");
    QTest::newRow("oneMarkerAtStart") << QByteArray("-SIGN-abc");
    QTest::newRow("markerOnly") << QByteArray("-SIGN-");
    QTest::newRow("emptySignature") << QByteArray("abc-SIGN--SIGN-");
    QTest::newRow("nonHexSignature") << QByteArray("abc-SIGN-zz-SIGN-");
    QTest::newRow("oddHexSignature") << QByteArray("abc-SIGN-abc-SIGN-");
    QTest::newRow("shortHexSignature") << QByteArray("abc-SIGN-00ff-SIGN-");
    QTest::newRow("overlappingMarkers") << QByteArray("-SIGN-SIGN-");
}

void QRSAEncryptionTest::malformedSignedMessageAccepted()
{
    QFETCH(QByteArray, message);
    QByteArray pub, priv;
    QVERIFY(QRSAEncryption::generatePairKey(pub, priv, "malformed", QRSAEncryption::RSA_64));
    QVERIFY(!QRSAEncryption::checkSignMessage(message, pub, QRSAEncryption::RSA_64));
}

void QRSAEncryptionTest::wrongKeySizeAccepted_data()
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

void QRSAEncryptionTest::wrongKeySizeAccepted()
{
    QFETCH(QByteArray, key);
    QFETCH(int, bitsSize);
    QFETCH(int, rsaType);
    QCOMPARE(QRSAEncryption::isValidRsaKey(key), bitsSize != 0);
    QCOMPARE(QRSAEncryption::getBitsSize(key), bitsSize);
    QCOMPARE(int(QRSAEncryption::getKeyRsaType(key)), rsaType);
    // A 512-bit object takes none of these keys.
    QRSAEncryption cipher(QRSAEncryption::RSA_512);
    QVERIFY(cipher.encode("data", key).isEmpty());
    QVERIFY(cipher.decode(QByteArray(64, '\x01'), key).isEmpty());
    QVERIFY(!cipher.checkSignMessage(cipher.signMessage("data", key), key));
}

void QRSAEncryptionTest::oneByteModulusEncodes()
{
    // e = 3, n = 0x0f: a one-byte modulus leaves no room for an Auto block.
    const QByteArray key = QByteArray::fromHex("0000000000000003000000000000000f");
    QTest::ignoreMessage(QtDebugMsg, "module of key small! size = 1 byte, 2 byte is minimum");
    QVERIFY(QRSAEncryption::encode("abc", key, QRSAEncryption::RSA_64).isEmpty());
    QCOMPARE(QRSAEncryption::encode("\x02", key, QRSAEncryption::RSA_64, QRSAEncryption::OneByte),
        QByteArray("\x08", 1));

    // A zero modulus must not reach GMP's division by zero.
    const QByteArray zeroKey(16, '\0');
    QCOMPARE(QRSAEncryption::encode("ab", zeroKey, QRSAEncryption::RSA_64, QRSAEncryption::OneByte),
        QByteArray(2, '\0'));
    // Auto decoding: one-byte slices, widened to nothing but the last.
    QCOMPARE(QRSAEncryption::decode("ab", zeroKey, QRSAEncryption::RSA_64).toHex(), QByteArray("00"));
}

void QRSAEncryptionTest::genesisNotDeterministic()
{
    QByteArray pub1, priv1, pub2, priv2, pub3, priv3;
    QVERIFY(QRSAEncryption::generatePairKey(pub1, priv1, "the same genesis", QRSAEncryption::RSA_512));
    QVERIFY(QRSAEncryption::generatePairKey(pub2, priv2, "the same genesis", QRSAEncryption::RSA_512));
    QVERIFY(QRSAEncryption::generatePairKey(pub3, priv3, "another genesis", QRSAEncryption::RSA_512));
    QCOMPARE(pub1, pub2);
    QCOMPARE(priv1, priv2);
    QVERIFY(pub1 != pub3);
    QVERIFY(QRSAEncryption::testKeyPair(pub1, priv1, QRSAEncryption::RSA_512));
    // Same genesis, another size: another pair, still deterministic.
    QByteArray pub4, priv4;
    QVERIFY(QRSAEncryption::generatePairKey(pub4, priv4, "the same genesis", QRSAEncryption::RSA_64));
    QCOMPARE(pub4.size(), 16);
}

void QRSAEncryptionTest::clockSeedRepeatsKeys()
{
    QSet<unsigned int> seeds;
    for (int i = 0; i < 1000; ++i)
        seeds.insert(Internal::randomSeed());
    QCOMPARE(seeds.size(), 1000);
    for (unsigned int seed : qAsConst(seeds))
        QVERIFY(seed < 2147483647u);

    // Many pairs within the same second: all distinct, and p != q in each.
    QSet<QByteArray> keys;
    for (int i = 0; i < 40; ++i) {
        QByteArray pub, priv;
        QVERIFY(QRSAEncryption::generatePairKey(pub, priv, QRSAEncryption::RSA_64));
        const Mpz n(pub.mid(8));
        QVERIFY(!mpz_perfect_square_p(n.value));
        keys.insert(pub);
    }
    QCOMPARE(keys.size(), 40);
}

void QRSAEncryptionTest::keyFileNotRestored()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QByteArray key = QByteArray::fromHex("00ff10") + QByteArray(61, '\x7f');
    const QString path = dir.filePath(QStringLiteral("key.pub"));
    QVERIFY(QRSAEncryption::save(path, key));
    QCOMPARE(QRSAEncryption::load(path), key);
    QVERIFY(QRSAEncryption::load(dir.filePath(QStringLiteral("missing"))).isEmpty());
    QVERIFY(!QRSAEncryption::save(dir.filePath(QStringLiteral("no/such/folder/key")), key));
}

void QRSAEncryptionTest::arrayConversionWrong()
{
    const BigInt n(0x1234);
    QCOMPARE(QRSAEncryption::toArray(n).toHex(), QByteArray("1234"));
    QCOMPARE(QRSAEncryption::toArray(n, 4).toHex(), QByteArray("00001234"));
    QCOMPARE(QRSAEncryption::toArray(n, 1).toHex(), QByteArray("12")); // the leading bytes stay
    QCOMPARE(QRSAEncryption::toArray(BigInt(0x123), -1).toHex(), QByteArray("0123"));
    QCOMPARE(QRSAEncryption::toArray(BigInt(0), 0), QByteArray());
    QVERIFY(QRSAEncryption::fromArray(QByteArray()) == 0);
    QVERIFY(QRSAEncryption::fromArray(QByteArray::fromHex("0001ff")) == 511);
    QCOMPARE(QRSAEncryption::getBlockSize(BigInt(65536)), 2);
    QCOMPARE(QRSAEncryption::getBitsSize(BigInt(5)), 64);
    QCOMPARE(QRSAEncryption::getBitsSize(BigInt("340282366920938463463374607431768211456", 10)), 256);
    QVERIFY(ZrUtils::eulerFunc(11, 13) == 120);
}

void QRSAEncryptionTest::numberTheoryWrong()
{
    // toPrime tries n, n + 2, n - 2, n + 4, ... after making n odd.
    QVERIFY(Internal::toPrime(24) == 23); // 25, 27 composite
    QVERIFY(Internal::toPrime(90) == 89); // 91, 93 composite
    QVERIFY(Internal::toPrime(0) == 3);
    QVERIFY(Internal::toPrime(-10) == 3);
    QVERIFY(Internal::toPrime(97) == 97);

    QVERIFY(!Internal::isMutuallyPrime(10, 4));
    QVERIFY(!Internal::isMutuallyPrime(21, 49));
    QVERIFY(!Internal::isMutuallyPrime(11 * 13, 11 * 17));
    QVERIFY(Internal::isMutuallyPrime(120, 7));

    for (long long e : {3LL, 7LL, 65537LL, 119LL}) {
        const BigInt phi(120 * 65539LL);
        if (!Internal::isMutuallyPrime(phi, e))
            continue;
        BigInt d = Internal::extEuclid(e, phi);
        while (d < 0)
            d += phi;
        QVERIFY((d * e) % phi == 1);
    }

    const BigInt g = Internal::genesisInt("seed", 100);
    QVERIFY(g == Internal::genesisInt("seed", 100));
    QVERIFY(g != Internal::genesisInt("seeds", 100));
    QVERIFY(g.longBits() <= 100);
    QVERIFY(Internal::randomNumber(256, true).longBits() >= 256);
    QVERIFY(Internal::randomNumber(256, false) >= 1);
}

QTEST_GUILESS_MAIN(QRSAEncryptionTest)
#include "tst_qrsaencryption.moc"

#ifndef ZRUTILS_QRSAENCRYPTION_H
#define ZRUTILS_QRSAENCRYPTION_H

#include <ZrUtils/BigInt.h>
#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QString>

namespace ZrUtils
{

/**
 * Textbook RSA over BigInt: raw block-wise modular exponentiation without OAEP or
 * PKCS #1 padding, and signatures made of a message's SHA-256 digest.
 *
 * A key of an Rsa size r is r / 4 bytes: the exponent (e or d), then the modulus n,
 * each r / 8 bytes, unsigned big-endian, zero-padded on the left.
 *
 * Auto block mode packs as many bytes per block as the modulus allows, and loses
 * leading zero bytes of the last block on decoding (a warning is logged when
 * encoding such data); OneByte mode enciphers one byte per block and is exact.
 *
 * Random keys are drawn from the C library generator (srand/rand), reseeded from a
 * high-resolution clock on every draw: keys differ between calls, but they are not
 * fit to protect anything of value.
 *
 * Nothing throws; failures give an empty array or false.
 */
class ZRUTILS_EXPORT QRSAEncryption
{
public:
    /** Key size in bits. */
    enum Rsa : int {
        RSA_64 = 64,
        RSA_128 = 128,
        RSA_256 = 256,
        RSA_512 = 512,
        RSA_1024 = 1024,
        RSA_2048 = 2048,
        RSA_4096 = 4096,
        RSA_8192 = 8192,
    };
    enum BlockSize : int {
        Auto = 0, ///< blocks as large as the modulus allows
        OneByte = 1, ///< one plaintext byte per block
    };

    explicit QRSAEncryption(Rsa rsa);

    Rsa getRsa() const;

    /** Enciphers with @p pubKey (e then n); empty when the key is not of this object's size. */
    QByteArray encode(const QByteArray& rawData, const QByteArray& pubKey, BlockSize blockSizeMode = Auto);
    /** Deciphers with @p privKey (d then n); empty when the key is not of this object's size. */
    QByteArray decode(const QByteArray& rawData, const QByteArray& privKey, BlockSize blockSizeMode = Auto);
    /**
     * @p rawMessage followed by "-SIGN-", the hexadecimal signature of its SHA-256
     * digest, and "-SIGN-". With a key of the wrong size the signature part is empty.
     */
    QByteArray signMessage(QByteArray rawMessage, const QByteArray& privKey);
    /** True when the message ends in a signature that @p pubKey verifies; false for anything malformed. */
    bool checkSignMessage(const QByteArray& rawMessage, const QByteArray& pubKey);
    /** True when a test text survives encoding with @p pubKey and decoding with @p privKey. */
    bool testKeyPair(const QByteArray& pubKey, const QByteArray& privKey);
    /**
     * Makes a key pair of this object's size: random, or always the same pair for the
     * same non-empty @p genesis. False (with both keys empty) after ten failed attempts,
     * and at once for a size not listed in Rsa.
     */
    bool generatePairKey(QByteArray& pubKey, QByteArray& privKey, const QByteArray& genesis = QByteArray());

    // The same operations for a key size given explicitly.
    static QByteArray encode(
        const QByteArray& rawData, const QByteArray& pubKey, Rsa rsa, BlockSize blockSizeMode = Auto);
    static QByteArray decode(
        const QByteArray& rawData, const QByteArray& privKey, Rsa rsa, BlockSize blockSizeMode = Auto);
    static QByteArray signMessage(const QByteArray& rawMessage, const QByteArray& privKey, Rsa rsa);
    static bool checkSignMessage(const QByteArray& rawMessage, const QByteArray& pubKey, Rsa rsa);
    static bool testKeyPair(const QByteArray& pubKey, const QByteArray& privKey, Rsa rsa);
    static bool generatePairKey(QByteArray& pubKey, QByteArray& privKey, Rsa rsa);
    static bool generatePairKey(QByteArray& pubKey, QByteArray& privKey, const QByteArray& genesis, Rsa rsa);

    /** Writes @p data to @p path as raw bytes; false when the file cannot be written. */
    static bool save(const QString& path, const QByteArray& data);
    /** The raw bytes of the file at @p path; empty when it cannot be read. */
    static QByteArray load(const QString& path);

    /** r / 4: the length of a key of size @p rsa. */
    static int getKeyBytesSize(Rsa rsa);
    /** True when the key length is non-zero and a multiple of 16. */
    static bool isValidRsaKey(const QByteArray& key);
    /** Length × 4 for a valid key, else 0. */
    static int getBitsSize(const QByteArray& key);
    /** The smallest power of two from 64 up that holds @p n's limbs. */
    static int getBitsSize(const BigInt& n);
    /** The Rsa size matching the key's length; 0 for any other length. */
    static Rsa getKeyRsaType(const QByteArray& key);
    /** n.longBytes() - 1: the most plaintext bytes one block can carry. */
    static int getBlockSize(const BigInt& n);

    /** The big-endian number in @p array (zero when empty). */
    static BigInt fromArray(const QByteArray& array);
    /**
     * The big-endian bytes of @p n. With @p width >= 0, zero bytes are put in front up
     * to that width and then the first @p width bytes kept.
     */
    static QByteArray toArray(const BigInt& n, short width = -1);

private:
    QByteArray encodeBlok(const BigInt& block, const BigInt& exponent, const BigInt& modulus, short width);
    QByteArray decodeBlok(const BigInt& block, const BigInt& exponent, const BigInt& modulus, short width);

    Rsa m_rsa;
};

/** (p - 1) × (q - 1). */
ZRUTILS_EXPORT BigInt eulerFunc(const BigInt& p, const BigInt& q);

} // namespace ZrUtils

#endif

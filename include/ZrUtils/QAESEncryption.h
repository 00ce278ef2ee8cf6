#ifndef ZRUTILS_QAESENCRYPTION_H
#define ZRUTILS_QAESENCRYPTION_H

#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QObject>

class QAESEncryptionTest;

namespace ZrUtils
{

/**
 * AES block cipher (128, 192 and 256-bit keys) over byte arrays, with the ECB, CBC,
 * CFB (full 16-byte segments) and OFB modes and three padding rules.
 *
 * Nothing is reported: every failure is an empty QByteArray. The static entry points
 * build a private object per call and may be used from any thread; an object must
 * not encipher on two threads at once. On x86-64 processors with AES instructions
 * the bulk work runs on them; the result is byte for byte the same as the portable
 * path.
 *
 * Padding rules, kept as they are because stored data depends on them:
 * - ZERO appends zero bytes up to the next block boundary; RemovePadding() strips
 *   every trailing zero byte, including zeros that belonged to the text.
 * - PKCS7 always appends 1..16 bytes (a whole block for aligned text); RemovePadding()
 *   trusts the last byte without checking the others, and leaves the text alone when
 *   that byte is 0, above 127 or longer than the text.
 * - ISO appends 0x80 and zeros, but nothing at all to aligned text, so RemovePadding()
 *   cannot tell a padded aligned text from an unpadded one.
 *
 * Keys: bytes past the key length of the level are ignored. A key shorter than the
 * level needs is used as if zero bytes filled it up to that length (never read past
 * its end); callers should not rely on that.
 */
class ZRUTILS_EXPORT QAESEncryption : public QObject
{
    Q_OBJECT
public:
    // The enumerations have a fixed int type: values outside the lists are legal and
    // handled as documented.
    /** Key size. Values other than AES_192 and AES_256 act as AES_128. */
    enum Aes : int { AES_128 = 0, AES_192 = 1, AES_256 = 2 };
    /** Mode of operation. Values above OFB give empty results. */
    enum Mode : int { ECB = 0, CBC = 1, CFB = 2, OFB = 3 };
    /** Padding rule. Values other than PKCS7 and ISO act as ZERO. */
    enum Padding : int { ZERO = 0, PKCS7 = 1, ISO = 2 };

    /** The object has no parent. */
    explicit QAESEncryption(QAESEncryption::Aes level, QAESEncryption::Mode mode,
        QAESEncryption::Padding padding = QAESEncryption::ISO);
    ~QAESEncryption() override;

    /**
     * Pads and enciphers @p rawText. Empty when @p iv is not exactly 16 bytes in CBC,
     * CFB or OFB (ECB ignores it), or when @p mode is unknown.
     */
    static QByteArray Crypt(QAESEncryption::Aes level, QAESEncryption::Mode mode, const QByteArray& rawText,
        const QByteArray& key, const QByteArray& iv = QByteArray(),
        QAESEncryption::Padding padding = QAESEncryption::ISO);
    /**
     * Deciphers @p rawText; the padding stays attached (see RemovePadding()). Empty
     * on the same conditions as Crypt(). In ECB and CBC a trailing part shorter than a
     * block is deciphered as if zero bytes completed it, giving a whole block.
     */
    static QByteArray Decrypt(QAESEncryption::Aes level, QAESEncryption::Mode mode, const QByteArray& rawText,
        const QByteArray& key, const QByteArray& iv = QByteArray(),
        QAESEncryption::Padding padding = QAESEncryption::ISO);
    /**
     * The key schedule of @p key: 176, 208 or 240 bytes, followed by any key bytes
     * past the level's key length. Never empty.
     */
    static QByteArray ExpandKey(QAESEncryption::Aes level, QAESEncryption::Mode mode, const QByteArray& key);
    /** @p rawText without its padding (rules in the class comment); unchanged when none is found. */
    static QByteArray RemovePadding(
        const QByteArray& rawText, QAESEncryption::Padding padding = QAESEncryption::ISO);

    /** As Crypt() with this object's level, mode and padding. */
    QByteArray encode(const QByteArray& rawText, const QByteArray& key, const QByteArray& iv = QByteArray());
    /** As Decrypt() with this object's level and mode. */
    QByteArray decode(const QByteArray& rawText, const QByteArray& key, const QByteArray& iv = QByteArray());
    /** As RemovePadding() with this object's padding. */
    QByteArray removePadding(const QByteArray& rawText);
    /** As ExpandKey() with this object's level. */
    QByteArray expandKey(const QByteArray& key);

private:
    friend class ::QAESEncryptionTest; // checks the nominal figures of each level

    QByteArray getPadding(int currSize, int alignment);
    void addRoundKey(quint8 round, const QByteArray& expKey);
    void subBytes();
    void shiftRows();
    void mixColumns();
    void invMixColumns();
    void invSubBytes();
    void invShiftRows();
    QByteArray cipher(const QByteArray& expKey, const QByteArray& in);
    QByteArray invCipher(const QByteArray& expKey, const QByteArray& in);
    QByteArray byteXor(const QByteArray& a, const QByteArray& b);
    void printArray(unsigned char* arr, int size);

    QByteArray encodePortable(const QByteArray& expKey, QByteArray& padded, const QByteArray& iv);
    QByteArray decodePortable(const QByteArray& expKey, const QByteArray& rawText, const QByteArray& iv);
    bool ivRequiredAndWrong(const QByteArray& iv) const;

    int nb;
    int blocklen;
    int level;
    int mode;
    int nk;
    int keyLen;
    int nr;
    int expandedKey; // 209 for AES-192: a nominal figure nothing reads; the schedule is 208 bytes
    int padding;
    bool m_spare; // kept for layout; no operation reads it
    QByteArray* state;

    static const quint8 sbox[256];
    static const quint8 rsbox[256];
    static const quint8 Rcon[14];
};

} // namespace ZrUtils

#endif

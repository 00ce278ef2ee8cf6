#include <ZrUtils/QAESEncryption.h>

#include "crypto/AesEngine.h"

#include <cstring>

namespace ZrUtils
{

namespace
{

inline quint8 xtime(quint8 x)
{
    return static_cast<quint8>((x << 1) ^ (((x >> 7) & 1) * 0x1b));
}

// GF(2^8) product, used only by the inverse column mix.
inline quint8 gmul(quint8 a, quint8 b)
{
    quint8 result = 0;
    while (b) {
        if (b & 1)
            result ^= a;
        a = xtime(a);
        b >>= 1;
    }
    return result;
}

inline const std::uint8_t* bytes(const QByteArray& array)
{
    return reinterpret_cast<const std::uint8_t*>(array.constData());
}

inline std::uint8_t* bytes(QByteArray& array)
{
    return reinterpret_cast<std::uint8_t*>(array.data());
}

} // namespace

const quint8 QAESEncryption::sbox[256] = {0x63, 0x7c, 0x77, 0x7b, 0xf2, 0x6b, 0x6f, 0xc5, 0x30, 0x01, 0x67,
    0x2b, 0xfe, 0xd7, 0xab, 0x76, 0xca, 0x82, 0xc9, 0x7d, 0xfa, 0x59, 0x47, 0xf0, 0xad, 0xd4, 0xa2, 0xaf,
    0x9c, 0xa4, 0x72, 0xc0, 0xb7, 0xfd, 0x93, 0x26, 0x36, 0x3f, 0xf7, 0xcc, 0x34, 0xa5, 0xe5, 0xf1, 0x71,
    0xd8, 0x31, 0x15, 0x04, 0xc7, 0x23, 0xc3, 0x18, 0x96, 0x05, 0x9a, 0x07, 0x12, 0x80, 0xe2, 0xeb, 0x27,
    0xb2, 0x75, 0x09, 0x83, 0x2c, 0x1a, 0x1b, 0x6e, 0x5a, 0xa0, 0x52, 0x3b, 0xd6, 0xb3, 0x29, 0xe3, 0x2f,
    0x84, 0x53, 0xd1, 0x00, 0xed, 0x20, 0xfc, 0xb1, 0x5b, 0x6a, 0xcb, 0xbe, 0x39, 0x4a, 0x4c, 0x58, 0xcf,
    0xd0, 0xef, 0xaa, 0xfb, 0x43, 0x4d, 0x33, 0x85, 0x45, 0xf9, 0x02, 0x7f, 0x50, 0x3c, 0x9f, 0xa8, 0x51,
    0xa3, 0x40, 0x8f, 0x92, 0x9d, 0x38, 0xf5, 0xbc, 0xb6, 0xda, 0x21, 0x10, 0xff, 0xf3, 0xd2, 0xcd, 0x0c,
    0x13, 0xec, 0x5f, 0x97, 0x44, 0x17, 0xc4, 0xa7, 0x7e, 0x3d, 0x64, 0x5d, 0x19, 0x73, 0x60, 0x81, 0x4f,
    0xdc, 0x22, 0x2a, 0x90, 0x88, 0x46, 0xee, 0xb8, 0x14, 0xde, 0x5e, 0x0b, 0xdb, 0xe0, 0x32, 0x3a, 0x0a,
    0x49, 0x06, 0x24, 0x5c, 0xc2, 0xd3, 0xac, 0x62, 0x91, 0x95, 0xe4, 0x79, 0xe7, 0xc8, 0x37, 0x6d, 0x8d,
    0xd5, 0x4e, 0xa9, 0x6c, 0x56, 0xf4, 0xea, 0x65, 0x7a, 0xae, 0x08, 0xba, 0x78, 0x25, 0x2e, 0x1c, 0xa6,
    0xb4, 0xc6, 0xe8, 0xdd, 0x74, 0x1f, 0x4b, 0xbd, 0x8b, 0x8a, 0x70, 0x3e, 0xb5, 0x66, 0x48, 0x03, 0xf6,
    0x0e, 0x61, 0x35, 0x57, 0xb9, 0x86, 0xc1, 0x1d, 0x9e, 0xe1, 0xf8, 0x98, 0x11, 0x69, 0xd9, 0x8e, 0x94,
    0x9b, 0x1e, 0x87, 0xe9, 0xce, 0x55, 0x28, 0xdf, 0x8c, 0xa1, 0x89, 0x0d, 0xbf, 0xe6, 0x42, 0x68, 0x41,
    0x99, 0x2d, 0x0f, 0xb0, 0x54, 0xbb, 0x16};

const quint8 QAESEncryption::rsbox[256] = {0x52, 0x09, 0x6a, 0xd5, 0x30, 0x36, 0xa5, 0x38, 0xbf, 0x40, 0xa3,
    0x9e, 0x81, 0xf3, 0xd7, 0xfb, 0x7c, 0xe3, 0x39, 0x82, 0x9b, 0x2f, 0xff, 0x87, 0x34, 0x8e, 0x43, 0x44,
    0xc4, 0xde, 0xe9, 0xcb, 0x54, 0x7b, 0x94, 0x32, 0xa6, 0xc2, 0x23, 0x3d, 0xee, 0x4c, 0x95, 0x0b, 0x42,
    0xfa, 0xc3, 0x4e, 0x08, 0x2e, 0xa1, 0x66, 0x28, 0xd9, 0x24, 0xb2, 0x76, 0x5b, 0xa2, 0x49, 0x6d, 0x8b,
    0xd1, 0x25, 0x72, 0xf8, 0xf6, 0x64, 0x86, 0x68, 0x98, 0x16, 0xd4, 0xa4, 0x5c, 0xcc, 0x5d, 0x65, 0xb6,
    0x92, 0x6c, 0x70, 0x48, 0x50, 0xfd, 0xed, 0xb9, 0xda, 0x5e, 0x15, 0x46, 0x57, 0xa7, 0x8d, 0x9d, 0x84,
    0x90, 0xd8, 0xab, 0x00, 0x8c, 0xbc, 0xd3, 0x0a, 0xf7, 0xe4, 0x58, 0x05, 0xb8, 0xb3, 0x45, 0x06, 0xd0,
    0x2c, 0x1e, 0x8f, 0xca, 0x3f, 0x0f, 0x02, 0xc1, 0xaf, 0xbd, 0x03, 0x01, 0x13, 0x8a, 0x6b, 0x3a, 0x91,
    0x11, 0x41, 0x4f, 0x67, 0xdc, 0xea, 0x97, 0xf2, 0xcf, 0xce, 0xf0, 0xb4, 0xe6, 0x73, 0x96, 0xac, 0x74,
    0x22, 0xe7, 0xad, 0x35, 0x85, 0xe2, 0xf9, 0x37, 0xe8, 0x1c, 0x75, 0xdf, 0x6e, 0x47, 0xf1, 0x1a, 0x71,
    0x1d, 0x29, 0xc5, 0x89, 0x6f, 0xb7, 0x62, 0x0e, 0xaa, 0x18, 0xbe, 0x1b, 0xfc, 0x56, 0x3e, 0x4b, 0xc6,
    0xd2, 0x79, 0x20, 0x9a, 0xdb, 0xc0, 0xfe, 0x78, 0xcd, 0x5a, 0xf4, 0x1f, 0xdd, 0xa8, 0x33, 0x88, 0x07,
    0xc7, 0x31, 0xb1, 0x12, 0x10, 0x59, 0x27, 0x80, 0xec, 0x5f, 0x60, 0x51, 0x7f, 0xa9, 0x19, 0xb5, 0x4a,
    0x0d, 0x2d, 0xe5, 0x7a, 0x9f, 0x93, 0xc9, 0x9c, 0xef, 0xa0, 0xe0, 0x3b, 0x4d, 0xae, 0x2a, 0xf5, 0xb0,
    0xc8, 0xeb, 0xbb, 0x3c, 0x83, 0x53, 0x99, 0x61, 0x17, 0x2b, 0x04, 0x7e, 0xba, 0x77, 0xd6, 0x26, 0xe1,
    0x69, 0x14, 0x63, 0x55, 0x21, 0x0c, 0x7d};

// Index 0 is never reached; only 1..10 are used by the schedules.
const quint8 QAESEncryption::Rcon[14]
    = {0x8d, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x1b, 0x36, 0x6c, 0xd8, 0xab};

QAESEncryption::QAESEncryption(
    QAESEncryption::Aes level, QAESEncryption::Mode mode, QAESEncryption::Padding padding)
    : QObject(nullptr)
    , nb(4)
    , blocklen(16)
    , level(level)
    , mode(mode)
    , padding(padding)
    , m_spare(false)
    , state(nullptr)
{
    switch (level) {
    case AES_192:
        nk = 6;
        keyLen = 24;
        nr = 12;
        expandedKey = 209;
        break;
    case AES_256:
        nk = 8;
        keyLen = 32;
        nr = 14;
        expandedKey = 240;
        break;
    default:
        nk = 4;
        keyLen = 16;
        nr = 10;
        expandedKey = 176;
        break;
    }
}

QAESEncryption::~QAESEncryption() = default;

QByteArray QAESEncryption::Crypt(QAESEncryption::Aes level, QAESEncryption::Mode mode,
    const QByteArray& rawText, const QByteArray& key, const QByteArray& iv, QAESEncryption::Padding padding)
{
    return QAESEncryption(level, mode, padding).encode(rawText, key, iv);
}

QByteArray QAESEncryption::Decrypt(QAESEncryption::Aes level, QAESEncryption::Mode mode,
    const QByteArray& rawText, const QByteArray& key, const QByteArray& iv, QAESEncryption::Padding padding)
{
    return QAESEncryption(level, mode, padding).decode(rawText, key, iv);
}

QByteArray QAESEncryption::ExpandKey(
    QAESEncryption::Aes level, QAESEncryption::Mode mode, const QByteArray& key)
{
    return QAESEncryption(level, mode, ISO).expandKey(key);
}

QByteArray QAESEncryption::RemovePadding(const QByteArray& rawText, QAESEncryption::Padding padding)
{
    if (rawText.isEmpty())
        return rawText;

    QByteArray result(rawText);
    switch (padding) {
    case ZERO: {
        int end = result.size();
        while (end > 0 && result.at(end - 1) == '\0')
            --end;
        result.truncate(end);
        break;
    }
    case PKCS7: {
        // The pad bytes are not verified; a count that does not fit leaves the text as it is.
        const int count = static_cast<signed char>(result.at(result.size() - 1));
        if (count > 0 && count <= result.size())
            result.remove(result.size() - count, count);
        break;
    }
    case ISO: {
        int last = result.size() - 1;
        while (last >= 0 && result.at(last) == '\0')
            --last;
        if (last >= 0 && static_cast<quint8>(result.at(last)) == 0x80)
            result.truncate(last);
        break;
    }
    default:
        break;
    }
    return result;
}

QByteArray QAESEncryption::removePadding(const QByteArray& rawText)
{
    return RemovePadding(rawText, static_cast<Padding>(padding));
}

QByteArray QAESEncryption::expandKey(const QByteArray& key)
{
    const int scheduleLen = nb * (nr + 1) * 4;
    QByteArray schedule(scheduleLen, '\0');
    quint8* w = bytes(schedule);
    // A short key reads as if zero-filled; the schedule was zeroed above.
    std::memcpy(w, key.constData(), static_cast<size_t>(qMin(key.size(), keyLen)));

    quint8 temp[4];
    for (int i = nk; i < nb * (nr + 1); ++i) {
        std::memcpy(temp, w + 4 * (i - 1), 4);
        if (i % nk == 0) {
            const quint8 first = temp[0];
            temp[0] = static_cast<quint8>(sbox[temp[1]] ^ Rcon[i / nk]);
            temp[1] = sbox[temp[2]];
            temp[2] = sbox[temp[3]];
            temp[3] = sbox[first];
        } else if (level == AES_256 && i % nk == 4) {
            for (quint8& b : temp)
                b = sbox[b];
        }
        for (int j = 0; j < 4; ++j)
            w[4 * i + j] = static_cast<quint8>(w[4 * (i - nk) + j] ^ temp[j]);
    }
    // The words are inserted in front of any surplus key bytes, which end up behind the schedule.
    if (key.size() > keyLen)
        schedule.append(key.constData() + keyLen, key.size() - keyLen);
    return schedule;
}

QByteArray QAESEncryption::getPadding(int currSize, int alignment)
{
    int size = (alignment - currSize % alignment) % alignment;
    switch (padding) {
    case PKCS7:
        if (size == 0)
            size = alignment;
        return QByteArray(size, static_cast<char>(size));
    case ISO:
        if (size > 0)
            return QByteArray(1, static_cast<char>(0x80)) + QByteArray(size - 1, '\0');
        return QByteArray();
    default:
        return QByteArray(size, '\0');
    }
}

void QAESEncryption::addRoundKey(quint8 round, const QByteArray& expKey)
{
    quint8* s = bytes(*state);
    const quint8* k = bytes(expKey) + round * nb * 4;
    for (int i = 0; i < 16; ++i)
        s[i] ^= k[i];
}

void QAESEncryption::subBytes()
{
    quint8* s = bytes(*state);
    for (int i = 0; i < 16; ++i)
        s[i] = sbox[s[i]];
}

void QAESEncryption::invSubBytes()
{
    quint8* s = bytes(*state);
    for (int i = 0; i < 16; ++i)
        s[i] = rsbox[s[i]];
}

// Byte r + 4c is row r, column c; row r rotates left by r columns.
void QAESEncryption::shiftRows()
{
    quint8* s = bytes(*state);
    quint8 t[16];
    for (int c = 0; c < 4; ++c)
        for (int r = 0; r < 4; ++r)
            t[r + 4 * c] = s[r + 4 * ((c + r) % 4)];
    std::memcpy(s, t, 16);
}

void QAESEncryption::invShiftRows()
{
    quint8* s = bytes(*state);
    quint8 t[16];
    for (int c = 0; c < 4; ++c)
        for (int r = 0; r < 4; ++r)
            t[r + 4 * ((c + r) % 4)] = s[r + 4 * c];
    std::memcpy(s, t, 16);
}

void QAESEncryption::mixColumns()
{
    quint8* s = bytes(*state);
    for (int c = 0; c < 4; ++c) {
        quint8* col = s + 4 * c;
        const quint8 a0 = col[0], a1 = col[1], a2 = col[2], a3 = col[3];
        const quint8 all = a0 ^ a1 ^ a2 ^ a3;
        col[0] = a0 ^ all ^ xtime(a0 ^ a1);
        col[1] = a1 ^ all ^ xtime(a1 ^ a2);
        col[2] = a2 ^ all ^ xtime(a2 ^ a3);
        col[3] = a3 ^ all ^ xtime(a3 ^ a0);
    }
}

void QAESEncryption::invMixColumns()
{
    quint8* s = bytes(*state);
    for (int c = 0; c < 4; ++c) {
        quint8* col = s + 4 * c;
        const quint8 a0 = col[0], a1 = col[1], a2 = col[2], a3 = col[3];
        col[0] = gmul(a0, 0x0e) ^ gmul(a1, 0x0b) ^ gmul(a2, 0x0d) ^ gmul(a3, 0x09);
        col[1] = gmul(a0, 0x09) ^ gmul(a1, 0x0e) ^ gmul(a2, 0x0b) ^ gmul(a3, 0x0d);
        col[2] = gmul(a0, 0x0d) ^ gmul(a1, 0x09) ^ gmul(a2, 0x0e) ^ gmul(a3, 0x0b);
        col[3] = gmul(a0, 0x0b) ^ gmul(a1, 0x0d) ^ gmul(a2, 0x09) ^ gmul(a3, 0x0e);
    }
}

QByteArray QAESEncryption::cipher(const QByteArray& expKey, const QByteArray& in)
{
    QByteArray output(in);
    // A short trailing slice is completed with zeros and comes out as a whole block.
    if (output.size() < blocklen)
        output.append(QByteArray(blocklen - output.size(), '\0'));
    state = &output;

    addRoundKey(0, expKey);
    for (quint8 round = 1; round < nr; ++round) {
        subBytes();
        shiftRows();
        mixColumns();
        addRoundKey(round, expKey);
    }
    subBytes();
    shiftRows();
    addRoundKey(static_cast<quint8>(nr), expKey);

    state = nullptr;
    return output;
}

QByteArray QAESEncryption::invCipher(const QByteArray& expKey, const QByteArray& in)
{
    QByteArray output(in);
    if (output.size() < blocklen)
        output.append(QByteArray(blocklen - output.size(), '\0'));
    state = &output;

    addRoundKey(static_cast<quint8>(nr), expKey);
    for (quint8 round = static_cast<quint8>(nr - 1); round > 0; --round) {
        invShiftRows();
        invSubBytes();
        addRoundKey(round, expKey);
        invMixColumns();
    }
    invShiftRows();
    invSubBytes();
    addRoundKey(0, expKey);

    state = nullptr;
    return output;
}

QByteArray QAESEncryption::byteXor(const QByteArray& a, const QByteArray& b)
{
    const int size = qMin(a.size(), b.size());
    QByteArray result(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        result[i] = static_cast<char>(a.at(i) ^ b.at(i));
    return result;
}

void QAESEncryption::printArray(unsigned char* arr, int size)
{
    // A debugging aid: builds the hexadecimal text and drops it.
    const QByteArray text = QByteArray(reinterpret_cast<const char*>(arr), qMax(size, 0)).toHex(' ');
    Q_UNUSED(text);
}

bool QAESEncryption::ivRequiredAndWrong(const QByteArray& iv) const
{
    return (mode == CBC || mode == CFB || mode == OFB) && iv.size() != blocklen;
}

QByteArray QAESEncryption::encode(const QByteArray& rawText, const QByteArray& key, const QByteArray& iv)
{
    if (ivRequiredAndWrong(iv))
        return QByteArray();

    const QByteArray expKey = expandKey(key);
    const QByteArray pad = getPadding(rawText.size(), blocklen);
    if (mode < ECB || mode > OFB)
        return QByteArray();

    if (Internal::aesHardwareActive()) {
        // The aligned bulk goes straight from the caller's bytes; only the last block
        // is assembled with its padding.
        const int bulk = rawText.size() - rawText.size() % blocklen;
        QByteArray out(rawText.size() + pad.size(), Qt::Uninitialized);
        std::uint8_t chain[16] = {};
        if (mode != ECB)
            std::memcpy(chain, iv.constData(), 16);
        Internal::aesHardwareEncode(
            mode, nr, bytes(expKey), chain, bytes(rawText), bytes(out), static_cast<size_t>(bulk));
        const int tail = out.size() - bulk;
        if (tail > 0) {
            std::uint8_t last[16];
            const int rest = rawText.size() - bulk;
            std::memcpy(last, rawText.constData() + bulk, static_cast<size_t>(rest));
            std::memcpy(last + rest, pad.constData(), static_cast<size_t>(tail - rest));
            Internal::aesHardwareEncode(mode, nr, bytes(expKey), chain, last, bytes(out) + bulk, 16);
        }
        return out;
    }

    QByteArray padded;
    padded.reserve(rawText.size() + pad.size());
    padded.append(rawText).append(pad);
    return encodePortable(expKey, padded, iv);
}

QByteArray QAESEncryption::decode(const QByteArray& rawText, const QByteArray& key, const QByteArray& iv)
{
    if (ivRequiredAndWrong(iv))
        return QByteArray();

    const QByteArray expKey = expandKey(key);
    if (mode < ECB || mode > OFB)
        return QByteArray();

    if (Internal::aesHardwareActive()) {
        const int bulk = rawText.size() - rawText.size() % blocklen;
        const int rest = rawText.size() - bulk;
        // ECB and CBC complete a short tail to a whole block; CFB and OFB keep its length.
        const bool wholeTail = mode == ECB || mode == CBC;
        QByteArray out(bulk + (rest > 0 && wholeTail ? blocklen : rest), Qt::Uninitialized);
        std::uint8_t chain[16] = {};
        if (mode != ECB)
            std::memcpy(chain, iv.constData(), 16);
        Internal::aesHardwareDecode(
            mode, nr, bytes(expKey), chain, bytes(rawText), bytes(out), static_cast<size_t>(bulk));
        if (rest > 0) {
            std::uint8_t in[16] = {};
            std::uint8_t last[16];
            std::memcpy(in, rawText.constData() + bulk, static_cast<size_t>(rest));
            Internal::aesHardwareDecode(mode, nr, bytes(expKey), chain, in, last, 16);
            std::memcpy(bytes(out) + bulk, last, static_cast<size_t>(out.size() - bulk));
        }
        return out;
    }
    return decodePortable(expKey, rawText, iv);
}

QByteArray QAESEncryption::encodePortable(const QByteArray& expKey, QByteArray& padded, const QByteArray& iv)
{
    const int size = padded.size();
    QByteArray ret;
    ret.reserve(size);
    switch (mode) {
    case ECB:
        for (int i = 0; i < size; i += blocklen)
            ret.append(cipher(expKey, padded.mid(i, blocklen)));
        break;
    case CBC: {
        QByteArray chain = iv;
        for (int i = 0; i < size; i += blocklen) {
            const QByteArray block = byteXor(padded.mid(i, blocklen), chain);
            padded.replace(i, blocklen, block);
            chain = cipher(expKey, block);
            ret.append(chain);
        }
        break;
    }
    case CFB:
        ret.append(byteXor(padded.left(blocklen), cipher(expKey, iv)));
        for (int i = 0; i < size; i += blocklen) {
            if (i + blocklen < size)
                ret.append(byteXor(padded.mid(i + blocklen, blocklen), cipher(expKey, ret.mid(i, blocklen))));
        }
        break;
    case OFB: {
        QByteArray keystream = cipher(expKey, iv);
        for (int i = blocklen; i < size; i += blocklen)
            keystream.append(cipher(expKey, keystream.right(blocklen)));
        ret = byteXor(padded, keystream);
        break;
    }
    default:
        break;
    }
    return ret;
}

QByteArray QAESEncryption::decodePortable(
    const QByteArray& expKey, const QByteArray& rawText, const QByteArray& iv)
{
    const int size = rawText.size();
    QByteArray ret;
    ret.reserve(size + blocklen);
    switch (mode) {
    case ECB:
        for (int i = 0; i < size; i += blocklen)
            ret.append(invCipher(expKey, rawText.mid(i, blocklen)));
        break;
    case CBC: {
        QByteArray chain = iv;
        for (int i = 0; i < size; i += blocklen) {
            const QByteArray block = rawText.mid(i, blocklen);
            ret.append(byteXor(invCipher(expKey, block), chain));
            chain = block;
        }
        break;
    }
    case CFB:
        ret.append(byteXor(rawText.left(blocklen), cipher(expKey, iv)));
        for (int i = 0; i < size; i += blocklen) {
            if (i + blocklen < size)
                ret.append(
                    byteXor(rawText.mid(i + blocklen, blocklen), cipher(expKey, rawText.mid(i, blocklen))));
        }
        break;
    case OFB: {
        QByteArray keystream = cipher(expKey, iv);
        for (int i = blocklen; i < size; i += blocklen)
            keystream.append(cipher(expKey, keystream.right(blocklen)));
        ret = byteXor(rawText, keystream);
        break;
    }
    default:
        break;
    }
    return ret;
}

} // namespace ZrUtils

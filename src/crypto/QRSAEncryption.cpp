#include <ZrUtils/QRSAEncryption.h>

#include "common/SaveWholeFile.h"
#include "crypto/RsaMath.h"

#include <QCryptographicHash>
#include <QFile>
#include <QtDebug>

namespace ZrUtils
{

namespace
{

const char kSignMarker[] = "-SIGN-";
constexpr int kSignMarkerLength = 6;
constexpr int kKeyAttempts = 10;

bool isListedSize(int bits)
{
    switch (bits) {
    case QRSAEncryption::RSA_64:
    case QRSAEncryption::RSA_128:
    case QRSAEncryption::RSA_256:
    case QRSAEncryption::RSA_512:
    case QRSAEncryption::RSA_1024:
    case QRSAEncryption::RSA_2048:
    case QRSAEncryption::RSA_4096:
    case QRSAEncryption::RSA_8192:
        return true;
    default:
        return false;
    }
}

bool isHexText(const QByteArray& text)
{
    if (text.size() % 2 != 0)
        return false;
    for (char c : text) {
        const bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        if (!hex)
            return false;
    }
    return true;
}

} // namespace

QRSAEncryption::QRSAEncryption(Rsa rsa)
    : m_rsa(rsa)
{
}

QRSAEncryption::Rsa QRSAEncryption::getRsa() const
{
    return m_rsa;
}

int QRSAEncryption::getKeyBytesSize(Rsa rsa)
{
    return rsa / 4;
}

bool QRSAEncryption::isValidRsaKey(const QByteArray& key)
{
    return key.size() != 0 && key.size() % 16 == 0;
}

int QRSAEncryption::getBitsSize(const QByteArray& key)
{
    return isValidRsaKey(key) ? key.size() * 4 : 0;
}

int QRSAEncryption::getBitsSize(const BigInt& n)
{
    int bits = 64;
    while (bits < n.sizeBits())
        bits *= 2;
    return bits;
}

QRSAEncryption::Rsa QRSAEncryption::getKeyRsaType(const QByteArray& key)
{
    const int bits = key.size() * 4;
    return isListedSize(bits) ? Rsa(bits) : Rsa(0);
}

int QRSAEncryption::getBlockSize(const BigInt& n)
{
    return n.longBytes() - 1;
}

BigInt QRSAEncryption::fromArray(const QByteArray& array)
{
    if (array.isEmpty())
        return BigInt();
    return BigInt(array.toHex().toStdString(), 16);
}

QByteArray QRSAEncryption::toArray(const BigInt& n, short width)
{
    std::string hex = n.getString(16);
    if (!hex.empty() && hex[0] == '-')
        hex.erase(0, 1);
    if (hex.size() % 2 != 0)
        hex.insert(0, 1, '0');
    QByteArray bytes = QByteArray::fromHex(QByteArray::fromStdString(hex));
    if (width >= 0) {
        if (bytes.size() < width)
            bytes.prepend(QByteArray(width - bytes.size(), '\0'));
        // Keeps the leading bytes: a number wider than asked loses its low end.
        bytes.truncate(width);
    }
    return bytes;
}

QByteArray QRSAEncryption::encodeBlok(
    const BigInt& block, const BigInt& exponent, const BigInt& modulus, short width)
{
    return toArray(BigInt::powm(block, exponent, modulus), width);
}

QByteArray QRSAEncryption::decodeBlok(
    const BigInt& block, const BigInt& exponent, const BigInt& modulus, short width)
{
    return toArray(BigInt::powm(block, exponent, modulus), width);
}

QByteArray QRSAEncryption::encode(
    const QByteArray& rawData, const QByteArray& pubKey, BlockSize blockSizeMode)
{
    if (getBitsSize(pubKey) != m_rsa)
        return QByteArray();

    const int half = pubKey.size() / 2;
    const BigInt exponent = fromArray(pubKey.left(half));
    const BigInt modulus = fromArray(pubKey.mid(half));
    const int outWidth = modulus.longBytes();
    const int step = blockSizeMode == OneByte ? 1 : outWidth - 1;
    if (step <= 0) {
        qDebug("module of key small! size = 1 byte, 2 byte is minimum");
        return QByteArray();
    }

    if (blockSizeMode == Auto && !rawData.isEmpty()) {
        const int lastStart = (rawData.size() - 1) / step * step;
        if (rawData.at(lastStart) == '\0')
            qWarning(
                "When trying to encrypt data, problems arose, the last block contains non-significant zeros. "
                "These zeros will be deleted during the decryption process. For encode and decode data "
                "with non-significant zeros use BlockSize::OneByte");
    }

    QByteArray result;
    result.reserve((rawData.size() + step - 1) / step * outWidth);
    for (int i = 0; i < rawData.size(); i += step)
        result
            += encodeBlok(fromArray(rawData.mid(i, step)), exponent, modulus, static_cast<short>(outWidth));
    return result;
}

QByteArray QRSAEncryption::decode(
    const QByteArray& rawData, const QByteArray& privKey, BlockSize blockSizeMode)
{
    if (getBitsSize(privKey) != m_rsa)
        return QByteArray();

    const int half = privKey.size() / 2;
    const BigInt exponent = fromArray(privKey.left(half));
    const BigInt modulus = fromArray(privKey.mid(half));
    const int step = modulus.longBytes();

    QByteArray result;
    for (int i = 0; i < rawData.size(); i += step) {
        short width = 1;
        if (blockSizeMode != OneByte) {
            // The last block keeps no leading zeros: the loss encode() warns about.
            const bool last = i + step >= rawData.size();
            width = last ? short(-1) : static_cast<short>(step - 1);
        }
        result += decodeBlok(fromArray(rawData.mid(i, step)), exponent, modulus, width);
    }
    return result;
}

QByteArray QRSAEncryption::signMessage(QByteArray rawMessage, const QByteArray& privKey)
{
    const QByteArray digest = QCryptographicHash::hash(rawMessage, QCryptographicHash::Sha256);
    const QByteArray signature = encode(digest, privKey, OneByte);
    rawMessage += QByteArray::fromRawData(kSignMarker, kSignMarkerLength);
    rawMessage += signature.toHex();
    rawMessage += QByteArray::fromRawData(kSignMarker, kSignMarkerLength);
    return rawMessage;
}

bool QRSAEncryption::checkSignMessage(const QByteArray& rawMessage, const QByteArray& pubKey)
{
    const QByteArray marker = QByteArray::fromRawData(kSignMarker, kSignMarkerLength);
    // Two markers at least; a shorter text would also turn the search start negative,
    // which means "from the end" to lastIndexOf().
    if (rawMessage.size() < 2 * kSignMarkerLength || !rawMessage.endsWith(marker))
        return false;
    const int closing = rawMessage.size() - kSignMarkerLength;
    const int opening = rawMessage.lastIndexOf(marker, closing - 1);
    if (opening < 0)
        return false;

    const QByteArray signatureHex
        = rawMessage.mid(opening + kSignMarkerLength, closing - opening - kSignMarkerLength);
    if (signatureHex.isEmpty() || !isHexText(signatureHex))
        return false;
    const QByteArray digest = QCryptographicHash::hash(rawMessage.left(opening), QCryptographicHash::Sha256);
    return decode(QByteArray::fromHex(signatureHex), pubKey, OneByte) == digest;
}

bool QRSAEncryption::testKeyPair(const QByteArray& pubKey, const QByteArray& privKey)
{
    const QByteArray text = QByteArrayLiteral("Test message of encrypkey");
    if (decode(encode(text, pubKey), privKey) == text)
        return true;
    qWarning("(Warning): Testkey Fail, try generate new key pair!");
    return false;
}

bool QRSAEncryption::generatePairKey(QByteArray& pubKey, QByteArray& privKey, const QByteArray& genesis)
{
    pubKey.clear();
    privKey.clear();
    const int bits = m_rsa;
    if (!isListedSize(bits))
        return false;
    const short width = static_cast<short>(bits / 8);

    for (int attempt = 0; attempt < kKeyAttempts; ++attempt) {
        BigInt p;
        BigInt q;
        BigInt e;
        if (!genesis.isEmpty()) {
            Internal::getPrimesFromGenesis(genesis, bits, attempt, p, q);
            e = Internal::genesisInt(genesis, bits);
        } else {
            p = Internal::randomPrimeNumber(bits, BigInt());
            q = Internal::randomPrimeNumber(bits, p);
            e = Internal::randomNumber(bits, true);
        }
        const BigInt phi = eulerFunc(p, q);
        e %= phi;
        const BigInt n = p * q;

        // The first odd candidate is tried as it is; 1 would make the key pointless.
        if (e % 2 == 0)
            --e;
        while (e >= 3 && !Internal::isMutuallyPrime(phi, e))
            e -= 2;
        if (e < 3)
            continue;

        BigInt d = Internal::extEuclid(e, phi);
        while (d < 0)
            d += phi;

        pubKey = toArray(e, width) + toArray(n, width);
        privKey = toArray(d, width) + toArray(n, width);
        if (testKeyPair(pubKey, privKey))
            return true;
        pubKey.clear();
        privKey.clear();
    }
    qWarning("(Warning): Exceeded limit of key generation (%d)!", kKeyAttempts);
    return false;
}

QByteArray QRSAEncryption::encode(
    const QByteArray& rawData, const QByteArray& pubKey, Rsa rsa, BlockSize blockSizeMode)
{
    return QRSAEncryption(rsa).encode(rawData, pubKey, blockSizeMode);
}

QByteArray QRSAEncryption::decode(
    const QByteArray& rawData, const QByteArray& privKey, Rsa rsa, BlockSize blockSizeMode)
{
    return QRSAEncryption(rsa).decode(rawData, privKey, blockSizeMode);
}

QByteArray QRSAEncryption::signMessage(const QByteArray& rawMessage, const QByteArray& privKey, Rsa rsa)
{
    return QRSAEncryption(rsa).signMessage(rawMessage, privKey);
}

bool QRSAEncryption::checkSignMessage(const QByteArray& rawMessage, const QByteArray& pubKey, Rsa rsa)
{
    return QRSAEncryption(rsa).checkSignMessage(rawMessage, pubKey);
}

bool QRSAEncryption::testKeyPair(const QByteArray& pubKey, const QByteArray& privKey, Rsa rsa)
{
    return QRSAEncryption(rsa).testKeyPair(pubKey, privKey);
}

bool QRSAEncryption::generatePairKey(QByteArray& pubKey, QByteArray& privKey, Rsa rsa)
{
    return QRSAEncryption(rsa).generatePairKey(pubKey, privKey);
}

bool QRSAEncryption::generatePairKey(
    QByteArray& pubKey, QByteArray& privKey, const QByteArray& genesis, Rsa rsa)
{
    return QRSAEncryption(rsa).generatePairKey(pubKey, privKey, genesis);
}

bool QRSAEncryption::save(const QString& path, const QByteArray& data)
{
    return Internal::saveWholeFile(path, data);
}

QByteArray QRSAEncryption::load(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

BigInt eulerFunc(const BigInt& p, const BigInt& q)
{
    return (p - 1) * (q - 1);
}

} // namespace ZrUtils

// The cryptography helpers of ZrSystem; the identity and OS functions live in src/system/.
#include <ZrUtils/QAESEncryption.h>
#include <ZrUtils/ZrSystem.h>

namespace ZrUtils
{

namespace
{

// Every helper is AES-256-CBC with PKCS #7 padding.
QByteArray decryptCbc(const QByteArray& cipherText, const QByteArray& key, const QByteArray& iv)
{
    const QByteArray plain = QAESEncryption::Decrypt(
        QAESEncryption::AES_256, QAESEncryption::CBC, cipherText, key, iv, QAESEncryption::PKCS7);
    return QAESEncryption::RemovePadding(plain, QAESEncryption::PKCS7);
}

} // namespace

QByteArray ZrSystem::AesCbcCryptFromBase64(const QString& text, const QString& key, const QString& iv)
{
    const QByteArray encrypted = QAESEncryption::Crypt(QAESEncryption::AES_256, QAESEncryption::CBC,
        QByteArray::fromBase64(text.toUtf8()), QByteArray::fromBase64(key.toUtf8()),
        QByteArray::fromBase64(iv.toUtf8()), QAESEncryption::PKCS7);
    return encrypted.toBase64();
}

QByteArray ZrSystem::AesCbcDecryptFromBase64(const QString& text, const QString& key, const QString& iv)
{
    return decryptCbc(QByteArray::fromBase64(text.toUtf8()), QByteArray::fromBase64(key.toUtf8()),
        QByteArray::fromBase64(iv.toUtf8()));
}

QByteArray ZrSystem::AesCbcDecryptFromHex(const QString& text, const QString& key)
{
    const QByteArray data = QByteArray::fromHex(text.toLatin1());
    // Shorter than an IV: the short IV makes the cipher return an empty result.
    const QByteArray iv = data.left(16);
    const QByteArray cipherText = data.size() > 16 ? data.right(data.size() - 16) : QByteArray();
    return decryptCbc(cipherText, QByteArray::fromHex(key.toLatin1()), iv);
}

QByteArray ZrSystem::AesCbcDecryptFromString(const QString& text, const QString& key)
{
    const QByteArray textHex = QByteArray::fromBase64(text.toUtf8()).toHex();
    const QByteArray keyHex = QByteArray::fromBase64(key.toUtf8()).toHex();
    return AesCbcDecryptFromHex(QString::fromLatin1(textHex), QString::fromLatin1(keyHex));
}

QByteArray ZrSystem::GetEncryptDecryptByte(const QByteArray& data, const char& key)
{
    QByteArray result(data);
    char* bytes = result.data();
    for (int i = 0; i < result.size(); ++i)
        bytes[i] = static_cast<char>(bytes[i] ^ key);
    return result;
}

QString ZrSystem::RsaPublicEncrypt(const QString& text, const QString& key)
{
    Q_UNUSED(text);
    Q_UNUSED(key);
    return QString();
}

QString ZrSystem::RsaPrivateDecrypt(const QString& text, const QString& key)
{
    Q_UNUSED(text);
    Q_UNUSED(key);
    return QString();
}

QByteArray ZrSystem::AesGcmDecryptFromHex(const QString& text, const QString& key, const QString& iv)
{
    Q_UNUSED(text);
    Q_UNUSED(key);
    Q_UNUSED(iv);
    return QByteArray(""); // empty, but not null
}

} // namespace ZrUtils

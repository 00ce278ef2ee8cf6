// Arbitrary text through the AES-256-CBC text helpers of ZrSystem: as Base64, hex
// and Base64-with-IV ciphertext under a fixed key, and as plaintext.
//
// Properties: decrypting never yields more than the ciphertext's whole blocks; no
// ciphertext past its IV decrypts to nothing; an IV of the wrong length gives an empty
// result; the Base64-with-IV form equals the Base64 form with the IV taken off the
// front; what AesCbcCryptFromBase64 encrypts, AesCbcDecryptFromBase64 and
// AesCbcDecryptFromHex give back byte for byte.
#include <ZrUtils/ZrSystem.h>

#include <QByteArray>
#include <QString>

using ZrUtils::ZrSystem;

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

const QByteArray Key
    = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
const QByteArray Iv = QByteArray::fromHex("f0e0d0c0b0a090807060504030201000");

QString base64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

int wholeBlocks(int size)
{
    return (size + 15) / 16 * 16;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), int(size));
    const QString text = QString::fromLatin1(input);

    // The input as Base64 ciphertext, with the IV apart.
    const QByteArray cipher = QByteArray::fromBase64(text.toUtf8());
    const QByteArray plain = ZrSystem::AesCbcDecryptFromBase64(text, base64(Key), base64(Iv));
    if (plain.size() > wholeBlocks(cipher.size()))
        violated();
    if (!ZrSystem::AesCbcDecryptFromBase64(text, base64(Key), base64(Iv.left(int(size % 16)))).isEmpty())
        violated();

    // The input as hex of IV and ciphertext.
    const QByteArray ivAndCipher = QByteArray::fromHex(input);
    const QByteArray fromHex = ZrSystem::AesCbcDecryptFromHex(text, QString::fromLatin1(Key.toHex()));
    if (ivAndCipher.size() <= 16 ? !fromHex.isEmpty() : fromHex.size() > wholeBlocks(ivAndCipher.size() - 16))
        violated();

    // The input as Base64 of IV and ciphertext: the same as the IV passed apart.
    const QByteArray joined = QByteArray::fromBase64(text.toUtf8());
    const QByteArray fromString = ZrSystem::AesCbcDecryptFromString(text, base64(Key));
    if (fromString
        != ZrSystem::AesCbcDecryptFromBase64(base64(joined.mid(16)), base64(Key), base64(joined.left(16))))
        violated();

    // The input as plaintext.
    const QByteArray encrypted = ZrSystem::AesCbcCryptFromBase64(base64(input), base64(Key), base64(Iv));
    const QByteArray encryptedBytes = QByteArray::fromBase64(encrypted);
    if (encryptedBytes.size() != (input.size() / 16 + 1) * 16)
        violated();
    if (ZrSystem::AesCbcDecryptFromBase64(QString::fromLatin1(encrypted), base64(Key), base64(Iv)) != input)
        violated();
    if (ZrSystem::AesCbcDecryptFromHex(
            QString::fromLatin1((Iv + encryptedBytes).toHex()), QString::fromLatin1(Key.toHex()))
        != input)
        violated();
    if (!ZrSystem::AesCbcCryptFromBase64(base64(input), base64(Key), base64(Iv + "x")).isEmpty())
        violated();
    return 0;
}

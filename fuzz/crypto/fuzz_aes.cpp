// Arbitrary text, key and IV through QAESEncryption in every key size, mode and
// padding, on the processor's AES instructions and on the portable rounds.
//
// Input: one byte choosing key size, mode, padding and whether the IV has the right
// length; 32 key bytes; 16 IV bytes; the text (short inputs read as zeros).
//
// Properties: padding removal keeps a prefix of its input and strips only what the
// rule names; a missing or wrong-length IV gives an empty result in the modes that
// need one; whatever is encrypted decrypts to the text followed by its padding, and
// removing that padding gives the text back wherever the rule can tell (PKCS #7
// always, ISO for unaligned text, ZERO for text not ending in a zero byte); both
// engines give the same bytes, also when decrypting arbitrary ciphertext.
#include <ZrUtils/QAESEncryption.h>

#include "crypto/AesEngine.h"

#include <QByteArray>

using ZrUtils::QAESEncryption;

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

void removalKeepsPrefix(const QByteArray& text)
{
    for (const QAESEncryption::Padding padding :
        {QAESEncryption::ZERO, QAESEncryption::PKCS7, QAESEncryption::ISO}) {
        const QByteArray kept = QAESEncryption::RemovePadding(text, padding);
        if (!text.startsWith(kept))
            violated();
        const QByteArray removed = text.mid(kept.size());
        if (removed.isEmpty())
            continue;
        switch (padding) {
        case QAESEncryption::ZERO:
            if (removed.count('\0') != removed.size() || kept.endsWith('\0'))
                violated();
            break;
        case QAESEncryption::PKCS7:
            if (removed.size() != int(quint8(text.back())))
                violated();
            break;
        case QAESEncryption::ISO:
            if (quint8(removed.at(0)) != 0x80 || removed.count('\0') != removed.size() - 1)
                violated();
            break;
        }
    }
}

bool paddingRemovable(const QByteArray& text, QAESEncryption::Padding padding)
{
    switch (padding) {
    case QAESEncryption::PKCS7:
        return true;
    case QAESEncryption::ISO:
        return text.size() % 16 != 0;
    default:
        return !text.endsWith('\0');
    }
}

struct Outcome {
    QByteArray encrypted;
    QByteArray decrypted;
    QByteArray decryptedText; // the text itself taken as ciphertext
};

Outcome run(QAESEncryption::Aes level, QAESEncryption::Mode mode, QAESEncryption::Padding padding,
    const QByteArray& text, const QByteArray& key, const QByteArray& iv)
{
    Outcome outcome;
    outcome.encrypted = QAESEncryption::Crypt(level, mode, text, key, iv, padding);
    outcome.decrypted = QAESEncryption::Decrypt(level, mode, outcome.encrypted, key, iv, padding);
    outcome.decryptedText = QAESEncryption::Decrypt(level, mode, text, key, iv, padding);
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), int(size));
    const quint8 choice = size > 0 ? data[0] : 0;
    const auto level = QAESEncryption::Aes(choice % 3);
    const auto mode = QAESEncryption::Mode((choice / 3) % 4);
    const auto padding = QAESEncryption::Padding((choice / 12) % 3);
    const bool wrongIv = choice >= 36 && (choice & 1);
    const QByteArray key = input.mid(1, 32).leftJustified(32, '\0');
    QByteArray iv = input.mid(33, 16).leftJustified(16, '\0');
    if (wrongIv)
        iv.resize(choice % 16 + (choice & 0x20 ? 17 : 0));
    const QByteArray text = input.mid(49);

    removalKeepsPrefix(text);

    ZrUtils::Internal::setAesHardwareAllowed(true);
    const Outcome outcome = run(level, mode, padding, text, key, iv);
    if (ZrUtils::Internal::aesHardwareSupported()) {
        ZrUtils::Internal::setAesHardwareAllowed(false);
        const Outcome portable = run(level, mode, padding, text, key, iv);
        ZrUtils::Internal::setAesHardwareAllowed(true);
        if (portable.encrypted != outcome.encrypted || portable.decrypted != outcome.decrypted
            || portable.decryptedText != outcome.decryptedText)
            violated();
    }

    if (wrongIv && mode != QAESEncryption::ECB) {
        if (!outcome.encrypted.isEmpty() || !outcome.decrypted.isEmpty() || !outcome.decryptedText.isEmpty())
            violated();
        return 0;
    }
    // Padding to whole blocks, so every mode keeps the padded length.
    const int padded
        = padding == QAESEncryption::PKCS7 ? (text.size() / 16 + 1) * 16 : (text.size() + 15) / 16 * 16;
    if (outcome.encrypted.size() != padded || outcome.decrypted.size() != padded
        || !outcome.decrypted.startsWith(text))
        violated();
    if (paddingRemovable(text, padding) && QAESEncryption::RemovePadding(outcome.decrypted, padding) != text)
        violated();
    return 0;
}

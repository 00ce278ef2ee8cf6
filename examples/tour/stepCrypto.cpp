#include "Tour.h"

#include <ZrUtils/QRSAEncryption.h>
#include <ZrUtils/ZrSystem.h>

#include <QRandomGenerator>

using ZrUtils::QRSAEncryption;
using ZrUtils::ZrSystem;

void tourCrypto(Tour& tour)
{
    tour.section(QStringLiteral("Cryptography: AES-256-CBC text helpers, an RSA key pair, a signed message"));

    // The helpers take base64 everywhere; the key and IV come from the caller.
    QByteArray key(32, Qt::Uninitialized);
    QByteArray iv(16, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(key.data()), key.size() / 4);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(iv.data()), iv.size() / 4);
    const QString key64 = QString::fromLatin1(key.toBase64());
    const QString iv64 = QString::fromLatin1(iv.toBase64());
    const QByteArray text = "Settings of the tour, kept encrypted on disk.";
    const QByteArray cipher
        = ZrSystem::AesCbcCryptFromBase64(QString::fromLatin1(text.toBase64()), key64, iv64);
    tour.say(QStringLiteral("plain text: %1").arg(QString::fromUtf8(text)));
    tour.say(QStringLiteral("ciphertext (base64): %1").arg(QString::fromLatin1(cipher)));
    const QByteArray back = ZrSystem::AesCbcDecryptFromBase64(QString::fromLatin1(cipher), key64, iv64);
    tour.check(back == text, QStringLiteral("AES-256-CBC round trip gives the text back"));
    const QByteArray withIv = iv + QByteArray::fromBase64(cipher);
    tour.check(ZrSystem::AesCbcDecryptFromString(QString::fromLatin1(withIv.toBase64()), key64) == text,
        QStringLiteral("the IV-in-front form decrypts to the same text"));

    QByteArray pub, priv;
    QRSAEncryption rsa(QRSAEncryption::RSA_1024);
    const bool made = rsa.generatePairKey(pub, priv);
    tour.say(QStringLiteral("RSA-1024 public key (%1 bytes): %2...")
                 .arg(pub.size())
                 .arg(QString::fromLatin1(pub.toHex().left(48))));
    tour.check(
        made && rsa.testKeyPair(pub, priv), QStringLiteral("a fresh 1024-bit key pair passes its self-test"));

    const QByteArray message = "Ship version 2.4 to the stable channel.";
    const QByteArray signedMessage = rsa.signMessage(message, priv);
    tour.say(QStringLiteral("signed message: %1 bytes, ending in ...%2")
                 .arg(signedMessage.size())
                 .arg(QString::fromLatin1(signedMessage.right(24))));
    tour.check(
        rsa.checkSignMessage(signedMessage, pub), QStringLiteral("the signature checks with the public key"));
    QByteArray forged = signedMessage;
    forged.replace("2.4", "9.9");
    tour.check(!rsa.checkSignMessage(forged, pub), QStringLiteral("a changed message no longer checks"));
}

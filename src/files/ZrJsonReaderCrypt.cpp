// The encrypted JSON files: base64 ciphertext of the indented JSON text, through the
// AES-256-CBC text helpers.
#include <ZrUtils/ZrJsonReader.h>
#include <ZrUtils/ZrSystem.h>

#include "common/JsonText.h"
#include "common/SaveWholeFile.h"

#include <QFile>
#include <QJsonDocument>

namespace ZrUtils
{

QJsonObject ZrJsonReader::DecryptParseJsonFile(const QString& path, const QString& key, const QString& iv)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QJsonObject();
    QByteArray content = file.readAll();
    const int nul = content.indexOf('\0');
    if (nul >= 0)
        content.truncate(nul);
    const QByteArray json = ZrSystem::AesCbcDecryptFromBase64(QString::fromLatin1(content), key, iv);
    // Anything but an object (a wrong key gives noise) reads as an empty object.
    return QJsonDocument::fromJson(json).object();
}

void ZrJsonReader::CryptSaveJsonFile(
    const QString& path, const QJsonObject& object, const QString& key, const QString& iv)
{
    // The helper takes its plaintext in base64 too.
    const QString text = QString::fromLatin1(Internal::jsonText(object).toBase64());
    Internal::saveWholeFile(path, ZrSystem::AesCbcCryptFromBase64(text, key, iv));
}

} // namespace ZrUtils

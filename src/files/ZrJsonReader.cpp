#include <ZrUtils/ZrJsonReader.h>

#include "common/JsonText.h"
#include "common/SaveWholeFile.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>

namespace ZrUtils
{

QJsonValue ZrJsonReader::ParseJsonFile(const QString& path, const QString& key)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QJsonValue();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError)
        return QJsonValue();
    const QJsonObject object = document.object();
    if (object.isEmpty())
        return QJsonValue();
    return object.value(key);
}

QJsonObject ZrJsonReader::ParseJsonFileToObject(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QJsonObject();
    return QJsonDocument::fromJson(file.readAll()).object();
}

QJsonArray ZrJsonReader::ParseJsonFileToArray(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QJsonArray();
    return QJsonDocument::fromJson(file.readAll()).array();
}

void ZrJsonReader::SaveJsonFile(const QString& path, const QJsonObject& object)
{
    Internal::saveWholeFile(path, Internal::jsonText(object));
}

} // namespace ZrUtils

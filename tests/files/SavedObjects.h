// The objects the save tests write, numbered so that whatever is found in a file after
// a kill or a failed save can be checked against exactly what was written.
#ifndef ZRUTILS_TESTS_SAVEDOBJECTS_H
#define ZRUTILS_TESTS_SAVEDOBJECTS_H

#include <ZrUtils/ZrFilePath.h>
#include <ZrUtils/ZrJsonReader.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace SavedObjects
{

// Base64 of 32 and 16 bytes, as the encrypted files want them.
inline const QString Key = QStringLiteral("MDEyMzQ1Njc4OWFiY2RlZjAxMjM0NTY3ODlhYmNkZWY=");
inline const QString Iv = QStringLiteral("MDEyMzQ1Njc4OWFiY2RlZg==");

// About @p size bytes of JSON, different for every @p number.
inline QJsonObject object(int number, int size = 1 << 20)
{
    return {{"number", number}, {"padding", QString(size, QChar(char16_t(u'a' + number % 26)))}};
}

enum class Form { Plain, Encrypted, Text };
// By Form, as filesaver takes them.
inline const QStringList FormNames {"plain", "encrypted", "text"};

inline void save(Form form, const QString& path, const QJsonObject& object)
{
    switch (form) {
    case Form::Plain:
        ZrUtils::ZrJsonReader::SaveJsonFile(path, object);
        break;
    case Form::Encrypted:
        ZrUtils::ZrJsonReader::CryptSaveJsonFile(path, object, Key, Iv);
        break;
    case Form::Text:
        ZrUtils::ZrFilePath::WriteFileData(
            path, QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
        break;
    }
}

inline QJsonObject load(Form form, const QString& path)
{
    switch (form) {
    case Form::Plain:
        return ZrUtils::ZrJsonReader::ParseJsonFileToObject(path);
    case Form::Encrypted:
        return ZrUtils::ZrJsonReader::DecryptParseJsonFile(path, Key, Iv);
    case Form::Text:
        return QJsonDocument::fromJson(ZrUtils::ZrFilePath::ReadFileData(path).toUtf8()).object();
    }
    return {};
}

} // namespace SavedObjects

#endif

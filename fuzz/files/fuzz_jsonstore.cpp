// Arbitrary file contents for the JSON file store: the plain readers, and the
// encrypted reader with a fixed key and IV.
//
// Properties: the three plain readers agree (a value only from a non-empty object,
// never both an object and an array); an object saved and read back keeps its keys,
// and saving what was read writes the same bytes and reads the same object again;
// any object (the file's own plain object, or what the encrypted reader made of the
// file) comes back from CryptSaveJsonFile and DecryptParseJsonFile as it comes back
// from the plain pair.
#include <ZrUtils/ZrJsonReader.h>

#include "../Qt5JsonLeak.h"

#include <QByteArray>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>
#include <QTemporaryDir>

#include <cstdlib>

using ZrUtils::ZrJsonReader;

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

const QString Key = QString::fromLatin1(QByteArray(32, 'k').toBase64());
const QString Iv = QString::fromLatin1(QByteArray(16, 'i').toBase64());

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        std::abort();
    return file.readAll();
}

QStringList sortedKeys(const QJsonObject& object)
{
    QStringList keys = object.keys();
    keys.sort();
    return keys;
}

// Numbers are written as doubles, so integers beyond 2^53 come back rounded, and Qt
// orders keys holding a NUL differently once they were escaped: the first save may
// change the object that way, and only that way. What it reads back is then a fixed
// point of saving and reading.
void savedAndReadBack(const QJsonObject& object, const QString& folder)
{
    const QString plain = folder + QStringLiteral("/plain.json");
    ZrJsonReader::SaveJsonFile(plain, object);
    const QJsonObject read = ZrJsonReader::ParseJsonFileToObject(plain);
    if (sortedKeys(read) != sortedKeys(object))
        violated();
    ZrJsonReader::SaveJsonFile(plain, read);
    const QByteArray written = contentOf(plain);
    if (ZrJsonReader::ParseJsonFileToObject(plain) != read)
        violated();
    ZrJsonReader::SaveJsonFile(plain, ZrJsonReader::ParseJsonFileToObject(plain));
    if (contentOf(plain) != written)
        violated();

    // The encrypted file holds the same text, so it reads back as the plain one does.
    const QString secret = folder + QStringLiteral("/secret.dat");
    ZrJsonReader::CryptSaveJsonFile(secret, object, Key, Iv);
    if (ZrJsonReader::DecryptParseJsonFile(secret, Key, Iv) != read)
        violated();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir work;
    if (!work.isValid())
        std::abort();
    const QString input = work.filePath(QStringLiteral("input"));
    {
        QFile file(input);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
            || file.write(reinterpret_cast<const char*>(data), qint64(size)) != qint64(size))
            std::abort();
    }

    const QJsonValue value = ZrJsonReader::ParseJsonFile(input, QStringLiteral("k"));
    const QJsonObject object = ZrJsonReader::ParseJsonFileToObject(input);
    const QJsonArray array = ZrJsonReader::ParseJsonFileToArray(input);
    if (object.isEmpty() ? !value.isNull() : value != object.value(QStringLiteral("k")))
        violated();
    if (!object.isEmpty() && !array.isEmpty())
        violated();
    if (!object.isEmpty())
        savedAndReadBack(object, work.path());

    const QJsonObject decrypted = ZrJsonReader::DecryptParseJsonFile(input, Key, Iv);
    if (!decrypted.isEmpty())
        savedAndReadBack(decrypted, work.path());
    return 0;
}

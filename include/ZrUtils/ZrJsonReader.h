#ifndef ZRUTILS_ZRJSONREADER_H
#define ZRUTILS_ZRJSONREADER_H

#include <ZrUtils/zrutils_export.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

namespace ZrUtils
{

/**
 * Loads and saves JSON files, plain or encrypted with AES-256-CBC.
 *
 * Encrypted files hold one line of base64 ciphertext of the indented JSON text. The
 * key and IV are given in base64 (32 and 16 bytes once decoded). Every function is
 * static; none logs or throws.
 */
class ZRUTILS_EXPORT ZrJsonReader
{
public:
    /**
     * The value of @p key in the file's top-level object (undefined when the key is
     * missing); a null value when the file cannot be read, does not parse, or holds
     * no object or an empty one.
     */
    static QJsonValue ParseJsonFile(const QString& path, const QString& key);
    /** The file's top-level object; an empty object when it cannot be read or parsed. */
    static QJsonObject ParseJsonFileToObject(const QString& path);
    /** The file's top-level array; an empty array when it cannot be read or parsed. */
    static QJsonArray ParseJsonFileToArray(const QString& path);
    /** Replaces the file with @p object as indented JSON; does nothing when it cannot be opened. */
    static void SaveJsonFile(const QString& path, const QJsonObject& object);

    /**
     * Reads a file written by CryptSaveJsonFile() with the same @p key and @p iv; an
     * empty object when it cannot be read, or is truncated, corrupted or of another key.
     */
    static QJsonObject DecryptParseJsonFile(const QString& path, const QString& key, const QString& iv);
    /** Replaces the file with @p object encrypted under @p key and @p iv; does nothing when it cannot be
     * opened. */
    static void CryptSaveJsonFile(
        const QString& path, const QJsonObject& object, const QString& key, const QString& iv);
};

} // namespace ZrUtils

#endif

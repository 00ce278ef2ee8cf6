// The one MD5-to-text helper of the library: every public "string MD5" function
// (request signing, machine identity, file helpers) goes through it.
#ifndef ZRUTILS_COMMON_MD5HEX_H
#define ZRUTILS_COMMON_MD5HEX_H

#include <QByteArray>
#include <QCryptographicHash>
#include <QString>

namespace ZrUtils {
namespace Internal {

// MD5 of the bytes as 32 lower-case hexadecimal digits.
inline QString md5Hex(const QByteArray& bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex());
}

} // namespace Internal
} // namespace ZrUtils

#endif

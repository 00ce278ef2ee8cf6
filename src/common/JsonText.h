// The JSON text the library writes: request bodies and JSON files. Qt 6 writes some
// numbers differently from Qt 5 ("1e-04" for 0.0001, "1e+16" for 10000000000000000)
// and keeps 64-bit integers exact where Qt 5 rounds them to doubles, so that the
// bodies, their signatures and the encrypted files come out the same on both builds,
// the Qt 6 build writes the text itself, byte for byte as Qt 5 does.
#ifndef ZRUTILS_COMMON_JSONTEXT_H
#define ZRUTILS_COMMON_JSONTEXT_H

#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace ZrUtils
{
namespace Internal
{

// QJsonDocument(object).toJson(format) on Qt 5, qt5JsonText() on Qt 6.
QByteArray jsonText(const QJsonObject& object, QJsonDocument::JsonFormat format = QJsonDocument::Indented);

// The library's own writer, in Qt 5's format on either version.
ZRUTILS_TESTS_EXPORT QByteArray qt5JsonText(const QJsonObject& object, QJsonDocument::JsonFormat format);

} // namespace Internal
} // namespace ZrUtils

#endif

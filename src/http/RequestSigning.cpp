#include <ZrUtils/ZrHttpRequest.h>

#include "common/Md5Hex.h"

#include <QJsonValue>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace ZrUtils
{

namespace
{

// The text a number contributes to a signature. Integral values up to 2^63 in
// magnitude are written as integers; 2^63 itself wraps to the lowest 64-bit value,
// which the server's reference implementation produces as well.
QString numberText(double value)
{
    constexpr double twoPow63 = 9223372036854775808.0;
    if (std::floor(value) == value && std::fabs(value) <= twoPow63) {
        if (value == twoPow63)
            return QStringLiteral("-9223372036854775808");
        return QString::number(static_cast<qint64>(value));
    }
    return QString::number(value, 'g', 15);
}

QString valueText(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QJsonValue::Double:
        return numberText(value.toDouble());
    default:
        // Null, arrays, objects: deliberately left out of the signature.
        return QString();
    }
}

} // namespace

QString ZrHttpRequest::GetStringMd5(const QString& text)
{
    return Internal::md5Hex(text.toUtf8());
}

QString ZrHttpRequest::SignObject(const QJsonObject& object, const QString& secret)
{
    QStringList keys = object.keys();
    // UTF-16 code unit order, case-sensitive: the server sorts the same way.
    std::sort(keys.begin(), keys.end());

    QStringList entries;
    entries.reserve(keys.size());
    for (const QString& key : qAsConst(keys))
        entries.append(key + QLatin1Char('=') + valueText(object.value(key)));

    return GetStringMd5(entries.join(QLatin1Char('&')) + secret);
}

} // namespace ZrUtils

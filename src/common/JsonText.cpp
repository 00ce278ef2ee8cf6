#include "common/JsonText.h"

#include <QJsonArray>
#include <QJsonValue>
#include <QLocale>
#include <QStringView>

#include <cmath>

namespace ZrUtils
{
namespace Internal
{

namespace
{

char hexDigit(uint value)
{
    return "0123456789abcdef"[value & 0xf];
}

void appendUnicodeEscape(QByteArray& out, uint unit)
{
    out += "\\u";
    out += hexDigit(unit >> 12);
    out += hexDigit(unit >> 8);
    out += hexDigit(unit >> 4);
    out += hexDigit(unit);
}

// Control characters, quote and backslash are escaped, "/" and everything from
// U+007F up are not; a surrogate without its partner is written as \uXXXX.
void appendString(QByteArray& out, const QString& text)
{
    out += '"';
    const QChar* data = text.constData();
    const qsizetype size = text.size();
    qsizetype i = 0;
    while (i < size) {
        // The longest run that goes out as plain UTF-8, converted in one go.
        qsizetype end = i;
        while (end < size) {
            const QChar c = data[end];
            if (c.unicode() < 0x80) {
                if (c.unicode() < 0x20 || c == QLatin1Char('"') || c == QLatin1Char('\\'))
                    break;
            } else if (c.isHighSurrogate() && end + 1 < size && data[end + 1].isLowSurrogate()) {
                ++end;
            } else if (c.isSurrogate()) {
                break;
            }
            ++end;
        }
        out += QStringView(data + i, end - i).toUtf8();
        if (end == size)
            break;
        const uint unit = data[end].unicode();
        switch (unit) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            appendUnicodeEscape(out, unit); // other control characters, lone surrogates
        }
        i = end + 1;
    }
    out += '"';
}

// Qt 5 keeps every JSON number as a double and writes the shortest digits that read
// back the same. Integral values below 2^64 are written in full ("10000000000000000",
// "18446744073709552000"); other values in exponent form when the decimal point would
// sit more than 3 places before the digits or more than 5 after them ("0.0001",
// "1e-05", "1500000", "1.5e+07"); infinities and NaN as null.
QByteArray numberText(double value)
{
    if (!std::isfinite(value))
        return QByteArrayLiteral("null");
    if (value == 0)
        return QByteArrayLiteral("0"); // negative zero too

    // "-d.ddde+XX": the shortest digits and the decimal exponent.
    const QByteArray scientific = QByteArray::number(value, 'e', QLocale::FloatingPointShortest);
    const qsizetype e = scientific.indexOf('e');
    const bool negative = scientific.startsWith('-');
    QByteArray digits = scientific.mid(negative ? 1 : 0, e - (negative ? 1 : 0));
    digits.replace('.', QByteArray());
    const int exponent = scientific.mid(e + 1).toInt();
    const int count = int(digits.size());
    const int point = exponent + 1; // digits before the decimal point

    const double magnitude = std::fabs(value);
    const bool integralBelow2Pow64 = std::floor(magnitude) == magnitude && magnitude < 18446744073709551616.0;

    QByteArray text;
    if (negative)
        text += '-';
    if (integralBelow2Pow64 || (point >= -3 && point <= count + 5)) {
        if (point <= 0) {
            text += "0.";
            text += QByteArray(-point, '0');
            text += digits;
        } else if (point < count) {
            text += digits.left(point);
            text += '.';
            text += digits.mid(point);
        } else {
            text += digits;
            text += QByteArray(point - count, '0');
        }
    } else {
        text += digits.at(0);
        if (count > 1) {
            text += '.';
            text += digits.mid(1);
        }
        text += exponent < 0 ? "e-" : "e+";
        const int absolute = std::abs(exponent);
        if (absolute < 10)
            text += '0';
        text += QByteArray::number(absolute);
    }
    return text;
}

void appendValue(QByteArray& out, const QJsonValue& value, int indent, bool compact);

void appendObject(QByteArray& out, const QJsonObject& object, int indent, bool compact)
{
    out += compact ? "{" : "{\n";
    const QByteArray inner(4 * (indent + 1), ' ');
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (it != object.begin())
            out += compact ? "," : ",\n";
        if (!compact)
            out += inner;
        appendString(out, it.key());
        out += compact ? ":" : ": ";
        appendValue(out, it.value(), indent + 1, compact);
    }
    if (!compact) {
        if (!object.isEmpty())
            out += '\n';
        out += QByteArray(4 * indent, ' ');
    }
    out += '}';
}

void appendArray(QByteArray& out, const QJsonArray& array, int indent, bool compact)
{
    out += compact ? "[" : "[\n";
    const QByteArray inner(4 * (indent + 1), ' ');
    for (qsizetype i = 0; i < array.size(); ++i) {
        if (i > 0)
            out += compact ? "," : ",\n";
        if (!compact)
            out += inner;
        appendValue(out, array.at(i), indent + 1, compact);
    }
    if (!compact) {
        if (!array.isEmpty())
            out += '\n';
        out += QByteArray(4 * indent, ' ');
    }
    out += ']';
}

void appendValue(QByteArray& out, const QJsonValue& value, int indent, bool compact)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        out += value.toBool() ? "true" : "false";
        break;
    case QJsonValue::Double:
        out += numberText(value.toDouble());
        break;
    case QJsonValue::String:
        appendString(out, value.toString());
        break;
    case QJsonValue::Array:
        appendArray(out, value.toArray(), indent, compact);
        break;
    case QJsonValue::Object:
        appendObject(out, value.toObject(), indent, compact);
        break;
    default:
        out += "null";
    }
}

} // namespace

QByteArray qt5JsonText(const QJsonObject& object, QJsonDocument::JsonFormat format)
{
    QByteArray out;
    const bool compact = format == QJsonDocument::Compact;
    appendObject(out, object, 0, compact);
    if (!compact)
        out += '\n';
    return out;
}

QByteArray jsonText(const QJsonObject& object, QJsonDocument::JsonFormat format)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return QJsonDocument(object).toJson(format);
#else
    return qt5JsonText(object, format);
#endif
}

} // namespace Internal
} // namespace ZrUtils

#include "SystemInternal.h"

#include <QFile>

#include <cctype>

namespace ZrUtils
{
namespace Internal
{

namespace
{

// 32 hexadecimal digits, with or without the UUID dashes; empty for anything else,
// including the all-zero and all-F placeholders some firmware reports.
QByteArray hexDigitsOfId(QByteArray text)
{
    text = text.trimmed();
    text.replace('-', QByteArray());
    if (text.size() != 32)
        return QByteArray();
    for (const char c : text) {
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return QByteArray();
    }
    text = text.toUpper();
    if (text == QByteArray(32, '0') || text == QByteArray(32, 'F'))
        return QByteArray();
    return text;
}

} // namespace

std::string platformUuidFromFiles(const QStringList& paths)
{
    for (const QString& path : paths) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray hex = hexDigitsOfId(file.read(128)); // an id file is 33 or 37 bytes
        if (hex.isEmpty())
            continue;
        const QByteArray uuid = hex.left(8) + '-' + hex.mid(8, 4) + '-' + hex.mid(12, 4) + '-'
            + hex.mid(16, 4) + '-' + hex.mid(20);
        return uuid.toStdString();
    }
    return std::string();
}

} // namespace Internal
} // namespace ZrUtils

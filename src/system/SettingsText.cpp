// The identity file is shared by the maker's applications, whichever Qt each is built
// with. Qt 5 writes every character from U+007F up as an escape ("\x5b98") and reads
// raw bytes as Latin-1; Qt 6 writes such characters as raw UTF-8, which Qt 5 then
// misreads. After Qt 6's QSettings has written the file, the escapes Qt 5 would have
// written are put in, so the file is byte for byte what the Qt 5 build writes.
#include "SystemInternal.h"

#include "common/SaveWholeFile.h"

#include <QFile>
#include <QLockFile>

#include <algorithm>

namespace ZrUtils
{
namespace Internal
{

namespace
{

bool isHexDigit(uint c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

} // namespace

QByteArray qt5SettingsText(const QByteArray& written)
{
    if (std::all_of(written.begin(), written.end(), [](char c) { return uchar(c) < 0x7f; }))
        return written;

    const QString text = QString::fromUtf8(written);
    QByteArray out;
    out.reserve(written.size() * 2);
    // Qt 5 escapes the hexadecimal digits that follow a "\x" escape, so that they do
    // not read as part of it.
    bool escapeHexDigits = false;
    const qsizetype size = text.size();
    for (qsizetype i = 0; i < size; ++i) {
        const uint c = text.at(i).unicode();
        if (c >= 0x7f) {
            out += "\\x" + QByteArray::number(c, 16);
            escapeHexDigits = true;
        } else if (escapeHexDigits && isHexDigit(c)) {
            out += "\\x" + QByteArray::number(c, 16);
        } else if (c == '\\' && i + 1 < size) {
            // An escape Qt 6 wrote itself: copied as it is, "\x" with all its digits.
            escapeHexDigits = false;
            out += '\\';
            const uint next = text.at(++i).unicode();
            out += char(next);
            while (next == 'x' && i + 1 < size && isHexDigit(text.at(i + 1).unicode()))
                out += char(text.at(++i).unicode());
        } else {
            escapeHexDigits = false;
            out += char(c);
        }
    }
    return out;
}

void keepSettingsFileQt5Readable(const QString& path)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    // The lock QSettings takes while it writes the file.
    QLockFile lock(path + QLatin1String(".lock"));
    if (!lock.lock())
        return;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QByteArray written = file.readAll();
    file.close();
    const QByteArray text = qt5SettingsText(written);
    if (text != written)
        saveWholeFile(path, text);
#else
    Q_UNUSED(path)
#endif
}

} // namespace Internal
} // namespace ZrUtils

// Arbitrary bytes as an os-release file for the distribution name reader.
//
// Properties: the answer is "Unknown" or a text with no double quote and no line
// break; for plain text (printable ASCII, tabs and line feeds) it is what the file's
// first line starting with "NAME=" says after its first "=", quotes removed, and
// "Unknown" when no line starts so.
#include "system/SystemInternal.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QTemporaryDir>

#include <cstdlib>

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

bool plainText(const QByteArray& bytes)
{
    for (const char c : bytes) {
        if (c != '\n' && c != '\t' && (c < 0x20 || c > 0x7e))
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir work;
    if (!work.isValid())
        std::abort();
    const QString path = work.filePath(QStringLiteral("os-release"));
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
            std::abort();
    }

    const QString name = ZrUtils::Internal::linuxOsInfo(path);
    const QString unknown = QStringLiteral("Unknown");
    if (name != unknown && (name.contains(QLatin1Char('"')) || name.contains(QLatin1Char('\n'))))
        violated();
    if (plainText(bytes)) {
        QString expected = unknown;
        for (const QByteArray& line : bytes.split('\n')) {
            if (line.startsWith("NAME=")) {
                expected = QString::fromLatin1(line.mid(5)).remove(QLatin1Char('"'));
                break;
            }
        }
        if (name != expected)
            violated();
    }
    return 0;
}

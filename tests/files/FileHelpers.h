// Files made and looked at by the tests of this folder.
#ifndef ZRUTILS_TESTS_FILEHELPERS_H
#define ZRUTILS_TESTS_FILEHELPERS_H

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStandardPaths>

// Skips the test when @p tool is not on the PATH. A skip ends only the function it is
// written in, so this is a macro, not a helper.
#define REQUIRE_TOOL(tool)                                                                                   \
    do {                                                                                                     \
        if (QStandardPaths::findExecutable(tool).isEmpty())                                                  \
            QSKIP(qPrintable(QString("%1 is not installed").arg(tool)));                                     \
    } while (false)

// Writes @p content to @p path, making the folders above it; false when anything fails.
inline bool writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush();
}

// The whole file; empty when it cannot be read.
inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// @p size a multiple of 4.
inline QByteArray randomBytes(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(bytes.data()), size / 4);
    return bytes;
}

// Every entry of the folder by name, hidden ones and dangling links included.
inline QStringList entries(const QString& dir)
{
    return QDir(dir).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

#endif

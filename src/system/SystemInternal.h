// Seams of the system subsystem: the public functions pass the fixed paths and
// the real platform sources; the tests pass their own.
#ifndef ZRUTILS_SYSTEM_SYSTEMINTERNAL_H
#define ZRUTILS_SYSTEM_SYSTEMINTERNAL_H

#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QNetworkInterface>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>
#include <string>

namespace ZrUtils
{
namespace Internal
{

// The distribution name of an os-release file: the first "NAME=" line without its
// double quotes, or "Unknown" when the file cannot be read or has no such line.
ZRUTILS_TESTS_EXPORT QString linuxOsInfo(const QString& osReleasePath);
ZRUTILS_TESTS_EXPORT bool isKylinName(const QString& distributionName);
ZRUTILS_TESTS_EXPORT bool isUosName(const QString& distributionName);

// The first of the files that holds a usable 128-bit id (a machine id or a DMI
// product UUID), as an upper-case 8-4-4-4-12 UUID; empty when none does.
ZRUTILS_TESTS_EXPORT std::string platformUuidFromFiles(const QStringList& paths);

// What getMainMacAddress() needs to know of one interface.
struct InterfaceFacts {
    QNetworkInterface::InterfaceFlags flags;
    QString hardwareAddress;
};
ZRUTILS_TESTS_EXPORT QString mainHardwareAddress(const QVector<InterfaceFacts>& interfaces);

// The identity file named from a and b in the user's generic configuration folder.
ZRUTILS_TESTS_EXPORT QString identityFilePath(const QString& a, const QString& b);

// MD5 of the UUID text followed by the middle eight digits of the MD5 of the address.
ZRUTILS_TESTS_EXPORT QString composePcid(const QString& platformUuid, const QString& hardwareAddress);

// GetPCID() on the identity file at path; the sources are asked only when the
// file holds no id yet.
ZRUTILS_TESTS_EXPORT QString pcidFor(const QString& path, const std::function<QString()>& platformUuid,
    const std::function<QString()>& hardwareAddress);

// The settings text Qt 5 writes for the text Qt 6 wrote: characters from U+007F up
// as "\x" escapes instead of UTF-8. Text without such characters is returned as it is.
ZRUTILS_TESTS_EXPORT QByteArray qt5SettingsText(const QByteArray& written);
// Rewrites a settings file just written by QSettings into Qt 5's text (Qt 6 only).
void keepSettingsFileQt5Readable(const QString& path);

} // namespace Internal
} // namespace ZrUtils

#endif

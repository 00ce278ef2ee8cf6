#include "SystemInternal.h"

#include "common/Md5Hex.h"

#include <ZrUtils/COperateSystem.h>
#include <ZrUtils/ZrSystem.h>

#include <QDateTime>
#include <QRandomGenerator64>
#include <QSettings>
#include <QStandardPaths>

namespace ZrUtils
{

namespace
{

const QString KeyPcid = QStringLiteral("PCID");
const QString KeyChannel = QStringLiteral("Channel");
const QString KeyNewUser = QStringLiteral("NewUser");

// Stands in for a missing platform UUID or hardware address. An id built from it
// is not reproducible and stays stable only through the identity file.
QString timeAndRandomText()
{
    // bounded(1, 1000) is ((r * 999) >> 32) + 1 for a 32-bit r.
    const int random = QRandomGenerator64::global()->bounded(1, 1000);
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"))
        + QString::number(random);
}

// The middle eight characters: 12 to 19 of a 32-digit MD5 text.
QString middleEight(const QString& text)
{
    if (text.size() <= 8)
        return text;
    return text.mid((text.size() - 8) / 2, 8);
}

void writeIdentityValue(const QString& path, const QString& key, const QVariant& value)
{
    QSettings settings(path, QSettings::NativeFormat);
    // Settings are written beside the file and moved over it, so a crash keeps the
    // identity; where the folder refuses a new file, the file is written in place.
    settings.setAtomicSyncRequired(false);
    settings.setValue(key, value);
    settings.sync();
    Internal::keepSettingsFileQt5Readable(path);
}

} // namespace

namespace Internal
{

QString mainHardwareAddress(const QVector<InterfaceFacts>& interfaces)
{
    const QNetworkInterface::InterfaceFlags skipped
        = QNetworkInterface::IsLoopBack | QNetworkInterface::IsPointToPoint;
    for (const InterfaceFacts& facts : interfaces) {
        if (facts.flags & skipped)
            continue;
        // Whether the interface is running is deliberately not asked: up is enough.
        if ((facts.flags & QNetworkInterface::IsUp) && !facts.hardwareAddress.isEmpty())
            return facts.hardwareAddress;
    }
    return QString();
}

QString identityFilePath(const QString& a, const QString& b)
{
    // Two arg() calls one after the other, no separator: "com.xy.info.plist".
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/com.%1%2.info.plist").arg(a).arg(b);
}

QString composePcid(const QString& platformUuid, const QString& hardwareAddress)
{
    return getStringMd5(platformUuid) + middleEight(getStringMd5(hardwareAddress));
}

QString pcidFor(const QString& path, const std::function<QString()>& platformUuid,
    const std::function<QString()>& hardwareAddress)
{
    // Whatever is stored wins, even when it is not 40 characters long.
    const QString stored = readRegeditValue(path, KeyPcid).toString();
    if (!stored.isEmpty())
        return stored;

    QString uuid = platformUuid();
    if (uuid.isEmpty())
        uuid = timeAndRandomText();
    QString address = hardwareAddress();
    if (address.isEmpty())
        address = timeAndRandomText();

    const QString pcid = composePcid(uuid, address);
    writeIdentityValue(path, KeyPcid, pcid);
    return pcid;
}

} // namespace Internal

QString getMainMacAddress()
{
    QVector<Internal::InterfaceFacts> interfaces;
    const QList<QNetworkInterface> all = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& interface : all)
        interfaces.append({interface.flags(), interface.hardwareAddress()});
    return Internal::mainHardwareAddress(interfaces);
}

QString ZrSystem::GetPCID(const QString& a, const QString& b)
{
    return Internal::pcidFor(
        Internal::identityFilePath(a, b),
        [] { return QString::fromUtf8(COperateSystem::GetSystemUDID().c_str()); }, &getMainMacAddress);
}

QString ZrSystem::GetChannel(const QString& a, const QString& b, const QString& defaultChannel)
{
    const QString path = Internal::identityFilePath(a, b);
    const QString stored = readRegeditValue(path, KeyChannel).toString();
    if (!stored.isEmpty())
        return stored;
    const QString channel = defaultChannel.isEmpty() ? QStringLiteral("official") : defaultChannel;
    writeIdentityValue(path, KeyChannel, channel);
    return channel;
}

bool ZrSystem::IsNewUser(const QString& a, const QString& b)
{
    // The key's presence means "not new"; the value stored is true all the same and
    // is never read back as a boolean. Existing identity files depend on this.
    const QString path = Internal::identityFilePath(a, b);
    const bool isNew = readRegeditValue(path, KeyNewUser).isNull();
    if (isNew)
        writeIdentityValue(path, KeyNewUser, true);
    return isNew;
}

} // namespace ZrUtils

QVariant readRegeditValue(const QString& path, const QString& key)
{
    const QSettings settings(path, QSettings::NativeFormat);
    return settings.contains(key) ? settings.value(key) : QVariant();
}

QString getStringMd5(const QString& text)
{
    return ZrUtils::Internal::md5Hex(text.toUtf8());
}

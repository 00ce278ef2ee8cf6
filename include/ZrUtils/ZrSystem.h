#ifndef ZRUTILS_ZRSYSTEM_H
#define ZRUTILS_ZRSYSTEM_H

#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QString>
#include <QVariant>

namespace ZrUtils {

/**
 * Portable system facade: machine identity, OS information and the AES-CBC text
 * helpers. Every function is static and stateless; none throws.
 */
class ZRUTILS_EXPORT ZrSystem {
public:
    // --- Machine identity, channel and first-run state -------------------------------
    // The state lives in "com.<a><b>.info.plist" (native settings format) under the
    // user's generic configuration folder.

    /** The 40-character machine identifier, computed once and then read from the identity file. Never empty. */
    static QString GetPCID(const QString& a, const QString& b);
    /** The stored install channel; on first call @p defaultChannel (or "official" when empty), stored. */
    static QString GetChannel(const QString& a, const QString& b, const QString& defaultChannel);
    /** True exactly on the first call for the identity file named by @p a and @p b. */
    static bool IsNewUser(const QString& a, const QString& b);

    // --- OS information and platform layer -------------------------------------------

    /** QSysInfo::prettyProductName(). */
    static QString GetSystemVersion();
    /** Enables high-DPI scaling and pixmaps; the argument is ignored. Call before the application object exists. */
    static void EnableHighDPISupport(bool enable);
    /** True when the desktop uses a dark theme; false when unknown. */
    static bool IsDarkTheme();
    /** No effect on this platform. */
    static void SleepComputer();
    /** No effect on this platform. */
    static void ShutdownComputer();
    /** No effect on this platform. */
    static void SetAutoStart(bool enable);
    /** The application bundle identifier; empty when there is none. */
    static QString GetBundleIdentifier();
    /** The distribution name from "/etc/os-release", or "Unknown". */
    static QString GetLinuxOsInfo();
    /** True when the distribution name contains "Kylin" (any case). */
    static bool IsKylinOs();
    /** True when the distribution name contains "UnionTech" or "UOS" (any case). */
    static bool IsUOS();

    // --- Cryptography helpers (AES-256-CBC, PKCS #7) ---------------------------------
    // Keys must decode to 32 bytes and IVs to 16. A shorter key is used as if zero bytes
    // filled it up (do not rely on it), bytes past the 32nd are ignored, and an IV of any
    // other length gives an empty result. Wrong keys and corrupted ciphertext are not
    // detected: the result is whatever decryption and the unchecked padding removal give.

    /** Encrypts base64 @p text with base64 @p key and @p iv; base64 ciphertext, empty on a bad IV. */
    static QByteArray AesCbcCryptFromBase64(const QString& text, const QString& key, const QString& iv);
    /** Decrypts base64 @p text; the plaintext bytes, empty on a bad IV. */
    static QByteArray AesCbcDecryptFromBase64(const QString& text, const QString& key, const QString& iv);
    /** Decrypts hex text holding IV then ciphertext with a hex key; empty when shorter than an IV. */
    static QByteArray AesCbcDecryptFromHex(const QString& text, const QString& key);
    /** Decrypts base64 text holding IV then ciphertext with a base64 key; empty when shorter than an IV. */
    static QByteArray AesCbcDecryptFromString(const QString& text, const QString& key);
    /** XORs every byte of @p data with @p key; applying it twice restores the input. */
    static QByteArray GetEncryptDecryptByte(const QByteArray& data, const char& key);
    /** Reserved: always the empty string. */
    static QString RsaPublicEncrypt(const QString& text, const QString& key);
    /** Reserved: always the empty string. */
    static QString RsaPrivateDecrypt(const QString& text, const QString& key);
    /** Reserved: always an empty (not null) byte array. */
    static QByteArray AesGcmDecryptFromHex(const QString& text, const QString& key, const QString& iv);
};

/** The hardware address of the first up, non-loopback, non-point-to-point interface; empty when none. */
ZRUTILS_EXPORT QString getMainMacAddress();

} // namespace ZrUtils

/** Value of @p key in the native settings file at @p path; an invalid QVariant when absent. */
ZRUTILS_EXPORT QVariant readRegeditValue(const QString& path, const QString& key);
/** MD5 of the UTF-8 bytes of @p text as 32 lower-case hexadecimal digits. */
ZRUTILS_EXPORT QString getStringMd5(const QString& text);

#endif

#ifndef ZRUTILS_ZRFILEPATH_H
#define ZRUTILS_ZRFILEPATH_H

#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QString>

#include <string>

namespace ZrUtils
{

/**
 * File, folder and path helpers: sizes and durations as text, name checks, unique
 * names, application and resource folders, disk space and file hashes.
 *
 * Every function is static and stateless; none logs or throws. Paths come back
 * with forward slashes.
 */
class ZRUTILS_EXPORT ZrFilePath
{
public:
    /** @p size as "<value> <unit>" with two decimals, units B to TB at steps of 1024; never empty. */
    static QString FormatFileSize(qint64 size);
    /** @p seconds as "hh:mm:ss", each part zero-padded to two digits; hours may grow longer. */
    static QString FormatTimeDuration(int seconds);

    /** True when @p name holds none of \ / : * ? " < > |; an empty name is valid. */
    static bool CheckFileNameValid(const QString& name);
    /**
     * True when @p path has a colon, is at least 3 characters long and holds none of
     * : * ? " < > | after its first three characters (a drive prefix such as "C:\").
     * A path without a colon, such as any POSIX path, is invalid.
     */
    static bool CheckFilePathValid(const QString& path);

    /**
     * @p path when nothing exists there, else the first free "dir/base(n).suffix" for
     * n = 1, 2, ... A name without suffix gets a trailing dot ("report(1).").
     */
    static QString GetUniqueFileName(const QString& path);

    /** True when the trimmed @p text is a valid URL with a known scheme (http, https, ftp, file, ws, ...). */
    static bool IsUrl(const QString& text);
    /** True when @p text names an existing file or is a valid local-file URL; false otherwise. */
    static bool IsLocalFile(const QString& text);
    /** True when the texts are equal or both name the same existing file; false otherwise. */
    static bool IsTheSameFile(const QString& a, const QString& b);
    /** True when a temporary file can be created in @p dir; false for an empty or unwritable folder. */
    static bool IsFolderWritable(const QString& dir);

    /**
     * A flat image file name made from any text: "/", "\" and "." become "_", ":" is
     * removed, only the last 200 characters are kept, and ".png" is appended.
     */
    static QString FormatFilePath(const QString& text);

    /** A uniform random integer between @p a and @p b, both ends included, in either order. */
    static int GetRandomNum(int a, int b);

    /** The root path of the mounted volume with the most free bytes; empty when none has any. */
    static QString GetLargestFreeDisk();
    /** Free bytes on the root volume; 0 when unknown. @p path is ignored. */
    static qint64 GetLeftSpace(const QString& path);

    /**
     * The "Resources/skin" folder next to the executable's folder (Foo.app/Contents/MacOS
     * gives Foo.app/Contents/Resources/skin); "/Resources/skin" when that folder is unknown.
     */
    static QString GetSkinDirPath();
    /** The "Resources/conf" folder next to the executable's folder; "/Resources/conf" when unknown. */
    static QString GetConfigDirPath();
    /** The application's data folder, created when missing. */
    static QString GetCacheDirPath();
    /** The folder of the running executable; empty when unknown. */
    static QString GetAppDirPath();
    /** The resolved path of the running executable; empty when unknown. */
    static QString GetAppFilePath();

    /**
     * Shows @p path selected in the desktop's file manager, or opens its folder when
     * no file manager offers that. Returns within 30 s; does nothing for a missing file.
     */
    static void OpenFolderAndSelectFile(QString path);

    /** MD5 of the whole file as 32 lower-case hexadecimal digits; empty when it cannot be read. */
    static QString GetFileMd5(const QString& path);
    /** MD5 of the UTF-8 bytes of @p text as 32 lower-case hexadecimal digits. */
    static QString GetStringMd5(const QString& text);

    /** True when the folder exists or could be created. */
    static bool MakeDirPath(const QString& path);
    /** Removes the folder with its contents; false when it does not exist (or @p path is empty). */
    static bool DeleteDirPath(const QString& path);
    /** The file decoded as UTF-8 up to its first NUL byte; empty when it cannot be opened. */
    static QString ReadFileData(const QString& path);
    /** Replaces the file's contents with the UTF-8 bytes of @p text; does nothing when it cannot be opened.
     */
    static void WriteFileData(const QString& path, const QString& text);
    /** Copies @p from to @p to, replacing an existing @p to when @p overwrite; false on failure. */
    static bool CopyFileHandle(const QString& from, const QString& to, bool overwrite);
    /** The file's size as FormatFileSize() text; empty when it does not exist. */
    static QString GetFileSize(const QString& path);
    /** @p name appended to @p dir with one separator. */
    static QString CombinePath(const QString& dir, const QString& name);

    /** The all-users desktop folder; always empty on this platform. */
    static QString GetPublicDesktopPath();
    /** Reads a file's version resource; does nothing and returns true on this platform. */
    static bool GetFileVersion(const QString& path, std::string& version);
    /** Runs a shell command; does nothing on this platform. */
    static void RunShellCmd(const QString& program, const QString& arguments);
    /** Creates a desktop shortcut; does nothing and returns true on this platform. */
    static bool CreateDesktopLink(
        const QString& target, const QString& name, const QString& description, const QString& icon);
};

} // namespace ZrUtils

/** The running executable's folder without a trailing slash; empty when unknown. */
ZRUTILS_EXPORT std::string getAppDirPath();
/** The running executable's path, symbolic links resolved; empty when unknown. */
ZRUTILS_EXPORT std::string getAppFilePath();
/** MD5 of the file read in 4096-byte chunks as the raw 16-byte digest; empty when it cannot be read. */
ZRUTILS_EXPORT QByteArray getBigFileMd5(QString path);

#endif

#ifndef ZRUTILS_LOGGEROBJECT_H
#define ZRUTILS_LOGGEROBJECT_H

#include <ZrUtils/zrutils_export.h>

namespace ZrUtils
{

/**
 * The application's logger: one process-wide file log, rolled over monthly.
 *
 * Lines carry an ISO 8601 time stamp, the level and the message. The file keeps
 * INFO, WARN and ERROR lines; DEBUG lines pass the logger but not the file.
 * Messages before InitLogger() or after ReleaseLogger() are dropped. Nothing is
 * reported to the caller: a file that cannot be opened simply gets no lines.
 * Texts are read as Latin-1; a null pointer counts as an empty text.
 *
 * Call InitLogger() once from the main thread before logging from other threads,
 * and ReleaseLogger() at exit; the four logging calls may come from any thread.
 */
class ZRUTILS_EXPORT LoggerObject
{
public:
    /**
     * Logs to baseDir + "/log/" + fileName, appending to an existing file. A second
     * call replaces the first configuration. No folder is created and no separator
     * is added or removed, so @p baseDir should come without a trailing slash.
     */
    static void InitLogger(const char* fileName, const char* baseDir);
    /** Stops logging; a later InitLogger() starts again. */
    static void ReleaseLogger();

    static void error(const char* text);
    static void warn(const char* text);
    static void info(const char* text);
    /** Passes the logger but is filtered out by the file. */
    static void debug(const char* text);
};

} // namespace ZrUtils

#endif

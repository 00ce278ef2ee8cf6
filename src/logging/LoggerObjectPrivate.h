// The process-wide state behind LoggerObject: the configured root logger.
#ifndef ZRUTILS_LOGGING_LOGGEROBJECTPRIVATE_H
#define ZRUTILS_LOGGING_LOGGEROBJECTPRIVATE_H

#include <ZrUtils/zrutils_export.h>

#include <chrono>
#include <memory>

namespace log4cplus
{
class Logger;
}

class ZRUTILS_TESTS_EXPORT LoggerObjectPrivate
{
public:
    // The singleton, created on first use and never destroyed. Not locked: the
    // first call must come from one thread before others log.
    static LoggerObjectPrivate* getInstance();

    void InitLogger(const char* fileName, const char* baseDir);
    void ReleaseLogger();

    void error(const char* text);
    void warn(const char* text);
    void info(const char* text);
    void debug(const char* text);

    // Logs an INFO line stamped with @p time instead of now, so that tests can
    // cross a month boundary without waiting for one.
    void infoAt(const char* text, std::chrono::system_clock::time_point time);

private:
    LoggerObjectPrivate();
    ~LoggerObjectPrivate();
    void log(int level, const char* text);

    static LoggerObjectPrivate* s_pLogger;
    std::unique_ptr<log4cplus::Logger> m_logger; // the root logger; null while not initialised
};

#endif

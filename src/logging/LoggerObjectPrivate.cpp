#include "LoggerObjectPrivate.h"

#include <log4cplus/fileappender.h>
#include <log4cplus/helpers/property.h>
#include <log4cplus/hierarchy.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>

#include <QString>

#include <memory>

LoggerObjectPrivate* LoggerObjectPrivate::s_pLogger = nullptr;

namespace
{

// Log lines are Latin-1 in, UTF-8 on disk.
std::string lineText(const char* text)
{
    return QString::fromLatin1(text ? text : "").toUtf8().toStdString();
}

std::unique_ptr<log4cplus::Layout> makeLayout()
{
    // Time stamp, level and message; no thread and no logger name.
    log4cplus::helpers::Properties properties;
    properties.setProperty(LOG4CPLUS_TEXT("DateFormat"), LOG4CPLUS_TEXT("%Y-%m-%d %H:%M:%S.%q"));
    properties.setProperty(LOG4CPLUS_TEXT("ThreadPrinting"), LOG4CPLUS_TEXT("false"));
    properties.setProperty(LOG4CPLUS_TEXT("CategoryPrefixing"), LOG4CPLUS_TEXT("false"));
    properties.setProperty(LOG4CPLUS_TEXT("ContextPrinting"), LOG4CPLUS_TEXT("true"));
    return std::make_unique<log4cplus::TTCCLayout>(properties);
}

void detach(log4cplus::Logger* logger)
{
    logger->removeAllAppenders();
    logger->getHierarchy().shutdown();
}

} // namespace

LoggerObjectPrivate::LoggerObjectPrivate() = default;
LoggerObjectPrivate::~LoggerObjectPrivate() = default;

LoggerObjectPrivate* LoggerObjectPrivate::getInstance()
{
    if (!s_pLogger) {
        log4cplus::initialize();
        s_pLogger = new LoggerObjectPrivate;
    }
    return s_pLogger;
}

void LoggerObjectPrivate::InitLogger(const char* fileName, const char* baseDir)
{
    ReleaseLogger(); // a second call replaces the first configuration wholesale
    auto root = std::make_unique<log4cplus::Logger>(log4cplus::Logger::getRoot());

    const QString path = QString::fromLatin1(baseDir ? baseDir : "") + QStringLiteral("/log/")
        + QString::fromLatin1(fileName ? fileName : "");

    // The monthly schedule on the daily appender: the current file keeps the plain
    // name and the finished month is moved aside with the year and month appended.
    // Buffered, appending, never creating folders, not rolling when closed.
    log4cplus::SharedAppenderPtr appender(new log4cplus::DailyRollingFileAppender(
        path.toLocal8Bit().toStdString(), log4cplus::MONTHLY, /*immediateFlush*/ false,
        /*maxBackupIndex*/ 10, /*createDirs*/ false, /*rollOnClose*/ false));
    appender->setName(LOG4CPLUS_TEXT("My Appender"));
    appender->setLayout(makeLayout());
    // DEBUG passes the root logger but not the file: intended.
    appender->setThreshold(log4cplus::INFO_LOG_LEVEL);

    root->addAppender(appender);
    root->setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    m_logger = std::move(root);
}

void LoggerObjectPrivate::ReleaseLogger()
{
    if (!m_logger)
        return;
    detach(m_logger.get());
    m_logger.reset();
}

void LoggerObjectPrivate::log(int level, const char* text)
{
    if (!m_logger)
        return;
    m_logger->log(level, lineText(text));
}

void LoggerObjectPrivate::error(const char* text)
{
    log(log4cplus::ERROR_LOG_LEVEL, text);
}

void LoggerObjectPrivate::warn(const char* text)
{
    log(log4cplus::WARN_LOG_LEVEL, text);
}

void LoggerObjectPrivate::info(const char* text)
{
    log(log4cplus::INFO_LOG_LEVEL, text);
}

void LoggerObjectPrivate::debug(const char* text)
{
    log(log4cplus::DEBUG_LOG_LEVEL, text);
}

void LoggerObjectPrivate::infoAt(const char* text, std::chrono::system_clock::time_point time)
{
    if (!m_logger)
        return;
    const log4cplus::spi::InternalLoggingEvent event(m_logger->getName(), log4cplus::INFO_LOG_LEVEL,
        LOG4CPLUS_TEXT(""), log4cplus::MappedDiagnosticContextMap(), lineText(text), LOG4CPLUS_TEXT(""),
        LOG4CPLUS_TEXT(""), std::chrono::time_point_cast<log4cplus::helpers::Time::duration>(time),
        LOG4CPLUS_TEXT(""), 0);
    m_logger->forcedLog(event);
}

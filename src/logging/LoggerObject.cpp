#include <ZrUtils/LoggerObject.h>

#include "LoggerObjectPrivate.h"

namespace ZrUtils
{

void LoggerObject::InitLogger(const char* fileName, const char* baseDir)
{
    LoggerObjectPrivate::getInstance()->InitLogger(fileName, baseDir);
}

void LoggerObject::ReleaseLogger()
{
    LoggerObjectPrivate::getInstance()->ReleaseLogger();
}

void LoggerObject::error(const char* text)
{
    LoggerObjectPrivate::getInstance()->error(text);
}

void LoggerObject::warn(const char* text)
{
    LoggerObjectPrivate::getInstance()->warn(text);
}

void LoggerObject::info(const char* text)
{
    LoggerObjectPrivate::getInstance()->info(text);
}

void LoggerObject::debug(const char* text)
{
    LoggerObjectPrivate::getInstance()->debug(text);
}

} // namespace ZrUtils

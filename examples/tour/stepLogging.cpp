#include "Tour.h"

#include <ZrUtils/LoggerObject.h>

#include <QDir>
#include <QFile>

using ZrUtils::LoggerObject;

void tourLogging(Tour& tour)
{
    tour.section(QStringLiteral("Logger: one monthly-rolled file for the application"));
    const QString base = tour.scratchPath(QStringLiteral("app"));
    QDir().mkpath(base + QStringLiteral("/log")); // the logger creates no folder itself
    LoggerObject::InitLogger("tour.log", base.toLatin1().constData());
    LoggerObject::info("tour started");
    LoggerObject::warn("disk almost full");
    LoggerObject::error("could not reach the update server");
    LoggerObject::debug("debug lines stay out of the file");
    LoggerObject::ReleaseLogger(); // flushes the buffered lines

    QFile file(base + QStringLiteral("/log/tour.log"));
    const bool opened = file.open(QIODevice::ReadOnly);
    const QList<QByteArray> lines = file.readAll().trimmed().split('\n');
    tour.say(QStringLiteral("%1/log/tour.log now holds:").arg(base));
    for (const QByteArray& line : lines)
        tour.say(QStringLiteral("  ") + QString::fromUtf8(line));
    tour.check(
        opened && lines.size() == 3, QStringLiteral("three lines written, the debug line filtered out"));
}

#include <ZrUtils/ReportSpool.h>

#include "report/TelemetrySpool.h"

namespace ZrUtils
{

using Internal::TelemetrySpool;

bool ReportSpool::enable(const QString& folder, int maxEvents, qint64 maxBytes)
{
    return TelemetrySpool::instance().enable(folder, maxEvents, maxBytes);
}

void ReportSpool::disable()
{
    TelemetrySpool::instance().disable();
}

bool ReportSpool::isEnabled()
{
    return TelemetrySpool::instance().enabled();
}

QString ReportSpool::filePath()
{
    return TelemetrySpool::instance().filePath();
}

int ReportSpool::pendingCount()
{
    return TelemetrySpool::instance().pending();
}

qint64 ReportSpool::droppedCount()
{
    return TelemetrySpool::instance().dropped();
}

void ReportSpool::flush()
{
    TelemetrySpool::instance().flush();
}

void ReportSpool::clear()
{
    TelemetrySpool::instance().clear();
}

} // namespace ZrUtils

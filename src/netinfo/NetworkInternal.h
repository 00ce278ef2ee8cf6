#ifndef ZRUTILS_NETINFO_NETWORKINTERNAL_H
#define ZRUTILS_NETINFO_NETWORKINTERNAL_H

#include <ZrUtils/ZrNetwork.h>

namespace ZrUtils
{
namespace Internal
{

// base with path appended to its own path (a trailing slash of base is dropped)
// and query as its whole query; an empty query removes base's.
QUrl endpointUrl(const QUrl& base, const QString& path, const QString& query = QString());

} // namespace Internal
} // namespace ZrUtils

#endif

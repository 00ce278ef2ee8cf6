#ifndef ZRUTILS_NETINFO_NETWORKINTERNAL_H
#define ZRUTILS_NETINFO_NETWORKINTERNAL_H

#include <ZrUtils/ZrNetwork.h>
#include <ZrUtils/zrutils_export.h>

#include <QByteArray>

namespace ZrUtils
{
namespace Internal
{

// base with path appended to its own path (a trailing slash of base is dropped)
// and query as its whole query; an empty query removes base's.
QUrl endpointUrl(const QUrl& base, const QString& path, const QString& query = QString());

// The readers of the lookups' answers, apart from the requests that fetch them. An
// answer they cannot use gives false (or an empty address) and leaves the outputs as
// they were, except the page's country, which is taken as soon as its label is seen.
ZRUTILS_TESTS_EXPORT bool readGeolocationAnswer(
    const QByteArray& body, QString& country, QString& location, double& latitude, double& longitude);
ZRUTILS_TESTS_EXPORT bool readIpInfoPage(
    const QByteArray& body, QString& country, QString& location, double& latitude, double& longitude);
ZRUTILS_TESTS_EXPORT QString readIpEchoAnswer(const QByteArray& body);
ZRUTILS_TESTS_EXPORT bool readCountryCodeAnswer(const QByteArray& body, QString& countryCode, QString& ip);

} // namespace Internal
} // namespace ZrUtils

#endif

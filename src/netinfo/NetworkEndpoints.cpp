#include "NetworkInternal.h"

#include <QMutex>
#include <QMutexLocker>

namespace ZrUtils
{

namespace
{

struct EndpointStore {
    QMutex mutex;
    ZrNetwork::Endpoints endpoints = ZrNetwork::DefaultEndpoints();
};

EndpointStore& store()
{
    static EndpointStore instance;
    return instance;
}

} // namespace

ZrNetwork::Endpoints ZrNetwork::DefaultEndpoints()
{
    Endpoints endpoints;
    endpoints.geolocationApi = QUrl(QStringLiteral("http://ip-api.com"));
    endpoints.ipInfoPage = QUrl(QStringLiteral("https://www.ipaddress.my"));
    endpoints.ipEcho = QUrl(QStringLiteral("https://api.ipify.org"));
    endpoints.allFactsEcho = QUrl(QStringLiteral("https://ifconfig.io"));
    endpoints.onlineCheckHost = QStringLiteral("www.bing.com");
    return endpoints;
}

ZrNetwork::Endpoints ZrNetwork::GetEndpoints()
{
    EndpointStore& s = store();
    QMutexLocker lock(&s.mutex);
    return s.endpoints;
}

void ZrNetwork::SetEndpoints(const Endpoints& endpoints)
{
    EndpointStore& s = store();
    QMutexLocker lock(&s.mutex);
    s.endpoints = endpoints;
}

namespace Internal
{

QUrl endpointUrl(const QUrl& base, const QString& path, const QString& query)
{
    QUrl url = base;
    QString prefix = base.path();
    while (prefix.endsWith(QLatin1Char('/')))
        prefix.chop(1);
    url.setPath(prefix + path);
    url.setQuery(query.isEmpty() ? QString() : query);
    return url;
}

} // namespace Internal
} // namespace ZrUtils

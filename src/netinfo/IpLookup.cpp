#include "NetworkInternal.h"

#include <ZrUtils/ZrHttpRequest.h>

#include <QEventLoop>
#include <QHostInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>

namespace
{

using ZrUtils::ZrNetwork;

// The body of a GET through the JSON HTTP client; failures and late answers leave
// it empty, and the parsers below turn that into their failure result.
QByteArray fetchBody(const QUrl& url)
{
    ZrUtils::ZrHttpRequest request;
    QByteArray body;
    request.StartGetRequestSync(url, body);
    return body;
}

// The body as a JSON object; empty when it is no JSON or not an object.
QJsonObject jsonObjectOf(const QByteArray& body)
{
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return QJsonObject();
    return document.object();
}

QString locationText(const QString& city, const QString& region, const QString& country)
{
    return QStringLiteral("%1, %2, %3").arg(city, region, country);
}

} // namespace

QString parseTdValue(const QString& line)
{
    const int open = line.indexOf(QLatin1Char('>'));
    if (open < 0 || open + 1 >= line.size())
        return QString();
    const QString rest = line.mid(open + 1);
    const int close = rest.indexOf(QLatin1Char('<'));
    if (close < 1)
        return QString();
    return rest.left(close); // spaces around the value are kept
}

bool getIPInfoAPI(QString& country, QString& location, double& latitude, double& longitude)
{
    const QUrl url
        = ZrUtils::Internal::endpointUrl(ZrNetwork::GetEndpoints().geolocationApi, QStringLiteral("/json"));
    return ZrUtils::Internal::readGeolocationAnswer(fetchBody(url), country, location, latitude, longitude);
}

bool getIPInfoMy(QString& country, QString& location, double& latitude, double& longitude)
{
    const QUrl url
        = ZrUtils::Internal::endpointUrl(ZrNetwork::GetEndpoints().ipInfoPage, QStringLiteral("/"));
    return ZrUtils::Internal::readIpInfoPage(fetchBody(url), country, location, latitude, longitude);
}

QString getIP()
{
    const QUrl url = ZrUtils::Internal::endpointUrl(
        ZrNetwork::GetEndpoints().ipEcho, QStringLiteral("/"), QStringLiteral("format=json"));
    return ZrUtils::Internal::readIpEchoAnswer(fetchBody(url));
}

namespace ZrUtils
{
namespace Internal
{

bool readGeolocationAnswer(
    const QByteArray& body, QString& country, QString& location, double& latitude, double& longitude)
{
    const QJsonObject object = jsonObjectOf(body);
    if (object.isEmpty())
        return false;
    if (object.value(QLatin1String("status")).toString() != QLatin1String("success"))
        return false;
    country = object.value(QLatin1String("country")).toString();
    const QString regionName = object.value(QLatin1String("regionName")).toString();
    const QString city = object.value(QLatin1String("city")).toString();
    latitude = object.value(QLatin1String("lat")).toDouble();
    longitude = object.value(QLatin1String("lon")).toDouble();
    location = locationText(city, regionName, country);
    return true;
}

bool readIpInfoPage(
    const QByteArray& body, QString& country, QString& location, double& latitude, double& longitude)
{
    const QList<QByteArray> lines = body.split('\n');

    // The page puts each label cell on one line and its value cell on the next.
    QString city, state, latitudeText, longitudeText;
    int matches = 0;
    for (int i = 0; i + 1 < lines.size(); ++i) {
        const QString line = QString::fromUtf8(lines.at(i));
        const QString next = QString::fromUtf8(lines.at(i + 1));
        if (line.contains(QLatin1String("<td>City:</td>"))) {
            city = parseTdValue(next);
            ++matches;
        }
        if (line.contains(QLatin1String("<td>Country:</td>"))) {
            country = parseTdValue(next);
            ++matches;
        }
        if (line.contains(QLatin1String("<td>State:</td>"))) {
            state = parseTdValue(next);
            ++matches;
        }
        if (line.contains(QLatin1String("<td>Latitude:</td>"))) {
            latitudeText = parseTdValue(next);
            ++matches;
        }
        if (line.contains(QLatin1String("<td>Longitude:</td>"))) {
            longitudeText = parseTdValue(next);
            ++matches;
        }
    }
    if (matches < 5)
        return false;
    latitude = latitudeText.toDouble();
    longitude = longitudeText.toDouble();
    location = locationText(city, state, country);
    return true;
}

QString readIpEchoAnswer(const QByteArray& body)
{
    return jsonObjectOf(body).value(QLatin1String("ip")).toString();
}

bool readCountryCodeAnswer(const QByteArray& body, QString& countryCode, QString& ip)
{
    const QJsonObject object = jsonObjectOf(body);
    if (object.isEmpty())
        return false;
    countryCode = object.value(QLatin1String("country_code")).toString();
    ip = object.value(QLatin1String("ip")).toString();
    return true;
}

} // namespace Internal

bool ZrNetwork::GetIPInfo(QString& country, QString& location, double& latitude, double& longitude)
{
    if (getIPInfoAPI(country, location, latitude, longitude))
        return true;
    return getIPInfoMy(country, location, latitude, longitude);
}

bool ZrNetwork::GetIPCountryCode(QString& countryCode, QString& ip)
{
    const QUrl url = Internal::endpointUrl(GetEndpoints().allFactsEcho, QStringLiteral("/all.json"));
    return Internal::readCountryCodeAnswer(fetchBody(url), countryCode, ip);
}

bool ZrNetwork::IsNetWorkOnline()
{
    QEventLoop loop;
    bool online = false;
    // The loop is the context: should it be gone, the answer is dropped, not delivered.
    QHostInfo::lookupHost(GetEndpoints().onlineCheckHost, &loop, [&](const QHostInfo& info) {
        online = info.error() == QHostInfo::NoError;
        loop.quit();
    });
    loop.exec();
    return online;
}

} // namespace ZrUtils

// Arbitrary bodies for the readers of the IP lookups: the geolocation answer, the
// IP-information page, the IP echo and the country-code answer.
//
// Properties: an answer a reader refuses leaves its outputs as they were (the page's
// country aside, which is taken as soon as its label is seen); an accepted answer
// gives a location ending in the country, and was a JSON object with status
// "success", or a page with five label cells; the address and country code come from
// a JSON object; a value cell read from a line stands in it between ">" and "<".
#include <ZrUtils/ZrNetwork.h>

#include "../Qt5JsonLeak.h"

#include "netinfo/NetworkInternal.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

const QString Untouched = QStringLiteral("untouched");
constexpr double Unset = -1000.0;

QJsonObject objectOf(const QByteArray& body)
{
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    return error.error == QJsonParseError::NoError ? document.object() : QJsonObject();
}

void checkLocation(bool (*read)(const QByteArray&, QString&, QString&, double&, double&),
    const QByteArray& body, bool countryMayChange)
{
    QString country = Untouched, location = Untouched;
    double latitude = Unset, longitude = Unset;
    if (!read(body, country, location, latitude, longitude)) {
        if ((!countryMayChange && country != Untouched) || location != Untouched || latitude != Unset
            || longitude != Unset)
            violated();
        return;
    }
    if (!location.endsWith(QStringLiteral(", ") + country))
        violated();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace ZrUtils::Internal;
    const QByteArray body(reinterpret_cast<const char*>(data), int(size));
    const QJsonObject object = objectOf(body);

    checkLocation(readGeolocationAnswer, body, false);
    QString country, location;
    double latitude = 0, longitude = 0;
    if (readGeolocationAnswer(body, country, location, latitude, longitude)
        && object.value(QStringLiteral("status")).toString() != QLatin1String("success"))
        violated();

    checkLocation(readIpInfoPage, body, true);
    // Five label cells, each on a line with a next one; a repeated label counts again.
    if (readIpInfoPage(body, country, location, latitude, longitude)) {
        const QList<QByteArray> lines = body.split('\n');
        int labels = 0;
        for (int i = 0; i + 1 < lines.size(); ++i) {
            for (const char* label : {"City", "Country", "State", "Latitude", "Longitude"})
                labels += lines.at(i).contains(QByteArray("<td>") + label + ":</td>") ? 1 : 0;
        }
        if (labels < 5)
            violated();
    }
    for (const QByteArray& line : body.split('\n')) {
        const QString text = QString::fromUtf8(line);
        const QString value = parseTdValue(text);
        if (!value.isEmpty() && !text.contains(QLatin1Char('>') + value + QLatin1Char('<')))
            violated();
    }

    if (readIpEchoAnswer(body) != object.value(QStringLiteral("ip")).toString())
        violated();

    QString code = Untouched, ip = Untouched;
    if (readCountryCodeAnswer(body, code, ip)) {
        if (object.isEmpty() || code != object.value(QStringLiteral("country_code")).toString()
            || ip != object.value(QStringLiteral("ip")).toString())
            violated();
    } else if (code != Untouched || ip != Untouched) {
        violated();
    }
    return 0;
}

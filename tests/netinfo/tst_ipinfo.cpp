#include <LoopbackHttpServer.h>
#include <ZrUtils/ZrNetwork.h>

#include <QtTest>

#include <memory>

using namespace ZrLoopback;
using ZrUtils::ZrNetwork;
using Routes = QMap<QByteArray, HttpResponse>;
Q_DECLARE_METATYPE(HttpResponse)

namespace
{
const QByteArray Geolocation = R"({"status":"success","country":"France","countryCode":"FR","region":"IDF",
    "regionName":"Ile-de-France","city":"Paris","lat":48.8566,"lon":2.3522,"query":"203.0.113.7"})";
// Label cell on one line, value cell on the next, as the page lays its table out.
const QByteArray Page
    = "<table>\r\n<tr><td>City:</td>\r\n<td>Lyon</td></tr>\r\n<tr><td>Country:</td>\r\n"
      "<td>France</td></tr>\r\n<tr><td>State:</td>\r\n<td>Auvergne-Rhone-Alpes</td></tr>\r\n"
      "<tr><td>Latitude:</td>\r\n<td>45.75</td></tr>\r\n<tr><td>Longitude:</td>\r\n"
      "<td>4.85</td></tr>\r\n</table>\n";
const QString PageLocation = "Lyon, Auvergne-Rhone-Alpes, France";

HttpResponse dropped()
{
    HttpResponse response;
    response.fault = HttpResponse::Fault::DropBeforeAnswer;
    return response;
}
} // namespace

class IpInfoTest : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<LoopbackHttpServer> m_server;
    void serve(const Routes& routes)
    {
        m_server->clearRequests();
        m_server->setHandler([routes](const HttpRequest& request) {
            return routes.value(request.path, HttpResponse(404, "not here"));
        });
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_server = std::make_unique<LoopbackHttpServer>(nullptr);
        ZrNetwork::Endpoints endpoints;
        endpoints.geolocationApi = m_server->url("/");
        endpoints.ipInfoPage = m_server->url("/page/"); // a path prefix is kept
        endpoints.ipEcho = m_server->url("/echo");
        endpoints.allFactsEcho = m_server->url(QString());
        endpoints.onlineCheckHost = "127.0.0.1";
        ZrNetwork::SetEndpoints(endpoints);
    }

    void geolocationFallbackWrong_data()
    {
        QTest::addColumn<HttpResponse>("geolocation");
        QTest::addColumn<QString>("location");
        QTest::addColumn<double>("latitude");
        QTest::newRow("success") << HttpResponse(200, Geolocation) << "Paris, Ile-de-France, France"
                                 << 48.8566;
        QTest::newRow("statusFailAccepted")
            << HttpResponse(200, R"({"status":"fail"})") << PageLocation << 45.75;
        QTest::newRow("statusCaseIgnored")
            << HttpResponse(200, R"({"status":"Success"})") << PageLocation << 45.75;
        QTest::newRow("garbage") << HttpResponse(200, "\x01<html>not json") << PageLocation << 45.75;
        QTest::newRow("arrayAccepted")
            << HttpResponse(200, R"([{"status":"success"}])") << PageLocation << 45.75;
        QTest::newRow("connectionDropped") << dropped() << PageLocation << 45.75;
    }
    void geolocationFallbackWrong()
    {
        QFETCH(HttpResponse, geolocation);
        QFETCH(QString, location);
        QFETCH(double, latitude);
        serve({{"/json", geolocation}, {"/page/", HttpResponse(200, Page, "text/html")}});
        QString country, where;
        double lat = 0, lon = 0;
        QVERIFY(ZrNetwork::GetIPInfo(country, where, lat, lon));
        QCOMPARE(where, location);
        QCOMPARE(country, "France");
        QCOMPARE(lat, latitude);
        QCOMPARE(m_server->requests().last().path, QByteArray(location == PageLocation ? "/page/" : "/json"));
        QVERIFY(m_server->requests().first().header("User-Agent").contains("Chrome/60.0.3100.0"));
    }

    void pageMisparsed_data()
    {
        QTest::addColumn<QByteArray>("page");
        QTest::addColumn<bool>("found");
        QTest::newRow("allFive") << Page << true;
        QTest::newRow("longitudeMissing") << QByteArray(Page).replace("Longitude:", "Long:") << false;
        QTest::newRow("labelOnLastLine") << QByteArray(Page).left(Page.lastIndexOf("\r\n<td>4.85")) << false;
        QTest::newRow("labelCaseIgnored") << QByteArray(Page).replace("<td>City:", "<td>city:") << false;
        QTest::newRow("garbage") << QByteArray("\xff\xfe<td><<>>\n\n") << false;
    }
    void pageMisparsed()
    {
        QFETCH(QByteArray, page);
        QFETCH(bool, found);
        serve({{"/page/", HttpResponse(200, page, "text/html")}});
        QString country, location = "untouched";
        double latitude = -1, longitude = -1;
        QCOMPARE(getIPInfoMy(country, location, latitude, longitude), found);
        QCOMPARE(location, found ? PageLocation : "untouched");
        QCOMPARE(latitude, found ? 45.75 : -1.0);
    }

    void parseTdValueMisreadsCell_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("value");
        QTest::newRow("plain") << QString("<td>Paris</td>") << "Paris";
        QTest::newRow("emptyCell") << QString("<td></td>") << "";
        QTest::newRow("noAngle") << QString("Paris") << "";
        QTest::newRow("unclosedValue") << QString("<td>Paris") << "";
        QTest::newRow("spacesTrimmed") << QString("  <td> Paris </td>") << " Paris ";
        QTest::newRow("secondCellTaken") << QString("<td>Paris</td><td>Lyon</td>") << "Paris";
    }
    void parseTdValueMisreadsCell()
    {
        QFETCH(QString, line);
        QFETCH(QString, value);
        QCOMPARE(parseTdValue(line), value);
    }

    void echoMisread_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("value"); // the IP, or the country code
        QTest::newRow("ip") << QByteArray("/echo/") << QByteArray(R"({"ip":"203.0.113.7"})") << true
                            << "203.0.113.7";
        QTest::newRow("ipGarbage") << QByteArray("/echo/") << QByteArray("203.0.113.7") << false << "";
        QTest::newRow("ipNumber") << QByteArray("/echo/") << QByteArray(R"({"ip":2030})") << false << "";
        QTest::newRow("country") << QByteArray("/all.json") << QByteArray(R"({"country_code":"FR","ip":"1"})")
                                 << true << "FR";
        QTest::newRow("countryFieldsMissingRejected")
            << QByteArray("/all.json") << QByteArray(R"({"ua":1})") << true << "";
        QTest::newRow("countryEmptyObjectAccepted")
            << QByteArray("/all.json") << QByteArray("{}") << false << "kept";
        QTest::newRow("countryGarbageAccepted")
            << QByteArray("/all.json") << QByteArray("<html>") << false << "kept";
    }
    void echoMisread()
    {
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, body);
        QFETCH(bool, ok);
        QFETCH(QString, value);
        serve({{path, HttpResponse(200, body)}});
        QString result = "kept", ip;
        if (path == "/all.json") {
            QCOMPARE(ZrNetwork::GetIPCountryCode(result, ip), ok);
        } else {
            result = getIP();
            QCOMPARE(m_server->requests().value(0).target, QByteArray("/echo/?format=json"));
        }
        QCOMPARE(result, value);
    }

    void onlineCheckWrong_data()
    {
        // Names that fail before any resolver traffic leaves the machine.
        QTest::addColumn<QString>("host");
        QTest::addColumn<bool>("online");
        QTest::newRow("address") << "127.0.0.1" << true;
        QTest::newRow("noName") << "" << false;
        QTest::newRow("invalidName") << "bad..name" << false;
    }
    void onlineCheckWrong()
    {
        QFETCH(QString, host);
        QFETCH(bool, online);
        ZrNetwork::Endpoints endpoints = ZrNetwork::GetEndpoints();
        endpoints.onlineCheckHost = host;
        ZrNetwork::SetEndpoints(endpoints);
        QCOMPARE(ZrNetwork::IsNetWorkOnline(), online);
    }
};

QTEST_GUILESS_MAIN(IpInfoTest)
#include "tst_ipinfo.moc"

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
const QString PageLocation = QStringLiteral("Lyon, Auvergne-Rhone-Alpes, France");

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
        endpoints.geolocationApi = m_server->url(QStringLiteral("/"));
        endpoints.ipInfoPage = m_server->url(QStringLiteral("/page/")); // a path prefix is kept
        endpoints.ipEcho = m_server->url(QStringLiteral("/echo"));
        endpoints.allFactsEcho = m_server->url(QString());
        endpoints.onlineCheckHost = QStringLiteral("127.0.0.1");
        ZrNetwork::SetEndpoints(endpoints);
    }

    void defaultsWrongScheme()
    {
        const ZrNetwork::Endpoints defaults = ZrNetwork::DefaultEndpoints();
        QCOMPARE(defaults.geolocationApi.scheme(), QStringLiteral("http"));
        for (const QUrl& url : {defaults.ipInfoPage, defaults.ipEcho, defaults.allFactsEcho})
            QCOMPARE(url.scheme(), QStringLiteral("https"));
        QVERIFY(!defaults.onlineCheckHost.isEmpty());
    }

    void geolocationMisparsed()
    {
        serve({{"/json", HttpResponse(200, Geolocation, "application/json")}});
        QString country, location;
        double latitude = 0, longitude = 0;
        QVERIFY(ZrNetwork::GetIPInfo(country, location, latitude, longitude));
        QCOMPARE(country, QStringLiteral("France"));
        QCOMPARE(location, QStringLiteral("Paris, Ile-de-France, France"));
        QCOMPARE(latitude, 48.8566);
        QCOMPARE(longitude, 2.3522);
        QCOMPARE(m_server->requestCount(), 1); // no fallback after a success
        QVERIFY(m_server->requests().first().header("User-Agent").contains("Chrome/60.0.3100.0"));
    }

    void geolocationFailureNotFallingBack_data()
    {
        QTest::addColumn<HttpResponse>("geolocation");
        QTest::newRow("statusFail") << HttpResponse(200, R"({"status":"fail","country":"X"})");
        QTest::newRow("statusCaseIgnored") << HttpResponse(200, R"({"status":"Success","country":"X"})");
        QTest::newRow("garbage") << HttpResponse(200, "\x01<html>not json");
        QTest::newRow("emptyObject") << HttpResponse(200, "{}");
        QTest::newRow("array") << HttpResponse(200, R"([{"status":"success"}])");
        QTest::newRow("serverError") << HttpResponse(500, "");
        QTest::newRow("connectionDropped") << dropped();
    }
    void geolocationFailureNotFallingBack()
    {
        QFETCH(HttpResponse, geolocation);
        serve({{"/json", geolocation}, {"/page/", HttpResponse(200, Page, "text/html")}});
        QString country, location;
        double latitude = 0, longitude = 0;
        QVERIFY(ZrNetwork::GetIPInfo(country, location, latitude, longitude));
        QCOMPARE(location, PageLocation);
        QCOMPARE(latitude, 45.75);
        QCOMPARE(longitude, 4.85);
    }

    void pageMisparsed_data()
    {
        QTest::addColumn<QByteArray>("page");
        QTest::addColumn<bool>("found");
        QTest::newRow("allFive") << Page << true;
        QTest::newRow("lfOnly") << QByteArray(Page).replace("\r\n", "\n") << true;
        QTest::newRow("longitudeMissing") << QByteArray(Page).replace("Longitude:", "Long:") << false;
        QTest::newRow("labelOnLastLine") << QByteArray(Page).left(Page.lastIndexOf("\r\n<td>4.85")) << false;
        QTest::newRow("labelCaseIgnored") << QByteArray(Page).replace("<td>City:", "<td>city:") << false;
        QTest::newRow("garbage") << QByteArray("\xff\xfe<td><<>>\n\n") << false;
        QTest::newRow("empty") << QByteArray() << false;
    }
    void pageMisparsed()
    {
        QFETCH(QByteArray, page);
        QFETCH(bool, found);
        serve({{"/page/", HttpResponse(200, page, "text/html")}});
        QString country, location = QStringLiteral("untouched");
        double latitude = -1, longitude = -1;
        QCOMPARE(getIPInfoMy(country, location, latitude, longitude), found);
        QCOMPARE(location, found ? PageLocation : QStringLiteral("untouched"));
        QCOMPARE(latitude, found ? 45.75 : -1.0);
    }

    void parseTdValueMisreadsCell_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("value");
        QTest::newRow("plain") << "<td>Paris</td>"
                               << "Paris";
        QTest::newRow("emptyCell") << "<td></td>"
                                   << "";
        QTest::newRow("noAngle") << "Paris"
                                 << "";
        QTest::newRow("nothingAfterAngle") << "<td>"
                                           << "";
        QTest::newRow("unclosedValue") << "<td>Paris"
                                       << "";
        QTest::newRow("spacesTrimmed") << "  <td> Paris </td>"
                                       << " Paris ";
        QTest::newRow("secondCellTaken") << "<td>Paris</td><td>Lyon</td>"
                                         << "Paris";
    }
    void parseTdValueMisreadsCell()
    {
        QFETCH(QString, line);
        QFETCH(QString, value);
        QCOMPARE(parseTdValue(line), value);
    }

    void ipEchoMisread_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("ip");
        QTest::newRow("ip") << QByteArray(R"({"ip":"203.0.113.7"})") << "203.0.113.7";
        QTest::newRow("garbage") << QByteArray("203.0.113.7") << "";
        QTest::newRow("array") << QByteArray(R"(["203.0.113.7"])") << "";
        QTest::newRow("numberAsIp") << QByteArray(R"({"ip":2030})") << "";
    }
    void ipEchoMisread()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, ip);
        serve({{"/echo/", HttpResponse(200, body)}});
        QCOMPARE(getIP(), ip);
        QCOMPARE(m_server->requests().value(0).target, QByteArray("/echo/?format=json"));
    }

    void countryCodeMisread_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("code");
        QTest::newRow("both") << QByteArray(R"({"country_code":"FR","ip":"203.0.113.7","lang":"fr"})") << true
                              << "FR";
        QTest::newRow("fieldsMissingRejected") << QByteArray(R"({"method":"GET"})") << true << "";
        QTest::newRow("emptyObjectAccepted") << QByteArray("{}") << false << "kept";
        QTest::newRow("garbageAccepted") << QByteArray("<html>") << false << "kept";
    }
    void countryCodeMisread()
    {
        QFETCH(QByteArray, body);
        QFETCH(bool, ok);
        QFETCH(QString, code);
        serve({{"/all.json", HttpResponse(200, body)}});
        QString countryCode = QStringLiteral("kept"), ip;
        QCOMPARE(ZrNetwork::GetIPCountryCode(countryCode, ip), ok);
        QCOMPARE(countryCode, code);
    }

    void unreachableServicesReportSuccess()
    {
        const ZrNetwork::Endpoints saved = ZrNetwork::GetEndpoints();
        QUrl closed;
        {
            LoopbackHttpServer gone(nullptr);
            closed = gone.url(QString());
        }
        ZrNetwork::SetEndpoints({closed, closed, closed, closed, saved.onlineCheckHost});
        QString country, location, ip;
        double latitude = 0, longitude = 0;
        QVERIFY(!ZrNetwork::GetIPInfo(country, location, latitude, longitude));
        QVERIFY(!ZrNetwork::GetIPCountryCode(country, ip));
        QVERIFY(getIP().isEmpty());
        ZrNetwork::SetEndpoints(saved);
    }

    void onlineCheckWrong_data()
    {
        // Names that fail before any resolver traffic leaves the machine.
        QTest::addColumn<QString>("host");
        QTest::addColumn<bool>("online");
        QTest::newRow("address") << "127.0.0.1" << true;
        QTest::newRow("hostsFile") << "localhost" << true;
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

#include <LoopbackHttpServer.h>
#include <ZrUtils/ZrNetwork.h>

#include <QtTest>

using namespace ZrLoopback;
using ZrUtils::ZrNetwork;

namespace
{
const char* const Geolocation = R"({"status":"success","country":"France","countryCode":"FR","region":"IDF",
    "regionName":"Ile-de-France","city":"Paris","lat":48.8566,"lon":2.3522,"query":"203.0.113.7"})";
// Label cell on one line, value cell on the next, as the page lays its table out.
const QString Page = "<table>\r\n<tr><td>City:</td>\r\n<td>Lyon</td></tr>\r\n<tr><td>Country:</td>\r\n"
                     "<td>France</td></tr>\r\n<tr><td>State:</td>\r\n<td>Auvergne-Rhone-Alpes</td></tr>\r\n"
                     "<tr><td>Latitude:</td>\r\n<td>45.75</td></tr>\r\n<tr><td>Longitude:</td>\r\n"
                     "<td>4.85</td></tr>\r\n</table>\n";
const QString PageLocation = "Lyon, Auvergne-Rhone-Alpes, France";
} // namespace

class IpInfoTest : public QObject
{
    Q_OBJECT
    LoopbackHttpServer m_server {nullptr};
    void serve(const QMap<QByteArray, HttpResponse>& routes)
    {
        m_server.clearRequests();
        m_server.setHandler([routes](const HttpRequest& request) {
            return routes.value(request.path, HttpResponse(404, ""));
        });
    }

    // Everything on the loopback server; the page under a path prefix, which is kept.
    void useEndpoints(const QString& onlineCheckHost)
    {
        ZrNetwork::SetEndpoints({m_server.url("/"), m_server.url("/page/"), m_server.url("/echo"),
            m_server.url(QString()), onlineCheckHost});
    }

private Q_SLOTS:
    void initTestCase() { useEndpoints("127.0.0.1"); }

    void locationWrong_data()
    {
        QTest::addColumn<QString>("geolocation"); // empty: the connection is dropped
        QTest::addColumn<QString>("page");
        QTest::addColumn<QString>("location"); // empty: both providers fail
        const QString failed = R"({"status":"fail"})";
        QTest::newRow("geolocation") << Geolocation << Page << "Paris, Ile-de-France, France";
        // Anything but an exact "success", or a body that is no JSON object, falls back to the page.
        QTest::newRow("statusCaseIgnored") << R"({"status":"Success"})" << Page << PageLocation;
        QTest::newRow("arrayAccepted") << R"([{"status":"success"}])" << Page << PageLocation;
        QTest::newRow("connectionDropped") << "" << Page << PageLocation;
        QTest::newRow("garbage") << "\x01<html>not json" << Page << PageLocation;
        // The page needs all five labels (case-sensitive), each with its value on the next line.
        QTest::newRow("longitudeMissing") << failed << QString(Page).replace("Longitude:", "Long:") << "";
        QTest::newRow("labelOnLastLine") << failed << Page.left(Page.lastIndexOf("\r\n<td>4.85")) << "";
        QTest::newRow("labelCaseIgnored") << failed << QString(Page).replace("<td>City:", "<td>city:") << "";
        QTest::newRow("pageGarbage") << failed << "\x01<td><<>>\n\n"
                                     << "";
    }
    void locationWrong()
    {
        QFETCH(QString, geolocation);
        QFETCH(QString, page);
        QFETCH(QString, location);
        HttpResponse api(200, geolocation.toUtf8());
        api.fault = geolocation.isEmpty() ? HttpResponse::Fault::DropBeforeAnswer : HttpResponse::Fault::None;
        serve({{"/json", api}, {"/page/", HttpResponse(200, page.toUtf8(), "text/html")}});
        QString country, where = "untouched";
        double latitude = -1, longitude = -1;
        QCOMPARE(ZrNetwork::GetIPInfo(country, where, latitude, longitude), !location.isEmpty());
        QCOMPARE(where, location.isEmpty() ? "untouched" : location);
        QCOMPARE(latitude, location == PageLocation ? 45.75 : where.startsWith("Paris") ? 48.8566 : -1);
        // The page's country is taken even when the page is rejected.
        QCOMPARE(country, page.contains("Country:") ? "France" : "");
        QCOMPARE(
            m_server.requests().last().path, QByteArray(location.startsWith("Paris") ? "/json" : "/page/"));
        QVERIFY(m_server.requests().first().header("User-Agent").contains("Chrome/60.0.3100.0"));
    }

    void parseTdValueMisreadsCell_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("value");
        QTest::newRow("emptyCell") << QString("<td></td>") << "";
        QTest::newRow("noAngle") << QString("Paris") << "";
        QTest::newRow("unclosedValue") << QString("<td>Paris") << "";
        QTest::newRow("spacesKept") << QString("  <td> Paris </td>") << " Paris ";
        QTest::newRow("secondCellTaken") << QString("<td>Paris</td><td>Lyon</td>") << "Paris";
    }
    void parseTdValueMisreadsCell()
    {
        QFETCH(QString, line);
        QTEST(parseTdValue(line), "value");
    }

    void echoMisread_data()
    {
        QTest::addColumn<bool>("country"); // GetIPCountryCode(), else getIP()
        QTest::addColumn<QString>("body");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("value"); // the IP, or the country code
        QTest::newRow("ip") << false << R"({"ip":"203.0.113.7"})" << true << "203.0.113.7";
        QTest::newRow("ipGarbage") << false << "203.0.113.7" << false << "";
        QTest::newRow("ipNumber") << false << R"({"ip":2030})" << false << "";
        QTest::newRow("country") << true << R"({"country_code":"FR","ip":"1"})" << true << "FR";
        QTest::newRow("countryFieldsMissingRejected") << true << R"({"ua":1})" << true << "";
        QTest::newRow("countryEmptyObjectAccepted") << true << "{}" << false << "kept";
    }
    void echoMisread()
    {
        QFETCH(bool, country);
        QFETCH(QString, body);
        serve({{country ? "/all.json" : "/echo/", HttpResponse(200, body.toUtf8())}});
        QString value = "kept", ip;
        if (country) {
            QTEST(ZrNetwork::GetIPCountryCode(value, ip), "ok");
        } else {
            value = getIP();
            QCOMPARE(m_server.requests().value(0).target, QByteArray("/echo/?format=json"));
        }
        QTEST(value, "value");
    }

    void onlineCheckWrong_data()
    {
        // Names that fail before any resolver traffic leaves the machine.
        QTest::addColumn<QString>("host");
        QTest::addColumn<bool>("online");
        QTest::newRow("address") << "127.0.0.1" << true;
        QTest::newRow("invalidName") << "bad..name" << false;
    }
    void onlineCheckWrong()
    {
        QFETCH(QString, host);
        useEndpoints(host);
        QTEST(ZrNetwork::IsNetWorkOnline(), "online");
    }
};

QTEST_GUILESS_MAIN(IpInfoTest)
#include "tst_ipinfo.moc"

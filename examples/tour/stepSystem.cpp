#include "Tour.h"

#include <LoopbackHttpServer.h>
#include <ZrUtils/ZrNetwork.h>
#include <ZrUtils/ZrSystem.h>

#include <QFile>
#include <QProcess>
#include <QStandardPaths>

using ZrUtils::ZrNetwork;
using ZrUtils::ZrSystem;

void tourSystem(Tour& tour)
{
    tour.section(QStringLiteral("System: OS facts, machine identity, network information, QR codes"));
    tour.say(QStringLiteral("OS: %1").arg(ZrSystem::GetSystemVersion()));
    tour.say(QStringLiteral("Distribution (NAME= of /etc/os-release): %1; Kylin: %2; UOS: %3")
                 .arg(ZrSystem::GetLinuxOsInfo(),
                     ZrSystem::IsKylinOs() ? QStringLiteral("yes") : QStringLiteral("no"),
                     ZrSystem::IsUOS() ? QStringLiteral("yes") : QStringLiteral("no")));

    // The identity file lives in the configuration folder, here the test-mode one.
    const QString a = QStringLiteral("example."), b = QStringLiteral("tour");
    const QString identityFile = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/com.%1%2.info.plist").arg(a, b);
    QFile::remove(identityFile); // start as a first run
    const bool firstRun = ZrSystem::IsNewUser(a, b);
    const bool secondRun = ZrSystem::IsNewUser(a, b);
    tour.say(QStringLiteral("Identity file: %1").arg(identityFile));
    tour.check(firstRun && !secondRun, QStringLiteral("new user on the first call only"));
    const QString pcid = ZrSystem::GetPCID(a, b);
    tour.say(QStringLiteral("PCID: %1").arg(pcid));
    tour.check(pcid.size() == 40 && ZrSystem::GetPCID(a, b) == pcid, QStringLiteral("40 characters, stable"));
    const QString channel = ZrSystem::GetChannel(a, b, QString());
    tour.say(QStringLiteral("Channel: %1").arg(channel));
    tour.check(ZrSystem::GetChannel(a, b, QStringLiteral("store")) == channel,
        QStringLiteral("the first channel stays"));
    QFile::remove(identityFile);

    // The lookup services are configuration: point them at a loopback stand-in.
    ZrLoopback::LoopbackHttpServer services([](const ZrLoopback::HttpRequest& request) {
        if (request.path == "/json")
            return ZrLoopback::HttpResponse(200,
                R"({"status":"success","country":"France","regionName":)"
                R"("Ile-de-France","city":"Paris","lat":48.85,"lon":2.35})");
        return ZrLoopback::HttpResponse(200, R"({"country_code":"FR","ip":"203.0.113.7"})");
    });
    const ZrNetwork::Endpoints saved = ZrNetwork::GetEndpoints();
    const QUrl base = services.url(QString());
    ZrNetwork::SetEndpoints({base, base, base, base, QStringLiteral("localhost")});
    QString country, location, countryCode, ip;
    double latitude = 0, longitude = 0;
    const bool located = ZrNetwork::GetIPInfo(country, location, latitude, longitude);
    tour.say(QStringLiteral("Location: %1 (%2, %3)").arg(location).arg(latitude).arg(longitude));
    const bool echoed = ZrNetwork::GetIPCountryCode(countryCode, ip);
    tour.say(QStringLiteral("Country code %1, public IP %2").arg(countryCode, ip));
    tour.check(located && echoed && ZrNetwork::IsNetWorkOnline(), QStringLiteral("lookups answered, online"));
    ZrNetwork::SetEndpoints(saved);

    const QString url = QStringLiteral("https://example.com/download?from=tour");
    const QImage code = ZrNetwork::GenerateQRCode(url, QSize(250, 250), 10);
    const QString png = tour.scratchPath(QStringLiteral("download-qr.png"));
    tour.check(code.size() == QSize(250, 250) && code.save(png),
        QStringLiteral("QR code of %1 in %2").arg(url, png));
    if (!QStandardPaths::findExecutable(QStringLiteral("zbarimg")).isEmpty()) {
        QProcess zbar;
        zbar.start(QStringLiteral("zbarimg"), {QStringLiteral("--raw"), QStringLiteral("-q"), png});
        zbar.waitForFinished(30000);
        tour.check(
            zbar.readAllStandardOutput().trimmed() == url.toUtf8(), QStringLiteral("zbarimg reads it back"));
    }
}

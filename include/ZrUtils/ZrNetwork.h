#ifndef ZRUTILS_ZRNETWORK_H
#define ZRUTILS_ZRNETWORK_H

#include <ZrUtils/zrutils_export.h>

#include <QImage>
#include <QSize>
#include <QString>
#include <QUrl>

namespace ZrUtils
{

/**
 * Network information: where the machine is, its public IP address and country,
 * whether the network is reachable, and QR-code images.
 *
 * Every lookup is one blocking call on the calling thread. The HTTP lookups use
 * ZrHttpRequest::StartGetRequestSync() (10 s limit, nested event loop); the online
 * check spins a nested event loop until the system resolver answers. Nothing throws:
 * failures are false, empty texts or a null image.
 *
 * The services asked are configuration, see Endpoints and SetEndpoints().
 */
class ZRUTILS_EXPORT ZrNetwork
{
public:
    /**
     * The services the lookups ask. Each URL is a base: scheme, host, optional port
     * and optional path prefix. The fixed paths are appended to it.
     */
    struct Endpoints {
        /** JSON geolocation API, asked at "/json" (plain http by default). */
        QUrl geolocationApi;
        /** IP-information web page with the location in a table, asked at its root. */
        QUrl ipInfoPage;
        /** IP echo service, asked at its root with the query "format=json". */
        QUrl ipEcho;
        /** Service that echoes all request facts, asked at "/all.json". */
        QUrl allFactsEcho;
        /** Host name that IsNetWorkOnline() resolves; it is never contacted. */
        QString onlineCheckHost;
    };

    /** The public services used unless the application sets others. */
    static Endpoints DefaultEndpoints();
    /** The services in force. */
    static Endpoints GetEndpoints();
    /**
     * Replaces the services for every later lookup of the process (thread-safe).
     * An application with its own mirrors, or a test with loopback servers, calls
     * this once at start-up.
     */
    static void SetEndpoints(const Endpoints& endpoints);

    /**
     * Country, "city, region, country", latitude and longitude: from the geolocation
     * API, or from the IP-information page when the API does not answer "success".
     * False when both fail; then only @p country may have been written.
     */
    static bool GetIPInfo(QString& country, QString& location, double& latitude, double& longitude);

    /**
     * The country code and public IP from the all-facts echo. False only when the
     * answer is not a non-empty JSON object; true even when both fields are missing.
     */
    static bool GetIPCountryCode(QString& countryCode, QString& ip);

    /** True when the online-check host name resolves; false otherwise. Waits for the resolver without a
     * limit. */
    static bool IsNetWorkOnline();

    /**
     * @p text (UTF-8) as a black-on-white QR code (error correction Q, version 2 or
     * larger) in a square ARGB32 image whose side is the smaller of the two sides of
     * @p size, with @p margin white pixels on each side. A null image for an empty
     * text, a text beyond the largest symbol, or a side of zero or less.
     */
    static QImage GenerateQRCode(const QString& text, const QSize& size, int margin);
};

} // namespace ZrUtils

/** The public IP address from the IP echo service; empty on any failure. */
ZRUTILS_EXPORT QString getIP();

/** The geolocation API's answer (see ZrNetwork::GetIPInfo()); false unless its "status" is "success". */
ZRUTILS_EXPORT bool getIPInfoAPI(QString& country, QString& location, double& latitude, double& longitude);

/** The IP-information page's answer; false unless all five table labels were found. */
ZRUTILS_EXPORT bool getIPInfoMy(QString& country, QString& location, double& latitude, double& longitude);

/** The text between the first ">" and the following "<" of @p line; empty when there is none. */
ZRUTILS_EXPORT QString parseTdValue(const QString& line);

#endif

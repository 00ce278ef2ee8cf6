#ifndef ZRUTILS_CERTIFICATECHECKING_H
#define ZRUTILS_CERTIFICATECHECKING_H

#include <ZrUtils/zrutils_export.h>

#include <QString>

namespace ZrUtils
{

/**
 * The process-wide switch for checking TLS certificates in ZrHttpRequest,
 * CurlDownloader (and every CurlEasy transfer) and ZrDownloader.
 *
 * Checking is off by default, and off means each class keeps the TLS settings it
 * always had: ZrHttpRequest accepts any certificate (existing callers talk to
 * self-signed test servers), while the two downloaders leave their network stack's
 * own defaults in place. With checking on, every request checks the server's
 * certificate chain and that the certificate names the host asked for, against
 * the system's CA store or, when one is set, the CA bundle alone. A certificate
 * that is untrusted, expired or for another host then fails the request the way
 * a network error does in that class.
 *
 * The switch is read when a request is built: ZrHttpRequest and ZrDownloader read
 * it when a request starts, CurlEasy in every perform(). Requests already on their
 * way keep the settings they started with. All functions may be called from any
 * thread.
 */
class ZRUTILS_EXPORT CertificateChecking
{
public:
    /** Turns checking on or off for the requests started from now on. Never fails. */
    static void setEnabled(bool enabled);

    /** Whether checking is on; false until setEnabled(true). Never fails. */
    static bool isEnabled();

    /**
     * Trusts only the CA certificates of the PEM file @p pemFile while checking is
     * on; an empty @p pemFile goes back to the system's CA store. The file is read
     * now to make sure it holds at least one certificate, and read again by the
     * requests that use it, so replacing its contents takes effect at once.
     *
     * Returns false, and leaves the setting as it was, when the file cannot be read
     * or holds no certificate.
     */
    static bool setCaBundle(const QString& pemFile);

    /**
     * The CA bundle set with setCaBundle(), as an absolute path (a relative name is
     * taken from the current folder when it is set); empty, the default, for the
     * system store. Never fails.
     */
    static QString caBundle();
};

} // namespace ZrUtils

#endif

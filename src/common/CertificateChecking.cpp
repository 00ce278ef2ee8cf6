#include <ZrUtils/CertificateChecking.h>

#include "common/CertificatePolicy.h"

#include <QFileInfo>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslSocket>

#include <mutex>

namespace ZrUtils
{

namespace
{

struct PolicyState {
    std::mutex mutex;
    Internal::CertificatePolicy policy;
};

PolicyState& state()
{
    // Never destroyed: requests on other threads may still read it while the
    // process exits.
    static PolicyState* const instance = new PolicyState;
    return *instance;
}

QList<QSslCertificate> bundleCertificates(const QString& pemFile)
{
    return QSslCertificate::fromPath(pemFile, QSsl::Pem);
}

} // namespace

void CertificateChecking::setEnabled(bool enabled)
{
    PolicyState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.policy.enabled == enabled)
        return;
    s.policy.enabled = enabled;
    ++s.policy.generation;
}

bool CertificateChecking::isEnabled()
{
    PolicyState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.policy.enabled;
}

bool CertificateChecking::setCaBundle(const QString& pemFile)
{
    QString path;
    if (!pemFile.isEmpty()) {
        // Relative to the current folder now, not to whatever it is when a request starts.
        const QFileInfo info(pemFile);
        if (!info.isFile() || bundleCertificates(info.absoluteFilePath()).isEmpty())
            return false;
        path = info.absoluteFilePath();
    }
    PolicyState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.policy.caBundle != path) {
        s.policy.caBundle = path;
        ++s.policy.generation;
    }
    return true;
}

QString CertificateChecking::caBundle()
{
    PolicyState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.policy.caBundle;
}

namespace Internal
{

CertificatePolicy certificatePolicy()
{
    PolicyState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.policy;
}

void applyCertificatePolicy(QSslConfiguration& ssl, const CertificatePolicy& policy)
{
    if (!policy.enabled)
        return;
    // Qt checks the host name whenever it verifies the peer.
    ssl.setPeerVerifyMode(QSslSocket::VerifyPeer);
    // Read for every request, like libcurl does. A bundle that has become
    // unreadable trusts nothing, so the request fails rather than falling back.
    // Setting the list also stops Qt from loading system roots on demand.
    if (!policy.caBundle.isEmpty())
        ssl.setCaCertificates(bundleCertificates(policy.caBundle));
}

} // namespace Internal
} // namespace ZrUtils

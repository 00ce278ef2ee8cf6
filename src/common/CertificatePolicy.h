// The state behind CertificateChecking, as the request-building code reads it.
#ifndef ZRUTILS_COMMON_CERTIFICATEPOLICY_H
#define ZRUTILS_COMMON_CERTIFICATEPOLICY_H

#include <QString>
#include <QtGlobal>

class QSslConfiguration;

namespace ZrUtils
{
namespace Internal
{

struct CertificatePolicy {
    bool enabled = false;
    QString caBundle; // absolute path; empty for the system store
    // Changes with every change of either setting, so that a class keeping
    // connections open can tell that they were made under other rules.
    quint64 generation = 0;
};

// Both settings, read together.
CertificatePolicy certificatePolicy();

// With checking on: peer and host-name verification and, with a bundle, its
// certificates as the only trusted CAs. With checking off @p ssl is left alone.
void applyCertificatePolicy(QSslConfiguration& ssl, const CertificatePolicy& policy);

} // namespace Internal
} // namespace ZrUtils

#endif

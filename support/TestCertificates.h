// Certificates for the TLS tests, made at run time with the openssl command line
// in a folder of the caller's (a QTemporaryDir, normally).
//
// A test CA signs three server certificates: one for 127.0.0.1 that is valid now,
// one for 127.0.0.1 that expired days ago, and one valid now that names only the
// host other.example. A second CA signs nothing the servers use: a client that
// trusts only it trusts none of them. Keys are RSA, 2048 bits, unencrypted.
#ifndef ZRUTILS_SUPPORT_TESTCERTIFICATES_H
#define ZRUTILS_SUPPORT_TESTCERTIFICATES_H

#include <QString>

namespace ZrLoopback
{

class TestCertificates
{
public:
    struct ServerFiles {
        QString certificate;
        QString key;
    };

    // Makes everything in @p folder, which must exist; see isValid().
    explicit TestCertificates(const QString& folder);

    // False when openssl is missing or one of its runs failed; errorString() says which.
    bool isValid() const { return m_error.isEmpty(); }
    QString errorString() const { return m_error; }

    QString caFile() const; // the test CA's certificate (PEM)
    QString otherCaFile() const; // the CA that signed none of the servers

    ServerFiles good() const; // 127.0.0.1, valid now
    ServerFiles expired() const; // 127.0.0.1, valid for one day ten days ago
    ServerFiles otherHost() const; // DNS other.example only, valid now

private:
    bool run(const QStringList& arguments);
    bool makeCa(const QString& name, const QString& subject);
    bool makeServer(const QString& name, const QString& subject, const QString& subjectAltName, bool expired);
    QString path(const QString& file) const;

    QString m_folder;
    QString m_error;
};

} // namespace ZrLoopback

#endif

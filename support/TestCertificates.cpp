#include "TestCertificates.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QProcess>

namespace ZrLoopback
{

namespace
{

// Everything openssl needs, so that the system's openssl.cnf plays no part.
const char Configuration[] = R"([req]
distinguished_name = dn
prompt = no
[dn]
CN = unused
[ca_extensions]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[ca]
default_ca = test_ca
[test_ca]
database = index.txt
new_certs_dir = .
serial = serial
default_md = sha256
policy = any_name
unique_subject = no
[any_name]
commonName = supplied
)";

QString asn1Time(const QDateTime& time)
{
    return time.toUTC().toString(QStringLiteral("yyyyMMddHHmmss")) + QLatin1Char('Z');
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace

TestCertificates::TestCertificates(const QString& folder)
    : m_folder(folder)
{
    if (!writeFile(path(QStringLiteral("openssl.cnf")), Configuration)
        || !writeFile(path(QStringLiteral("index.txt")), QByteArray())
        || !writeFile(path(QStringLiteral("serial")), "1000\n")) {
        m_error = QStringLiteral("cannot write into ") + folder;
        return;
    }
    const QString host = QStringLiteral("subjectAltName = IP:127.0.0.1\n");
    const QString other = QStringLiteral("subjectAltName = DNS:other.example\n");
    // Each step runs only when the ones before it worked; m_error tells the first that did not.
    makeCa(QStringLiteral("ca"), QStringLiteral("/CN=ZrUtils Test CA"))
        && makeCa(QStringLiteral("other-ca"), QStringLiteral("/CN=ZrUtils Other CA"))
        && makeServer(QStringLiteral("good"), QStringLiteral("/CN=127.0.0.1"), host, false)
        && makeServer(QStringLiteral("expired"), QStringLiteral("/CN=127.0.0.1"), host, true)
        && makeServer(QStringLiteral("other-host"), QStringLiteral("/CN=other.example"), other, false);
}

QString TestCertificates::caFile() const
{
    return path(QStringLiteral("ca.pem"));
}

QString TestCertificates::otherCaFile() const
{
    return path(QStringLiteral("other-ca.pem"));
}

TestCertificates::ServerFiles TestCertificates::good() const
{
    return {path(QStringLiteral("good.pem")), path(QStringLiteral("good.key"))};
}

TestCertificates::ServerFiles TestCertificates::expired() const
{
    return {path(QStringLiteral("expired.pem")), path(QStringLiteral("expired.key"))};
}

TestCertificates::ServerFiles TestCertificates::otherHost() const
{
    return {path(QStringLiteral("other-host.pem")), path(QStringLiteral("other-host.key"))};
}

QString TestCertificates::path(const QString& file) const
{
    return QDir(m_folder).filePath(file);
}

bool TestCertificates::run(const QStringList& arguments)
{
    QProcess openssl;
    openssl.setWorkingDirectory(m_folder);
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(QStringLiteral("openssl"), arguments);
    if (openssl.waitForFinished(60000) && openssl.exitStatus() == QProcess::NormalExit
        && openssl.exitCode() == 0)
        return true;
    m_error = QStringLiteral("openssl %1 failed: %2 %3")
                  .arg(arguments.join(QLatin1Char(' ')), openssl.errorString(),
                      QString::fromLocal8Bit(openssl.readAll()));
    return false;
}

bool TestCertificates::makeCa(const QString& name, const QString& subject)
{
    return run({QStringLiteral("req"), QStringLiteral("-config"), QStringLiteral("openssl.cnf"),
        QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
        QStringLiteral("-nodes"), QStringLiteral("-keyout"), name + QStringLiteral(".key"),
        QStringLiteral("-out"), name + QStringLiteral(".pem"), QStringLiteral("-subj"), subject,
        QStringLiteral("-days"), QStringLiteral("3"), QStringLiteral("-extensions"),
        QStringLiteral("ca_extensions")});
}

bool TestCertificates::makeServer(
    const QString& name, const QString& subject, const QString& subjectAltName, bool expired)
{
    const QString extensions = QStringLiteral("basicConstraints = CA:FALSE\n"
                                              "keyUsage = critical, digitalSignature, keyEncipherment\n"
                                              "extendedKeyUsage = serverAuth\n"
                                              "authorityKeyIdentifier = keyid\n")
        + subjectAltName;
    if (!writeFile(path(name + QStringLiteral(".ext")), extensions.toUtf8())) {
        m_error = QStringLiteral("cannot write into ") + m_folder;
        return false;
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QDateTime start = expired ? now.addDays(-10) : now.addSecs(-3600);
    const QDateTime end = expired ? now.addDays(-9) : now.addDays(2);
    return run({QStringLiteral("req"), QStringLiteral("-config"), QStringLiteral("openssl.cnf"),
               QStringLiteral("-new"), QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
               QStringLiteral("-nodes"), QStringLiteral("-keyout"), name + QStringLiteral(".key"),
               QStringLiteral("-out"), name + QStringLiteral(".csr"), QStringLiteral("-subj"), subject})
        && run({QStringLiteral("ca"), QStringLiteral("-batch"), QStringLiteral("-config"),
            QStringLiteral("openssl.cnf"), QStringLiteral("-cert"), QStringLiteral("ca.pem"),
            QStringLiteral("-keyfile"), QStringLiteral("ca.key"), QStringLiteral("-in"),
            name + QStringLiteral(".csr"), QStringLiteral("-out"), name + QStringLiteral(".pem"),
            QStringLiteral("-notext"), QStringLiteral("-startdate"), asn1Time(start),
            QStringLiteral("-enddate"), asn1Time(end), QStringLiteral("-extfile"),
            name + QStringLiteral(".ext")});
}

} // namespace ZrLoopback

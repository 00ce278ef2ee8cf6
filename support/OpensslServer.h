// "openssl s_server" on 127.0.0.1 for the TLS tests, with a certificate and key of
// the test's choosing, stopped when the object goes. Extra options choose what it
// does with a client: -HTTP serves files of the working folder, protocol options pin
// a TLS version, and without either it passes its standard input to the client.
#ifndef ZRUTILS_SUPPORT_OPENSSLSERVER_H
#define ZRUTILS_SUPPORT_OPENSSLSERVER_H

#include <QProcess>
#include <QStringList>
#include <QUrl>

namespace ZrLoopback
{

class OpensslServer
{
public:
    OpensslServer(const QString& certificate, const QString& key, const QStringList& options,
        const QString& workingFolder = QString());
    ~OpensslServer();

    OpensslServer(const OpensslServer&) = delete;
    OpensslServer& operator=(const OpensslServer&) = delete;

    // Waits (at most 10 s between outputs) until the server says "ACCEPT".
    bool waitUntilListening();

    quint16 port() const { return m_port; }
    QUrl url(const QString& path = QString()) const;
    // Its standard input goes to the client once a handshake completed.
    QProcess& process() { return m_process; }

private:
    quint16 m_port;
    QProcess m_process;
};

} // namespace ZrLoopback

#endif

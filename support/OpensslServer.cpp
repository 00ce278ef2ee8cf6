#include "OpensslServer.h"

#include "FreePort.h"

namespace ZrLoopback
{

OpensslServer::OpensslServer(
    const QString& certificate, const QString& key, const QStringList& options, const QString& workingFolder)
    : m_port(freePort())
{
    if (!workingFolder.isEmpty())
        m_process.setWorkingDirectory(workingFolder);
    m_process.setStandardErrorFile(QProcess::nullDevice());
    m_process.start(QStringLiteral("openssl"),
        QStringList {QStringLiteral("s_server"), QStringLiteral("-accept"),
            QStringLiteral("127.0.0.1:%1").arg(m_port), QStringLiteral("-cert"), certificate,
            QStringLiteral("-key"), key}
            + options);
}

OpensslServer::~OpensslServer()
{
    m_process.kill();
    m_process.waitForFinished();
}

bool OpensslServer::waitUntilListening()
{
    if (!m_process.waitForStarted())
        return false;
    QByteArray output;
    while (!output.contains("ACCEPT")) {
        if (!m_process.waitForReadyRead(10000))
            return false;
        output += m_process.readAllStandardOutput();
    }
    return true;
}

QUrl OpensslServer::url(const QString& path) const
{
    return QUrl(QStringLiteral("https://127.0.0.1:%1/%2").arg(m_port).arg(path));
}

} // namespace ZrLoopback

#include "NginxServer.h"
#include "FreePort.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QRandomGenerator>
#include <QTcpSocket>
#include <QThread>

#include <csignal>
#include <sys/prctl.h>

namespace ZrLoopback
{

namespace
{

const char NginxBinary[] = "/usr/sbin/nginx";

// Runs in the child between fork and exec.
void dieWithParent()
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
}

} // namespace

NginxProcess::NginxProcess()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    // Qt 6 has no virtual to override; it calls a function instead.
    setChildProcessModifier(dieWithParent);
#endif
}

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
void NginxProcess::setupChildProcess()
{
    dieWithParent();
}
#endif

NginxServer::NginxServer(const QString& rootDir)
    : m_root(QDir(rootDir).absolutePath())
{
}

NginxServer::~NginxServer()
{
    stop();
}

bool NginxServer::available()
{
    return QFileInfo(QString::fromLatin1(NginxBinary)).isExecutable();
}

QUrl NginxServer::url(const QString& path) const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path));
}

bool NginxServer::start(const QString& serverDirectives)
{
    // The free port is only probed, so another process may take it first: retry.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (startOnce(serverDirectives))
            return true;
        stop();
    }
    return false;
}

bool NginxServer::startOnce(const QString& serverDirectives)
{
    if (!available() || !m_scratch.isValid()) {
        m_error = QStringLiteral("nginx is not installed");
        return false;
    }
    m_port = freePort();
    const QString dir = m_scratch.path();
    QDir(dir).mkpath(QStringLiteral("tmp"));
    QString extra = serverDirectives;
    extra.replace(QStringLiteral("@ROOT@"), m_root)
        .replace(QStringLiteral("@PORT@"), QString::number(m_port));
    const QString config = QStringLiteral("daemon off;\n"
                                          "master_process off;\n"
                                          "worker_processes 1;\n"
                                          "pid %1/nginx.pid;\n"
                                          "error_log %1/error.log warn;\n"
                                          "events { worker_connections 16384; }\n"
                                          "http {\n"
                                          "  access_log off;\n"
                                          "  client_body_temp_path %1/tmp/body;\n"
                                          "  proxy_temp_path %1/tmp/proxy;\n"
                                          "  fastcgi_temp_path %1/tmp/fastcgi;\n"
                                          "  uwsgi_temp_path %1/tmp/uwsgi;\n"
                                          "  scgi_temp_path %1/tmp/scgi;\n"
                                          "  default_type application/octet-stream;\n"
                                          "  sendfile on;\n"
                                          "  keepalive_requests 100000;\n"
                                          "  server {\n"
                                          "    listen 127.0.0.1:%2 backlog=4096;\n"
                                          "    root %3;\n"
                                          "%4\n"
                                          "  }\n"
                                          "}\n")
                               .arg(dir)
                               .arg(m_port)
                               .arg(m_root, extra);
    QFile file(dir + QStringLiteral("/nginx.conf"));
    if (!file.open(QIODevice::WriteOnly) || file.write(config.toUtf8()) < 0) {
        m_error = QStringLiteral("cannot write the configuration");
        return false;
    }
    file.close();

    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(QString::fromLatin1(NginxBinary),
        {QStringLiteral("-p"), dir, QStringLiteral("-e"), dir + QStringLiteral("/error.log"),
            QStringLiteral("-c"), dir + QStringLiteral("/nginx.conf")});
    if (!m_process.waitForStarted(5000)) {
        m_error = m_process.errorString();
        return false;
    }
    QDeadlineTimer deadline(10000);
    while (!deadline.hasExpired()) {
        if (m_process.state() != QProcess::Running) {
            QFile log(dir + QStringLiteral("/error.log"));
            log.open(QIODevice::ReadOnly);
            m_error = QString::fromLocal8Bit(m_process.readAll() + log.readAll());
            return false;
        }
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, m_port);
        if (probe.waitForConnected(200)) {
            // Someone else may hold the port while our nginx retries its bind().
            QFile log(dir + QStringLiteral("/error.log"));
            log.open(QIODevice::ReadOnly);
            if (log.readAll().contains("bind()")) {
                m_error = QStringLiteral("port %1 is taken").arg(m_port);
                return false;
            }
            return true;
        }
        QThread::msleep(20);
    }
    m_error = QStringLiteral("nginx did not start listening");
    return false;
}

void NginxServer::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool writePatternFile(const QString& path, qint64 size, quint32 seed)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // A 1 MiB random block, each copy stamped with its index, so no two blocks match.
    QByteArray block(1 << 20, Qt::Uninitialized);
    QRandomGenerator(seed).fillRange(reinterpret_cast<quint32*>(block.data()), block.size() / 4);
    for (qint64 offset = 0, index = 0; offset < size; offset += block.size(), ++index) {
        memcpy(block.data(), &index, sizeof index);
        const qint64 length = qMin<qint64>(block.size(), size - offset);
        if (file.write(block.constData(), length) != length)
            return false;
    }
    return file.flush();
}

} // namespace ZrLoopback

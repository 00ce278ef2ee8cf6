// A real nginx on 127.0.0.1 for the tests and benchmarks, run from a scratch
// folder with a generated configuration, stopped when the object goes.
#ifndef ZRUTILS_SUPPORT_NGINXSERVER_H
#define ZRUTILS_SUPPORT_NGINXSERVER_H

#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>

namespace ZrLoopback
{

// A QProcess whose child dies with this process, so that a test killed on a
// time-out leaves no nginx behind.
class NginxProcess : public QProcess
{
public:
    NginxProcess();

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
protected:
    void setupChildProcess() override;
#endif
};

class NginxServer
{
public:
    // Files are served from rootDir; the configuration, logs and temporary files go
    // into a scratch folder of their own.
    explicit NginxServer(const QString& rootDir);
    ~NginxServer();

    NginxServer(const NginxServer&) = delete;
    NginxServer& operator=(const NginxServer&) = delete;

    static bool available();

    // Starts nginx with extra server-level directives, in which "@ROOT@" and
    // "@PORT@" stand for the served folder and the port. Waits (at most 10 s)
    // until it accepts connections. False, with errorString(), when it does not.
    bool start(const QString& serverDirectives = QString());
    void stop();

    quint16 port() const { return m_port; }
    QUrl url(const QString& path) const;
    QString root() const { return m_root; }
    QString errorString() const { return m_error; }

private:
    bool startOnce(const QString& serverDirectives);

    QString m_root;
    QTemporaryDir m_scratch;
    NginxProcess m_process;
    quint16 m_port = 0;
    QString m_error;
};

// Writes size bytes of a repeating pseudo-random pattern to path (fast for big files).
bool writePatternFile(const QString& path, qint64 size, quint32 seed = 1);

} // namespace ZrLoopback

#endif

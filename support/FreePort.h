// A port for a loopback server of the tests.
#ifndef ZRUTILS_SUPPORT_FREEPORT_H
#define ZRUTILS_SUPPORT_FREEPORT_H

#include <QHostAddress>
#include <QTcpServer>

namespace ZrLoopback
{

// A port on 127.0.0.1 that nobody listens on at the time of the call; 0 when none.
inline quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

} // namespace ZrLoopback

#endif

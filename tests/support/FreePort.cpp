#include "support/FreePort.h"

#include <QByteArray>
#include <QTcpServer>

quint16 setFreePort(const char *variable)
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    const quint16 port = probe.serverPort();
    probe.close();
    qputenv(variable, QByteArray::number(port));
    return port;
}

#include "LoopbackPeer.h"

#include <QHostAddress>
#include <QTcpSocket>

LoopbackPeer::LoopbackPeer(QObject *parent) : QObject(parent)
{
    connect(&_server, &QTcpServer::newConnection, this, &LoopbackPeer::acceptClients);
}

LoopbackPeer::~LoopbackPeer()
{
    stop();
}

bool LoopbackPeer::start(quint16 port)
{
    if (!_server.listen(QHostAddress::LocalHost, port ? port : _port))
        return false;
    _port = _server.serverPort();
    return true;
}

void LoopbackPeer::stop()
{
    _server.close();
    while (!_clients.isEmpty())
        dropClient(_clients.first());
}

void LoopbackPeer::dropClient(QTcpSocket *client)
{
    if (!_clients.contains(client))
        return;
    client->disconnect(this);
    client->abort();
    forget(client);
}

void LoopbackPeer::clientGone(QTcpSocket *)
{
}

void LoopbackPeer::acceptClients()
{
    while (QTcpSocket *client = _server.nextPendingConnection()) {
        _clients.append(client);
        connect(client, &QTcpSocket::disconnected, this, [this, client] { forget(client); });
        clientAccepted(client);
        emit clientConnected();
    }
}

void LoopbackPeer::forget(QTcpSocket *client)
{
    _clients.removeOne(client);
    client->deleteLater();
    clientGone(client);
}

#include "FakeButtonDriver.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <QtEndian>

FakeButtonDriver::FakeButtonDriver(QObject *parent) : QObject(parent)
{
    connect(&_server, &QTcpServer::newConnection, this, &FakeButtonDriver::acceptClients);
}

FakeButtonDriver::~FakeButtonDriver()
{
    stop();
}

bool FakeButtonDriver::start(quint16 port)
{
    if (!_server.listen(QHostAddress::LocalHost, port ? port : _port))
        return false;
    _port = _server.serverPort();
    return true;
}

void FakeButtonDriver::stop()
{
    _server.close();
    const QList<QTcpSocket *> clients = _clients.keys();
    _clients.clear();
    for (QTcpSocket *client : clients) {
        client->disconnect(this);
        client->abort();
        client->deleteLater();
    }
}

QList<QByteArray> FakeButtonDriver::messages(int from) const
{
    QList<QByteArray> result;
    for (int i = qMax(0, from); i < _received.size(); ++i)
        result.append(_received.at(i).message);
    return result;
}

void FakeButtonDriver::clearLog()
{
    _received.clear();
}

void FakeButtonDriver::acceptClients()
{
    while (QTcpSocket *client = _server.nextPendingConnection()) {
        _clients.insert(client, QByteArray());
        connect(client, &QTcpSocket::readyRead, this, [this, client] { readClient(client); });
        connect(client, &QTcpSocket::disconnected, this, [this, client] {
            _clients.remove(client);
            client->deleteLater();
        });
        readClient(client);
    }
}

void FakeButtonDriver::readClient(QTcpSocket *client)
{
    if (!_clients.contains(client))
        return;
    _clients[client].append(client->readAll());
    // Looked up again each round: a slot of messageReceived may stop the driver.
    while (_clients.contains(client) && _clients.value(client).size() >= 4) {
        QByteArray &buffer = _clients[client];
        const quint32 length = qFromBigEndian<quint32>(buffer.constData());
        if (length > MaxMessageSize) {
            ++_malformed;
            _clients.remove(client);
            client->disconnect(this);
            client->abort();
            client->deleteLater();
            return;
        }
        if (quint32(buffer.size()) < 4 + length)
            return;
        Received message;
        message.message = buffer.mid(4, int(length));
        buffer.remove(0, int(4 + length));
        message.decoded = buttondriver::decodeCommand(message.message, &message.command);
        if (message.decoded)
            _panel.apply(message.command);
        else
            ++_malformed;
        _received.append(message);
        emit messageReceived(message);
    }
}

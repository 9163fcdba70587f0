#include "FakeCollector.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <QtEndian>

#include <utility>

FakeCollector::FakeCollector(QObject *parent) : QObject(parent)
{
    connect(&_server, &QTcpServer::newConnection, this, &FakeCollector::acceptClients);
}

FakeCollector::~FakeCollector()
{
    stop();
}

bool FakeCollector::start(quint16 port)
{
    if (!_server.listen(QHostAddress::LocalHost, port ? port : _port))
        return false;
    _port = _server.serverPort();
    return true;
}

void FakeCollector::stop()
{
    _server.close();
    const QList<QTcpSocket *> clients = _clients;
    _clients.clear();
    for (QTcpSocket *client : clients) {
        client->disconnect(this);
        client->abort();
        client->deleteLater();
    }
}

QByteArray FakeCollector::frame(const collector::CollectorMsg &msg)
{
    char *record = nullptr;
    int length = 0;
    msg.pack(&record, &length);
    QByteArray bytes(4, '\0');
    qToBigEndian<quint32>(quint32(length), bytes.data());
    bytes.append(record, length);
    delete[] record;
    return bytes;
}

void FakeCollector::send(const collector::CollectorMsg &msg)
{
    sendRaw(frame(msg));
}

void FakeCollector::sendRaw(const QByteArray &bytes)
{
    for (QTcpSocket *client : std::as_const(_clients)) {
        client->write(bytes);
        client->flush();
    }
}

void FakeCollector::acceptClients()
{
    while (QTcpSocket *client = _server.nextPendingConnection()) {
        _clients.append(client);
        connect(client, &QTcpSocket::disconnected, this, [this, client] {
            _clients.removeOne(client);
            client->deleteLater();
        });
        // The program never writes to the collector; drop anything it sends.
        connect(client, &QTcpSocket::readyRead, client, [client] { client->readAll(); });
        emit clientConnected();
    }
}

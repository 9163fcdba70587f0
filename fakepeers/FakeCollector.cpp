#include "FakeCollector.h"

#include <QTcpSocket>
#include <QtEndian>

FakeCollector::FakeCollector(QObject *parent) : LoopbackPeer(parent)
{
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
    for (QTcpSocket *client : clients()) {
        client->write(bytes);
        client->flush();
    }
}

void FakeCollector::clientAccepted(QTcpSocket *client)
{
    // The program never writes to the collector; drop anything it sends.
    connect(client, &QTcpSocket::readyRead, client, [client] { client->readAll(); });
}

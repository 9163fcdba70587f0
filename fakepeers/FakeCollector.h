#ifndef FAKECOLLECTOR_H
#define FAKECOLLECTOR_H

#include "qcollector/CollectorMsg.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QTcpServer>

class QTcpSocket;

// Stands in for the collector: listens on 127.0.0.1 and sends event frames
// (a big-endian length word of 16, then the record) to every connected client.
class FakeCollector : public QObject
{
    Q_OBJECT

public:
    explicit FakeCollector(QObject *parent = nullptr);
    ~FakeCollector() override;

    // Listens on port (0: a free port on the first start, the same port on a
    // restart). False when the port cannot be bound.
    bool start(quint16 port = 0);
    // Closes the listener and every connection; the port is kept for start().
    void stop();
    bool isListening() const { return _server.isListening(); }
    quint16 port() const { return _port; }
    int clientCount() const { return _clients.size(); }

    // The 20-byte frame of one record.
    static QByteArray frame(const collector::CollectorMsg &msg);

    void send(const collector::CollectorMsg &msg);
    void sendKey(qint32 id, qint32 value) { send(collector::CollectorMsg::key(id, value)); }
    void sendShaft(qint32 id, qint32 delta) { send(collector::CollectorMsg::shaft(id, delta)); }
    void sendGpi(qint32 id, qint32 value) { send(collector::CollectorMsg::gpi(id, value)); }
    // Bytes as they stand, for broken and split frames.
    void sendRaw(const QByteArray &bytes);

signals:
    void clientConnected();

private:
    void acceptClients();

    QTcpServer _server;
    QList<QTcpSocket *> _clients;
    quint16 _port = 0;
};

#endif // FAKECOLLECTOR_H

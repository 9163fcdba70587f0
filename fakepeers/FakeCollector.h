#ifndef FAKECOLLECTOR_H
#define FAKECOLLECTOR_H

#include "LoopbackPeer.h"
#include "qcollector/CollectorMsg.h"

#include <QByteArray>

// Stands in for the collector: sends event frames (a big-endian length word
// of 16, then the record) to every connected client.
class FakeCollector : public LoopbackPeer
{
    Q_OBJECT

public:
    explicit FakeCollector(QObject *parent = nullptr);

    // The 20-byte frame of one record.
    static QByteArray frame(const collector::CollectorMsg &msg);

    void send(const collector::CollectorMsg &msg);
    void sendKey(qint32 id, qint32 value) { send(collector::CollectorMsg::key(id, value)); }
    void sendShaft(qint32 id, qint32 delta) { send(collector::CollectorMsg::shaft(id, delta)); }
    void sendGpi(qint32 id, qint32 value) { send(collector::CollectorMsg::gpi(id, value)); }
    // Bytes as they stand, for broken and split frames.
    void sendRaw(const QByteArray &bytes);

protected:
    void clientAccepted(QTcpSocket *client) override;
};

#endif // FAKECOLLECTOR_H

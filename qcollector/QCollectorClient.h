#ifndef QCOLLECTORCLIENT_H
#define QCOLLECTORCLIENT_H

#include "CollectorMsg.h"

#include <QObject>

class QTcpSocket;
class QTimer;

namespace collector {

// The one connection to the collector. While the collector is away it retries
// every 2000 ms; each 20-byte frame (length word 16, then a record) becomes one
// new_msg.
class QCollectorClient : public QObject
{
    Q_OBJECT

public:
    static constexpr int ReconnectInterval = 2000;
    static constexpr int FrameSize = 4 + CollectorMsg::WireSize;

    explicit QCollectorClient(QObject *parent = nullptr);

Q_SIGNALS:
    void new_msg(const collector::CollectorMsg &msg);

public Q_SLOTS:
    void data();
    void connected();
    void disconnected();
    void tryConnect();

private:
    QTcpSocket *_socket; // child: closed when the client goes
    QTimer *_timer;      // reconnect timer, runs while not connected
};

} // namespace collector

#endif // QCOLLECTORCLIENT_H

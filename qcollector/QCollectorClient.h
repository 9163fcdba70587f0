#ifndef QCOLLECTORCLIENT_H
#define QCOLLECTORCLIENT_H

#include "qcollector/CollectorMsg.h"

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
    // What the socket reads ahead of the frames handled: about 200 frames.
    // The kernel's buffer holds the rest, so a flooding collector is slowed
    // down by TCP instead of growing the daemon.
    static constexpr qint64 ReadBufferSize = 4096;

    explicit QCollectorClient(QObject *parent = nullptr);

Q_SIGNALS:
    void new_msg(const collector::CollectorMsg &msg);

public Q_SLOTS:
    void data();
    void connected();
    void disconnected();
    void tryConnect();

private:
    void skipReceived(qint64 length);
    void resumeReading();

    QTcpSocket *_socket; // child: closed when the client goes
    QTimer *_timer;      // reconnect timer, runs while not connected
};

} // namespace collector

#endif // QCOLLECTORCLIENT_H

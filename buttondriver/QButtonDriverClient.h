#ifndef QBUTTONDRIVERCLIENT_H
#define QBUTTONDRIVERCLIENT_H

#include <QByteArray>
#include <QObject>

#include <vector>

class QTcpSocket;

namespace buttondriver {

// Batches are known to the meta-object system as "vector<QByteArray>".
using std::vector;

// The write-only connection to the button driver. Each command goes out at once
// as one frame: a big-endian length word, then the command. There is no queue:
// while the driver is away a send blocks up to 1000 ms and is then dropped, and
// while it does not read, a drawing that finds more than WriteBacklog bytes
// still waiting is dropped whole.
class QButtonDriverClient : public QObject
{
    Q_OBJECT

public:
    static constexpr int SendConnectTimeout = 1000;
    // Unsent bytes past which drawings are dropped: some 60 full redraws of
    // the panel (a main menu is about 1 KiB), far more than a driver that
    // reads at all ever leaves behind.
    static constexpr qint64 WriteBacklog = qint64(64) * 1024;
    // The driver never sends anything that the program reads; what it sends
    // all the same waits in the kernel's buffer beyond these few bytes.
    static constexpr qint64 ReadBufferSize = 4096;

    explicit QButtonDriverClient(QObject *parent = nullptr);

    // True when connected; otherwise starts a connection if none is under way
    // and waits up to msecs for it.
    bool connectToDriver(int msecs);
    // Like connectToDriver, but keeps trying (every 200 ms) until msecs ran out.
    bool waitConnected(int msecs);

public Q_SLOTS:
    // True when the command was written, false when it was dropped.
    bool msg(const QByteArray &message);
    // All frames back to back in vector order; all or nothing.
    bool msg(const vector<QByteArray> &messages);
    void connected();

private:
    void startConnecting();
    bool readyToSend();
    bool send(const QByteArray &frames);

    QTcpSocket *_socket; // child: closed when the client goes
    // The frames of one send. Kept between sends so that its storage is
    // reused; the socket copies what the kernel does not take at once.
    QByteArray _frames;
    // Drawings are being dropped for want of a reading driver; logged once.
    bool _dropping = false;
};

} // namespace buttondriver

#endif // QBUTTONDRIVERCLIENT_H

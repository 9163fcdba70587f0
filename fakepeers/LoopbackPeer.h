#ifndef LOOPBACKPEER_H
#define LOOPBACKPEER_H

#include <QList>
#include <QObject>
#include <QTcpServer>

class QTcpSocket;

// A TCP listener on 127.0.0.1 that keeps its port across stop() and start(),
// the common ground of the fake collector and the fake button driver.
class LoopbackPeer : public QObject
{
    Q_OBJECT

public:
    ~LoopbackPeer() override;

    // Listens on port (0: a free port on the first start, the same port on a
    // restart). False when the port cannot be bound.
    bool start(quint16 port = 0);
    // Closes the listener and every connection; the port is kept for start().
    void stop();
    bool isListening() const { return _server.isListening(); }
    quint16 port() const { return _port; }
    int clientCount() const { return int(_clients.size()); }
    // The accepted connections; a test that plays a hostile peer writes to them directly.
    const QList<QTcpSocket *> &clients() const { return _clients; }

signals:
    void clientConnected();

protected:
    explicit LoopbackPeer(QObject *parent);

    // Aborts one connection and forgets it.
    void dropClient(QTcpSocket *client);

    // A connection was accepted; it is in clients() already.
    virtual void clientAccepted(QTcpSocket *client) = 0;
    // A connection went, closed by either side; it is no longer in clients().
    // Derived destructors call stop() so that this reaches them.
    // cppcheck-suppress virtualCallInConstructor ; the base destructor's stop() is only a last tidy-up
    virtual void clientGone(QTcpSocket *client);

private:
    void acceptClients();
    void forget(QTcpSocket *client);

    QTcpServer _server;
    QList<QTcpSocket *> _clients;
    quint16 _port = 0;
};

#endif // LOOPBACKPEER_H

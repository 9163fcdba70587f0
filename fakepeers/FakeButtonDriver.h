#ifndef FAKEBUTTONDRIVER_H
#define FAKEBUTTONDRIVER_H

#include "PanelModel.h"
#include "buttondriver/KVB_Messages.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QTcpServer>

class QTcpSocket;

// Stands in for the button driver: listens on 127.0.0.1, cuts the stream into
// length-prefixed messages, decodes each one and feeds the panel model.
class FakeButtonDriver : public QObject
{
    Q_OBJECT

public:
    // A frame longer than this cannot be a command: the stream is given up.
    static constexpr quint32 MaxMessageSize = 64 * 1024;

    struct Received
    {
        QByteArray message;                   // as framed, without the length word
        bool decoded = false;                 // false: unknown code or wrong size
        buttondriver::DecodedCommand command; // valid when decoded
    };

    explicit FakeButtonDriver(QObject *parent = nullptr);
    ~FakeButtonDriver() override;

    // Listens on port (0: a free port on the first start, the same port on a
    // restart). False when the port cannot be bound.
    bool start(quint16 port = 0);
    // Closes the listener and every connection; the port is kept for start().
    void stop();
    bool isListening() const { return _server.isListening(); }
    quint16 port() const { return _port; }
    int clientCount() const { return _clients.size(); }

    const PanelModel &panel() const { return _panel; }
    // Every message received, in order.
    const QList<Received> &received() const { return _received; }
    // The raw messages from index `from` on.
    QList<QByteArray> messages(int from = 0) const;
    int messageCount() const { return _received.size(); }
    // Messages that did not decode, plus streams given up for a hostile length.
    int malformedCount() const { return _malformed; }
    // Forgets the messages (the panel model stays).
    void clearLog();

signals:
    void messageReceived(const FakeButtonDriver::Received &message);

private:
    void acceptClients();
    void readClient(QTcpSocket *client);

    QTcpServer _server;
    QHash<QTcpSocket *, QByteArray> _clients; // pending bytes per connection
    quint16 _port = 0;
    PanelModel _panel;
    QList<Received> _received;
    int _malformed = 0;
};

#endif // FAKEBUTTONDRIVER_H

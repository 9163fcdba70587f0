#ifndef FAKEBUTTONDRIVER_H
#define FAKEBUTTONDRIVER_H

#include "LoopbackPeer.h"
#include "PanelModel.h"
#include "buttondriver/KVB_Messages.h"

#include <QByteArray>
#include <QHash>
#include <QList>

// Stands in for the button driver: cuts the stream of each connection into
// length-prefixed messages, decodes each one and feeds the panel model.
class FakeButtonDriver : public LoopbackPeer
{
    Q_OBJECT

public:
    // A frame longer than this cannot be a command: the stream is given up.
    static constexpr quint32 MaxMessageSize = 64 * 1024;

    struct Received
    {
        QByteArray message;                   // as framed, without the length word
        bool decoded = false;                 // false: unknown code or wrong size
        bool applied = false;                 // false: the panel model refused it
        buttondriver::DecodedCommand command; // valid when decoded
    };

    explicit FakeButtonDriver(QObject *parent = nullptr);
    ~FakeButtonDriver() override;

    const PanelModel &panel() const { return _panel; }
    // Every message received, in order.
    const QList<Received> &received() const { return _received; }
    // The raw messages from index `from` on.
    QList<QByteArray> messages(int from = 0) const;
    int messageCount() const { return int(_received.size()); }
    // Messages that did not decode, plus streams given up for a hostile length.
    int malformedCount() const { return _malformed; }
    // Forgets the messages (the panel model stays).
    void clearLog();

    // On each level update (code 10) the model takes the TFT and key-light
    // levels from the button-level file, as the driver does. The file is the
    // one under PANEL_SETUP_ROOT; without a root nothing is read, so the
    // host's file is never touched.
    void setReadsLevelFile(bool reads) { _readsLevelFile = reads; }
    // A driver that hangs: while false, nothing more is read from the clients,
    // so what they send piles up in the kernel's buffers; true reads on.
    void setReading(bool reading);
    // Reads the levels now (same rule), for the panel's state before any update.
    void readLevelFile();

signals:
    void messageReceived(const FakeButtonDriver::Received &message);
    // A connection was dropped for a length word no command can have.
    void frameRefused(quint32 length);

protected:
    void clientAccepted(QTcpSocket *client) override;
    void clientGone(QTcpSocket *client) override;

private:
    void readClient(QTcpSocket *client);

    QHash<QTcpSocket *, QByteArray> _pending; // bytes of an unfinished frame, per connection
    PanelModel _panel;
    QList<Received> _received;
    int _malformed = 0;
    bool _readsLevelFile = false;
    bool _reading = true;
};

#endif // FAKEBUTTONDRIVER_H

#include "FakeButtonDriver.h"

#include "pages/ButtonLevelFile.h"
#include "base/RuntimeEnv.h"

#include <QTcpSocket>
#include <QtEndian>

FakeButtonDriver::FakeButtonDriver(QObject *parent) : LoopbackPeer(parent)
{
}

FakeButtonDriver::~FakeButtonDriver()
{
    stop(); // while clientGone() still reaches this class
}

QList<QByteArray> FakeButtonDriver::messages(int from) const
{
    QList<QByteArray> result;
    for (int i = qMax(0, from); i < _received.size(); ++i)
        result.append(_received.at(i).message);
    return result;
}

void FakeButtonDriver::clearLog()
{
    _received.clear();
}

void FakeButtonDriver::clientAccepted(QTcpSocket *client)
{
    _pending.insert(client, QByteArray());
    connect(client, &QTcpSocket::readyRead, this, [this, client] { readClient(client); });
    readClient(client);
}

void FakeButtonDriver::clientGone(QTcpSocket *client)
{
    _pending.remove(client);
}

void FakeButtonDriver::setReading(bool reading)
{
    _reading = reading;
    for (QTcpSocket *client : clients()) {
        // One byte read ahead at most: the socket then stops reading.
        client->setReadBufferSize(reading ? 0 : 1);
        if (reading)
            readClient(client);
    }
}

void FakeButtonDriver::readClient(QTcpSocket *client)
{
    if (!_reading || !_pending.contains(client))
        return;
    _pending[client].append(client->readAll());
    // Looked up again each round: a slot of messageReceived may stop the driver.
    while (_pending.contains(client) && _pending.value(client).size() >= 4) {
        QByteArray &buffer = _pending[client];
        const quint32 length = qFromBigEndian<quint32>(buffer.constData());
        if (length > MaxMessageSize) {
            ++_malformed;
            dropClient(client);
            emit frameRefused(length);
            return;
        }
        if (quint32(buffer.size()) < 4 + length)
            return;
        Received message;
        message.message = buffer.mid(4, int(length));
        buffer.remove(0, int(4 + length));
        message.decoded = buttondriver::decodeCommand(message.message, &message.command);
        if (message.decoded)
            message.applied = _panel.apply(message.command);
        else
            ++_malformed;
        if (message.applied && message.command.code == buttondriver::KVB_CODE_CMD10 && _readsLevelFile)
            readLevelFile();
        _received.append(message);
        emit messageReceived(message);
    }
}

void FakeButtonDriver::readLevelFile()
{
    if (runtimeenv::root().isEmpty())
        return;
    std::vector<QString> values(2); // lcd (key lights), scr (TFT)
    if (!readButtonlevelFile(values))
        return;
    bool tftOk = false;
    bool keysOk = false;
    const int tft = values[1].toInt(&tftOk);
    const int keys = values[0].toInt(&keysOk);
    _panel.setLevels(tftOk ? tft : -1, keysOk ? keys : -1);
}

#include "qcollector/QCollectorClient.h"

#include "base/RuntimeEnv.h"
#include "base/TrustChecks.h"

#include <QDebug>
#include <QHostAddress>
#include <QTcpSocket>
#include <QTimer>
#include <QtEndian>

#include <cerrno>
#include <sys/socket.h>

namespace collector {

QCollectorClient::QCollectorClient(QObject *parent)
    : QObject(parent), _socket(new QTcpSocket(this)), _timer(new QTimer(this))
{
    qRegisterMetaType<collector::CollectorMsg>();
    _socket->setReadBufferSize(ReadBufferSize);
    connect(_socket, &QTcpSocket::readyRead, this, &QCollectorClient::data);
    connect(_socket, &QTcpSocket::connected, this, &QCollectorClient::connected);
    connect(_socket, &QTcpSocket::disconnected, this, &QCollectorClient::disconnected);
    connect(_timer, &QTimer::timeout, this, &QCollectorClient::tryConnect);
    _timer->setInterval(ReconnectInterval);
    _timer->setTimerType(Qt::PreciseTimer);
    tryConnect();
    _timer->start();
}

void QCollectorClient::data()
{
    while (_socket->bytesAvailable() >= FrameSize) {
        char word[4];
        _socket->read(word, sizeof word);
        const quint32 length = qFromBigEndian<quint32>(word);
        if (length != quint32(CollectorMsg::WireSize)) {
            skipReceived(length);
            // The collector only sends 16-byte records, so no attempt is made to resynchronise.
            qCritical() << "wrong collector message size" << length
                        << "../qcollector/QCollectorClient" << 50;
            resumeReading();
            return;
        }
        // A whole frame is buffered, so the record is all there.
        char record[CollectorMsg::WireSize];
        _socket->read(record, sizeof record);
        CollectorMsg msg;
        msg.unpack(record, sizeof record);
        emit new_msg(msg);
    }
    resumeReading();
}

// Swallows what has been received, up to `length` bytes: first what the
// socket has read ahead, then what waits in the kernel's buffer, through a
// small buffer of its own. The length word is never trusted with an allocation.
void QCollectorClient::skipReceived(qint64 length)
{
    qint64 left = length - qMax<qint64>(0, _socket->skip(length));
    char sink[4096];
    while (left > 0) {
        const ssize_t n = ::recv(int(_socket->socketDescriptor()), sink, size_t(qMin<qint64>(left, sizeof sink)),
                                 MSG_DONTWAIT);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        left -= n;
    }
}

// A full read buffer stops the socket's reading (also while a handler of
// new_msg runs the event loop), and taking frames out of it does not resume
// that: only a change of the limit does. Without a change of state the two
// calls cost nothing.
void QCollectorClient::resumeReading()
{
    _socket->setReadBufferSize(0);
    _socket->setReadBufferSize(ReadBufferSize);
}

void QCollectorClient::connected()
{
    // An untrusted collector is dropped; the timer tries again.
    if (trustchecks::acceptPeer(_socket, "collector"))
        _timer->stop();
}

void QCollectorClient::disconnected()
{
    _timer->start();
}

void QCollectorClient::tryConnect()
{
    if (_socket->state() == QAbstractSocket::ConnectedState) {
        _timer->stop();
        return;
    }
    if (_socket->state() != QAbstractSocket::ConnectingState)
        _socket->connectToHost(QHostAddress(QHostAddress::LocalHost), runtimeenv::collectorPort(),
                               QIODevice::ReadWrite);
}

} // namespace collector

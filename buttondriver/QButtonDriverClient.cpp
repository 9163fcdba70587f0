#include "buttondriver/QButtonDriverClient.h"

#include "base/RuntimeEnv.h"
#include "base/TrustChecks.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QMetaType>
#include <QTcpSocket>
#include <QThread>
#include <QtEndian>

#include <sys/socket.h>

namespace buttondriver {

namespace {

void appendFrame(QByteArray *frames, const QByteArray &message)
{
    char length[4];
    qToBigEndian<quint32>(quint32(message.size()), length);
    frames->append(length, sizeof length);
    frames->append(message);
}

} // namespace

QButtonDriverClient::QButtonDriverClient(QObject *parent)
    : QObject(parent), _socket(new QTcpSocket(this))
{
    qRegisterMetaType<std::vector<QByteArray>>("vector<QByteArray>");
    _socket->setReadBufferSize(ReadBufferSize);
    connect(_socket, &QTcpSocket::connected, this, &QButtonDriverClient::connected);
    // Commands are small and each should be drawn at once, not held back by Nagle.
    connect(_socket, &QTcpSocket::connected, _socket,
            [this] { _socket->setSocketOption(QAbstractSocket::LowDelayOption, 1); });
    startConnecting();
}

bool QButtonDriverClient::connectToDriver(int msecs)
{
    if (_socket->state() == QAbstractSocket::ConnectedState)
        return true;
    if (_socket->state() == QAbstractSocket::UnconnectedState)
        startConnecting();
    if (_socket->state() != QAbstractSocket::ConnectedState)
        _socket->waitForConnected(msecs);
    return _socket->state() == QAbstractSocket::ConnectedState;
}

bool QButtonDriverClient::waitConnected(int msecs)
{
    if (_socket->state() == QAbstractSocket::UnconnectedState)
        startConnecting();
    QElapsedTimer elapsed;
    elapsed.start();
    int remaining = msecs;
    while (remaining >= 1) {
        // A refused connection ends at once; only a fresh attempt can still succeed.
        if (_socket->state() == QAbstractSocket::UnconnectedState)
            startConnecting();
        if (_socket->state() == QAbstractSocket::ConnectedState)
            return true;
        if (_socket->waitForConnected(remaining))
            return true;
        QThread::msleep(200);
        remaining = msecs - int(elapsed.elapsed());
    }
    return false;
}

bool QButtonDriverClient::msg(const QByteArray &message)
{
    if (!readyToSend())
        return false;
    _frames.resize(0);
    appendFrame(&_frames, message);
    return send(_frames);
}

bool QButtonDriverClient::msg(const vector<QByteArray> &messages)
{
    if (!readyToSend())
        return false;
    _frames.resize(0);
    for (const QByteArray &message : messages)
        appendFrame(&_frames, message);
    return _frames.isEmpty() || send(_frames);
}

void QButtonDriverClient::connected()
{
    trustchecks::acceptPeer(_socket, "button driver");
}

void QButtonDriverClient::startConnecting()
{
    _socket->connectToHost(QHostAddress(QHostAddress::LocalHost), runtimeenv::driverPort(),
                           QIODevice::ReadWrite);
}

// Connects on demand. The socket's own wait gives up at once on a refused
// connection, so the persistent wait is what bounds a send to about a second.
bool QButtonDriverClient::readyToSend()
{
    if (_socket->state() == QAbstractSocket::UnconnectedState)
        startConnecting();
    if (_socket->state() != QAbstractSocket::ConnectedState)
        waitConnected(SendConnectTimeout);
    return _socket->state() == QAbstractSocket::ConnectedState;
}

// One write per call, pushed out before control returns to the caller, which
// may block next (script hooks, reboot). While nothing waits in the socket's
// own buffer the frames go straight to the kernel: through that buffer, the
// socket would switch its write notifier on and off for each frame, and each
// switch wakes the event loop. What the kernel does not take (or a failed
// connection) is left to the socket, unless the backlog is already full: then
// the whole drawing is dropped, so the stream never holds part of one.
bool QButtonDriverClient::send(const QByteArray &frames)
{
    const qint64 waiting = _socket->bytesToWrite();
    if (waiting > 0 && waiting + frames.size() > WriteBacklog) {
        if (!_dropping)
            qDebug() << "QButtonDriverClient: the button driver does not read, drawings are dropped";
        _dropping = true;
        return false;
    }
    qint64 sent = 0;
    if (waiting == 0) {
        // A stall lasts until the backlog has drained: the kernel taking a few
        // more bytes from a driver that still does not read starts no new one.
        _dropping = false;
        sent = ::send(int(_socket->socketDescriptor()), frames.constData(), size_t(frames.size()),
                      MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0)
            sent = 0;
    }
    if (sent < frames.size()) {
        _socket->write(frames.constData() + sent, frames.size() - sent);
        _socket->flush();
    }
    return true;
}

} // namespace buttondriver

#include "QButtonDriverClient.h"

#include "panel/RuntimeEnv.h"

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
    send(_frames);
    return true;
}

bool QButtonDriverClient::msg(const vector<QByteArray> &messages)
{
    if (!readyToSend())
        return false;
    _frames.resize(0);
    for (const QByteArray &message : messages)
        appendFrame(&_frames, message);
    if (!_frames.isEmpty())
        send(_frames);
    return true;
}

void QButtonDriverClient::connected()
{
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
// connection) is left to the socket.
void QButtonDriverClient::send(const QByteArray &frames)
{
    qint64 sent = 0;
    if (_socket->bytesToWrite() == 0) {
        sent = ::send(int(_socket->socketDescriptor()), frames.constData(), size_t(frames.size()),
                      MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0)
            sent = 0;
    }
    if (sent < frames.size()) {
        _socket->write(frames.constData() + sent, frames.size() - sent);
        _socket->flush();
    }
}

} // namespace buttondriver

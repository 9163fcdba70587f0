#include "QCollectorClient.h"

#include "panel/RuntimeEnv.h"

#include <QDebug>
#include <QHostAddress>
#include <QTcpSocket>
#include <QTimer>
#include <QtEndian>

namespace collector {

QCollectorClient::QCollectorClient(QObject *parent)
    : QObject(parent), _socket(new QTcpSocket(this)), _timer(new QTimer(this))
{
    qRegisterMetaType<collector::CollectorMsg>();
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
            // The length word is not trusted with an allocation: only what is there is consumed.
            _socket->skip(qMin<qint64>(length, _socket->bytesAvailable()));
            // The collector only sends 16-byte records, so no attempt is made to resynchronise.
            qCritical() << "wrong collector message size" << length
                        << "../qcollector/QCollectorClient" << 50;
            return;
        }
        // A whole frame is buffered, so the record is all there.
        char record[CollectorMsg::WireSize];
        _socket->read(record, sizeof record);
        CollectorMsg msg;
        msg.unpack(record, sizeof record);
        emit new_msg(msg);
    }
}

void QCollectorClient::connected()
{
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

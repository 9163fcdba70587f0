#include "qcollector/QCollectorClient.h"
#include "support/FreePort.h"
#include "support/MetaTypes.h"

#include <QtTest>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

using collector::CollectorMsg;
using collector::QCollectorClient;

namespace {

QByteArray frame(quint32 length, quint32 type, qint32 id, qint32 value, qint32 delta)
{
    QByteArray bytes(20, '\0');
    qToBigEndian<quint32>(length, bytes.data());
    qToBigEndian<quint32>(type, bytes.data() + 4);
    qToBigEndian<qint32>(id, bytes.data() + 8);
    qToBigEndian<qint32>(value, bytes.data() + 12);
    qToBigEndian<qint32>(delta, bytes.data() + 16);
    return bytes;
}

QByteArray keyFrame(qint32 id, qint32 value)
{
    return frame(16, collector::MSG_KEY, id, value, 0);
}

// Peak virtual size of this process in kB (a large allocation raises it for good).
qint64 peakVirtualKb()
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmPeak:"))
            return line.mid(7).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

} // namespace

class TestCollectorClient : public QObject
{
    Q_OBJECT

private:
    // Starts the collector's side, then the client, and waits until they are connected.
    void connectClient()
    {
        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        startClient();
        QTRY_VERIFY(_server.hasPendingConnections());
        _peer = _server.nextPendingConnection();
        QTRY_COMPARE(_socket->state(), QAbstractSocket::ConnectedState);
    }

    void startClient()
    {
        _client.reset(new QCollectorClient);
        _msgs.reset(new QSignalSpy(_client.get(), &QCollectorClient::new_msg));
        _socket = _client->findChild<QTcpSocket *>();
        _timer = _client->findChild<QTimer *>();
        QVERIFY(_socket);
        QVERIFY(_timer);
    }

    void send(const QByteArray &bytes)
    {
        _peer->write(bytes);
        _peer->flush();
    }

    CollectorMsg received(int i) const { return _msgs->at(i).at(0).value<CollectorMsg>(); }

    quint16 _port = 0;
    QTcpServer _server;
    QTcpSocket *_peer = nullptr;
    std::unique_ptr<QCollectorClient> _client;
    std::unique_ptr<QSignalSpy> _msgs;
    QTcpSocket *_socket = nullptr;
    QTimer *_timer = nullptr;

private Q_SLOTS:
    void initTestCase()
    {
        _port = setFreePort("PANEL_SETUP_COLLECTOR_PORT");
        QVERIFY(_port != 0);
    }

    void cleanup()
    {
        _msgs.reset();
        _client.reset();
        delete _peer;
        _peer = nullptr;
        _server.close();
    }

    void metaObject()
    {
        const QMetaObject &mo = QCollectorClient::staticMetaObject;
        QStringList methods;
        for (int i = mo.methodOffset(); i < mo.methodCount(); ++i)
            methods << QString::fromLatin1(mo.method(i).methodSignature());
        QCOMPARE(methods, QStringList({"new_msg(collector::CollectorMsg)", "data()", "connected()",
                                       "disconnected()", "tryConnect()"}));
        QCOMPARE(mo.method(mo.methodOffset()).methodType(), QMetaMethod::Signal);
    }

    void registersRecordType()
    {
        // Runs before anything else here has used the type.
        QVERIFY(!typeKnownByName("collector::CollectorMsg"));
        QCollectorClient client;
        QVERIFY(typeKnownByName("collector::CollectorMsg"));
    }

    void menuButtonPressed()
    {
        connectClient();
        QCOMPARE(_timer->isActive(), false);
        send(QByteArray::fromHex("00000010" "00000001" "0000001c" "00000001" "00000000"));
        QTRY_COMPARE(_msgs->count(), 1);
        const CollectorMsg msg = received(0);
        QCOMPARE(msg.type, quint32(collector::MSG_KEY));
        QCOMPARE(msg.id, collector::TFT_MENU_BUT);
        QCOMPARE(msg.value, 1);
        QCOMPARE(msg.delta, 0);
        // The program never writes to the collector.
        QCOMPARE(_peer->bytesAvailable(), qint64(0));
    }

    void shaftStepBack()
    {
        connectClient();
        send(QByteArray::fromHex("00000010" "00000002" "00000004" "00000000" "ffffffff"));
        QTRY_COMPARE(_msgs->count(), 1);
        QCOMPARE(received(0).type, quint32(collector::MSG_SHAFT));
        QCOMPARE(received(0).id, collector::TFT_MENU_SHAFT);
        QCOMPARE(received(0).delta, -1);
    }

    void splitFrameWaitsForAllTwentyBytes()
    {
        connectClient();
        const QByteArray bytes = frame(16, collector::MSG_GPI, 7, 1, 0);
        send(bytes.left(5));
        QTRY_COMPARE(_socket->bytesAvailable(), qint64(5));
        send(bytes.mid(5, 10));
        QTRY_COMPARE(_socket->bytesAvailable(), qint64(15));
        QCOMPARE(_msgs->count(), 0);
        send(bytes.mid(15));
        QTRY_COMPARE(_msgs->count(), 1);
        QCOMPARE(_socket->bytesAvailable(), qint64(0));
        QCOMPARE(received(0).type, quint32(collector::MSG_GPI));
        QCOMPARE(received(0).id, 7);
        QCOMPARE(received(0).value, 1);
    }

    void twoFramesInOneSegment()
    {
        connectClient();
        // What is still buffered at each emission: 20 then 0 means one drain emitted both.
        QList<qint64> pending;
        connect(_client.get(), &QCollectorClient::new_msg, this,
                [&] { pending << _socket->bytesAvailable(); });
        send(keyFrame(3, 1) + keyFrame(3, 0));
        QTRY_COMPARE(_msgs->count(), 2);
        QCOMPARE(pending, QList<qint64>({20, 0}));
        QCOMPARE(received(0).value, 1);
        QCOMPARE(received(1).value, 0);
    }

    void lengthEightIsSkipped()
    {
        connectClient();
        QTest::ignoreMessage(QtCriticalMsg,
                             "wrong collector message size 8 ../qcollector/QCollectorClient 50");
        send(QByteArray::fromHex("00000008" "0102030405060708") + keyFrame(1, 1));
        // The 12 bytes of the short frame are gone; the next frame waits for more data.
        QTRY_COMPARE(_socket->bytesAvailable(), qint64(20));
        QCOMPARE(_msgs->count(), 0);
        send(keyFrame(2, 1));
        QTRY_COMPARE(_msgs->count(), 2);
        QCOMPARE(received(0).id, 1);
        QCOMPARE(received(1).id, 2);
        QCOMPARE(received(1).type, quint32(collector::MSG_KEY));
    }

    void hostileLength_data()
    {
        QTest::addColumn<quint32>("length");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("0x7fffffff") << 0x7FFFFFFFu << QByteArray("2147483647");
        QTest::newRow("0xffffffff") << 0xFFFFFFFFu << QByteArray("4294967295");
    }

    void hostileLength()
    {
        QFETCH(quint32, length);
        QFETCH(QByteArray, text);
        connectClient();
        QSignalSpy reads(_socket, &QTcpSocket::readyRead);
        const qint64 peakBefore = peakVirtualKb();
        QVERIFY(peakBefore > 0);
        QTest::ignoreMessage(QtCriticalMsg, "wrong collector message size " + text
                                                + " ../qcollector/QCollectorClient 50");
        send(frame(length, 1, 2, 3, 4));
        QTRY_VERIFY(reads.count() > 0);
        QCOMPARE(_socket->bytesAvailable(), qint64(0));
        QCOMPARE(_msgs->count(), 0);
        // Nothing of the size the length word claims was ever reserved.
        QVERIFY2(peakVirtualKb() - peakBefore < 256 * 1024,
                 qPrintable(QString("VmPeak grew by %1 kB").arg(peakVirtualKb() - peakBefore)));
        send(keyFrame(5, 1));
        QTRY_COMPARE(_msgs->count(), 1);
        QCOMPARE(received(0).id, 5);
        QCOMPARE(received(0).value, 1);
    }

    void collectorStartsLate()
    {
        startClient();
        QCOMPARE(_timer->interval(), 2000);
        QCOMPARE(_timer->timerType(), Qt::PreciseTimer);
        QVERIFY(_timer->isActive());
        QTRY_COMPARE(_socket->error(), QAbstractSocket::ConnectionRefusedError);
        QTRY_COMPARE(_socket->state(), QAbstractSocket::UnconnectedState);

        QElapsedTimer elapsed;
        elapsed.start();
        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        QTRY_VERIFY_WITH_TIMEOUT(_server.hasPendingConnections(), 5000);
        QVERIFY2(elapsed.elapsed() <= 3000, qPrintable(QString::number(elapsed.elapsed())));
        _peer = _server.nextPendingConnection();
        QTRY_COMPARE(_socket->state(), QAbstractSocket::ConnectedState);
        QVERIFY(!_timer->isActive());
        send(keyFrame(28, 1));
        QTRY_COMPARE(_msgs->count(), 1);
    }

    void collectorRestarts()
    {
        connectClient();
        QElapsedTimer clock;
        clock.start();
        QObject thisTest; // ends the connections below with the test
        qint64 disconnectedAt = -1;
        connect(_socket, &QTcpSocket::disconnected, &thisTest, [&] { disconnectedAt = clock.elapsed(); });
        _server.close();
        _peer->close();
        QTRY_COMPARE(_socket->state(), QAbstractSocket::UnconnectedState);
        QVERIFY(disconnectedAt >= 0);
        QVERIFY(_timer->isActive());

        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        qint64 connectedAt = -1;
        connect(&_server, &QTcpServer::newConnection, &thisTest, [&] { connectedAt = clock.elapsed(); });
        QTRY_VERIFY_WITH_TIMEOUT(connectedAt >= 0, 5000);
        // The next attempt follows the reconnect interval exactly: a coarse
        // timer could come up to 100 ms early.
        const qint64 interval = connectedAt - disconnectedAt;
        QVERIFY2(interval >= 1995 && interval <= 2200, qPrintable(QString::number(interval)));
        delete _peer;
        _peer = _server.nextPendingConnection();
        QTRY_COMPARE(_socket->state(), QAbstractSocket::ConnectedState);
        QVERIFY(!_timer->isActive());
        send(keyFrame(4, 1));
        QTRY_COMPARE(_msgs->count(), 1);
        QCOMPARE(received(0).id, 4);
    }

    void tryConnectWhenConnectedStopsTheTimer()
    {
        connectClient();
        _timer->start();
        _client->tryConnect();
        QVERIFY(!_timer->isActive());
        QCOMPARE(_socket->state(), QAbstractSocket::ConnectedState);
    }

    void destroyingTheClientCloses()
    {
        connectClient();
        QSignalSpy closed(_peer, &QTcpSocket::disconnected);
        _msgs.reset();
        _client.reset();
        QTRY_COMPARE(closed.count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestCollectorClient)
#include "tst_collectorclient.moc"

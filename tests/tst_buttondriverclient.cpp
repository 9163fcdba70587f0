#include "buttondriver/KVB_Messages.h"
#include "buttondriver/QButtonDriverClient.h"
#include "support/FreePort.h"
#include "support/MessageRecorder.h"
#include "support/MetaTypes.h"

#include <QtTest>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

#include <sys/socket.h>

using buttondriver::QButtonDriverClient;
using std::vector;

namespace {

QByteArray framed(const QByteArray &message)
{
    char length[4];
    qToBigEndian<quint32>(quint32(message.size()), length);
    return QByteArray(length, 4) + message;
}

} // namespace

class TestButtonDriverClient : public QObject
{
    Q_OBJECT

private:
    void startClient()
    {
        _client.reset(new QButtonDriverClient);
        _socket = _client->findChild<QTcpSocket *>();
        QVERIFY(_socket);
    }

    // The driver listens, the client connects.
    void connectClient()
    {
        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        startClient();
        acceptClient();
    }

    // The driver's end of the client's connection. The port is free between
    // test functions, so a test running beside this one may be given it for
    // a driver of its own, whose daemon then connects here too: any other
    // connection is dropped.
    void acceptClient()
    {
        QTRY_COMPARE(_socket->state(), QAbstractSocket::ConnectedState);
        delete _peer;
        _peer = nullptr;
        QTRY_VERIFY(clientConnectionTaken());
    }

    // Takes pending connections until the client's own one is there.
    bool clientConnectionTaken()
    {
        while (!_peer && _server.hasPendingConnections()) {
            QTcpSocket *peer = _server.nextPendingConnection();
            if (peer->peerPort() == _socket->localPort())
                _peer = peer;
            else
                delete peer;
        }
        return _peer != nullptr;
    }

    // Everything the driver received until the client went away.
    QByteArray receivedUntilClosed()
    {
        QSignalSpy closed(_peer, &QTcpSocket::disconnected);
        _client.reset();
        _socket = nullptr;
        if (!closed.wait(5000) && _peer->state() != QAbstractSocket::UnconnectedState)
            return "(still connected)";
        return _peer->readAll();
    }

    quint16 _port = 0;
    QTcpServer _server;
    QTcpSocket *_peer = nullptr;
    std::unique_ptr<QButtonDriverClient> _client;
    QTcpSocket *_socket = nullptr;

private Q_SLOTS:
    void initTestCase()
    {
        _port = setFreePort("PANEL_SETUP_DRIVER_PORT");
        QVERIFY(_port != 0);
    }

    void cleanup()
    {
        _client.reset();
        _socket = nullptr;
        delete _peer;
        _peer = nullptr;
        _server.close();
    }

    void metaObject()
    {
        const QMetaObject &mo = QButtonDriverClient::staticMetaObject;
        QStringList methods;
        for (int i = mo.methodOffset(); i < mo.methodCount(); ++i)
            methods << QString::fromLatin1(mo.method(i).methodSignature());
        QCOMPARE(methods, QStringList({"msg(QByteArray)", "msg(vector<QByteArray>)", "connected()"}));
    }

    void registersBatchType()
    {
        // Runs before anything else here has used the name.
        QVERIFY(!typeKnownByName("vector<QByteArray>"));
        startClient();
        QVERIFY(typeKnownByName("vector<QByteArray>"));
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        QCOMPARE(QMetaType::fromName("vector<QByteArray>"), QMetaType::fromType<vector<QByteArray>>());
#else
        QCOMPARE(QMetaType::type("vector<QByteArray>"), qMetaTypeId<vector<QByteArray>>());
#endif
    }

    void connectsAtConstruction()
    {
        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        startClient();
        // No call needed: the constructor started the connection.
        acceptClient();
        QCOMPARE(_socket->socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
    }

    void eightByteCommandIsTwelveBytesOnTheWire()
    {
        connectClient();
        const QByteArray command = buttondriver::KVB_ClearScreen(-1);
        QCOMPARE(command.size(), 8);
        QVERIFY(_client->msg(command));
        QCOMPARE(receivedUntilClosed(), QByteArray::fromHex("00000008" "00000010" "ffffffff"));
    }

    void batchOfThreeBackToBack()
    {
        connectClient();
        const vector<QByteArray> batch = {buttondriver::KVB_ClearScreen(2),
                                          buttondriver::KVB_DrawText(2, 1, "SETUP", 1),
                                          buttondriver::KVB_ButtonLeds(-1, 0, 0)};
        QVERIFY(_client->msg(batch));
        QCOMPARE(receivedUntilClosed(), framed(batch[0]) + framed(batch[1]) + framed(batch[2]));
    }

    void emptyBatchWritesNothing()
    {
        connectClient();
        QVERIFY(_client->msg(vector<QByteArray>()));
        QVERIFY(_client->msg(buttondriver::KVB_Cmd10()));
        QCOMPARE(receivedUntilClosed(), framed(buttondriver::KVB_Cmd10()));
    }

    void emptyBatchStillConnects()
    {
        startClient();
        QTRY_COMPARE(_socket->state(), QAbstractSocket::UnconnectedState);
        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        QVERIFY(_client->msg(vector<QByteArray>()));
        QCOMPARE(_socket->state(), QAbstractSocket::ConnectedState);
        acceptClient();
        QCOMPARE(receivedUntilClosed(), QByteArray());
    }

    void driverAbsentThenPresent()
    {
        startClient();
        QElapsedTimer elapsed;
        elapsed.start();
        QVERIFY(!_client->msg(buttondriver::KVB_DrawText(0, 0, "lost", 0)));
        QVERIFY2(elapsed.elapsed() >= 900 && elapsed.elapsed() <= 1900,
                 qPrintable(QString::number(elapsed.elapsed())));

        elapsed.restart();
        QVERIFY(!_client->msg(vector<QByteArray>{buttondriver::KVB_ClearScreen(0),
                                                 buttondriver::KVB_ClearScreen(1)}));
        QVERIFY2(elapsed.elapsed() >= 900 && elapsed.elapsed() <= 1900,
                 qPrintable(QString::number(elapsed.elapsed())));

        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        elapsed.restart();
        const QByteArray command = buttondriver::KVB_DrawText(0, 0, "delivered", 0);
        QVERIFY(_client->msg(command));
        QVERIFY2(elapsed.elapsed() < 900, qPrintable(QString::number(elapsed.elapsed())));
        acceptClient();
        // Only the command sent while the driver listens arrives.
        QCOMPARE(receivedUntilClosed(), framed(command));
    }

    void driverRestartReconnectsOnNextCommand()
    {
        connectClient();
        QVERIFY(_client->msg(buttondriver::KVB_SetLed(1, 1)));
        QTRY_COMPARE(_peer->bytesAvailable(), qint64(16));
        _peer->close();
        // Only a loss that the socket has seen makes the next command connect
        // anew; until then a command goes into the dead connection, by design.
        QTRY_COMPARE(_socket->state(), QAbstractSocket::UnconnectedState);

        const QByteArray command = buttondriver::KVB_SetLed2(0, 1);
        QVERIFY(_client->msg(command));
        acceptClient();
        QCOMPARE(receivedUntilClosed(), framed(command));
    }

    void connectToDriver()
    {
        startClient();
        QElapsedTimer elapsed;
        elapsed.start();
        // Refused at once: the socket's own wait does not linger.
        QVERIFY(!_client->connectToDriver(2000));
        QVERIFY2(elapsed.elapsed() < 1500, qPrintable(QString::number(elapsed.elapsed())));
        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        QVERIFY(_client->connectToDriver(2000));
        QVERIFY(_client->connectToDriver(0)); // already connected
        acceptClient();
    }

    void waitConnected()
    {
        startClient();
        QVERIFY(!_client->waitConnected(0));
        QElapsedTimer elapsed;
        elapsed.start();
        QVERIFY(!_client->waitConnected(500));
        QVERIFY2(elapsed.elapsed() >= 450 && elapsed.elapsed() <= 1400,
                 qPrintable(QString::number(elapsed.elapsed())));
        QVERIFY(_server.listen(QHostAddress::LocalHost, _port));
        QVERIFY(_client->waitConnected(2000));
        acceptClient();
    }

    void batchThroughQueuedCall()
    {
        connectClient();
        const vector<QByteArray> batch = {buttondriver::KVB_Cmd10(), buttondriver::KVB_SetLed(2, 0)};
        QVERIFY(QMetaObject::invokeMethod(_client.get(), "msg", Qt::QueuedConnection,
                                          Q_ARG(vector<QByteArray>, batch)));
        QTRY_COMPARE(_peer->bytesAvailable(), qint64(12 + 16));
        QCOMPARE(receivedUntilClosed(), framed(batch[0]) + framed(batch[1]));
    }

    // A driver that stops reading gets one log line for the whole stall. The
    // kernel taking a few more bytes from it does not start a new one; only
    // a backlog that has drained does.
    void oneLogLinePerStall()
    {
        connectClient();
        _peer->setReadBufferSize(1);
        // Small kernel buffers on both ends, so that what the driver reads
        // moves only a few KiB of the backlog.
        _socket->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, 4096);
        _peer->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
        const QByteArray drawing(1024, 'x');
        const QString line = "QButtonDriverClient: the button driver does not read, drawings are dropped";
        MessageRecorder recorder;
        const auto sendUntilDropped = [&] {
            for (int i = 0; i < 100000; ++i) {
                if (!_client->msg(drawing))
                    return true;
            }
            return false;
        };
        QVERIFY(sendUntilDropped());
        QVERIFY(!_client->msg(drawing));
        QCOMPARE(recorder.messages().count(line), 1);

        // The driver takes what its kernel holds: part of the backlog goes
        // out, a drawing fits again.
        char sink[64 * 1024];
        QVERIFY(::recv(int(_peer->socketDescriptor()), sink, sizeof sink, MSG_DONTWAIT) > 0);
        QTRY_VERIFY(_socket->bytesToWrite() < QButtonDriverClient::WriteBacklog - 2 * drawing.size());
        QVERIFY(_socket->bytesToWrite() > 0);
        QVERIFY(_client->msg(drawing));
        QVERIFY(sendUntilDropped());
        QCOMPARE(recorder.messages().count(line), 1);

        // The driver reads everything: the stall is over, the next one logs again.
        _peer->setReadBufferSize(0);
        QTRY_COMPARE(_socket->bytesToWrite(), qint64(0));
        QVERIFY(sendUntilDropped());
        QCOMPARE(recorder.messages().count(line), 2);
    }

    void repliesAreNotRead()
    {
        connectClient();
        _peer->write("reply");
        _peer->flush();
        QTRY_COMPARE(_socket->bytesAvailable(), qint64(5));
        QVERIFY(_client->msg(buttondriver::KVB_Cmd10()));
        QCOMPARE(_socket->bytesAvailable(), qint64(5));
    }
};

QTEST_GUILESS_MAIN(TestButtonDriverClient)
#include "tst_buttondriverclient.moc"

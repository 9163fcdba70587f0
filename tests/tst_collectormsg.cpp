#include "qcollector/CollectorMsg.h"
#include "support/StdoutCapture.h"

#include <QtTest>

#include <memory>

using collector::CollectorMsg;

namespace {

QByteArray packed(const CollectorMsg &msg)
{
    char *buffer = nullptr;
    int length = 0;
    msg.pack(&buffer, &length);
    const std::unique_ptr<char[]> owned(buffer);
    return QByteArray(buffer, length);
}

} // namespace

class TestCollectorMsg : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshRecordNamesNoInput()
    {
        const CollectorMsg msg;
        QCOMPARE(msg.type, 0u);
        QCOMPARE(msg.id, -1);
        QCOMPARE(msg.value, 0);
        QCOMPARE(msg.delta, 0);
    }

    void eventKinds()
    {
        QCOMPARE(quint32(collector::MSG_KEY), 1u);
        QCOMPARE(quint32(collector::MSG_SHAFT), 2u);
        QCOMPARE(quint32(collector::MSG_GPI), 3u);
        QCOMPARE(collector::TFT_MENU_BUT, 28);
        QCOMPARE(collector::TFT_MENU_SHAFT, 4);
    }

    void convenienceConstructors()
    {
        const CollectorMsg key = CollectorMsg::key(28, 1);
        QCOMPARE(key.type, 1u);
        QCOMPARE(key.id, 28);
        QCOMPARE(key.value, 1);
        QCOMPARE(key.delta, 0);

        const CollectorMsg shaft = CollectorMsg::shaft(4, -3);
        QCOMPARE(shaft.type, 2u);
        QCOMPARE(shaft.id, 4);
        QCOMPARE(shaft.value, 0);
        QCOMPARE(shaft.delta, -3);

        const CollectorMsg gpi = CollectorMsg::gpi(7, 1);
        QCOMPARE(gpi.type, 3u);
        QCOMPARE(gpi.id, 7);
        QCOMPARE(gpi.value, 1);
        QCOMPARE(gpi.delta, 0);
    }

    void packWritesBigEndianWordsInOrder()
    {
        CollectorMsg msg;
        msg.type = 0x01020304;
        msg.id = -2;
        msg.value = 0x0A0B0C0D;
        msg.delta = 258;
        QCOMPARE(packed(msg), QByteArray::fromHex("01020304" "fffffffe" "0a0b0c0d" "00000102"));
    }

    void unpackMenuButtonPressed()
    {
        CollectorMsg msg;
        const QByteArray wire = QByteArray::fromHex("00000001" "0000001c" "00000001" "00000000");
        QVERIFY(msg.unpack(wire.constData(), 16));
        QCOMPARE(msg.type, quint32(collector::MSG_KEY));
        QCOMPARE(msg.id, collector::TFT_MENU_BUT);
        QCOMPARE(msg.value, 1);
        QCOMPARE(msg.delta, 0);
    }

    void deltaAllOnesIsMinusOneStep()
    {
        CollectorMsg msg;
        const QByteArray wire = QByteArray::fromHex("00000002" "00000004" "00000000" "ffffffff");
        QVERIFY(msg.unpack(wire.constData(), 16));
        QCOMPARE(msg.type, quint32(collector::MSG_SHAFT));
        QCOMPARE(msg.id, collector::TFT_MENU_SHAFT);
        QCOMPARE(msg.delta, -1);
    }

    void packUnpackRoundTrip()
    {
        const CollectorMsg original = CollectorMsg::shaft(5, -2147483647 - 1);
        const QByteArray wire = packed(original);
        QCOMPARE(wire.size(), 16);
        CollectorMsg copy;
        QVERIFY(copy.unpack(wire.constData(), wire.size()));
        QCOMPARE(copy.type, original.type);
        QCOMPARE(copy.id, original.id);
        QCOMPARE(copy.value, original.value);
        QCOMPARE(copy.delta, original.delta);
    }

    void unpackWrongSize_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("0") << 0;
        QTest::newRow("15") << 15;
        QTest::newRow("17") << 17;
        QTest::newRow("-1") << -1;
    }

    void unpackWrongSize()
    {
        QFETCH(int, size);
        const QByteArray bytes(32, '\x11');
        CollectorMsg msg = CollectorMsg::gpi(3, 1);
        QByteArray out;
        bool result = true;
        {
            StdoutCapture capture;
            result = msg.unpack(bytes.constData(), size);
            out = capture.text();
        }
        QVERIFY(!result);
        QCOMPARE(out, QByteArray("collector: CollectorMsg::unpack wrong message size ")
                          + QByteArray::number(size) + '\n');
        QCOMPARE(msg.type, 3u);
        QCOMPARE(msg.id, 3);
        QCOMPARE(msg.value, 1);
        QCOMPARE(msg.delta, 0);
    }

    void metaTypeIsDeclared()
    {
        const QVariant v = QVariant::fromValue(CollectorMsg::key(1, 1));
        QCOMPARE(v.value<CollectorMsg>().id, 1);
    }
};

QTEST_GUILESS_MAIN(TestCollectorMsg)
#include "tst_collectormsg.moc"

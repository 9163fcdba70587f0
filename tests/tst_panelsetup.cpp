// The unused wiring class keeps its interface.
#include "panel/PanelSetup.h"

#include <QMetaMethod>
#include <QtTest>

class TestPanelSetup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void interface()
    {
        const QMetaObject &meta = PanelSetup::staticMetaObject;
        QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
        QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);

        const QMetaMethod signal = meta.method(meta.methodOffset());
        QCOMPARE(signal.methodType(), QMetaMethod::Signal);
        QCOMPARE(signal.methodSignature(), QByteArray("btdriverMsg(vector<QByteArray>)"));
        QCOMPARE(signal.parameterNames(), QList<QByteArray>({"msg"}));

        const QMetaMethod slot = meta.method(meta.methodOffset() + 1);
        QCOMPARE(slot.methodType(), QMetaMethod::Slot);
        QCOMPARE(slot.methodSignature(), QByteArray("collectorMsg(collector::CollectorMsg)"));
    }

    void slotDoesNothingAndSignalCarriesBatches()
    {
        QObject owner;
        auto *wiring = new PanelSetup(&owner);
        QCOMPARE(wiring->parent(), &owner);

        std::vector<QByteArray> received;
        connect(wiring, &PanelSetup::btdriverMsg, this,
                [&received](const std::vector<QByteArray> &msg) { received = msg; });
        wiring->collectorMsg(collector::CollectorMsg::key(28, 1));
        QVERIFY(received.empty());
        emit wiring->btdriverMsg({QByteArray("a"), QByteArray("b")});
        QCOMPARE(received, std::vector<QByteArray>({QByteArray("a"), QByteArray("b")}));
    }
};

QTEST_GUILESS_MAIN(TestPanelSetup)
#include "tst_panelsetup.moc"

// The two TCP links: peers that start late, go away and come back, and
// hostile or split collector frames.
#include "support/PanelDaemon.h"

#include <QtEndian>
#include <QtTest>

using P = PanelDaemon;

class TestE2eLinks : public QObject
{
    Q_OBJECT

private:
    static QByteArray lengthWord(quint32 length)
    {
        QByteArray word(4, '\0');
        qToBigEndian<quint32>(length, word.data());
        return word;
    }

    static QStringList turnToTesting() { return {"text 0 1 1 TESTING", "text 0 0 0 SETUP"}; }
    static QStringList turnBackToSetup() { return {"text 0 0 1 SETUP", "text 0 1 0 TESTING"}; }

private Q_SLOTS:
    void collectorStartingLateAndRestarting()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
        QVERIFY(d.startPeers(false, true));
        QVERIFY(d.start());
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), P::firstMainMenuCommands(), 5000);

        // The client retries every 2000 ms.
        QVERIFY(d.collector.start());
        QTRY_COMPARE_WITH_TIMEOUT(d.collector.clientCount(), 1, 3000);
        QCOMPARE(d.step(P::turn(1), 2), turnToTesting());

        d.collector.stop();
        QTest::qWait(100);
        QVERIFY(d.collector.start());
        QTRY_COMPARE_WITH_TIMEOUT(d.collector.clientCount(), 1, 3000);
        QCOMPARE(d.step(P::turn(-1), 2), turnBackToSetup());
        QVERIFY(d.isRunning());
    }

    void driverAbsentAtStartThenUp()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startPeers(true, false));
        QVERIFY(d.start());
        QTRY_COMPARE(d.collector.clientCount(), 1);
        // Start-up waits up to 2000 ms for the driver, then serves without it.
        QTRY_VERIFY_WITH_TIMEOUT(d.hasLine("Using activate buttons: _activate_but1 = 24 , _activate_but2 = 25"),
                                 5000);
        QVERIFY(d.waitUntilWatching());
        QTest::qWait(2100);
        QVERIFY(d.isRunning());
        QCOMPARE(d.commandCount(), 0);

        // The first command after the driver comes up connects and is delivered.
        QVERIFY(d.driver.start());
        QVERIFY(d.sandbox.writeFile("/tmp/a.img", "image"));
        QTRY_COMPARE_WITH_TIMEOUT(d.commandCount(), 13, 6000);
        QCOMPARE(d.commands(), P::resetPanelCommands() + P::resetPanelCommands()
                                   + QStringList({"text -1 2 0      Upgrade", "text -1 3 0         In",
                                                  "text -1 4 0      Progress", "leds -1 0 0", "leds -1 1 0"}));
    }

    void driverRestarting()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        d.driver.stop();
        QTest::qWait(200);
        QVERIFY(d.driver.start());

        // Until the daemon has read the old connection's close, it draws into
        // that connection and the drawings are lost; after that the next one
        // connects anew. Turn forth and back until the restarted driver hears
        // from it, then wait for the last turn's second line, which ends it.
        const int restarted = d.commandCount();
        int turns = 0;
        bool heard = false;
        while (!heard && turns < 10) {
            d.collector.send(P::turn(turns % 2 == 0 ? 1 : -1));
            ++turns;
            heard = QTest::qWaitFor([&] { return d.commandCount() > restarted; }, 2000);
        }
        QVERIFY2(heard, "the restarted driver got no command in 10 turns");
        const QStringList lastTurn = turns % 2 == 1 ? turnToTesting() : turnBackToSetup();
        QTRY_COMPARE(d.commands(d.commandCount() - 1), QStringList(lastTurn.constLast()));
        QTRY_COMPARE(d.driver.clientCount(), 1);

        // From here on every drawing arrives.
        if (turns % 2 == 1)
            QCOMPARE(d.step(P::turn(-1), 2), turnBackToSetup());
        QCOMPARE(d.step(P::turn(1), 2), turnToTesting());
        QCOMPARE(d.step(P::turn(-1), 2), turnBackToSetup());
        QCOMPARE(d.driver.clientCount(), 1);
        QVERIFY(d.isRunning());
    }

    void hostileAndSplitFrames()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        const QByteArray turnForward = FakeCollector::frame(P::turn(1));
        const QByteArray turnBack = FakeCollector::frame(P::turn(-1));

        // A frame split in two: nothing happens until all 20 bytes are there.
        int mark = d.commandCount();
        d.collector.sendRaw(turnForward.left(7));
        QTest::qWait(300);
        QCOMPARE(d.commandCount(), mark);
        d.collector.sendRaw(turnForward.mid(7));
        QTRY_COMPARE(d.commands(mark), turnToTesting());

        // Two frames in one segment: both, in order.
        mark = d.commandCount();
        d.collector.sendRaw(turnBack + turnForward);
        QTRY_COMPARE(d.commands(mark), turnBackToSetup() + turnToTesting());

        // Length 8: its 8 bytes are dropped with the diagnostic; the frame after
        // it waits in the buffer until more data arrives.
        mark = d.commandCount();
        d.collector.sendRaw(lengthWord(8) + QByteArray(8, '\x01') + turnBack);
        QTRY_VERIFY(d.hasLine("wrong collector message size 8 ../qcollector/QCollectorClient 50"));
        QTest::qWait(300);
        QCOMPARE(d.commandCount(), mark);
        d.collector.sendRaw(turnForward);
        QTRY_COMPARE(d.commands(mark), turnBackToSetup() + turnToTesting());

        // A length of 0xFFFFFFFF swallows what is there, and no more.
        mark = d.commandCount();
        d.collector.sendRaw(lengthWord(0xFFFFFFFF) + QByteArray(16, '\xee'));
        QTRY_VERIFY(d.hasLine("wrong collector message size 4294967295 ../qcollector/QCollectorClient 50"));
        QTest::qWait(300);
        d.collector.sendRaw(turnBack);
        QTRY_COMPARE(d.commands(mark), turnBackToSetup());

        QVERIFY(d.isRunning());
        QCOMPARE(d.driver.malformedCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestE2eLinks)
#include "tst_e2e_links.moc"

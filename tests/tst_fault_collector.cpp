// The collector goes away and comes back, many times, at random moments and
// for random lengths of time, sometimes in the middle of a frame: the daemon
// stays up, reconnects within one 2000 ms retry period of the collector's
// return, events flow again and no settings file changes.
//
// PANEL_SETUP_RESTART_CYCLES sets the number of restarts (default 6); the
// soak label runs more.
#include "support/PanelDaemon.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>

using P = PanelDaemon;

class TestFaultCollector : public QObject
{
    Q_OBJECT

private:
    static int cyclesWanted()
    {
        bool ok = false;
        const int cycles = qEnvironmentVariableIntValue("PANEL_SETUP_RESTART_CYCLES", &ok);
        return ok && cycles > 0 ? cycles : 6;
    }

private Q_SLOTS:
    void killedAndRestartedManyTimes()
    {
        const int cycles = cyclesWanted();
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        const QStringList files = {"/etc/network/interfaces", "/etc/kd5820m/launcher.cfg",
                                   "/etc/kd5820m/buttonlevel"};
        QList<QByteArray> before;
        for (const QString &file : files)
            before << d.sandbox.readFile(file);

        QRandomGenerator rng(0xc011ec7u);
        QList<qint64> reconnects;
        int selected = 0;
        for (int cycle = 0; cycle < cycles; ++cycle) {
            // Half a frame on the wire when the collector goes: it dies with the
            // connection and must not shift the frames of the next one.
            if (cycle % 2)
                d.collector.sendRaw(FakeCollector::frame(P::turn(1)).left(int(rng.bounded(1, 20))));
            QTest::qWait(int(rng.bounded(0, 50)));
            d.collector.stop();
            // Down for less than one retry period, or for more.
            QTest::qWait(int(rng.bounded(0, 2600)));
            QElapsedTimer back;
            back.start();
            QVERIFY(d.collector.start());
            QTRY_COMPARE_WITH_TIMEOUT(d.collector.clientCount(), 1, 5000);
            reconnects << back.elapsed();
            // One retry period, plus the time a loaded machine needs to notice.
            QVERIFY2(back.elapsed() <= 2600, qPrintable(QString::number(back.elapsed())));

            // Events flow again: the main menu follows the turns.
            const int next = selected == 0 ? 1 : 0;
            const QStringList names = {"SETUP", "TESTING"};
            QCOMPARE(d.step(P::turn(next - selected), 2),
                     QStringList({QStringLiteral("text 0 %1 1 %2").arg(next).arg(names[next]),
                                  QStringLiteral("text 0 %1 0 %2").arg(selected).arg(names[selected])}));
            selected = next;
            QVERIFY(d.isRunning());
        }

        for (int i = 0; i < files.size(); ++i)
            QCOMPARE(d.sandbox.readFile(files[i]), before[i]);
        QCOMPARE(d.driver.malformedCount(), 0);
        std::sort(reconnects.begin(), reconnects.end());
        qInfo("collector restarts: %d cycles survived, reconnect after the collector's return: "
              "min %lld ms, median %lld ms, max %lld ms",
              cycles, reconnects.first(), reconnects.at(reconnects.size() / 2), reconnects.last());
    }
};

QTEST_GUILESS_MAIN(TestFaultCollector)
#include "tst_fault_collector.moc"

// Taking the panel over with the two activation keys held for 5 s.
#include "support/PanelDaemon.h"

#include <QElapsedTimer>
#include <QtTest>

#include <algorithm>
#include <memory>
#include <vector>

class TestE2eActivation : public QObject
{
    Q_OBJECT

private:
    static QStringList entryCommands()
    {
        return PanelDaemon::resetPanelCommands() + PanelDaemon::firstMainMenuCommands();
    }

private Q_SLOTS:
    void holdingBothKeysEnters()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.startConnected());
        QElapsedTimer held;
        d.collector.sendKey(24, 1);
        d.collector.sendKey(25, 1);
        held.start();

        QTRY_COMPARE_WITH_TIMEOUT(d.sandbox.calls(), QStringList("setup_script enter"), 8000);
        QVERIFY2(held.elapsed() >= 5000, qPrintable(QString::number(held.elapsed())));
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), entryCommands(), 3000);
        // Logged before the call, but the pipe may not have been read yet.
        QTRY_VERIFY(d.hasLine("system( \"setup_script enter\" )"));
        QCOMPARE(d.launcherValue("font/width"), 8);
        QCOMPARE(d.launcherValue("font/height"), 13);
        // The panel is the daemon's now: the menu shaft moves the selection.
        d.collector.sendShaft(4, 2);
        QTRY_COMPARE(d.commands(entryCommands().size()),
                     QStringList({"text 0 2 1 INTENSITY", "text 0 0 0 SETUP"}));
    }

    // The activation timer is exact. Qt's default coarse timers fire up to 5 %
    // early or late, aligned to the monotonic clock's second, so each daemon
    // gets its second key at another phase of that second. One daemon of each
    // pair is held 4.9 s and must stay idle; the other must take over 5 s after
    // its second key, its first command following the hook's 550 ms pause.
    void takeOverExactlyFiveSecondsAfterTheSecondKey()
    {
        const std::vector<int> phases = {100, 230, 400, 600, 800};
        const qint64 pause = 550;
        const qint64 heldTooShort = 4900;
        std::vector<std::unique_ptr<PanelDaemon>> held, released;
        for (size_t i = 0; i < phases.size(); ++i) {
            for (auto *group : {&held, &released}) {
                group->push_back(std::make_unique<PanelDaemon>(PANEL_SETUP_BINARY));
                QVERIFY(group->back()->startConnected());
            }
        }
        QElapsedTimer clock;
        clock.start();
        std::vector<qint64> pressedAt(phases.size()), firstCommandAt(phases.size(), -1),
            releasedAt(phases.size(), -1);
        QObject thisTest; // ends the connections below before the figures they write
        for (size_t i = 0; i < phases.size(); ++i) {
            connect(&held[i]->driver, &FakeButtonDriver::messageReceived, &thisTest, [&, i] {
                if (firstCommandAt[i] < 0)
                    firstCommandAt[i] = clock.elapsed();
            });
        }
        for (size_t i = 0; i < phases.size(); ++i) {
            QElapsedTimer now;
            now.start();
            const qint64 phase = now.msecsSinceReference() % 1000;
            QTest::qSleep(int((phases[i] - phase + 1000) % 1000));
            pressedAt[i] = clock.elapsed();
            for (auto *d : {held[i].get(), released[i].get()}) {
                d->collector.sendKey(24, 1);
                d->collector.sendKey(25, 1);
            }
            QTimer::singleShot(int(pressedAt[i] + heldTooShort - clock.elapsed()), Qt::PreciseTimer, &thisTest, [&, i] {
                released[i]->collector.sendKey(25, 0);
                releasedAt[i] = clock.elapsed();
            });
        }
        QTRY_VERIFY_WITH_TIMEOUT(std::all_of(firstCommandAt.begin(), firstCommandAt.end(),
                                             [](qint64 at) { return at >= 0; }),
                                 10000);
        QTRY_VERIFY(std::all_of(releasedAt.begin(), releasedAt.end(), [](qint64 at) { return at >= 0; }));
        // Past the take-over time of the last released daemon, with room for the pause.
        QTest::qWait(int(pressedAt.back() + 5000 + pause + 500 - clock.elapsed()));
        for (size_t i = 0; i < phases.size(); ++i) {
            const qint64 tookOver = firstCommandAt[i] - pressedAt[i];
            QVERIFY2(tookOver >= 5000 + pause && tookOver <= 5000 + pause + 150,
                     qPrintable(QStringLiteral("phase %1: first command %2 ms after the second key")
                                    .arg(phases[i])
                                    .arg(tookOver)));
            QCOMPARE(held[i]->sandbox.calls(), QStringList("setup_script enter"));
            // Only a release sent in time proves anything; a late one is the test's own delay.
            if (releasedAt[i] - pressedAt[i] > heldTooShort + 50) {
                qWarning("phase %d: release sent %lld ms after the second key", phases[i],
                         releasedAt[i] - pressedAt[i]);
                continue;
            }
            QCOMPARE(released[i]->sandbox.calls(), QStringList());
            QCOMPARE(released[i]->commandCount(), 0);
        }
    }

    void holdCancelledByAnyLaterEvent()
    {
        // One daemon per way of cancelling, all held at the same time.
        const std::vector<QByteArray> cancellers = {
            FakeCollector::frame(collector::CollectorMsg::key(24, 0)),
            FakeCollector::frame(collector::CollectorMsg::key(25, 0)),
            FakeCollector::frame(collector::CollectorMsg::key(3, 1)),
            FakeCollector::frame(collector::CollectorMsg::shaft(0, 1)),
            FakeCollector::frame(collector::CollectorMsg::gpi(5, 1)),
        };
        std::vector<std::unique_ptr<PanelDaemon>> daemons;
        for (size_t i = 0; i < cancellers.size(); ++i) {
            daemons.push_back(std::make_unique<PanelDaemon>(PANEL_SETUP_BINARY));
            QVERIFY(daemons.back()->startConnected());
        }
        QElapsedTimer held;
        held.start();
        for (auto &d : daemons) {
            d->collector.sendKey(24, 1);
            d->collector.sendKey(25, 1);
        }
        QTest::qWait(1000);
        for (size_t i = 0; i < cancellers.size(); ++i)
            daemons[i]->collector.sendRaw(cancellers[i]);
        // Past the 5 s of the first press, with room for the hook's pause.
        QTest::qWait(int(6500 - held.elapsed()));
        for (auto &d : daemons) {
            QVERIFY(d->isRunning());
            QCOMPARE(d->sandbox.calls(), QStringList());
            QCOMPARE(d->commandCount(), 0);
            QCOMPARE(d->launcherValue("font/width"), 10);
        }
    }

    void oneKeyConfiguredTwice()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.sandbox.writeFile("/etc/kd5820m/launcher.cfg",
                                    "[setup]\nbutton1=7\nbutton2=7\n\n[font]\nwidth=6\nheight=13\n"));
        QVERIFY(d.startConnected());
        QTRY_VERIFY(d.hasLine("Using activate buttons: _activate_but1 = 7 , _activate_but2 = 7"));
        QElapsedTimer held;
        d.collector.sendKey(7, 1);
        held.start();
        QTRY_COMPARE_WITH_TIMEOUT(d.sandbox.calls(), QStringList("setup_script enter"), 8000);
        QVERIFY(held.elapsed() >= 5000);
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), entryCommands(), 3000);
        QCOMPARE(d.launcherValue("font/width"), 8);
    }

    void scriptGivenOnCommandLine()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.sandbox.addStub("/opt/hooks/panel_hook", "panel_hook"));
        const QString script = d.sandbox.hostPath("/opt/hooks/panel_hook");
        // Only the first argument counts.
        QVERIFY(d.startConnected({script, "ignored", "-x"}));
        d.collector.sendKey(24, 1);
        d.collector.sendKey(25, 1);
        QTRY_COMPARE_WITH_TIMEOUT(d.sandbox.calls(), QStringList("panel_hook enter"), 8000);
        QTRY_VERIFY(d.hasLine(QStringLiteral("system( \"%1 enter\" )").arg(script)));
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), entryCommands(), 3000);
    }

    void missingScriptStillEnters()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        const QString script = d.sandbox.hostPath("/no/such/script");
        QVERIFY(d.startConnected({script}));
        d.collector.sendKey(24, 1);
        d.collector.sendKey(25, 1);
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), entryCommands(), 9000);
        QTRY_VERIFY(d.hasLine(QStringLiteral("system( \"%1 enter\" )").arg(script)));
        QVERIFY(d.sandbox.calls().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestE2eActivation)
#include "tst_e2e_activation.moc"

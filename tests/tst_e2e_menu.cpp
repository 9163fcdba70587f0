// The main menu over the wire: every item, and EXIT handing the panel back.
#include "support/PanelDaemon.h"

#include <QElapsedTimer>
#include <QtTest>

class TestE2eMenu : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyMainMenuItem()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());

        // SETUP: the setup list on screen 1; back with key 2.
        QCOMPARE(d.step(PanelDaemon::select(), 9),
                 QStringList({"text 1 0 1 IP Addr", "text 1 1 0 Netmask", "text 1 2 0 Broadcast",
                              "text 1 3 0 Gateway", "text 1 4 0 Font Size", "text 1 5 0 Dual PSU Mode",
                              "text 1 6 0 ", "text 1 7 0 Save Changes", "text 1 8 0 Revert Changes"}));
        QCOMPARE(d.step(PanelDaemon::back(), 9), PanelDaemon::mainMenuReturnCommands(0, -1));

        // TESTING.
        QCOMPARE(d.step(PanelDaemon::turn(1), 2), QStringList({"text 0 1 1 TESTING", "text 0 0 0 SETUP"}));
        QCOMPARE(d.step(PanelDaemon::select(), 5),
                 QStringList({"clear 2", "text 1 0 1 SHAFTS", "text 1 1 0 KEYS", "text 1 2 0 GPIs",
                              "text 1 3 0 LEDs"}));
        QCOMPARE(d.step(PanelDaemon::back(), 10), PanelDaemon::mainMenuReturnCommands(1, 0));

        // INTENSITY.
        QCOMPARE(d.step(PanelDaemon::turn(1), 2), QStringList({"text 0 2 1 INTENSITY", "text 0 1 0 TESTING"}));
        QCOMPARE(d.step(PanelDaemon::select(), 4),
                 QStringList({"clear 2", "leds -1 1 0", "text 1 0 1 TFT Screen", "text 1 1 0 Buttons"}));
        QCOMPARE(d.step(PanelDaemon::back(), 10), PanelDaemon::mainMenuReturnCommands(2, 1));

        // The empty spacer: selecting it only logs.
        QCOMPARE(d.step(PanelDaemon::turn(2), 2), QStringList({"text 0 4 1 ", "text 0 2 0 INTENSITY"}));
        QCOMPARE(d.step(PanelDaemon::select(), 0), QStringList());
        QTRY_VERIFY(d.hasLine("Page_Main::collectorMsg(): Before main switch (_sh_menu_val = 4 )"));

        // REBOOT and SHUTDOWN ask first; "No" goes back.
        QCOMPARE(d.step(PanelDaemon::turn(1), 2), QStringList({"text 0 5 1 REBOOT", "text 0 4 0 "}));
        QCOMPARE(d.step(PanelDaemon::select(), 5),
                 QStringList({"text 1 0 0 Confirm Reboot:", "text 1 1 0 Reboot now?", "text 1 2 0 ",
                              "text 1 3 1 No", "text 1 4 0 Yes"}));
        QCOMPARE(d.step(PanelDaemon::select(), 10), PanelDaemon::mainMenuReturnCommands(5, 4));
        QCOMPARE(d.step(PanelDaemon::turn(1), 2), QStringList({"text 0 6 1 SHUTDOWN", "text 0 5 0 REBOOT"}));
        QCOMPARE(d.step(PanelDaemon::select(), 5),
                 QStringList({"text 1 0 0 Confirm Shutdown:", "text 1 1 0 Shutdown now?", "text 1 2 0 ",
                              "text 1 3 1 No", "text 1 4 0 Yes"}));
        QCOMPARE(d.step(PanelDaemon::select(), 10), PanelDaemon::mainMenuReturnCommands(6, 5));

        // Past the end: the version line; clamping restores the previous value
        // from before the turn, so REBOOT is the line redrawn plain.
        QCOMPARE(d.step(PanelDaemon::turn(5), 2), QStringList({"text 0 7 1 V=1.2.3", "text 0 5 0 REBOOT"}));
        QCOMPARE(d.step(PanelDaemon::select(), 0), QStringList());
        QCOMPARE(d.step(PanelDaemon::turn(-1), 2), QStringList({"text 0 6 1 SHUTDOWN", "text 0 7 0 V=1.2.3"}));
        QVERIFY(d.sandbox.calls().isEmpty());
        QVERIFY(d.driver.malformedCount() == 0);
    }

    // The daemon chooses Qt's own event dispatcher through QT_NO_GLIB, but the
    // programs its hooks start get the environment the daemon was given.
    void hooksGetTheDaemonsEnvironment_data()
    {
        QTest::addColumn<QByteArray>("callersValue");
        QTest::addColumn<QString>("call");
        QTest::newRow("not set") << QByteArray() << "setup_script exit QT_NO_GLIB=unset";
        QTest::newRow("set by the caller") << QByteArray("1") << "setup_script exit QT_NO_GLIB=1";
    }

    void hooksGetTheDaemonsEnvironment()
    {
        QFETCH(QByteArray, callersValue);
        QFETCH(QString, call);
        PanelDaemon d(PANEL_SETUP_BINARY);
        const QByteArray stub = "#!/bin/sh\necho \"setup_script $* QT_NO_GLIB=${QT_NO_GLIB-unset}\" >> "
                                + d.sandbox.callLogPath().toUtf8() + "\n";
        QVERIFY(d.sandbox.writeFile(d.sandbox.binDir().mid(d.sandbox.root().size()) + "/setup_script", stub, true));
        qunsetenv("QT_NO_GLIB");
        if (!callersValue.isNull())
            d.setEnvironmentVariable("QT_NO_GLIB", QString::fromLatin1(callersValue));
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(PanelDaemon::turn(3), 2), QStringList({"text 0 3 1 EXIT", "text 0 0 0 SETUP"}));
        d.collector.send(PanelDaemon::select());
        QTRY_COMPARE(d.sandbox.calls(), QStringList(call));
    }

    void exitHandsBackAndOnlyTheKeysTakeOver()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        QCOMPARE(d.launcherValue("font/width"), 8);

        QCOMPARE(d.step(PanelDaemon::turn(3), 2), QStringList({"text 0 3 1 EXIT", "text 0 0 0 SETUP"}));
        QCOMPARE(d.step(PanelDaemon::select(), 5), QStringList("leds -1 0 0") + PanelDaemon::resetPanelCommands());
        QTRY_COMPARE(d.sandbox.calls(), QStringList("setup_script exit"));
        // Logged before the call, but the pipe may not have been read yet.
        QTRY_VERIFY(d.hasLine("system( \"setup_script exit\" )"));
        // The user's font is back for the main application.
        QCOMPARE(d.launcherValue("font/width"), 10);
        QCOMPARE(d.launcherValue("font/height"), 20);

        // Idle: menu events draw nothing (the exact list below shows it); only
        // the activation keys count.
        const int mark = d.commandCount();
        QCOMPARE(d.step(PanelDaemon::turn(1), 0), QStringList());
        QCOMPARE(d.step(PanelDaemon::select(), 0), QStringList());
        QElapsedTimer held;
        d.collector.sendKey(24, 1);
        d.collector.sendKey(25, 1);
        held.start();
        QTRY_COMPARE_WITH_TIMEOUT(d.sandbox.calls(), QStringList({"setup_script exit", "setup_script enter"}),
                                  8000);
        QVERIFY(held.elapsed() >= 5000);
        // EXIT reset the selection: the whole menu again, "SETUP" selected.
        QTRY_COMPARE(d.commands(mark), PanelDaemon::resetPanelCommands() + PanelDaemon::firstMainMenuCommands());
        QCOMPARE(d.launcherValue("font/width"), 8);
    }
};

QTEST_GUILESS_MAIN(TestE2eMenu)
#include "tst_e2e_menu.moc"

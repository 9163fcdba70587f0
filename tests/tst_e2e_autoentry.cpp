// The daemon takes the panel over at start without any key: start flag,
// unset address, missing main application.
#include "support/PanelDaemon.h"

#include <QtTest>

class TestE2eAutoEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startFlagEntersWithoutHook()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
        QVERIFY(d.startPeers());
        QVERIFY(d.start());

        const QStringList expected = PanelDaemon::firstMainMenuCommands();
        QTRY_COMPARE_WITH_TIMEOUT(d.commandCount(), expected.size(), 5000);
        QCOMPARE(d.commands(), expected);
        // Setup mode draws with 8 x 13; the user's 10 x 20 waits for hand-back.
        QCOMPARE(d.launcherValue("font/width"), 8);
        QCOMPARE(d.launcherValue("font/height"), 13);
        QVERIFY(d.sandbox.calls().isEmpty());
        QVERIFY(d.sandbox.exists(Sandbox::StartFlagPath));

        // Events now reach the main menu.
        QTRY_COMPARE(d.collector.clientCount(), 1);
        d.collector.sendShaft(4, 1);
        QTRY_COMPARE(d.commands(expected.size()),
                     QStringList({"text 0 1 1 TESTING", "text 0 0 0 SETUP"}));
    }

    void missingMainApplicationClearsAllScreens()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.sandbox.removeFile(Sandbox::MainAppScriptPath));
        QVERIFY(d.startPeers());
        QVERIFY(d.start());

        const QStringList expected = QStringList("clear -1") + PanelDaemon::firstMainMenuCommands();
        QTRY_COMPARE_WITH_TIMEOUT(d.commandCount(), expected.size(), 5000);
        QCOMPARE(d.commands(), expected);
        QCOMPARE(d.launcherValue("font/width"), 8);
        QCOMPARE(d.launcherValue("font/height"), 13);
        QVERIFY(d.sandbox.calls().isEmpty());
    }

    void unsetAddressCreatesFlag_data()
    {
        QTest::addColumn<QByteArray>("interfaces");
        QTest::newRow("0.0.0.0") << QByteArray("auto lo\niface lo inet loopback\n\nauto eth0\n"
                                               "iface eth0 inet static\naddress 0.0.0.0\n");
        QTest::newRow("no address") << QByteArray("auto lo\niface lo inet loopback\n");
    }

    void unsetAddressCreatesFlag()
    {
        QFETCH(QByteArray, interfaces);
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.sandbox.writeFile("/etc/network/interfaces", interfaces));
        QVERIFY(d.startPeers());
        QVERIFY(d.start());

        const QStringList expected = PanelDaemon::firstMainMenuCommands();
        QTRY_COMPARE_WITH_TIMEOUT(d.commandCount(), expected.size(), 5000);
        QCOMPARE(d.commands(), expected);
        QVERIFY(d.sandbox.exists(Sandbox::StartFlagPath));
        QVERIFY(d.hasLine("IP address is not set."));
        QVERIFY(d.hasLine(QStringLiteral("cmd = [ \"touch %1\" ]")
                              .arg(d.sandbox.hostPath(Sandbox::StartFlagPath))));
    }

    void missingInterfacesFileCreatesFlag()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.sandbox.removeFile("/etc/network/interfaces"));
        QVERIFY(d.startPeers());
        QVERIFY(d.start());

        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), PanelDaemon::firstMainMenuCommands(), 5000);
        QVERIFY(d.sandbox.exists(Sandbox::StartFlagPath));
        QVERIFY(d.hasLine("IP address is not set."));
    }

    void flagThatCannotBeCreatedLeavesIdle()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(QDir(d.sandbox.hostPath("/mnt/flashdisk")).removeRecursively());
        QVERIFY(d.sandbox.writeFile("/etc/network/interfaces", "auto lo\niface lo inet loopback\n"));
        QVERIFY(d.startPeers());
        QVERIFY(d.start());

        QTRY_VERIFY(d.hasLine("IP address is not set."));
        // Idle: a shaft turn feeds only the activation logic and draws nothing.
        QTRY_COMPARE(d.collector.clientCount(), 1);
        d.collector.sendShaft(4, 1);
        d.collector.sendKey(28, 1);
        QTest::qWait(1500);
        QVERIFY(d.isRunning());
        QCOMPARE(d.commandCount(), 0);
        QVERIFY(!d.sandbox.exists(Sandbox::StartFlagPath));
    }

    void idleWithoutFlagAndWithMainApplication()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.startPeers());
        QVERIFY(d.start());
        QTRY_COMPARE(d.collector.clientCount(), 1);
        QTRY_COMPARE(d.driver.clientCount(), 1);
        d.collector.sendShaft(4, 1);
        d.collector.sendKey(28, 1);
        QTest::qWait(1500);
        QCOMPARE(d.commandCount(), 0);
        QCOMPARE(d.launcherValue("font/width"), 10);
        QVERIFY(!d.sandbox.exists(Sandbox::StartFlagPath));
    }
};

QTEST_GUILESS_MAIN(TestE2eAutoEntry)
#include "tst_e2e_autoentry.moc"

// Upgrade images in /tmp: take-over, dead input, reboot when they are gone.
#include "support/PanelDaemon.h"

#include <QElapsedTimer>
#include <QtTest>

using P = PanelDaemon;

class TestE2eUpgrade : public QObject
{
    Q_OBJECT

private:
    static QStringList upgradeCommands()
    {
        return P::resetPanelCommands() + P::resetPanelCommands()
               + QStringList({"text -1 2 0      Upgrade", "text -1 3 0         In", "text -1 4 0      Progress",
                              "leds -1 0 0", "leds -1 1 0"});
    }

    static QString pathLine(const PanelDaemon &d)
    {
        return QStringLiteral("Path that changed = \"%1\"").arg(d.sandbox.hostPath("/tmp"));
    }

    // Waits for the upgrade screen and checks it on every screen.
    static bool upgradeShown(const PanelDaemon &d, int mark)
    {
        if (!QTest::qWaitFor([&] { return d.commandCount() >= mark + upgradeCommands().size(); }, 6000)
            || d.commands(mark) != upgradeCommands())
            return false;
        for (int screen = 0; screen < 3; ++screen) {
            if (d.driver.panel().text(screen, 2) != "     Upgrade" || d.driver.panel().text(screen, 3) != "        In"
                || d.driver.panel().text(screen, 4) != "     Progress")
                return false;
        }
        return true;
    }

    // Menu events that must have no effect while the upgrade runs.
    static void sendInput(PanelDaemon &d)
    {
        d.collector.send(P::turn(1));
        d.collector.send(P::select());
        d.collector.send(P::back());
        d.collector.sendKey(24, 1);
        d.collector.sendKey(25, 1);
    }

private Q_SLOTS:
    void imageInIdleRunsToReboot()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startConnected());
        QVERIFY(d.waitUntilWatching());
        QVERIFY(d.sandbox.writeFile("/tmp/panel-2.0.img", "image"));
        QVERIFY(upgradeShown(d, 0));
        QCOMPARE(d.sandbox.calls(), QStringList("setup_script enter"));
        QVERIFY(d.hasLine("Upgrade files detected: (\"panel-2.0.img\")"));
        QCOMPARE(d.launcherValue("font/width"), 8);

        // Input is dropped; other changes of /tmp keep the upgrade waiting.
        const int mark = d.commandCount();
        sendInput(d);
        QVERIFY(d.sandbox.writeFile("/tmp/notes.txt", "x"));
        QTRY_VERIFY(d.hasLine("Upgrade in progress: upgradeFiles = (\"panel-2.0.img\")"));
        QTest::qWait(300);
        QCOMPARE(d.commandCount(), mark);

        QElapsedTimer since;
        QVERIFY(d.sandbox.removeFile("/tmp/panel-2.0.img"));
        since.start();
        QTRY_VERIFY(d.hasLine("Upgrade has finished - relinquishing control."));
        QTRY_COMPARE_WITH_TIMEOUT(d.commandCount(), mark + 33, 6000);
        const QStringList closing = d.commands(mark);
        QCOMPARE(closing.mid(0, 5), QStringList({"leds -1 0 0", "leds -1 -1 200", "text 0 0 0 Rebooting",
                                                 "text 1 0 0 Rebooting", "text 2 0 0 Rebooting"}));
        QCOMPARE(closing.mid(5, 3), QStringList({"text 0 1 0  Now", "text 1 1 0  Now", "text 2 1 0  Now"}));
        QCOMPARE(closing.mid(29), P::resetPanelCommands());
        // Written after the panel's reset, so it may not be there yet.
        QTRY_COMPARE(d.launcherValue("font/width"), 10);
        QCOMPARE(d.launcherValue("font/height"), 20);
        QTRY_COMPARE_WITH_TIMEOUT(d.sandbox.calls(), QStringList({"setup_script enter", "reboot -n"}), 4000);
        QVERIFY(since.elapsed() >= 5300);
        QVERIFY(!d.hasLine("Changing state to st_reboot"));
    }

    void imageWhileInMenu()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::select(), 9).size(), 9); // the setup page
        const int mark = d.commandCount();
        QVERIFY(d.sandbox.writeFile("/tmp/a.img", "image"));
        QVERIFY(upgradeShown(d, mark));
        // The enter hook runs although setup mode was already on.
        QCOMPARE(d.sandbox.calls(), QStringList("setup_script enter"));

        sendInput(d);
        QTest::qWait(300);
        QCOMPARE(d.commandCount(), mark + upgradeCommands().size());
        QVERIFY(!d.hasLine("Page_Setup::collectorMsg(TFT_MENU_BUT) ==> _sh_submenu_val = 0"));
    }

    void otherFilesAreIgnored()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startConnected());
        QVERIFY(d.waitUntilWatching());
        const int changes = d.countLines(pathLine(d));
        QVERIFY(d.sandbox.writeFile("/tmp/upgrade.img.part", "x"));
        QVERIFY(d.sandbox.writeFile("/tmp/img", "x"));
        QTRY_VERIFY(d.countLines(pathLine(d)) > changes);
        QTest::qWait(300);
        QCOMPARE(d.commandCount(), 0);
        QVERIFY(d.sandbox.calls().isEmpty());
        QVERIFY(!d.hasLine("Upgrade files detected:"));
        QCOMPARE(d.launcherValue("font/width"), 10);
    }
};

QTEST_GUILESS_MAIN(TestE2eUpgrade)
#include "tst_e2e_upgrade.moc"

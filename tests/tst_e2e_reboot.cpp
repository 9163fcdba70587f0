// REBOOT and SHUTDOWN confirmed or declined, down to the stub commands.
#include "support/PanelDaemon.h"

#include <QElapsedTimer>
#include <QtTest>

using P = PanelDaemon;

class TestE2eReboot : public QObject
{
    Q_OBJECT

private:
    static QStringList onAllScreens(int line, const QString &text)
    {
        QStringList lines;
        for (int screen = 0; screen < 3; ++screen)
            lines << QStringLiteral("text %1 %2 0 %3").arg(screen).arg(line).arg(text);
        return lines;
    }

    static QStringList closingMessage(const QString &row0, const QString &row1)
    {
        QStringList lines = {"leds -1 0 0", "leds -1 -1 200"};
        lines << onAllScreens(0, row0) << onAllScreens(1, row1);
        for (int line = 2; line <= 8; ++line)
            lines << onAllScreens(line, QString());
        return lines + P::resetPanelCommands();
    }

private Q_SLOTS:
    void confirmed_data()
    {
        QTest::addColumn<int>("item");
        QTest::addColumn<QStringList>("confirmation");
        QTest::addColumn<QStringList>("closing");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("tryKeys");
        QTest::newRow("reboot") << 5
                                << QStringList({"text 1 0 0 Confirm Reboot:", "text 1 1 0 Reboot now?"})
                                << closingMessage("Rebooting", " Now")
                                << QStringList({"Changing state to st_reboot", "Performing reboot now.",
                                                "system( \"reboot -n\" )"})
                                << "reboot -n" << true;
        QTest::newRow("shutdown") << 6
                                  << QStringList({"text 1 0 0 Confirm Shutdown:", "text 1 1 0 Shutdown now?"})
                                  << closingMessage("Shutting ", "Down Now")
                                  << QStringList({"Changing state to st_poweroff", "Performing poweroff now.",
                                                  "system( \"poweroff -n\" )"})
                                  << "poweroff -n" << false;
    }

    void confirmed()
    {
        QFETCH(int, item);
        QFETCH(QStringList, confirmation);
        QFETCH(QStringList, closing);
        QFETCH(QStringList, log);
        QFETCH(QString, command);
        QFETCH(bool, tryKeys);

        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::turn(item), 2).size(), 2);
        QCOMPARE(d.step(P::select(), 5),
                 confirmation + QStringList({"text 1 2 0 ", "text 1 3 1 No", "text 1 4 0 Yes"}));
        QCOMPARE(d.step(P::turn(1), 2), QStringList({"text 1 3 0 No", "text 1 4 1 Yes"}));

        const int mark = d.commandCount();
        QElapsedTimer since;
        d.collector.send(P::select());
        since.start();
        QTRY_COMPARE_WITH_TIMEOUT(d.commandCount(), mark + closing.size(), 6000);
        QCOMPARE(d.commands(mark), closing);
        QVERIFY(since.elapsed() >= 3300);
        // The sequence is over on the panel: the activation keys no longer work.
        QElapsedTimer held;
        if (tryKeys) {
            d.collector.sendKey(24, 1);
            d.collector.sendKey(25, 1);
            held.start();
        }
        // The main application comes back with the user's font, written
        // after the panel's reset, so it may not be there yet.
        QTRY_COMPARE(d.launcherValue("font/width"), 10);
        QCOMPARE(d.launcherValue("font/height"), 20);

        QTRY_COMPARE_WITH_TIMEOUT(d.sandbox.calls(), QStringList(command), 4000);
        QVERIFY(since.elapsed() >= 5300);
        for (const QString &line : log)
            QVERIFY2(d.hasLine(line), qPrintable(line));

        // The stub left the daemon running, idle, with the keys dead.
        if (tryKeys)
            QTest::qWait(int(qMax<qint64>(0, 5700 - held.elapsed())));
        QVERIFY(d.isRunning());
        QCOMPARE(d.commands(mark), closing);
        QCOMPARE(d.sandbox.calls(), QStringList(command));
    }

    void declined()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::turn(5), 2), QStringList({"text 0 5 1 REBOOT", "text 0 0 0 SETUP"}));
        QCOMPARE(d.step(P::select(), 5).size(), 5);
        // The two answers wrap around: Yes, No again, and -1 from No is Yes.
        QCOMPARE(d.step(P::turn(1), 2), QStringList({"text 1 3 0 No", "text 1 4 1 Yes"}));
        QCOMPARE(d.step(P::turn(1), 2), QStringList({"text 1 3 1 No", "text 1 4 0 Yes"}));
        QCOMPARE(d.step(P::turn(-1), 2), QStringList({"text 1 3 0 No", "text 1 4 1 Yes"}));
        QCOMPARE(d.step(P::turn(5), 2), QStringList({"text 1 3 1 No", "text 1 4 0 Yes"}));
        QCOMPARE(d.step(P::select(), 10), P::mainMenuReturnCommands(5, 0));
        QVERIFY(!d.hasLine("Performing reboot now."));
        QCOMPARE(d.launcherValue("font/width"), 8);
        QVERIFY(d.sandbox.calls().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestE2eReboot)
#include "tst_e2e_reboot.moc"

#include "pages/Page_Main.h"
#include "support/AddressEditors.h"
#include "support/RecordingCallback.h"
#include "support/TestRoot.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QtTest>

#include <climits>

using collector::CollectorMsg;

namespace {

// Debug lines are counted and dropped: millions of them would only slow the run.
QtMessageHandler previousHandler = nullptr;
qint64 droppedDebugLines = 0;

void quietHandler(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtDebugMsg) {
        ++droppedDebugLines;
        return;
    }
    previousHandler(type, context, text);
}

class EventSource
{
public:
    explicit EventSource(quint32 seed) : _rng(seed) {}

    CollectorMsg next()
    {
        CollectorMsg msg;
        const int kind = percent();
        if (kind < 40) {
            msg.type = collector::MSG_KEY;
            const int which = percent();
            msg.id = which < 30 ? collector::TFT_MENU_BUT : which < 50 ? 2 : between(-5, 40);
            const int press = percent();
            msg.value = press < 50 ? 1 : press < 85 ? 0 : extreme();
        } else if (kind < 80) {
            msg.type = collector::MSG_SHAFT;
            msg.id = percent() < 60 ? collector::TFT_MENU_SHAFT : between(-5, 40);
            msg.value = percent() < 95 ? 0 : extreme();
            msg.delta = delta();
        } else if (kind < 90) {
            msg.type = collector::MSG_GPI;
            msg.id = between(-5, 40);
            msg.value = percent() < 50 ? 0 : extreme();
        } else {
            static const quint32 otherKinds[] = {0, 4, 5, 100, 0x7fffffffu, 0xffffffffu};
            msg.type = otherKinds[between(0, 5)];
            msg.id = between(-5, 40);
            msg.value = extreme();
            msg.delta = delta();
        }
        return msg;
    }

    int percent() { return between(0, 99); }
    int between(int low, int high) { return _rng.bounded(low, high + 1); }

private:
    qint32 extreme()
    {
        switch (between(0, 5)) {
        case 0:
            return INT_MIN;
        case 1:
            return INT_MAX;
        case 2:
            return -1;
        case 3:
            return 1;
        default:
            return qint32(_rng.generate());
        }
    }

    qint32 delta()
    {
        const int which = percent();
        if (which < 70)
            return between(-3, 3);
        if (which < 90)
            return between(-20, 20);
        return extreme();
    }

    QRandomGenerator _rng;
};

} // namespace

// Long random event sequences through the whole page tree: no fault, no
// command that the button driver could not decode, selections in range.
class TestPageTreeRandom : public QObject
{
    Q_OBJECT

private:
    // QTRY_* polls every 50 ms; a save takes a little over 200 ms.
    static void waitForSave(Page_Main &tree)
    {
        QElapsedTimer clock;
        clock.start();
        while (tree.setupPage()->isSaving() && clock.elapsed() < 10000)
            QTest::qWait(5);
        QVERIFY(!tree.setupPage()->isSaving());
    }

    // Lines that only a given page draws, and the calls that leave the menu.
    static constexpr const char *pageMarks[] = {
        "text 1 0 1 SHAFTS",
        "text 2 0 0 Shaft Test",
        "text 2 0 0 Key Test",
        "text 2 0 0 GPI 0: OFF",
        "text 2 0 0 Select LED and ",
        "text 1 0 0 Confirm Reboot:",
        "text 1 0 0 Confirm Shutdown:",
        "text 1 0 1 IP Addr",
        "text 1 0 1 TFT Screen",
        "exit_setup",
        "reboot",
        "poweroff",
        "save_network_settings",
    };

    static void noteVisits(const QStringList &journal, QSet<QString> *visited)
    {
        for (const char *mark : pageMarks) {
            if (journal.contains(QLatin1String(mark)))
                visited->insert(QLatin1String(mark));
        }
    }

    // On a RAM disk: the intensity page commits its file on every apply.
    TestRoot _root{TestRoot::ramTemplate("pagetree")};
    AddressEditors _editors;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        QVERIFY(_root.writeFile("/opt/kd5820m/version", "kd5820m version 4.5.6\n"));
        QVERIFY(_root.writeFile("/etc/kd5820m/launcher.cfg", "[setup]\nbutton1=24\nbutton2=25\n[psu]\nredundant=0\n"));
        QVERIFY(_root.writeFile("/etc/kd5820m/buttonlevel", "lcd 100\nscr 60\n"));
        QVERIFY(_root.writeFonts({"6x13.pcf.gz", "8x13.pcf.gz", "10x20.pcf.gz"}));
    }

    void randomEventsThroughTheWholeTree()
    {
        const quint32 seed = 0x5eed2024u;
        const int eventCount = 200000;
        qInfo("pagetree random: seed 0x%x, %d events", seed, eventCount);

        RecordingCallback cb;
        for (Param *param : *_editors.params())
            param->setCallback(&cb);
        // Like the controller's sleep, let timers and queued calls run meanwhile.
        cb.setProcessEventsInSleep(true);
        previousHandler = qInstallMessageHandler(quietHandler);

        QElapsedTimer clock;
        clock.start();
        int commandsChecked = 0;
        int eventsWhileSaving = 0;
        QSet<QString> visited;
        int saves = 0;
        {
            Page_Main tree(&cb, _editors.params());
            tree.onEnter();
            EventSource source(seed);
            for (int i = 1; i <= eventCount; ++i) {
                const CollectorMsg msg = source.next();
                // The controller hands events to the page the main page records as current.
                if (i % 2)
                    tree.collectorMsg(msg);
                else
                    tree.currentPage()->collectorMsg(msg);

                const int extra = source.between(0, 9999);
                if (extra < 20)
                    QCoreApplication::processEvents(); // blink, redraw and apply timers, save thread
                else if (extra < 22)
                    tree.onEnter(); // taken over again
                else if (extra < 23)
                    tree.resetMenuSelection();

                // The setup page is deaf while its save thread runs (about 200 ms):
                // feed it a few events, then let the save finish.
                if (tree.setupPage()->isSaving() && ++eventsWhileSaving % 50 == 0) {
                    ++saves;
                    waitForSave(tree);
                    if (QTest::currentTestFailed())
                        return;
                }

                QVERIFY2(tree.menuValue() >= -1 && tree.menuValue() <= 7, qPrintable(QString::number(i)));
                QVERIFY(tree.prevMenuValue() >= -1 && tree.prevMenuValue() <= 7);
                QVERIFY(tree.testingPage()->submenuValue() >= -1 && tree.testingPage()->submenuValue() <= 3);
                QVERIFY(tree.testingPage()->prevSubmenuValue() >= -1
                        && tree.testingPage()->prevSubmenuValue() <= 3);
                if (i % 1000 == 0) {
                    const QStringList commands = cb.commands();
                    QVERIFY2(cb.undecodableCount() == 0,
                             qPrintable(commands.filter("undecodable").value(0) + " before event "
                                        + QString::number(i)));
                    commandsChecked += commands.size();
                    noteVisits(cb.journal(), &visited);
                    cb.clear();
                }
            }
            // Let a running save finish before the tree goes.
            waitForSave(tree);
            QCoreApplication::processEvents();
            QCOMPARE(cb.undecodableCount(), 0);
            commandsChecked += cb.commands().size();
            noteVisits(cb.journal(), &visited);
        }
        qInstallMessageHandler(previousHandler);
        qInfo("pagetree random: %d commands decoded, %lld debug lines, %d saves waited for, %lld ms",
              commandsChecked, droppedDebugLines, saves, qint64(clock.elapsed()));
        QVERIFY(commandsChecked > eventCount / 2); // the events really drew something
        // The walk reached every page and every way out of the menu.
        QCOMPARE(visited, QSet<QString>(std::begin(pageMarks), std::end(pageMarks)));
    }
};

QTEST_GUILESS_MAIN(TestPageTreeRandom)
#include "tst_pagetree_random.moc"

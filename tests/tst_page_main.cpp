#include "pages/MenuTables.h"
#include "pages/Page_Main.h"
#include "support/AddressEditors.h"
#include "support/MenuEvents.h"
#include "support/MessageRecorder.h"
#include "support/RecordingCallback.h"
#include "support/TestPageDrawings.h"
#include "support/TestRoot.h"

#include <QFile>
#include <QtTest>

#include <climits>
#include <memory>

using collector::CollectorMsg;
using menuevents::turn;
using menuevents::select;

namespace {

const QStringList ledsOff = testpagedrawings::statusLedsOff();

// The whole main menu, "SETUP" selected, with the version text last.
QStringList wholeMenu(const QString &version)
{
    return {"text 0 0 1 SETUP", "text 0 1 0 TESTING", "text 0 2 0 INTENSITY", "text 0 3 0 EXIT", "text 0 4 0 ",
            "text 0 5 0 REBOOT", "text 0 6 0 SHUTDOWN", "text 0 7 0 " + version};
}

const QStringList firstEntry = QStringList{"batch 4", "clear 0", "clear 1", "clear 2", "leds -1 0 0"} + ledsOff
    + wholeMenu("V=1.2.3");

// Entry with the menu already drawn: only the selected item and the
// previous one are redrawn.
QStringList reentry(const QStringList &itemLines)
{
    return QStringList{"batch 3", "clear 1", "clear 2", "leds -1 0 0"} + ledsOff + itemLines;
}

QString refreshLog(int sel, int prev)
{
    return QStringLiteral("Entering Page_Main::refresh_main_items(): _sh_menu_val = %1 , _prev_sh_menu_val = %2")
        .arg(sel)
        .arg(prev);
}

QStringList refreshLogs(int sel, int prev)
{
    return {refreshLog(sel, prev), "Refreshing previous and current menu items",
            "Done refreshing previous and current menu items", "Leaving Page_Main::refresh_main_items()"};
}

QString beforeSwitch(int sel)
{
    return QStringLiteral("Page_Main::collectorMsg(): Before main switch (_sh_menu_val = %1 )").arg(sel);
}

} // namespace

class TestPageMain : public QObject
{
    Q_OBJECT

private:
    TestRoot _root;
    AddressEditors _editors;

    void writeVersion(const QByteArray &firstLine)
    {
        QVERIFY(_root.writeFile("/opt/kd5820m/version", firstLine + "\n"));
    }

    // A tree with the menu drawn once, the journal cleared.
    std::unique_ptr<Page_Main> enteredTree(RecordingCallback *cb)
    {
        auto page = std::make_unique<Page_Main>(cb, _editors.params());
        page->onEnter();
        cb->clear();
        return page;
    }

    // Moves the selection of a drawn menu from 0 to index.
    static void moveTo(Page_Main *page, RecordingCallback *cb, int index)
    {
        if (index > 0)
            page->collectorMsg(turn(index));
        QCOMPARE(page->menuValue(), index);
        cb->clear();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        writeVersion("kd5820m version 1.2.3");
        QVERIFY(_root.writeFile("/etc/kd5820m/launcher.cfg", "[psu]\nredundant=1\n"));
        QVERIFY(_root.writeFile("/etc/kd5820m/buttonlevel", "lcd 70\nscr 40\n"));
        QVERIFY(_root.writeFonts({"10x20.pcf.gz", "6x13.pcf.gz", "8x13.pcf.gz"}));
    }

    void constructionBuildsThePagesInOrder()
    {
        RecordingCallback cb;
        MessageRecorder log;
        Page_Main page(&cb, _editors.params());
        const QStringList tracked{"_sh_psu_val =", "Done creating Page_Setup instance", "Creating Page_",
                                  "line =", "Panel Version:"};
        QStringList order;
        for (const QString &line : log.messages()) {
            for (const QString &prefix : tracked) {
                if (line.startsWith(prefix))
                    order << line;
            }
        }
        QCOMPARE(order, (QStringList{"_sh_psu_val = 1", "Done creating Page_Setup instance",
                                     "Creating Page_ShaftTest instance", "Creating Page_KeyTest instance",
                                     "Creating Page_LEDTest instance", "line = \"lcd 70\"", "line = \"scr 40\"",
                                     "Creating Page_RebootPoweroff instance",
                                     "Creating Page_RebootPoweroff instance", "Panel Version: \"V=1.2.3\""}));
        QCOMPARE(log.messages().last(), QString("Panel Version: \"V=1.2.3\""));
        QCOMPARE(cb.journal(), QStringList());
        QCOMPARE(page.currentPage(), &page);
        QCOMPARE(page.menuValue(), -1);
        QCOMPARE(page.prevMenuValue(), -1);
        QCOMPARE(QString(main_menu_items[MAIN_MENU_VERSION_INDEX]), QString("V=1.2.3"));
    }

    void firstEntryDrawsTheWholeMenu()
    {
        RecordingCallback cb;
        Page_Main page(&cb, _editors.params());
        MessageRecorder log;
        page.onEnter();
        QCOMPARE(log.messages(), (QStringList{"Page_Main::onEnter()", refreshLog(-1, -1),
                                              "First time startup for Page_Main::refresh_main_items().",
                                              "Leaving Page_Main::refresh_main_items()",
                                              "Leaving Page_Main::onEnter()"}));
        QCOMPARE(cb.journal(), firstEntry);
        QCOMPARE(page.menuValue(), 0);
        QCOMPARE(page.prevMenuValue(), -1);
        QCOMPARE(page.currentPage(), &page);
        QCOMPARE(cb.undecodableCount(), 0);
        // Each menu line is its own send.
        QCOMPARE(cb.sends().size(), size_t(1 + 5 + 8));
    }

    void reentryRedrawsTheSelectedAndThePreviousItem()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        page->collectorMsg(turn(2));
        cb.clear();
        MessageRecorder log;
        page->onEnter();
        QCOMPARE(cb.journal(), reentry({"text 0 2 1 INTENSITY", "text 0 0 0 SETUP"}));
        QCOMPARE(log.messages(), QStringList{"Page_Main::onEnter()"} + refreshLogs(2, 0)
                                     + QStringList{"Leaving Page_Main::onEnter()"});
    }

    void turnsMoveTheSelection()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        MessageRecorder log;
        page->collectorMsg(turn(1));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 0 1 1 TESTING", "text 0 0 0 SETUP"}));
        QCOMPARE(log.messages(), refreshLogs(1, 0));
        page->collectorMsg(turn(4));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 0 5 1 REBOOT", "text 0 1 0 TESTING"}));
        page->collectorMsg(turn(-2));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 0 3 1 EXIT", "text 0 5 0 REBOOT"}));
        page->collectorMsg(turn(0));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 0 3 1 EXIT", "text 0 3 0 EXIT"}));
    }

    void turnBelowZeroKeepsThePreviousValue()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        page->collectorMsg(turn(1)); // selection 1, previous 0
        cb.clear();
        page->collectorMsg(turn(-5));
        QCOMPARE(page->menuValue(), 0);
        QCOMPARE(page->prevMenuValue(), 0);
        QCOMPARE(cb.takeJournal(), (QStringList{"text 0 0 1 SETUP", "text 0 0 0 SETUP"}));

        page->collectorMsg(turn(3)); // selection 3, previous 0
        page->collectorMsg(turn(INT_MIN));
        QCOMPARE(page->menuValue(), 0);
        QCOMPARE(page->prevMenuValue(), 0);
    }

    void turnPastTheLastItemSelectsTheVersionLine()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        page->collectorMsg(turn(20));
        QCOMPARE(cb.takeJournal(), QStringList{"text 0 7 1 V=1.2.3"}); // previous restored to -1
        QCOMPARE(page->menuValue(), 7);
        QCOMPARE(page->prevMenuValue(), -1);
        page->collectorMsg(turn(INT_MAX));
        QCOMPARE(cb.takeJournal(), QStringList{"text 0 7 1 V=1.2.3"});
        MessageRecorder log;
        page->collectorMsg(select());
        QCOMPARE(log.messages(), QStringList{beforeSwitch(7)});
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(page->currentPage(), page.get());
    }

    void selectOnTheEmptySpacerDoesNothing()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 4);
        MessageRecorder log;
        page->collectorMsg(select());
        QCOMPARE(log.messages(), QStringList{beforeSwitch(4)});
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(page->currentPage(), page.get());
        QCOMPARE(page->menuValue(), 4);
    }

    void selectReleaseAndOtherEventsAreIgnored()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 1);
        MessageRecorder log;
        page->collectorMsg(select(0));
        page->collectorMsg(CollectorMsg::key(2, 1));
        page->collectorMsg(CollectorMsg::key(27, 1));
        page->collectorMsg(CollectorMsg::key(-1, 1));
        page->collectorMsg(CollectorMsg::shaft(3, 1));
        page->collectorMsg(CollectorMsg::shaft(-4, 1));
        page->collectorMsg(CollectorMsg::gpi(28, 1));
        page->collectorMsg(CollectorMsg::gpi(4, 1));
        CollectorMsg unknown;
        unknown.type = 7;
        unknown.id = collector::TFT_MENU_BUT;
        unknown.value = 1;
        page->collectorMsg(unknown);
        page->collectorMsg(CollectorMsg());
        QCOMPARE(log.messages(), QStringList());
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(page->menuValue(), 1);
        QCOMPARE(page->currentPage(), page.get());
    }

    void exitResetsTheSelectionAndStays()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 3);
        MessageRecorder log;
        page->collectorMsg(select());
        QCOMPARE(log.messages(), QStringList{beforeSwitch(3)});
        QCOMPARE(cb.takeJournal(), QStringList{"exit_setup"});
        QCOMPARE(page->menuValue(), -1);
        QCOMPARE(page->prevMenuValue(), -1);
        QCOMPARE(page->currentPage(), page.get());

        // The never-drawn path: deltas below 1 are ignored, then the delta selects.
        page->collectorMsg(turn(0));
        page->collectorMsg(turn(-2));
        QCOMPARE(cb.takeJournal(), QStringList());
        page->collectorMsg(turn(2));
        QCOMPARE(cb.takeJournal(), QStringList{"text 0 2 1 INTENSITY"});
        QCOMPARE(page->menuValue(), 2);
        QCOMPARE(page->prevMenuValue(), -1);
    }

    void entryAfterExitDrawsTheWholeMenu()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 3);
        page->collectorMsg(select());
        cb.clear();
        page->onEnter();
        QCOMPARE(cb.journal(), firstEntry);
        QCOMPARE(page->menuValue(), 0);
    }

    void firstTurnOnANeverDrawnMenuSelectsTheDelta()
    {
        RecordingCallback cb;
        Page_Main page(&cb, _editors.params());
        MessageRecorder log;
        page.collectorMsg(turn(3));
        QCOMPARE(cb.takeJournal(), QStringList{"text 0 3 1 EXIT"});
        QCOMPARE(log.messages(), refreshLogs(3, -1));
        QCOMPARE(page.menuValue(), 3);
        QCOMPARE(page.prevMenuValue(), -1);
    }

    void firstTurnBeyondTheMenuSelectsTheLastItem()
    {
        RecordingCallback cb;
        Page_Main page(&cb, _editors.params());
        page.collectorMsg(turn(100));
        QCOMPARE(cb.takeJournal(), QStringList{"text 0 7 1 V=1.2.3"});
        QCOMPARE(page.menuValue(), 7);
    }

    void selectBeforeAnyDrawingDoesNothing()
    {
        RecordingCallback cb;
        Page_Main page(&cb, _editors.params());
        MessageRecorder log;
        page.collectorMsg(select());
        QCOMPARE(log.messages(), QStringList{beforeSwitch(-1)});
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(page.currentPage(), &page);
    }

    void testingPageTakesTheEvents()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 1);
        page->collectorMsg(select());
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 1", "clear 2", "text 1 0 1 SHAFTS", "text 1 1 0 KEYS",
                                                "text 1 2 0 GPIs", "text 1 3 0 LEDs"}));
        QCOMPARE(page->currentPage(), page->testingPage());

        // A select press goes to the testing page (which enters the shaft test).
        MessageRecorder log;
        page->collectorMsg(select());
        QCOMPARE(log.messages().filter("Before main switch"), QStringList());
        QCOMPARE(cb.takeJournal().mid(0, 2), (QStringList{"leds -1 0 0", "clear 2"}));
        QCOMPARE(page->menuValue(), 1);
        QCOMPARE(page->prevMenuValue(), 0);
        QCOMPARE(page->currentPage(), page->testingPage());

        // Turns go to the shaft test, not to the main menu.
        page->collectorMsg(turn(2));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 0 0 Shaft Test", "text 2 5 0 4: 0, 0, 2"}));
        QCOMPARE(page->menuValue(), 1);

        // Back to the testing menu, then back to the main menu.
        page->collectorMsg(CollectorMsg::key(0, 1));
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 1", "clear 2"}));
        page->collectorMsg(CollectorMsg::key(2, 1));
        QCOMPARE(cb.takeJournal(), reentry({"text 0 1 1 TESTING", "text 0 0 0 SETUP"}));
        QCOMPARE(page->currentPage(), page.get());
        QCOMPARE(page->menuValue(), 1);
    }

    void testingSelectionDoesNotMoveTheMainSelection()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 1);
        page->collectorMsg(select());
        cb.clear();
        page->collectorMsg(turn(-4));
        page->collectorMsg(turn(3));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 0 1 SHAFTS", "text 1 3 1 LEDs", "text 1 0 0 SHAFTS"}));
        QCOMPARE(page->menuValue(), 1);
        QCOMPARE(page->prevMenuValue(), 0);
    }

    void ledsStayOffOnReturnFromTheLedTest()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 1);
        page->collectorMsg(select());      // testing
        page->collectorMsg(turn(3));       // LEDs
        page->collectorMsg(select());      // LED test
        page->collectorMsg(select());      // PSU on
        cb.clear();
        page->collectorMsg(CollectorMsg::key(2, 1)); // back to testing
        page->collectorMsg(CollectorMsg::key(2, 1)); // back to main
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 1", "clear 2"} + reentry({"text 0 1 1 TESTING", "text 0 0 0 SETUP"})));
    }

    void rebootConfirmation()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 5);
        page->collectorMsg(select());
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 0 0 Confirm Reboot:", "text 1 1 0 Reboot now?",
                                                "text 1 2 0 ", "text 1 3 1 No", "text 1 4 0 Yes"}));
        QVERIFY(page->currentPage() != page.get());

        // "No": back to the main menu, whose entry clears the confirmation.
        page->collectorMsg(select());
        QCOMPARE(cb.takeJournal(), reentry({"text 0 5 1 REBOOT", "text 0 0 0 SETUP"}));
        QCOMPARE(page->currentPage(), page.get());

        page->collectorMsg(select());
        page->collectorMsg(turn(1));
        cb.clear();
        page->collectorMsg(select());
        QCOMPARE(cb.takeJournal(), QStringList{"reboot"});
    }

    void shutdownConfirmation()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        moveTo(page.get(), &cb, 6);
        page->collectorMsg(select());
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 0 0 Confirm Shutdown:", "text 1 1 0 Shutdown now?",
                                                "text 1 2 0 ", "text 1 3 1 No", "text 1 4 0 Yes"}));
        page->collectorMsg(turn(-1));
        cb.clear();
        page->collectorMsg(select());
        QCOMPARE(cb.takeJournal(), QStringList{"poweroff"});
        QVERIFY(page->currentPage() != page.get());
    }

    void setupAndIntensityPagesAreEntered()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        page->collectorMsg(select());
        QCOMPARE(page->currentPage(), page->setupPage());
        QVERIFY(!cb.takeJournal().isEmpty());
        page->collectorMsg(CollectorMsg::key(2, 1)); // leave the setup page
        // Selection 0, previous -1: the selected item alone.
        QCOMPARE(cb.takeJournal(), reentry({"text 0 0 1 SETUP"}));
        QCOMPARE(page->currentPage(), page.get());

        page->collectorMsg(turn(2));
        cb.clear();
        page->collectorMsg(select());
        Page *intensity = page->currentPage();
        QVERIFY(intensity != page.get());
        QVERIFY(intensity != page->setupPage());
        QVERIFY(intensity != page->testingPage());
        QVERIFY(!cb.takeJournal().isEmpty());
        page->collectorMsg(CollectorMsg::key(2, 1)); // leave the intensity page
        QCOMPARE(cb.takeJournal(), reentry({"text 0 2 1 INTENSITY", "text 0 0 0 SETUP"}));
        QCOMPARE(page->currentPage(), page.get());
        QCOMPARE(cb.undecodableCount(), 0);
    }

    void resetMenuSelectionMakesTheNextEntryDrawAll()
    {
        RecordingCallback cb;
        auto page = enteredTree(&cb);
        page->collectorMsg(turn(5));
        page->resetMenuSelection();
        QCOMPARE(page->menuValue(), -1);
        QCOMPARE(page->prevMenuValue(), -1);
        cb.clear();
        page->onEnter();
        QCOMPARE(cb.journal(), firstEntry);
    }

    void versionTextForms_data()
    {
        QTest::addColumn<QByteArray>("firstLine");
        QTest::addColumn<QString>("shown");
        QTest::newRow("1.2.3") << QByteArray("kd5820m version 1.2.3") << "V=1.2.3";
        QTest::newRow("12 characters") << QByteArray("kd5820m version 123456789012") << "V=12345678";
        QTest::newRow("two words") << QByteArray("kd5820m version") << "VER=N/A";
        // Logged as it stands, not escaped.
        QTest::newRow("quote and backslash") << QByteArray("kd5820m version 1\"2\\3") << "V=1\"2\\3";
    }

    void versionTextForms()
    {
        QFETCH(QByteArray, firstLine);
        QFETCH(QString, shown);
        writeVersion(firstLine);
        RecordingCallback cb;
        MessageRecorder log;
        {
            Page_Main page(&cb, _editors.params());
            QCOMPARE(log.messages().last(), "Panel Version: \"" + shown + "\"");
            page.onEnter();
            QCOMPARE(cb.commands().last(), "text 0 7 0 " + shown);
        }
        writeVersion("kd5820m version 1.2.3");
    }

    void missingVersionFile()
    {
        QVERIFY(QFile::remove(_root.hostPath("/opt/kd5820m/version")));
        RecordingCallback cb;
        {
            Page_Main page(&cb, _editors.params());
            page.collectorMsg(turn(7));
            QCOMPARE(cb.takeJournal(), QStringList{"text 0 7 1 VER=N/A"});
        }
        writeVersion("kd5820m version 1.2.3");
    }

    void destructionRestoresThePlaceholder()
    {
        RecordingCallback cb;
        {
            Page_Main page(&cb, _editors.params());
            QCOMPARE(QString(main_menu_items[MAIN_MENU_VERSION_INDEX]), QString("V=1.2.3"));
        }
        QCOMPARE(main_menu_items[MAIN_MENU_VERSION_INDEX], main_menu_version_placeholder);
        QCOMPARE(QString(main_menu_items[MAIN_MENU_VERSION_INDEX]), QString(12, QLatin1Char(' ')));
    }
};

QTEST_GUILESS_MAIN(TestPageMain)
#include "tst_page_main.moc"

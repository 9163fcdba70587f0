#include "pages/Page_LEDTest.h"
#include "support/MenuEvents.h"
#include "support/MessageRecorder.h"
#include "support/RecordingCallback.h"
#include "support/RecordingPage.h"
#include "support/TestPageDrawings.h"

#include <QtTest>

#include <climits>

using collector::CollectorMsg;
using menuevents::turn;
using menuevents::select;

namespace {

const QStringList entryLines = testpagedrawings::ledTestEntry();

} // namespace

class TestPageLEDTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void creationLogs()
    {
        RecordingCallback cb;
        MessageRecorder log;
        Page_LEDTest page(&cb, nullptr);
        QCOMPARE(log.messages(), QStringList{"Creating Page_LEDTest instance"});
        QCOMPARE(cb.journal(), QStringList());
    }

    void entrySwitchesAllOffAndListsThem()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        QCOMPARE(cb.takeJournal(), entryLines);
        QCOMPARE(cb.sends().size(), size_t(13));
        QCOMPARE(cb.undecodableCount(), 0);
    }

    void selectOnPsuTogglesIt()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 3 1 PSU: OK", "led2 0 1"}));
        page.collectorMsg(select(0)); // release
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(select(-1));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 3 1 PSU: FAIL", "led2 0 0"}));
    }

    void turnBelowPsuKeepsPsu()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(turn(-2));
        // Clamped: the previous value stays -1, so only PSU is redrawn.
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 3 1 PSU: FAIL", "led2 0 0"}));
    }

    void turnsMoveTheSelection()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(turn(1));
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 3 0 PSU: FAIL", "led2 0 0", "text 2 4 1 AUX: FAIL", "led2 1 0"}));
        page.collectorMsg(turn(1));
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 4 0 AUX: FAIL", "led2 1 0", "text 2 5 1 FAULT: OFF", "led 2 0"}));
        page.collectorMsg(turn(10)); // clamped to COMM; previous stays AUX
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 4 0 AUX: FAIL", "led2 1 0", "text 2 7 1 COMM: OFF", "led 0 0"}));
        page.collectorMsg(turn(INT_MAX));
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 4 0 AUX: FAIL", "led2 1 0", "text 2 7 1 COMM: OFF", "led 0 0"}));
        page.collectorMsg(turn(-1));
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 7 0 COMM: OFF", "led 0 0", "text 2 6 1 WARNING: OFF", "led 1 0"}));
        page.collectorMsg(turn(INT_MIN)); // clamped to PSU; previous stays COMM
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 7 0 COMM: OFF", "led 0 0", "text 2 3 1 PSU: FAIL", "led2 0 0"}));
    }

    void selectOnWarningUsesCommand21()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(turn(3));
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 3 0 PSU: FAIL", "led2 0 0", "text 2 6 1 WARNING: ON", "led 1 1"}));
    }

    void togglesStayWhileMovingAndEntryResetsThem()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(turn(1));
        page.collectorMsg(select()); // AUX on
        page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(turn(-1));
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 5 0 FAULT: OFF", "led 2 0", "text 2 4 1 AUX: OK", "led2 1 1"}));
        page.onEnter();
        QCOMPARE(cb.takeJournal(), entryLines);
    }

    void backOnKeyTwoPress()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(2, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(CollectorMsg::key(2, 1));
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
    }

    void otherEventsAreIgnored()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(3, 1));
        page.collectorMsg(CollectorMsg::key(-1, 1));
        page.collectorMsg(CollectorMsg::key(40, 1));
        page.collectorMsg(CollectorMsg::shaft(3, 1));
        page.collectorMsg(CollectorMsg::shaft(-5, 1));
        CollectorMsg shaftTwo = CollectorMsg::shaft(2, 1);
        shaftTwo.value = 1; // id 2 with a value, but not a key
        page.collectorMsg(shaftTwo);
        page.collectorMsg(CollectorMsg::gpi(2, 1));
        page.collectorMsg(CollectorMsg::gpi(collector::TFT_MENU_BUT, 1));
        page.collectorMsg(CollectorMsg());
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(parent.enterCount(), 0);
    }

    void setterForEveryLed()
    {
        RecordingCallback cb;
        Page_LEDTest page(&cb, nullptr);
        page.setLed(-1, 1);
        QCOMPARE(cb.takeJournal(), (QStringList{"led2 0 1", "led2 1 1", "led 2 1", "led 1 1", "led 0 1"}));
        page.setLed(0, 1);
        page.setLed(1, 0);
        page.setLed(2, 1);
        page.setLed(3, 1);
        page.setLed(4, 1);
        QCOMPARE(cb.takeJournal(), (QStringList{"led2 0 1", "led2 1 0", "led 2 1", "led 1 1", "led 0 1"}));
    }

    void setterRefusesOtherIndexes()
    {
        RecordingCallback cb;
        Page_LEDTest page(&cb, nullptr);
        for (int index : {5, 6, -2, 100, INT_MAX, INT_MIN})
            page.setLed(index, 1);
        QCOMPARE(cb.takeJournal(), QStringList());
    }

    void setterLeavesTheStoredStates()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_LEDTest page(&cb, &parent);
        page.onEnter();
        page.setLed(-1, 1);
        cb.clear();
        page.collectorMsg(turn(0));
        // previous := selected, so PSU is drawn twice, from the stored state.
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 3 0 PSU: FAIL", "led2 0 0", "text 2 3 1 PSU: FAIL", "led2 0 0"}));
    }
};

QTEST_GUILESS_MAIN(TestPageLEDTest)
#include "tst_page_ledtest.moc"

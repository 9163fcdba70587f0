#include "pages/Page_GPIOTest.h"
#include "support/RecordingCallback.h"
#include "support/RecordingPage.h"
#include "support/TestPageDrawings.h"

#include <QtTest>

#include <climits>

using collector::CollectorMsg;

class TestPageGPIOTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void enteringShowsEveryInputOff()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_GPIOTest page(&cb, &parent);
        page.onEnter();
        QCOMPARE(cb.takeJournal(), testpagedrawings::gpiTestEntry());
        QCOMPARE(cb.takeJournal(), QStringList()); // nothing more
        QCOMPARE(cb.undecodableCount(), 0);
    }

    void inputFiveOnThenOff()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_GPIOTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::gpi(5, 1));
        QCOMPARE(cb.takeJournal(), QStringList{"text 2 5 0 GPI 5: ON"});
        page.collectorMsg(CollectorMsg::gpi(5, 0));
        QCOMPARE(cb.takeJournal(), QStringList{"text 2 5 0 GPI 5: OFF"});
    }

    void anyNonZeroValueIsActive()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_GPIOTest page(&cb, &parent);
        page.collectorMsg(CollectorMsg::gpi(0, -1));
        page.collectorMsg(CollectorMsg::gpi(7, INT_MIN));
        page.collectorMsg(CollectorMsg::gpi(3, 42));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 0 0 GPI 0: ON", "text 2 7 0 GPI 7: ON",
                                                "text 2 3 0 GPI 3: ON"}));
    }

    void outOfRangeInputsChangeNothing()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_GPIOTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        for (int id : {8, -1, 9, 40, -5, INT_MAX, INT_MIN})
            page.collectorMsg(CollectorMsg::gpi(id, 1));
        QCOMPARE(cb.takeJournal(), QStringList());
        // The eight real inputs were not touched either.
        page.collectorMsg(CollectorMsg::gpi(0, 0));
        page.collectorMsg(CollectorMsg::gpi(7, 0));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 0 0 GPI 0: OFF", "text 2 7 0 GPI 7: OFF"}));
        QCOMPARE(parent.enterCount(), 0);
    }

    void sameInputActiveTwiceIsDrawnTwice()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_GPIOTest page(&cb, &parent);
        page.collectorMsg(CollectorMsg::gpi(4, 1));
        page.collectorMsg(CollectorMsg::gpi(4, 1));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 4 0 GPI 4: ON", "text 2 4 0 GPI 4: ON"}));
    }

    void entryForgetsTheReportedStates()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_GPIOTest page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(CollectorMsg::gpi(3, 1));
        page.collectorMsg(CollectorMsg::gpi(6, 1));
        cb.clear();
        page.onEnter();
        QCOMPARE(cb.takeJournal(), testpagedrawings::gpiTestEntry());
    }

    void keyTwoPressGoesBack()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_GPIOTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(2, 1));
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
        page.collectorMsg(CollectorMsg::key(2, 5));
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
    }

    void otherEventsAreIgnored()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_GPIOTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(2, 0));                   // release of the back key
        page.collectorMsg(CollectorMsg::key(collector::TFT_MENU_BUT, 1)); // select
        page.collectorMsg(CollectorMsg::key(3, 1));
        page.collectorMsg(CollectorMsg::shaft(collector::TFT_MENU_SHAFT, 1));
        page.collectorMsg(CollectorMsg::shaft(2, 3));
        CollectorMsg shaftWithValue = CollectorMsg::shaft(2, 0);
        shaftWithValue.value = 1; // id 2, non-zero value, but not a key
        page.collectorMsg(shaftWithValue);
        CollectorMsg unknown;
        unknown.type = 9;
        unknown.id = 2;
        unknown.value = 1;
        page.collectorMsg(unknown);
        page.collectorMsg(CollectorMsg()); // kind 0
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(parent.enterCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestPageGPIOTest)
#include "tst_page_gpiotest.moc"

#include "pages/Page_Testing.h"
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

CollectorMsg makeEvent(quint32 kind, qint32 id, qint32 value, qint32 delta = 0)
{
    CollectorMsg msg;
    msg.type = kind;
    msg.id = id;
    msg.value = value;
    msg.delta = delta;
    return msg;
}

const QStringList freshMenu{"batch 1",           "clear 2",           "text 1 0 1 SHAFTS",
                            "text 1 1 0 KEYS",   "text 1 2 0 GPIs",   "text 1 3 0 LEDs"};
const QStringList detailCleared{"batch 1", "clear 2"};

} // namespace

class TestPageTesting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void creationLogsTheTestPages()
    {
        RecordingCallback cb;
        MessageRecorder log;
        Page_Testing page(&cb, nullptr);
        QCOMPARE(log.messages(), (QStringList{"Creating Page_ShaftTest instance", "Creating Page_KeyTest instance",
                                              "Creating Page_LEDTest instance"}));
        QCOMPARE(cb.journal(), QStringList());
        QCOMPARE(page.currentPage(), &page);
        QCOMPARE(page.submenuValue(), -1);
        QCOMPARE(page.prevSubmenuValue(), -1);
    }

    void firstEntryDrawsTheWholeMenu()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        MessageRecorder log;
        page.onEnter();
        QCOMPARE(log.messages(), (QStringList{"Page_Testing::onEnter()",
                                              "_sh_submenu_val = -1 , _prev_sh_submenu_val = -1",
                                              "Leaving Page_Testing::onEnter()"}));
        QCOMPARE(cb.takeJournal(), freshMenu);
        QCOMPARE(page.submenuValue(), 0);
        QCOMPARE(page.prevSubmenuValue(), -1);
        QCOMPARE(page.currentPage(), &page);
        QCOMPARE(cb.undecodableCount(), 0);
    }

    void reentryOnlyClearsTheDetailScreen()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(turn(2));
        cb.clear();
        MessageRecorder log;
        page.onEnter();
        QCOMPARE(log.messages(), (QStringList{"Page_Testing::onEnter()",
                                              "_sh_submenu_val = 2 , _prev_sh_submenu_val = 0",
                                              "Leaving Page_Testing::onEnter()"}));
        QCOMPARE(cb.takeJournal(), detailCleared);
    }

    void navigationMovesAndClamps()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(turn(1));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 1 1 KEYS", "text 1 0 0 SHAFTS"}));
        page.collectorMsg(turn(2));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 3 1 LEDs", "text 1 1 0 KEYS"}));
        page.collectorMsg(turn(1)); // clamped: previous stays KEYS
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 3 1 LEDs", "text 1 1 0 KEYS"}));
        QCOMPARE(page.submenuValue(), 3);
        QCOMPARE(page.prevSubmenuValue(), 1);
        page.collectorMsg(turn(-2));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 1 1 KEYS", "text 1 3 0 LEDs"}));
        page.collectorMsg(turn(INT_MIN)); // clamped to SHAFTS: previous stays LEDs
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 0 1 SHAFTS", "text 1 3 0 LEDs"}));
        page.collectorMsg(turn(0));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 0 1 SHAFTS", "text 1 0 0 SHAFTS"}));
    }

    void plusNineFromShaftsSelectsLeds()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(turn(9));
        // The previous value is restored to -1, so only LEDs is redrawn.
        QCOMPARE(cb.takeJournal(), QStringList{"text 1 3 1 LEDs"});
        QCOMPARE(page.submenuValue(), 3);
        QCOMPARE(page.prevSubmenuValue(), -1);
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), testpagedrawings::ledTestEntry());
        QCOMPARE(page.currentPage(), page.ledTestPage());
    }

    void selectEntersEachTestPage()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        cb.clear();

        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), testpagedrawings::shaftTestEntry());
        QVERIFY(page.currentPage() != &page);
        page.collectorMsg(CollectorMsg::key(5, 1)); // shaft test: back
        QCOMPARE(cb.takeJournal(), detailCleared);
        QCOMPARE(page.currentPage(), &page);

        page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), testpagedrawings::keyTestEntry());
        page.collectorMsg(CollectorMsg::key(24, 1)); // key test: back
        QCOMPARE(cb.takeJournal(), QStringList{"leds -1 0 0"} + detailCleared);

        page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), testpagedrawings::gpiTestEntry());
        page.collectorMsg(CollectorMsg::key(2, 1)); // GPI test: back
        QCOMPARE(cb.takeJournal(), detailCleared);

        page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), testpagedrawings::ledTestEntry());
        page.collectorMsg(CollectorMsg::key(2, 1)); // LED test: back
        QCOMPARE(cb.takeJournal(), detailCleared);
        QCOMPARE(page.currentPage(), &page);
        QCOMPARE(parent.enterCount(), 0);
    }

    void eventsGoToTheCurrentTestPage()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(select()); // shaft test
        cb.clear();
        page.collectorMsg(turn(-3));  // the shaft test's shaft 4, not the menu
        page.collectorMsg(select(0)); // swallowed by the shaft test
        page.collectorMsg(select(1));
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 0 0 Shaft Test", "text 2 5 0 4: 0, 0, -3",
                                                "text 2 0 0 Shaft Test", "text 2 5 0 4: 1, 0, -3"}));
        QCOMPARE(page.submenuValue(), 0);
        QCOMPARE(page.prevSubmenuValue(), -1);
    }

    void keyReleaseAfterLeavingTheShaftTestIsIgnored()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(select());
        cb.clear();
        page.collectorMsg(CollectorMsg::key(5, 1));
        QCOMPARE(cb.takeJournal(), detailCleared);
        page.collectorMsg(CollectorMsg::key(5, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(page.currentPage(), &page);
        QCOMPARE(parent.enterCount(), 0);
    }

    void backWhileATestPageIsCurrentGoesToTheTestPage()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(turn(2));
        page.collectorMsg(select()); // GPI test
        cb.clear();
        page.collectorMsg(CollectorMsg::key(2, 1));
        // The GPI test went back to this page; the parent saw nothing.
        QCOMPARE(cb.takeJournal(), detailCleared);
        QCOMPARE(parent.enterCount(), 0);
        QCOMPARE(page.submenuValue(), 2);

        page.collectorMsg(CollectorMsg::key(2, 1));
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
        QCOMPARE(page.submenuValue(), -1);
        QCOMPARE(page.prevSubmenuValue(), -1);
    }

    void backIsAnyKindWithIdTwoAndAValue_data()
    {
        QTest::addColumn<CollectorMsg>("msg");
        QTest::newRow("key 2 press") << CollectorMsg::key(2, 1);
        QTest::newRow("key 2 value -1") << CollectorMsg::key(2, -1);
        QTest::newRow("shaft 2 with a value") << makeEvent(collector::MSG_SHAFT, 2, 1, 5);
        QTest::newRow("GPI 2 active") << CollectorMsg::gpi(2, 1);
        QTest::newRow("kind 0") << makeEvent(0, 2, 3);
        QTest::newRow("kind 9") << makeEvent(9, 2, INT_MIN);
    }

    void backIsAnyKindWithIdTwoAndAValue()
    {
        QFETCH(CollectorMsg, msg);
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(msg);
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
        QCOMPARE(page.submenuValue(), -1);
        QCOMPARE(page.prevSubmenuValue(), -1);
        // The next entry draws the whole menu again.
        page.onEnter();
        QCOMPARE(cb.takeJournal(), freshMenu);
    }

    void idTwoWithoutAValueIsNotBack()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(2, 0));
        page.collectorMsg(CollectorMsg::gpi(2, 0));
        page.collectorMsg(CollectorMsg::shaft(2, 4));
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(parent.enterCount(), 0);
    }

    void freshMenuBranchOfTheShaft()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        // Never drawn: selection -1.
        page.collectorMsg(turn(0));
        page.collectorMsg(turn(-1));
        page.collectorMsg(turn(INT_MIN));
        page.collectorMsg(select()); // nothing selected
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(page.submenuValue(), -1);
        page.collectorMsg(turn(2)); // the delta itself becomes the selection
        QCOMPARE(cb.takeJournal(), QStringList{"text 1 2 1 GPIs"});
        QCOMPARE(page.submenuValue(), 2);
        QCOMPARE(page.prevSubmenuValue(), -1);
    }

    void freshMenuBranchAfterBack()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(CollectorMsg::key(2, 1));
        cb.clear();
        page.collectorMsg(turn(1));
        QCOMPARE(cb.takeJournal(), QStringList{"text 1 1 1 KEYS"});
        QCOMPARE(page.prevSubmenuValue(), -1);
    }

    void freshMenuTurnBeyondTheLastItemSelectsTheLastItem()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.collectorMsg(turn(40));
        QCOMPARE(cb.takeJournal(), QStringList{"text 1 3 1 LEDs"});
        QCOMPARE(page.submenuValue(), 3);
        page.collectorMsg(turn(INT_MAX));
        QCOMPARE(cb.takeJournal(), QStringList{"text 1 3 1 LEDs"});
    }

    void otherEventsAreIgnored()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Testing page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(select(0));
        page.collectorMsg(CollectorMsg::key(27, 1));
        page.collectorMsg(CollectorMsg::key(-1, 1));
        page.collectorMsg(CollectorMsg::shaft(3, 1));
        page.collectorMsg(CollectorMsg::shaft(40, 1));
        page.collectorMsg(CollectorMsg::gpi(28, 1));
        page.collectorMsg(makeEvent(collector::MSG_GPI, 4, 0, 1)); // a GPI is not the menu shaft
        page.collectorMsg(CollectorMsg());
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(page.currentPage(), &page);
        QCOMPARE(page.submenuValue(), 0);
    }

    void ledSetterIsReachable()
    {
        RecordingCallback cb;
        Page_Testing page(&cb, nullptr);
        page.ledTestPage()->setLed(-1, 0);
        QCOMPARE(cb.takeJournal(), testpagedrawings::statusLedsOff());
    }
};

QTEST_GUILESS_MAIN(TestPageTesting)
#include "tst_page_testing.moc"

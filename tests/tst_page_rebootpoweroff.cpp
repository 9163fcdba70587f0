#include "pages/Page_RebootPoweroff.h"
#include "support/MenuEvents.h"
#include "support/MessageRecorder.h"
#include "support/RecordingCallback.h"
#include "support/RecordingPage.h"

#include <QtTest>

#include <climits>

using collector::CollectorMsg;
using menuevents::turn;
using menuevents::select;

namespace {

const QStringList noHighlighted{"text 1 3 1 No", "text 1 4 0 Yes"};
const QStringList yesHighlighted{"text 1 3 0 No", "text 1 4 1 Yes"};

} // namespace

class TestPageRebootPoweroff : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void creationLogs()
    {
        RecordingCallback cb;
        MessageRecorder log;
        Page_RebootPoweroff page(&cb, nullptr, true);
        QCOMPARE(log.messages(), QStringList{"Creating Page_RebootPoweroff instance"});
        QCOMPARE(cb.journal(), QStringList());
    }

    void entryInRebootMode()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, true);
        page.onEnter();
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 0 0 Confirm Reboot:", "text 1 1 0 Reboot now?",
                                                "text 1 2 0 ", "text 1 3 1 No", "text 1 4 0 Yes"}));
        QCOMPARE(cb.sends().size(), size_t(5)); // one send per line
        QCOMPARE(cb.undecodableCount(), 0);
    }

    void entryInShutdownMode()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, false);
        page.onEnter();
        QCOMPARE(cb.takeJournal(), (QStringList{"text 1 0 0 Confirm Shutdown:", "text 1 1 0 Shutdown now?",
                                                "text 1 2 0 ", "text 1 3 1 No", "text 1 4 0 Yes"}));
    }

    void answersWrapAroundOneStepAtATime()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, true);
        page.onEnter();
        cb.clear();
        page.collectorMsg(turn(1));
        QCOMPARE(cb.takeJournal(), yesHighlighted);
        page.collectorMsg(turn(1)); // 2 or more wraps to "No"
        QCOMPARE(cb.takeJournal(), noHighlighted);
        page.collectorMsg(turn(-1)); // below 0 wraps to "Yes"
        QCOMPARE(cb.takeJournal(), yesHighlighted);
        page.collectorMsg(turn(-1));
        QCOMPARE(cb.takeJournal(), noHighlighted);
        page.collectorMsg(turn(0)); // still drawn
        QCOMPARE(cb.takeJournal(), noHighlighted);
    }

    void largeTurnsWrapToAFixedAnswer_data()
    {
        QTest::addColumn<int>("from"); // turns of +1 before the big one
        QTest::addColumn<int>("delta");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("+5 from No") << 0 << 5 << noHighlighted;
        QTest::newRow("+2 from No") << 0 << 2 << noHighlighted;
        QTest::newRow("+5 from Yes") << 1 << 5 << noHighlighted;
        QTest::newRow("-7 from No") << 0 << -7 << yesHighlighted;
        QTest::newRow("-2 from Yes") << 1 << -2 << yesHighlighted;
        QTest::newRow("-1 from Yes") << 1 << -1 << noHighlighted;
        QTest::newRow("INT_MAX from Yes") << 1 << INT_MAX << noHighlighted;
        QTest::newRow("INT_MIN from No") << 0 << INT_MIN << yesHighlighted;
    }

    void largeTurnsWrapToAFixedAnswer()
    {
        QFETCH(int, from);
        QFETCH(int, delta);
        QFETCH(QStringList, expected);
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, true);
        page.onEnter();
        for (int i = 0; i < from; ++i)
            page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(turn(delta));
        QCOMPARE(cb.takeJournal(), expected);
    }

    void selectOnNoGoesBack()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, true);
        page.onEnter();
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
    }

    void selectOnYesReboots()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, true);
        page.onEnter();
        page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), QStringList{"reboot"});
        // The screen stays; another press asks again.
        page.collectorMsg(select(7));
        QCOMPARE(cb.takeJournal(), QStringList{"reboot"});
        QCOMPARE(parent.enterCount(), 0);
    }

    void selectOnYesPowersOffInShutdownMode()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, false);
        page.onEnter();
        page.collectorMsg(turn(-1));
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), QStringList{"poweroff"});
    }

    void eachEntryStartsAtNo()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, true);
        page.onEnter();
        page.collectorMsg(turn(1)); // "Yes"
        page.onEnter();
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
    }

    void otherEventsAreIgnored()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_RebootPoweroff page(&cb, &parent, true);
        page.onEnter();
        page.collectorMsg(turn(1)); // "Yes": a wrong event would reboot
        cb.clear();
        page.collectorMsg(select(0)); // release
        page.collectorMsg(CollectorMsg::key(27, 1));
        page.collectorMsg(CollectorMsg::key(2, 1));
        page.collectorMsg(CollectorMsg::key(-1, 1));
        page.collectorMsg(CollectorMsg::shaft(3, 1));
        page.collectorMsg(CollectorMsg::shaft(-4, 1));
        page.collectorMsg(CollectorMsg::gpi(4, 1));
        CollectorMsg gpiLikeSelect = CollectorMsg::gpi(collector::TFT_MENU_BUT, 1);
        page.collectorMsg(gpiLikeSelect);
        page.collectorMsg(CollectorMsg());
        QCOMPARE(cb.takeJournal(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestPageRebootPoweroff)
#include "tst_page_rebootpoweroff.moc"

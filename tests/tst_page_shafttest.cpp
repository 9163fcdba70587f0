#include "pages/Page_ShaftTest.h"
#include "support/MessageRecorder.h"
#include "support/RecordingCallback.h"
#include "support/RecordingPage.h"
#include "support/TestPageDrawings.h"

#include <QtTest>

#include <climits>

using collector::CollectorMsg;

namespace {

// The title line and shaft n's line, as every shaft update draws them.
QStringList shaftLine(int n, int presses, int releases, int delta)
{
    return {"text 2 0 0 Shaft Test",
            QStringLiteral("text 2 %1 0 %2: %3, %4, %5").arg(n + 1).arg(n).arg(presses).arg(releases).arg(delta)};
}

} // namespace

class TestPageShaftTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void creationLogs()
    {
        RecordingCallback cb;
        MessageRecorder log;
        Page_ShaftTest page(&cb, nullptr);
        QCOMPARE(log.messages(), QStringList{"Creating Page_ShaftTest instance"});
        QCOMPARE(cb.journal(), QStringList());
    }

    void entryDrawsTwelveLines()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        const QStringList expected = testpagedrawings::shaftTestEntry();
        QCOMPARE(cb.takeJournal(), expected);
        QCOMPARE(expected.at(3), QString("text 2 1 0 0: 0, 0, 0"));
        QCOMPARE(expected.at(13), QString("text 2 6 0 5: 0, 0, 0"));
        QCOMPARE(cb.sends().size(), size_t(14)); // each through its own send
        QCOMPARE(cb.undecodableCount(), 0);
    }

    void firstSelectReleaseAfterEntryIsNotCounted()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(28, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(CollectorMsg::key(28, 1));
        QCOMPARE(cb.takeJournal(), shaftLine(4, 1, 0, 0));
        page.collectorMsg(CollectorMsg::key(28, 0));
        QCOMPARE(cb.takeJournal(), shaftLine(4, 1, 1, 0));
    }

    void firstSelectPressAfterEntryIsNotCountedEither()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(28, 1));
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(CollectorMsg::key(28, 0));
        QCOMPARE(cb.takeJournal(), shaftLine(4, 0, 1, 0));
    }

    void otherPushSwitchesCountAtOnce()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(24, 1));
        QCOMPARE(cb.takeJournal(), shaftLine(0, 1, 0, 0));
        page.collectorMsg(CollectorMsg::key(24, 0));
        QCOMPARE(cb.takeJournal(), shaftLine(0, 1, 1, 0));
        page.collectorMsg(CollectorMsg::key(29, 3));
        QCOMPARE(cb.takeJournal(), shaftLine(5, 1, 0, 0));
        // The select key is still swallowed once.
        page.collectorMsg(CollectorMsg::key(28, 1));
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(CollectorMsg::key(28, 1));
        QCOMPARE(cb.takeJournal(), shaftLine(4, 1, 0, 0));
    }

    void turnShowsTheLastDelta()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::shaft(2, -3));
        QCOMPARE(cb.takeJournal(), shaftLine(2, 0, 0, -3));
        page.collectorMsg(CollectorMsg::shaft(2, 7)); // the position is kept, not shown
        QCOMPARE(cb.takeJournal(), shaftLine(2, 0, 0, 7));
        page.collectorMsg(CollectorMsg::shaft(0, 0));
        QCOMPARE(cb.takeJournal(), shaftLine(0, 0, 0, 0));
        page.collectorMsg(CollectorMsg::shaft(5, INT_MIN));
        page.collectorMsg(CollectorMsg::shaft(5, INT_MIN)); // the position wraps, no fault
        page.collectorMsg(CollectorMsg::shaft(5, INT_MAX));
        QCOMPARE(cb.takeJournal(), shaftLine(5, 0, 0, INT_MIN) + shaftLine(5, 0, 0, INT_MIN)
                                       + shaftLine(5, 0, 0, INT_MAX));
    }

    void panelKeyPressLeaves()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(5, 1));
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
        page.collectorMsg(CollectorMsg::key(0, 1));
        page.collectorMsg(CollectorMsg::key(23, 1));
        QCOMPARE(cb.takeJournal(), (QStringList{"parent onEnter", "parent onEnter"}));
    }

    void panelKeyReleasesAreIgnored()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(5, 0));
        page.collectorMsg(CollectorMsg::key(23, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
    }

    void entryStartsTheCountersAtZero()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(CollectorMsg::key(25, 1));
        page.collectorMsg(CollectorMsg::shaft(1, 4));
        page.collectorMsg(CollectorMsg::key(28, 0)); // swallowed
        page.collectorMsg(CollectorMsg::key(28, 1));
        page.collectorMsg(CollectorMsg::key(7, 1));  // leaves
        cb.clear();
        page.onEnter();
        const QStringList expected = testpagedrawings::shaftTestEntry();
        QCOMPARE(cb.takeJournal(), expected);
        // The select key is swallowed again after the new entry.
        page.collectorMsg(CollectorMsg::key(28, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
    }

    // Any key numbered below 24 counts as a panel key, negative ids included.
    void negativeKeyPressLeaves()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        for (int id : {-1, -5, INT_MIN})
            page.collectorMsg(CollectorMsg::key(id, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
        for (int id : {-1, -5, INT_MIN})
            page.collectorMsg(CollectorMsg::key(id, 1));
        QCOMPARE(cb.takeJournal(), (QStringList{"parent onEnter", "parent onEnter", "parent onEnter"}));
        // Leaving set the swallow again: the next select event is not counted.
        page.collectorMsg(CollectorMsg::key(28, 1));
        page.collectorMsg(CollectorMsg::key(28, 0));
        QCOMPARE(cb.takeJournal(), shaftLine(4, 0, 1, 0));
    }

    // Keys above the six push switches and shafts outside 0..5 have no record.
    void idsWithoutRecordAreRejected()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        for (int id : {30, 31, 40, INT_MAX}) {
            page.collectorMsg(CollectorMsg::key(id, 1));
            page.collectorMsg(CollectorMsg::key(id, 0));
        }
        for (int id : {6, 7, 40, -1, -5, INT_MAX, INT_MIN})
            page.collectorMsg(CollectorMsg::shaft(id, 3));
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(parent.enterCount(), 0);
    }

    void otherKindsAreIgnored()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_ShaftTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::gpi(2, 1));
        page.collectorMsg(CollectorMsg::gpi(26, 1));
        page.collectorMsg(CollectorMsg());
        CollectorMsg unknown;
        unknown.type = 0xffffffffu;
        unknown.id = 3;
        unknown.value = 1;
        page.collectorMsg(unknown);
        QCOMPARE(cb.takeJournal(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestPageShaftTest)
#include "tst_page_shafttest.moc"

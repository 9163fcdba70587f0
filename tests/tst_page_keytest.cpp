#include "pages/Page_KeyTest.h"
#include "support/MessageRecorder.h"
#include "support/RecordingCallback.h"
#include "support/RecordingPage.h"
#include "support/TestPageDrawings.h"

#include <QElapsedTimer>
#include <QtTest>

#include <climits>

using collector::CollectorMsg;

namespace {

const QString allOn = QStringLiteral("leds -1 1 0");
const QString allOff = QStringLiteral("leds -1 0 0");

QStringList keyLines(int k, int down, int up)
{
    return {"text 2 0 0 Key Test", QStringLiteral("text 2 1 0 btid %1 down %2").arg(k).arg(down),
            QStringLiteral("text 2 2 0 btid %1 up %2").arg(k).arg(up),
            QStringLiteral("leds %1 %2 0").arg(k).arg(down % 2)};
}

const QStringList entryLines = testpagedrawings::keyTestEntry();

QString opposite(const QString &tick)
{
    return tick == allOn ? allOff : allOn;
}

} // namespace

// The release and blink counters are process-wide: every test leaves the
// release counter at 0 and reads the blink phase from the first tick it sees.
class TestPageKeyTest : public QObject
{
    Q_OBJECT

private:
    // Enters the page and ends the blinking with two releases.
    static void enterCounting(Page_KeyTest &page, RecordingCallback &cb)
    {
        page.onEnter();
        page.collectorMsg(CollectorMsg::key(28, 0)); // release of the select press
        page.collectorMsg(CollectorMsg::key(9, 0));
        cb.clear();
    }

private Q_SLOTS:
    // Runs first: the blink counter starts at 0 with the process, so the
    // first tick the process ever sends lights every key.
    void firstTickOfTheProcessLightsAllKeys()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        QTRY_COMPARE(cb.journal().size(), 2);
        QCOMPARE(cb.journal(), (QStringList{allOn, allOff}));
        page.collectorMsg(CollectorMsg::key(24, 1));
    }

    void blinkTimerIsPrecise()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        page.onEnter();
        const auto timer = page.findChild<QTimer *>();
        QVERIFY(timer);
        QVERIFY(timer->isActive());
        QCOMPARE(timer->interval(), 500);
        QVERIFY(!timer->isSingleShot());
        QCOMPARE(timer->timerType(), Qt::PreciseTimer);
        page.collectorMsg(CollectorMsg::key(24, 1));
    }

    void creationLogs()
    {
        RecordingCallback cb;
        MessageRecorder log;
        Page_KeyTest page(&cb, nullptr);
        QCOMPARE(log.messages(), QStringList{"Creating Page_KeyTest instance"});
        QCOMPARE(cb.journal(), QStringList());
    }

    void entryShowsKeyZeroThenBlinks()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        QElapsedTimer clock;
        clock.start();
        page.onEnter();
        QCOMPARE(cb.takeJournal(), entryLines);
        QCOMPARE(cb.undecodableCount(), 0);

        QTRY_COMPARE(cb.journal().size(), 1);
        const QString first = cb.journal().at(0);
        QVERIFY2(first == allOn || first == allOff, qPrintable(first));
        QTRY_COMPARE(cb.journal().size(), 3);
        QCOMPARE(cb.journal(), (QStringList{first, opposite(first), first}));
        QVERIFY2(clock.elapsed() >= 1400, qPrintable(QString::number(clock.elapsed())));
        cb.clear();

        // A push switch leaves the page and stops the blinking.
        page.collectorMsg(CollectorMsg::key(24, 1));
        QCOMPARE(cb.takeJournal(), (QStringList{allOff, "parent onEnter"}));
        QTest::qWait(700);
        QCOMPARE(cb.takeJournal(), QStringList());
    }

    void blinkPhaseCarriesOverToTheNextVisit()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        QTRY_COMPARE(cb.journal().size(), 1);
        const QString tick = cb.journal().at(0);
        page.collectorMsg(CollectorMsg::key(27, 1));
        page.onEnter();
        cb.clear();
        QTRY_COMPARE(cb.journal().size(), 1);
        QCOMPARE(cb.journal().at(0), opposite(tick));
        page.collectorMsg(CollectorMsg::key(27, 1));
    }

    void twoReleasesEndTheBlinking()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        // Presses add nothing while blinking; releases are not counted.
        page.collectorMsg(CollectorMsg::key(3, 1));
        page.collectorMsg(CollectorMsg::key(4, 1));
        page.collectorMsg(CollectorMsg::key(3, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(CollectorMsg::key(4, 0));
        QCOMPARE(cb.takeJournal(), keyLines(0, 0, 0));
        // Counting now; the timer is stopped.
        page.collectorMsg(CollectorMsg::key(3, 1));
        QCOMPARE(cb.takeJournal(), keyLines(3, 1, 0));
        QTest::qWait(700);
        QCOMPARE(cb.takeJournal(), QStringList());
    }

    void leftWithOneReleaseEndsTheNextVisitAtTheFirstRelease()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        page.onEnter();
        page.collectorMsg(CollectorMsg::key(28, 0)); // release counter 1
        cb.clear();
        page.collectorMsg(CollectorMsg::key(26, 1));
        QCOMPARE(cb.takeJournal(), (QStringList{allOff, "parent onEnter"}));

        page.onEnter();
        QCOMPARE(cb.takeJournal(), entryLines);
        page.collectorMsg(CollectorMsg::key(11, 0));
        QCOMPARE(cb.takeJournal(), keyLines(0, 0, 0));
        page.collectorMsg(CollectorMsg::key(11, 1));
        QCOMPARE(cb.takeJournal(), keyLines(11, 1, 0));
    }

    void keySevenThreeTimes()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        enterCounting(page, cb);
        QStringList expected;
        for (int i = 1; i <= 3; ++i) {
            page.collectorMsg(CollectorMsg::key(7, 1));
            page.collectorMsg(CollectorMsg::key(7, 0));
            expected << keyLines(7, i, i - 1) << keyLines(7, i, i);
        }
        QCOMPARE(cb.takeJournal(), expected);
        QCOMPARE(expected.mid(expected.size() - 4),
                 (QStringList{"text 2 0 0 Key Test", "text 2 1 0 btid 7 down 3", "text 2 2 0 btid 7 up 3",
                              "leds 7 1 0"}));
    }

    void eachPressTogglesTheLight()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        enterCounting(page, cb);
        page.collectorMsg(CollectorMsg::key(23, 1));
        page.collectorMsg(CollectorMsg::key(23, 1));
        page.collectorMsg(CollectorMsg::key(0, 5));
        QCOMPARE(cb.takeJournal(), keyLines(23, 1, 0) + keyLines(23, 2, 0) + keyLines(0, 1, 0));
        QCOMPARE(keyLines(23, 2, 0).last(), QString("leds 23 0 0"));
    }

    void pushSwitchReleaseIgnoredWhileCountingAndPressLeaves()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        enterCounting(page, cb);
        page.collectorMsg(CollectorMsg::key(26, 0));
        page.collectorMsg(CollectorMsg::key(29, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(CollectorMsg::key(26, 1));
        QCOMPARE(cb.takeJournal(), (QStringList{allOff, "parent onEnter"}));
    }

    void entryZeroesTheCounts()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        enterCounting(page, cb);
        page.collectorMsg(CollectorMsg::key(7, 1));
        page.collectorMsg(CollectorMsg::key(25, 1));
        enterCounting(page, cb);
        page.collectorMsg(CollectorMsg::key(7, 1));
        QCOMPARE(cb.takeJournal(), keyLines(7, 1, 0));
        page.collectorMsg(CollectorMsg::key(24, 1));
    }

    // A press of any key numbered 24 or above leaves, ids past the last push
    // switch included, while blinking and while counting.
    void pressAbove23Leaves_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<bool>("counting");
        for (int id : {24, 29, 30, 31, 40, INT_MAX}) {
            QTest::addRow("key %d blinking", id) << id << false;
            QTest::addRow("key %d counting", id) << id << true;
        }
    }

    void pressAbove23Leaves()
    {
        QFETCH(int, id);
        QFETCH(bool, counting);
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        if (counting)
            enterCounting(page, cb);
        else
            page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(id, 1));
        QCOMPARE(cb.takeJournal(), (QStringList{allOff, "parent onEnter"}));
        // The blinking stopped.
        QTest::qWait(3 * Page_KeyTest::BLINK_INTERVAL_MS / 2);
        QCOMPARE(cb.takeJournal(), QStringList());
    }

    // While the page blinks any release counts, whatever its id.
    void anyReleaseEndsTheBlinking_data()
    {
        QTest::addColumn<int>("id");
        for (int id : {-1, 23, 24, 30, 40, INT_MAX, INT_MIN})
            QTest::addRow("key %d", id) << id;
    }

    void anyReleaseEndsTheBlinking()
    {
        QFETCH(int, id);
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        page.collectorMsg(CollectorMsg::key(id, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(CollectorMsg::key(id, 0));
        QCOMPARE(cb.takeJournal(), keyLines(0, 0, 0));
        QCOMPARE(parent.enterCount(), 0);
    }

    // Events that the page ignores, before and after the blinking ends; while
    // it blinks, none of them counts as a release.
    void ignoredEvents_data()
    {
        QTest::addColumn<QList<CollectorMsg>>("events");
        QTest::addColumn<int>("releasedKey");
        QList<CollectorMsg> pressesWithoutRecord;
        for (int id : {-1, -5, INT_MIN})
            pressesWithoutRecord << CollectorMsg::key(id, 1);
        QTest::newRow("presses of negative keys") << pressesWithoutRecord << 1;
        QTest::newRow("other kinds")
            << QList<CollectorMsg>{CollectorMsg::shaft(4, 1), CollectorMsg::shaft(0, 0), CollectorMsg::gpi(2, 0),
                                   CollectorMsg::gpi(28, 1),  CollectorMsg::gpi(5, 0),   CollectorMsg()}
            << 6;
    }

    void ignoredEvents()
    {
        QFETCH(QList<CollectorMsg>, events);
        QFETCH(int, releasedKey);
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        page.onEnter();
        cb.clear();
        for (const CollectorMsg &msg : events)
            page.collectorMsg(msg);
        QCOMPARE(cb.takeJournal(), QStringList());
        // Still blinking with the release counter at 0: it takes two releases.
        page.collectorMsg(CollectorMsg::key(releasedKey, 0));
        QCOMPARE(cb.takeJournal(), QStringList());
        page.collectorMsg(CollectorMsg::key(releasedKey, 0));
        QCOMPARE(cb.takeJournal(), keyLines(0, 0, 0));
        for (const CollectorMsg &msg : events)
            page.collectorMsg(msg);
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(parent.enterCount(), 0);
    }

    // While counting, only keys 0 to 23 have records: releases above 23 and
    // every event of a negative key change nothing.
    void countingIgnoresKeysWithoutRecord()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_KeyTest page(&cb, &parent);
        enterCounting(page, cb);
        for (int id : {24, 30, INT_MAX})
            page.collectorMsg(CollectorMsg::key(id, 0));
        for (int id : {-1, -5, INT_MIN}) {
            page.collectorMsg(CollectorMsg::key(id, 1));
            page.collectorMsg(CollectorMsg::key(id, 0));
        }
        QCOMPARE(cb.takeJournal(), QStringList());
        QCOMPARE(parent.enterCount(), 0);
        page.collectorMsg(CollectorMsg::key(0, 1));
        QCOMPARE(cb.takeJournal(), keyLines(0, 1, 0));
        page.collectorMsg(CollectorMsg::key(24, 1));
    }
};

QTEST_GUILESS_MAIN(TestPageKeyTest)
#include "tst_page_keytest.moc"

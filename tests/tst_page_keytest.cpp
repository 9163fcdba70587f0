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

    // Events that the page ignores, before and after the blinking ends; while
    // it blinks, none of them counts as a release.
    void ignoredEvents_data()
    {
        QTest::addColumn<QList<CollectorMsg>>("events");
        QTest::addColumn<int>("releasedKey");
        QList<CollectorMsg> outOfRange;
        for (int id : {30, 31, 40, -1, -5, INT_MAX, INT_MIN})
            outOfRange << CollectorMsg::key(id, 1) << CollectorMsg::key(id, 0);
        QTest::newRow("keys out of range") << outOfRange << 1;
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
};

QTEST_GUILESS_MAIN(TestPageKeyTest)
#include "tst_page_keytest.moc"

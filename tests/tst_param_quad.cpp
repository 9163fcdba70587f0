#include "pages/Param.h"
#include "support/MenuEvents.h"
#include "support/MessageRecorder.h"
#include "support/RecordingCallback.h"
#include "support/StdoutCapture.h"

#include <QtTest>

#include <climits>

using collector::CollectorMsg;
using menuevents::pauseTurning;
using menuevents::turn;

namespace {

void setFields(Param_Quad *quad, int a, int b, int c, int d)
{
    QVERIFY(quad->setField(0, a));
    QVERIFY(quad->setField(1, b));
    QVERIFY(quad->setField(2, c));
    QVERIFY(quad->setField(3, d));
}

// Hands msg to the editor; returns what it printed on stdout and puts its log
// lines in *log (kept out of stdout, where QtTest would echo them).
QByteArray feed(Param_Quad *quad, const CollectorMsg &msg, QStringList *log = nullptr)
{
    MessageRecorder recorder;
    StdoutCapture out;
    quad->collectorMsg(msg);
    const QByteArray printed = out.text();
    if (log)
        *log = recorder.messages();
    return printed;
}

} // namespace

class TestParamQuad : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void constructionState()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        QCOMPARE(quad.label(), QString("IP"));
        QCOMPARE(quad.currentField(), -1);
        for (int i = 0; i < 4; ++i)
            QCOMPARE(quad.field(i), 0);
        QCOMPARE(quad.text(), QString("0.0.0.0"));
        QCOMPARE(cb.journal(), QStringList());
    }

    void settersAndText()
    {
        RecordingCallback cb;
        RecordingCallback other;
        Param_Quad quad(&cb, "?#");
        quad.setLabel("Gate\nway");
        QCOMPARE(quad.label(), QString("Gate\nway"));
        setFields(&quad, 192, 168, 1, 10);
        QCOMPARE(quad.text(), QString("192.168.1.10"));
        QCOMPARE(quad.field(0), 192);
        QCOMPARE(quad.field(3), 10);

        quad.setCallback(&other);
        QVERIFY(quad.setCurrentField(0));
        quad.refresh();
        QCOMPARE(cb.journal(), QStringList());
        QCOMPARE(other.commands().first(), QString("text 2 0 0 192.168.  1. 10"));
    }

    void outOfRangeIndexRefused()
    {
        RecordingCallback cb;
        MessageRecorder log;
        Param_Quad quad(&cb, "IP");
        setFields(&quad, 1, 2, 3, 4);

        QVERIFY(!quad.setField(4, 7));
        QVERIFY(!quad.setField(-1, 7));
        QCOMPARE(quad.text(), QString("1.2.3.4"));
        QCOMPARE(log.messages(), QStringList());

        QCOMPARE(quad.field(4), -1);
        QCOMPARE(quad.field(-1), -1);
        QCOMPARE(quad.field(INT_MAX), -1);
    }

    void currentFieldAboveThreeIsStoredAsThree()
    {
        Param_Quad quad(nullptr, "IP");
        QVERIFY(quad.setCurrentField(7));
        QCOMPARE(quad.currentField(), 3);
        QVERIFY(quad.setCurrentField(-1));
        QCOMPARE(quad.currentField(), -1);
        QTest::ignoreMessage(QtDebugMsg, "Param_Quad::setCurrentField(): refused field -2");
        QVERIFY(!quad.setCurrentField(-2));
        QCOMPARE(quad.currentField(), -1);
    }

    void dottedTextLoadsFields()
    {
        Param_Quad quad(nullptr, "IP");
        quad.setFromDotted("10.20.30.40");
        QCOMPARE(quad.text(), QString("10.20.30.40"));
        // A missing part gives 0.
        quad.setFromDotted("10.1");
        QCOMPARE(quad.text(), QString("10.1.0.0"));
        quad.setFromDotted("");
        QCOMPARE(quad.text(), QString("0.0.0.0"));
        // A part that is no number gives 0; parts beyond the fourth are ignored.
        quad.setFromDotted("a.7.b.9.99");
        QCOMPARE(quad.text(), QString("0.7.0.9"));
        // A part takes its decimal value, above 255 too, and without a log line.
        MessageRecorder log;
        quad.setFromDotted("300.1.2.3");
        QCOMPARE(quad.text(), QString("300.1.2.3"));
        quad.setFromDotted("10.0.0.300");
        QCOMPARE(quad.text(), QString("10.0.0.300"));
        QCOMPARE(quad.field(3), 300);
        QCOMPARE(log.messages(), QStringList());
    }

    // A turn of a field loaded above 255 follows the wrap rule: up goes to 0,
    // down by a step that stays above 255 goes to 0 too, and below 0 to 255.
    void turnOfAFieldAbove255Wraps()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        quad.setFromDotted("10.0.0.300");
        quad.setCurrentField(3);
        quad.collectorMsg(collector::CollectorMsg::shaft(4, 1));
        QCOMPARE(quad.field(3), 0);
        quad.setFromDotted("10.0.0.300");
        quad.collectorMsg(collector::CollectorMsg::shaft(4, -1));
        QCOMPARE(quad.field(3), 0);
        quad.setFromDotted("10.0.0.300");
        quad.collectorMsg(collector::CollectorMsg::shaft(4, -100));
        QCOMPARE(quad.field(3), 200);
        quad.setFromDotted("10.0.0.-4");
        quad.collectorMsg(collector::CollectorMsg::shaft(4, 1));
        QCOMPARE(quad.field(3), 255);
    }

    void refreshDrawsBaselineFieldAndCaret()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        setFields(&quad, 192, 168, 1, 10);
        QVERIFY(quad.setCurrentField(2));
        MessageRecorder log;
        quad.refresh();
        QCOMPARE(cb.journal(), (QStringList{"text 2 0 0 192.168.  1. 10",
                                            "textat 2 0 8 3 0xffffff 0   1",
                                            "text 2 1 0         ^"}));
        QCOMPARE(cb.sends().size(), size_t(3)); // three single sends
        QCOMPARE(log.messages(),
                 (QStringList{"Baseline text = \"192.168.  1. 10\"",
                              "Param_Quad::refresh(): field = ' \"  1\"",
                              "Param_Quad::refresh(): _current_field = 2 , new_pos = 9 , caret str = "
                              "\"        ^\""}));
    }

    void refreshCaretUnderEachField_data()
    {
        QTest::addColumn<int>("field");
        QTest::addColumn<QString>("textAt");
        QTest::addColumn<QString>("caret");
        QTest::newRow("0") << 0 << "textat 2 0 0 3 0xffffff 0  10" << "text 2 1 0 ^";
        QTest::newRow("1") << 1 << "textat 2 0 4 3 0xffffff 0 255" << "text 2 1 0     ^";
        QTest::newRow("3") << 3 << "textat 2 0 12 3 0xffffff 0   0" << "text 2 1 0             ^";
    }

    void refreshCaretUnderEachField()
    {
        QFETCH(int, field);
        QFETCH(QString, textAt);
        QFETCH(QString, caret);
        RecordingCallback cb;
        Param_Quad quad(&cb, "Mask");
        setFields(&quad, 10, 255, 7, 0);
        QVERIFY(quad.setCurrentField(field));
        quad.refresh();
        QCOMPARE(cb.commands(), (QStringList{"text 2 0 0  10.255.  7.  0", textAt, caret}));
    }

    void refreshWithoutFieldDrawsBaselineOnly()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        setFields(&quad, 1, 2, 3, 4);
        quad.refresh();
        QCOMPARE(cb.commands(), QStringList{"text 2 0 0   1.  2.  3.  4"});
    }

    void nonShaftMessagesAreIgnored()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        QVERIFY(quad.setCurrentField(0));
        QCOMPARE(feed(&quad, CollectorMsg::key(4, 1)), QByteArray());
        QCOMPARE(feed(&quad, CollectorMsg::gpi(4, 1)), QByteArray());
        QCOMPARE(quad.field(0), 0);
        QCOMPARE(cb.journal(), QStringList());
    }

    void otherShaftPrintsFirstLineOnly()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        setFields(&quad, 5, 6, 7, 8);
        QVERIFY(quad.setCurrentField(1));
        QCOMPARE(feed(&quad, CollectorMsg::shaft(3, 2)),
                 QByteArray("Param_Quad::collectorMsg(): Got shaft msg (_id=3, _shaft_val=4)\n"));
        QCOMPARE(quad.text(), QString("5.6.7.8"));
        QCOMPARE(cb.journal(), QStringList());
    }

    void noFieldSelectedPrintsItAndIgnoresTheTurn()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        setFields(&quad, 5, 6, 7, 8);
        QCOMPARE(feed(&quad, turn(1)),
                 QByteArray("Param_Quad::collectorMsg(): Got shaft msg (_id=4, _shaft_val=4)\n"
                            "Param_Quad::collectorMsg(): _current_field = -1\n"));
        QCOMPARE(quad.text(), QString("5.6.7.8"));
        QCOMPARE(cb.journal(), QStringList());
    }

    void wrapsToTheOppositeEnd_data()
    {
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("delta");
        QTest::addColumn<int>("result");
        QTest::newRow("255+1") << 255 << 1 << 0;
        QTest::newRow("0-1") << 0 << -1 << 255;
        QTest::newRow("250+10") << 250 << 10 << 0;
        QTest::newRow("2-5") << 2 << -5 << 255;
        QTest::newRow("100+55") << 100 << 55 << 155;
        QTest::newRow("100-100") << 100 << -100 << 0;
        QTest::newRow("0+255") << 0 << 255 << 255;
        QTest::newRow("max") << 200 << INT_MAX << 0;
        QTest::newRow("min") << 200 << INT_MIN << 255;
    }

    void wrapsToTheOppositeEnd()
    {
        QFETCH(int, start);
        QFETCH(int, delta);
        QFETCH(int, result);
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        QVERIFY(quad.setField(2, start));
        QVERIFY(quad.setCurrentField(2));
        feed(&quad, turn(delta));
        QCOMPARE(quad.field(2), result);
        QCOMPARE(quad.field(0), 0);
        QCOMPARE(quad.field(1), 0);
        QCOMPARE(quad.field(3), 0);
    }

    void turnAfterPauseRedraws()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        setFields(&quad, 10, 0, 0, 1);
        QVERIFY(quad.setCurrentField(0));
        pauseTurning();
        QStringList log;
        const QByteArray printed = feed(&quad, turn(3), &log);
        QCOMPARE(log.size(), 3);
        QCOMPARE(cb.commands(), (QStringList{"text 2 0 0  13.  0.  0.  1",
                                             "textat 2 0 0 3 0xffffff 0  13", "text 2 1 0 ^"}));
        QCOMPARE(printed,
                 QByteArray("Param_Quad::collectorMsg(): Got shaft msg (_id=4, _shaft_val=4)\n"));
    }

    void twoTurnsWithin200msRedrawOnce()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        QVERIFY(quad.setCurrentField(3));
        pauseTurning();
        feed(&quad, turn(1));
        feed(&quad, turn(1));
        QCOMPARE(quad.field(3), 2);
        // Only the first turn is drawn; the value 2 waits for the page's timer.
        QCOMPARE(cb.commands(), (QStringList{"text 2 0 0   0.  0.  0.  1",
                                             "textat 2 0 12 3 0xffffff 0   1",
                                             "text 2 1 0             ^"}));
    }

    void fastTurningKeepsRestartingTheClock()
    {
        RecordingCallback cb;
        Param_Quad quad(&cb, "IP");
        QVERIFY(quad.setCurrentField(0));
        pauseTurning();
        feed(&quad, turn(1));
        cb.clear();
        // Turns 100 ms apart: each restarts the clock, so none is drawn.
        for (int i = 0; i < 4; ++i) {
            QTest::qWait(100);
            feed(&quad, turn(1));
        }
        QCOMPARE(quad.field(0), 5);
        QCOMPARE(cb.journal(), QStringList());
    }

    void throttleClockIsSharedByAllEditors()
    {
        RecordingCallback cb;
        Param_Quad ip(&cb, "IP");
        Param_Quad mask(&cb, "Mask");
        QVERIFY(ip.setCurrentField(0));
        QVERIFY(mask.setCurrentField(1));
        pauseTurning();
        feed(&ip, turn(1));
        QCOMPARE(cb.commands().size(), 3);
        cb.clear();
        // Another editor turned right after: still within the shared 200 ms.
        feed(&mask, turn(1));
        QCOMPARE(mask.field(1), 1);
        QCOMPARE(cb.journal(), QStringList());
        pauseTurning();
        feed(&mask, turn(1));
        QCOMPARE(cb.commands(), (QStringList{"text 2 0 0   0.  2.  0.  0",
                                             "textat 2 0 4 3 0xffffff 0   2", "text 2 1 0     ^"}));
    }
};

QTEST_GUILESS_MAIN(TestParamQuad)
#include "tst_param_quad.moc"

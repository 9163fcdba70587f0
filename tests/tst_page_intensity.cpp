#include "pages/ButtonLevelFile.h"
#include "pages/Page_Intensity.h"
#include "support/MenuEvents.h"
#include "support/MessageRecorder.h"
#include "support/PermissionBitsEnforced.h"
#include "support/RecordingCallback.h"
#include "support/RecordingPage.h"
#include "support/TestRoot.h"

#include <QtTest>

#include <climits>

using collector::CollectorMsg;
using menuevents::turn;
using menuevents::select;
using menuevents::back;

namespace {

const char *const LevelFile = "/etc/kd5820m/buttonlevel";

const QStringList entryBatch{"batch 2", "clear 2", "leds -1 1 0"};
const QStringList menuRows{"batch 2", "text 1 0 1 TFT Screen", "text 1 1 0 Buttons"};
const QStringList tftScreen{"text 2 0 0 Change TFT", "text 2 1 0 Intensity:", "text 2 2 0 "};

} // namespace

class TestPageIntensity : public QObject
{
    Q_OBJECT

private:
    TestRoot _root;
    QString _path;

    void writeFile(const QByteArray &bytes) { QVERIFY(_root.writeFile(LevelFile, bytes)); }
    QByteArray fileContent() const { return _root.readFile(LevelFile); }

    // A page entered and its journal cleared; the file holds lcd 100 / scr tft.
    void enterPage(Page_Intensity *page, RecordingCallback *cb)
    {
        page->onEnter();
        cb->clear();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        QVERIFY(QDir().mkpath(_root.hostPath("/etc/kd5820m")));
        _path = _root.hostPath(LevelFile);
    }

    void init() { QFile::remove(_path); }

    // Construction

    void applyTimerIsPrecise()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        const auto timer = page.findChild<QTimer *>();
        QVERIFY(timer);
        QCOMPARE(timer->interval(), 150);
        QVERIFY(timer->isSingleShot());
        QCOMPARE(timer->timerType(), Qt::PreciseTimer);
    }

    void withoutFileDefaultsAreWrittenAndUsed()
    {
        RecordingCallback cb;
        MessageRecorder log;
        Page_Intensity page(&cb, nullptr);
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 100\n"));
        QCOMPARE(page.level(0), 100);
        QCOMPARE(page.level(1), 100);
        QCOMPARE(page.currentItem(), -1);
        QCOMPARE(page.submenuValue(), -1);
        QCOMPARE(log.messages(), (QStringList{"line = \"lcd 100\"", "line = \"scr 100\""}));
        QCOMPARE(cb.journal(), QStringList());
    }

    void tftLevelFromScrLineButtonsAlwaysFull()
    {
        writeFile("scr 40\nlcd 70\n");
        RecordingCallback cb;
        MessageRecorder log;
        Page_Intensity page(&cb, nullptr);
        QCOMPARE(page.level(0), 40);
        QCOMPARE(page.level(1), 100);
        QCOMPARE(fileContent(), QByteArray("scr 40\nlcd 70\n"));

        // The next apply writes the buttons level on the lcd line.
        enterPage(&page, &cb);
        page.collectorMsg(select());
        QCOMPARE(cb.journal(), (tftScreen + QStringList{"text 2 3 0  40 %", "cmd10"}));
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 40\n"));
    }

    void nonNumericTftLevelIsLoggedAndZero_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("words") << QByteArray("lcd 50\nscr abc\n");
        QTest::newRow("missing scr") << QByteArray("lcd 50\n");
        QTest::newRow("scr without value") << QByteArray("lcd 50\nscr\n");
        QTest::newRow("fraction") << QByteArray("lcd 50\nscr 4.5\n");
    }

    void nonNumericTftLevelIsLoggedAndZero()
    {
        QFETCH(QByteArray, content);
        writeFile(content);
        RecordingCallback cb;
        MessageRecorder log;
        Page_Intensity page(&cb, nullptr);
        QCOMPARE(page.level(0), 0);
        QCOMPARE(page.level(1), 100);
        QCOMPARE(log.messages().last(), QString("Error reading TFT parameter from file."));
    }

    void unreadableFileLeavesTftAtDefault()
    {
        writeFile("lcd 50\nscr 20\n");
        QVERIFY(QFile(_path).setPermissions(QFileDevice::Permissions()));
        RecordingCallback cb;
        MessageRecorder log;
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            Page_Intensity page(&cb, nullptr);
            QCOMPARE(page.level(0), 100);
            QCOMPARE(page.level(1), 100);
        }
        QCOMPARE(log.messages(),
                 QStringList{"readButtonlevelFile: Unable to open file \"" + _path + "\""});
        QVERIFY(QFile(_path).setPermissions(QFile::ReadOwner | QFile::WriteOwner));
    }

    void levelIndexOutOfRange()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        QCOMPARE(page.level(-1), -1);
        QCOMPARE(page.level(2), -1);
    }

    // Entry and menu

    void entryDrawsMenuOnce()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        MessageRecorder log;
        page.onEnter();
        QCOMPARE(cb.takeJournal(), entryBatch + menuRows);
        QCOMPARE(page.submenuValue(), 0);
        page.onEnter();
        QCOMPARE(cb.takeJournal(), entryBatch);
        QCOMPARE(log.messages(),
                 (QStringList{"Page_Intensity::onEnter() _sh_submenu_val = -1 , _prev_sh_submenu_val = -1",
                              "Leaving Page_Intensity::onEnter()",
                              "Page_Intensity::onEnter() _sh_submenu_val = 0 , _prev_sh_submenu_val = -1",
                              "Leaving Page_Intensity::onEnter()"}));
    }

    void forceRedrawDrawsMenuAgain()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.force_redraw();
        QCOMPARE(page.submenuValue(), -1);
        page.onEnter();
        QCOMPARE(cb.journal(), entryBatch + menuRows);
    }

    void menuTurnsClampAtBothEnds()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(turn(1));
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 2", "text 1 1 1 Buttons", "text 1 0 0 TFT Screen"}));
        page.collectorMsg(turn(3));
        QCOMPARE(page.submenuValue(), 1);
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 2", "text 1 1 1 Buttons", "text 1 0 0 TFT Screen"}));
        // Clamped at 0, the previous row keeps its value from before the turn
        // (0 here), so row 0 is sent highlighted and then plain: the menu rule.
        page.collectorMsg(turn(-5));
        QCOMPARE(page.submenuValue(), 0);
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 2", "text 1 0 1 TFT Screen", "text 1 0 0 TFT Screen"}));
        page.collectorMsg(turn(INT_MAX));
        QCOMPARE(page.submenuValue(), 1);
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 2", "text 1 1 1 Buttons", "text 1 0 0 TFT Screen"}));
        page.collectorMsg(turn(-1));
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 2", "text 1 0 1 TFT Screen", "text 1 1 0 Buttons"}));
        page.collectorMsg(turn(INT_MIN));
        QCOMPARE(page.submenuValue(), 0);
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 2", "text 1 0 1 TFT Screen", "text 1 1 0 Buttons"}));
    }

    void turnBeforeDrawingNeedsAPositiveDelta()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        page.collectorMsg(turn(0));
        page.collectorMsg(turn(-2));
        QCOMPARE(cb.journal(), QStringList());
        QCOMPARE(page.submenuValue(), -1);
        page.collectorMsg(turn(1));
        QCOMPARE(page.submenuValue(), 1);
        QCOMPARE(cb.journal(), (QStringList{"batch 1", "text 1 1 1 Buttons"}));
    }

    void unrelatedEventsAreIgnored()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Intensity page(&cb, &parent);
        enterPage(&page, &cb);
        page.collectorMsg(CollectorMsg::shaft(3, 1));
        page.collectorMsg(select(0));
        page.collectorMsg(back(0));
        page.collectorMsg(CollectorMsg::key(5, 1));
        page.collectorMsg(CollectorMsg::key(24, 1));
        page.collectorMsg(CollectorMsg::gpi(2, 1));
        page.collectorMsg(CollectorMsg());
        QCOMPARE(cb.journal(), QStringList());
        QCOMPARE(page.submenuValue(), 0);
        QCOMPARE(page.currentItem(), -1);
    }

    void selectWithoutMenuDoesNothing()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        page.collectorMsg(select());
        QCOMPARE(page.currentItem(), -1);
        QCOMPARE(cb.journal(), QStringList());
    }

    void leavingThePageReturnsToParent()
    {
        RecordingCallback cb;
        RecordingPage parent(&cb);
        Page_Intensity page(&cb, &parent);
        enterPage(&page, &cb);
        page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(back());
        QCOMPARE(cb.takeJournal(), QStringList{"parent onEnter"});
        QCOMPARE(page.submenuValue(), -1);
        QCOMPARE(page.currentItem(), -1);
        page.onEnter();
        QCOMPARE(cb.journal(), entryBatch + menuRows);
    }

    void leavingWithoutParentIsHarmless()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(back());
        QCOMPARE(cb.journal(), QStringList());
        QCOMPARE(page.submenuValue(), -1);
    }

    // Editing

    void tftItemShowsItsScreenAndApplies()
    {
        writeFile("lcd 100\nscr 60\n");
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(select());
        QCOMPARE(page.currentItem(), 0);
        QCOMPARE(cb.journal(), (tftScreen + QStringList{"text 2 3 0  60 %", "cmd10"}));
        QCOMPARE(cb.sends().size(), size_t(5)); // single sends
    }

    void oneApplyPerPauseInTurning()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(select());
        cb.clear();

        for (int i = 0; i < 5; ++i) {
            page.collectorMsg(turn(-1));
            QTest::qWait(30);
        }
        QCOMPARE(page.level(0), 95);
        QCOMPARE(cb.journal(), QStringList());
        QTRY_COMPARE(cb.journal(), (QStringList{"text 2 3 0  95 %", "cmd10"}));
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 95\n"));
        QTest::qWait(300);
        QCOMPARE(cb.takeJournal().size(), 2);

        // The next pause applies again.
        page.collectorMsg(turn(-10));
        page.collectorMsg(turn(-3));
        QTRY_COMPARE(cb.journal(), (QStringList{"text 2 3 0  82 %", "cmd10"}));
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 82\n"));
    }

    void levelStaysWithin0And100()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(select());
        cb.clear();
        page.collectorMsg(turn(5));
        QCOMPARE(page.level(0), 100);
        page.collectorMsg(turn(INT_MAX));
        QCOMPARE(page.level(0), 100);
        QTRY_COMPARE(cb.journal(), (QStringList{"text 2 3 0 100 %", "cmd10"}));
        cb.clear();
        page.collectorMsg(turn(-150));
        QCOMPARE(page.level(0), 0);
        page.collectorMsg(turn(INT_MIN));
        QCOMPARE(page.level(0), 0);
        QTRY_COMPARE(cb.journal(), (QStringList{"text 2 3 0   0 %", "cmd10"}));
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 0\n"));
    }

    void buttonsItemAppliesOnFirstPause()
    {
        writeFile("lcd 100\nscr 45\n");
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(turn(1));
        cb.clear();
        page.collectorMsg(select());
        QCOMPARE(page.currentItem(), 1);
        QCOMPARE(cb.journal(), QStringList()); // the bare entry draws nothing
        page.collectorMsg(turn(-30));
        QCOMPARE(page.level(1), 70);
        QCOMPARE(page.level(0), 45);
        QTRY_COMPARE(cb.journal(), (QStringList{"text 2 3 0  70 %", "cmd10"}));
        QCOMPARE(fileContent(), QByteArray("lcd 70\nscr 45\n"));
    }

    void leavingTheItemClearsItsScreen()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(select());
        cb.clear();
        page.collectorMsg(back());
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 2", "clear 2", "leds -1 0 0"}));
        QCOMPARE(page.currentItem(), -1);
        QCOMPARE(page.submenuValue(), 0);
        // The shaft moves the menu again.
        page.collectorMsg(turn(1));
        QCOMPARE(cb.takeJournal(), (QStringList{"batch 2", "text 1 1 1 Buttons", "text 1 0 0 TFT Screen"}));
        QCOMPARE(page.level(0), 100);
    }

    void leavingTheItemAppliesAPendingTurnFirst()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(select());
        cb.clear();
        page.collectorMsg(turn(-1));
        page.collectorMsg(back());
        QCOMPARE(cb.takeJournal(),
                 (QStringList{"text 2 3 0  99 %", "cmd10", "batch 2", "clear 2", "leds -1 0 0"}));
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 99\n"));
        QTest::qWait(300);
        QCOMPARE(cb.journal(), QStringList());
    }

    void applyWithoutItemDoesNothing()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        const QByteArray before = fileContent();
        page.refresh_last_turn();
        page.change_intensity();
        QCOMPARE(cb.journal(), QStringList());
        QCOMPARE(fileContent(), before);
    }

    void unwritableFileStillAppliesOnDriver()
    {
        RecordingCallback cb;
        Page_Intensity page(&cb, nullptr);
        enterPage(&page, &cb);
        page.collectorMsg(select());
        cb.clear();
        page.collectorMsg(turn(-20));
        QVERIFY(QFile(_path).setPermissions(QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther));
        MessageRecorder log;
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            page.refresh_last_turn(); // what the timer runs
        }
        QCOMPARE(log.messages(),
                 QStringList{"writeButtonlevelFile : Unable to open \"" + _path + "\""});
        QCOMPARE(cb.takeJournal(), (QStringList{"text 2 3 0  80 %", "cmd10"}));
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 100\n"));
        QVERIFY(QFile(_path).setPermissions(QFile::ReadOwner | QFile::WriteOwner));
    }
};

QTEST_GUILESS_MAIN(TestPageIntensity)
#include "tst_page_intensity.moc"

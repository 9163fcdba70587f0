#include "pages/Page_Setup.h"
#include "support/MenuEvents.h"
#include "support/MessageRecorder.h"
#include "support/RecordingCallback.h"
#include "support/RecordingPage.h"
#include "support/StdoutCapture.h"
#include "support/TestRoot.h"

#include <QElapsedTimer>
#include <QtTest>

#include <climits>
#include <functional>
#include <memory>
#include <mutex>

using collector::CollectorMsg;
using menuevents::pauseTurning;
using menuevents::turn;
using menuevents::select;
using menuevents::back;

namespace {

const char *const ConfigFile = "/etc/kd5820m/launcher.cfg";
const char *const InterfacesFile = "/etc/network/interfaces";

const QStringList fullMenu{
    "batch 9",
    "text 1 0 1 IP Addr",
    "text 1 1 0 Netmask",
    "text 1 2 0 Broadcast",
    "text 1 3 0 Gateway",
    "text 1 4 0 Font Size",
    "text 1 5 0 Dual PSU Mode",
    "text 1 6 0 ",
    "text 1 7 0 Save Changes",
    "text 1 8 0 Revert Changes",
};

const QStringList menuTurnLog{"Got menu shaft msg", "Inside _current_param == -1 statement",
                              "Leaving _current_param == -1 statement"};

const QByteArray standardInterfaces = "auto lo\n"
                                      "iface lo inet loopback\n"
                                      "\n"
                                      "auto eth0\n"
                                      "iface eth0 inet static\n"
                                      "\taddress 192.168.1.10\n"
                                      "\tnetmask 255.255.255.0\n"
                                      "\tbroadcast 192.168.1.255\n"
                                      "\tgateway 192.168.1.1\n";

// The controller's side of the page: callback, four editors and a parent page,
// with everything the page logs recorded.
struct Fixture
{
    MessageRecorder recorder;
    int logRead = 0;
    RecordingCallback cb;
    RecordingPage parent{&cb};
    Param_Quad ip{&cb, "IP"};
    Param_Quad mask{&cb, "Mask"};
    Param_Quad broad{&cb, "Broad\ncast"};
    Param_Quad gate{&cb, "Gate\nway"};
    std::vector<Param *> params{&ip, &mask, &broad, &gate};
    std::unique_ptr<Page_Setup> page;

    Fixture()
    {
        ip.setFromDotted("192.168.1.10");
        mask.setFromDotted("255.255.255.0");
        broad.setFromDotted("192.168.1.255");
        gate.setFromDotted("192.168.1.1");
        page = std::make_unique<Page_Setup>(&cb, &parent, &params);
    }

    // Log lines since the last call.
    QStringList newLog()
    {
        const QStringList all = recorder.messages();
        const QStringList fresh = all.mid(logRead);
        logRead = all.size();
        return fresh;
    }

    // Hands msg to the page; returns what the page printed (kept out of the
    // test's log).
    QByteArray feed(const CollectorMsg &msg)
    {
        StdoutCapture out;
        page->collectorMsg(msg);
        return out.text();
    }

    // Enters the page and forgets what that drew and logged.
    void enter()
    {
        page->onEnter();
        cb.clear();
        newLog();
    }

    // From the first row: moves to item and selects it; the journal and the
    // log then hold what the selection drew and logged. Returns what the page
    // printed.
    QByteArray pick(int item)
    {
        if (item > 0)
            page->collectorMsg(turn(item));
        cb.clear();
        newLog();
        return feed(select());
    }

    // pick(), then journal and log cleared.
    void choose(int item)
    {
        pick(item);
        cb.clear();
        newLog();
    }

    // Back to navigation with key 2 and to the first row.
    void leaveItem()
    {
        page->collectorMsg(back());
        page->collectorMsg(turn(-10));
        cb.clear();
        newLog();
    }
};

// The controller's side of a network save, run as the controller runs it: the
// pauses run the event loop (for a tenth of the time asked), and the save, on
// the save thread, reads the addresses that the controller writes, waits until
// the test lets it end, as the networking restart keeps it, and reads them
// again.
class SaveGate
{
public:
    explicit SaveGate(Fixture &f) : _f(f)
    {
        f.cb.setSleepShare(10);
        f.cb.setSaveAction([this] { save(); });
        f.cb.setCallHook([this](const QString &line) { called(line); });
    }

    ~SaveGate()
    {
        // A failed test may leave a save waiting: let it go before the gate goes.
        _mayEnd.release(10);
        QTRY_VERIFY(!_inSave.loadAcquire());
        _f.cb.setCallHook({});
    }

    SaveGate(const SaveGate &) = delete;
    SaveGate &operator=(const SaveGate &) = delete;

    // Runs input on the event loop 20 ms after the page's call recorded as
    // line, the first time: "sleep 2000" starts a confirmation screen's pause.
    void during(const QString &line, std::function<void()> input) { _reactions.insert(line, input); }

    // Lets the waiting save end.
    void letSaveEnd() { _mayEnd.release(); }

    // The saves begun so far.
    int started() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return int(_written.size());
    }

    // The four addresses each save wrote, in order. "never let go" follows
    // when the save waited 5 s in vain (the event loop was blocked), and
    // "read again:" with what the save read at its end when that differed.
    QList<QStringList> written() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _written;
    }

private:
    QStringList addresses() const
    {
        QStringList texts;
        for (const Param_Quad *quad : {&_f.ip, &_f.mask, &_f.broad, &_f.gate})
            texts << quad->textForSave();
        return texts;
    }

    // On the save thread.
    void save()
    {
        _inSave.storeRelease(1);
        const QStringList first = addresses();
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _written << first;
        }
        const bool letGo = _mayEnd.tryAcquire(1, 5000);
        const QStringList again = addresses();
        {
            std::lock_guard<std::mutex> lock(_mutex);
            if (!letGo)
                _written.last() << "never let go";
            if (again != first)
                _written.last() << "read again:" << again;
        }
        _inSave.storeRelease(0);
    }

    // On the event-loop thread: the page's pauses and drawings.
    void called(const QString &line)
    {
        const auto input = _reactions.take(line);
        if (input)
            QTimer::singleShot(20, Qt::PreciseTimer, input);
    }

    Fixture &_f;
    QMap<QString, std::function<void()>> _reactions;
    QSemaphore _mayEnd;
    QAtomicInt _inSave;
    mutable std::mutex _mutex;
    QList<QStringList> _written;
};

// Deleted on the save thread after the thread has reported back (deleteLater()
// on a thread without an event loop): the deletion lasts until the gate opens.
class SlowDeletion : public QObject
{
public:
    explicit SlowDeletion(QSemaphore *gate) : _gate(gate) {}
    ~SlowDeletion() override { _gate->tryAcquire(1, 5000); }

private:
    QSemaphore *_gate;
};

const QStringList pressedAddresses{"193.168.1.10", "255.255.255.0", "192.168.1.255", "192.168.1.1"};

} // namespace

class TestPageSetup : public QObject
{
    Q_OBJECT

private:
    TestRoot _root;
    QString _fontDir;
    QString _configPath;
    QString _interfacesPath;

    // Runs the fixture's save (item 7) from the first row and waits for the
    // save thread to report back. The journal starts at the save's select:
    // clearing it after the select would race the save thread.
    void saveAndWait(Fixture &f)
    {
        f.pick(7);
        QTRY_VERIFY(!f.page->isSaving());
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        _fontDir = _root.hostPath("/opt/kd5820m/fonts");
        _configPath = _root.hostPath(ConfigFile);
        _interfacesPath = _root.hostPath(InterfacesFile);
    }

    void init()
    {
        QDir(_fontDir).removeRecursively();
        QVERIFY(_root.writeFonts({"10x20.pcf.gz", "8x13.pcf.gz", "6x10.pcf.gz"}));
        QVERIFY(_root.writeFile(ConfigFile, "[psu]\nredundant=0\n"));
        QVERIFY(_root.writeFile(InterfacesFile, standardInterfaces));
    }

    // Construction and menu

    void constructionReadsPsuModeAndFonts()
    {
        QVERIFY(_root.writeFile(ConfigFile, "[psu]\nredundant=1\n"));
        Fixture f;
        QCOMPARE(f.newLog(),
                 (QStringList{
                     "Getting PSU mode from file \"" + _configPath + "\"",
                     "Found PSU key.",
                     "_sh_psu_val = 1",
                     "Num fonts = 0",
                     "Fonts available:  (\"6x10.pcf.gz\", \"8x13.pcf.gz\", \"10x20.pcf.gz\")",
                     "Added font ' \"6x10\" ' to _font_info",
                     "Added font ' \"8x13\" ' to _font_info",
                     "Added font ' \"10x20\" ' to _font_info",
                     "Done creating Page_Setup instance",
                 }));
        QCOMPARE(f.page->psuRedundant(), 1);
        QCOMPARE(f.page->fontNames(), (QStringList{"6x10", "8x13", "10x20"}));
        QCOMPARE(f.page->fontInfo().value("10x20"), _fontDir + "/10x20.pcf.gz");
        QCOMPARE(f.page->fontIndex(), -1);
        QCOMPARE(f.page->currentParam(), 0);
        QCOMPARE(f.page->submenuValue(), -1);
        QVERIFY(!f.page->isSaving());
        QCOMPARE(f.cb.journal(), QStringList());
    }

    void firstEntryDrawsWholeMenu()
    {
        Fixture f;
        f.page->onEnter();
        QCOMPARE(f.cb.takeJournal(), fullMenu);
        QCOMPARE(f.page->submenuValue(), 0);
        QCOMPARE(f.page->currentParam(), -1);
        f.page->onEnter();
        QCOMPARE(f.cb.takeJournal(), (QStringList{"batch 1", "text 1 0 1 IP Addr"}));
        f.page->force_redraw();
        QCOMPARE(f.page->submenuValue(), -1);
        f.page->onEnter();
        QCOMPARE(f.cb.takeJournal(), fullMenu);
    }

    void menuTurnsRedrawTwoRows()
    {
        Fixture f;
        f.enter();
        f.page->collectorMsg(turn(2));
        QCOMPARE(f.cb.takeJournal(),
                 (QStringList{"batch 2", "text 1 2 1 Broadcast", "text 1 0 0 IP Addr"}));
        QCOMPARE(f.newLog(), menuTurnLog);
        f.page->collectorMsg(turn(-1));
        QCOMPARE(f.cb.takeJournal(),
                 (QStringList{"batch 2", "text 1 1 1 Netmask", "text 1 2 0 Broadcast"}));
    }

    void menuTurnsPastEitherEndKeepPreviousRow()
    {
        Fixture f;
        f.enter();
        f.page->collectorMsg(turn(2));
        f.cb.clear();
        f.page->collectorMsg(turn(20));
        QCOMPARE(f.page->submenuValue(), 8);
        QCOMPARE(f.cb.takeJournal(),
                 (QStringList{"batch 2", "text 1 8 1 Revert Changes", "text 1 0 0 IP Addr"}));
        f.page->collectorMsg(turn(-1));
        f.cb.clear();
        f.page->collectorMsg(turn(-30));
        QCOMPARE(f.page->submenuValue(), 0);
        QCOMPARE(f.cb.takeJournal(),
                 (QStringList{"batch 2", "text 1 0 1 IP Addr", "text 1 8 0 Revert Changes"}));
        f.page->collectorMsg(turn(INT_MAX));
        QCOMPARE(f.page->submenuValue(), 8);
        f.page->collectorMsg(turn(INT_MIN));
        QCOMPARE(f.page->submenuValue(), 0);
    }

    void unrelatedEventsAreIgnored()
    {
        Fixture f;
        f.enter();
        f.page->collectorMsg(CollectorMsg::shaft(0, 3));
        f.page->collectorMsg(CollectorMsg::shaft(5, 3));
        f.page->collectorMsg(select(0));
        f.page->collectorMsg(back(0));
        f.page->collectorMsg(CollectorMsg::key(3, 1));
        f.page->collectorMsg(CollectorMsg::key(24, 1));
        f.page->collectorMsg(CollectorMsg::gpi(2, 1));
        f.page->collectorMsg(CollectorMsg());
        QCOMPARE(f.cb.journal(), QStringList());
        QCOMPARE(f.newLog(), QStringList());
        QCOMPARE(f.page->submenuValue(), 0);
        QCOMPARE(f.page->currentParam(), -1);
    }

    void leavingThePageReturnsToParent()
    {
        Fixture f;
        f.enter();
        f.page->collectorMsg(turn(3));
        f.cb.clear();
        f.page->collectorMsg(back());
        QCOMPARE(f.cb.takeJournal(), QStringList{"parent onEnter"});
        QCOMPARE(f.page->submenuValue(), -1);
        f.page->onEnter();
        QCOMPARE(f.cb.journal(), fullMenu);
    }

    // Address editors

    void addressEditingWalk()
    {
        Fixture f;
        f.enter();
        f.page->collectorMsg(select());
        QCOMPARE(f.page->currentParam(), 0);
        QCOMPARE(f.ip.currentField(), 0);
        QCOMPARE(f.cb.takeJournal(), (QStringList{"text 2 0 0 192.168.  1. 10",
                                                  "textat 2 0 0 3 0xffffff 0 192", "text 2 1 0 ^"}));
        QCOMPARE(f.newLog(),
                 (QStringList{"Page_Setup::collectorMsg(TFT_MENU_BUT) ==> _sh_submenu_val = 0",
                              "Page_Setup::collectorMsg() ==> _sh_submenu_val = 0",
                              "Processing ParamQuad item: submenu_id = 0",
                              "Baseline text = \"192.168.  1. 10\"",
                              "Param_Quad::refresh(): field = ' \"192\"",
                              "Param_Quad::refresh(): _current_field = 0 , new_pos = 1 , caret str = \"^\"",
                              "Page_Setup::collectorMsg() ==> Done calling doSubMenuItem( 0 )"}));

        // The first turn marks the change and, after a pause, redraws at once.
        pauseTurning();
        f.feed(turn(1));
        QCOMPARE(f.ip.field(0), 193);
        QCOMPARE(f.cb.takeJournal(), (QStringList{"leds 3 1 0", "text 2 0 0 193.168.  1. 10",
                                                  "textat 2 0 0 3 0xffffff 0 193", "text 2 1 0 ^"}));
        QCOMPARE(f.newLog(),
                 (QStringList{"Got menu shaft msg", "Inside _current_param != -1 statement",
                              "Before (*_params)[_current_param]->collectorMsg(msg)...",
                              "Inside !_changes_made statement...",
                              "Leaving !_changes_made statement...",
                              "Baseline text = \"193.168.  1. 10\"",
                              "Param_Quad::refresh(): field = ' \"193\"",
                              "Param_Quad::refresh(): _current_field = 0 , new_pos = 1 , caret str = \"^\"",
                              "Leaving _current_param != -1 statement"}));

        // A turn right after is not drawn by the editor; the page's timer draws it.
        f.feed(turn(1));
        QCOMPARE(f.ip.field(0), 194);
        QCOMPARE(f.cb.journal(), QStringList());
        QTRY_COMPARE(f.cb.journal(), (QStringList{"text 2 0 0 194.168.  1. 10",
                                                  "textat 2 0 0 3 0xffffff 0 194", "text 2 1 0 ^"}));
        f.cb.clear();
        f.newLog();

        // The select key steps through the fields, wrapping after the fourth.
        f.page->collectorMsg(select());
        QCOMPARE(f.ip.currentField(), 1);
        QCOMPARE(f.cb.takeJournal(), (QStringList{"text 2 0 0 194.168.  1. 10",
                                                  "textat 2 0 4 3 0xffffff 0 168", "text 2 1 0     ^"}));
        QCOMPARE(f.newLog().mid(0, 2),
                 (QStringList{"Page_Setup::collectorMsg(TFT_MENU_BUT) ==> _sh_submenu_val = 0",
                              "Page_Setup::collectorMsg(before toggleParamField) ==> _sh_submenu_val = 0"}));
        f.page->collectorMsg(select());
        f.page->collectorMsg(select());
        QCOMPARE(f.ip.currentField(), 3);
        f.page->collectorMsg(select());
        QCOMPARE(f.ip.currentField(), 0);
        f.cb.clear();

        // Key 2 leaves the editor; the menu is not redrawn.
        f.page->collectorMsg(back());
        QCOMPARE(f.cb.takeJournal(), QStringList{"clear 2"});
        QCOMPARE(f.page->currentParam(), -1);
        // A late timer finds no item and draws nothing.
        f.page->refresh_last_turn();
        QCOMPARE(f.cb.journal(), QStringList());
    }

    void otherEditorsFollowTheirItems()
    {
        Fixture f;
        f.enter();
        f.choose(3);
        QCOMPARE(f.page->currentParam(), 3);
        QCOMPARE(f.gate.currentField(), 0);
        pauseTurning();
        f.feed(turn(-193));
        QCOMPARE(f.gate.text(), QString("255.168.1.1"));
        QCOMPARE(f.ip.text(), QString("192.168.1.10"));
        QCOMPARE(f.cb.journal().first(), QString("leds 3 1 0"));
    }

    void secondEditedAddressDoesNotMarkAgain()
    {
        Fixture f;
        f.enter();
        f.choose(1);
        f.feed(turn(1));
        f.leaveItem();
        f.choose(2);
        f.feed(turn(1));
        QVERIFY(!f.cb.journal().contains("leds 3 1 0"));
        QCOMPARE(f.mask.text(), QString("0.255.255.0"));
        QCOMPARE(f.broad.text(), QString("193.168.1.255"));
    }

    // Save and revert with nothing pending

    void saveWithNothingPendingStaysDead()
    {
        Fixture f;
        f.enter();
        f.pick(7);
        QCOMPARE(f.cb.journal(), QStringList());
        QCOMPARE(f.page->currentParam(), 7);
        QCOMPARE(f.newLog(),
                 (QStringList{"Page_Setup::collectorMsg(TFT_MENU_BUT) ==> _sh_submenu_val = 7",
                              "Page_Setup::collectorMsg() ==> _sh_submenu_val = 7",
                              "Page_Setup::collectorMsg() ==> Done calling doSubMenuItem( 7 )"}));
        // A second press does nothing until the shaft moves.
        f.page->collectorMsg(select());
        QCOMPARE(f.cb.journal(), QStringList());
        QCOMPARE(f.newLog(),
                 QStringList{"Page_Setup::collectorMsg(TFT_MENU_BUT) ==> _sh_submenu_val = 7"});
        f.page->collectorMsg(turn(1));
        QCOMPARE(f.newLog(), menuTurnLog);
        QCOMPARE(f.page->currentParam(), -1);
        QCOMPARE(f.cb.takeJournal(),
                 (QStringList{"batch 2", "text 1 8 1 Revert Changes", "text 1 7 0 Save Changes"}));
        // Revert with nothing pending: nothing either.
        f.page->collectorMsg(select());
        QCOMPARE(f.cb.journal(), QStringList());
        QCOMPARE(f.page->currentParam(), 8);
    }

    void emptyRowDoesNothing()
    {
        Fixture f;
        f.enter();
        f.choose(6);
        QCOMPARE(f.page->currentParam(), 6);
        f.page->collectorMsg(select());
        f.page->collectorMsg(turn(1));
        QCOMPARE(f.cb.journal(), QStringList());
        QCOMPARE(f.newLog(),
                 (QStringList{"Page_Setup::collectorMsg(TFT_MENU_BUT) ==> _sh_submenu_val = 6",
                              "Got menu shaft msg", "Inside _current_param != -1 statement",
                              "Before (*_params)[_current_param]->collectorMsg(msg)...",
                              "Leaving _current_param != -1 statement"}));
        f.page->collectorMsg(back());
        QCOMPARE(f.cb.journal(), QStringList{"clear 2"});
        QCOMPARE(f.page->currentParam(), -1);
    }

    // Network save

    void networkSaveRunsOnTheSaveThread()
    {
        Fixture f;
        f.enter();
        f.choose(0);
        f.feed(turn(1));
        f.leaveItem();
        f.pick(7);
        QVERIFY(f.page->isSaving());
        // Deaf while saving.
        f.page->collectorMsg(turn(-3));
        f.page->collectorMsg(select());
        f.page->collectorMsg(back());
        QCOMPARE(f.page->currentParam(), 7);
        QTRY_VERIFY(!f.page->isSaving());
        QCOMPARE(f.cb.takeJournal(),
                 (QStringList{"leds 3 -1 0", "save_network_settings", "leds 3 0 0",
                              "text 2 1 0 Network Params", "text 2 2 0 Were Saved:", "text 2 3 0 ",
                              "text 2 4 0 193.168.1.10", "text 2 5 0 255.255.255.0",
                              "text 2 6 0 192.168.1.255", "text 2 7 0 192.168.1.1", "sleep 4000",
                              "clear 2"}));
        QStringList log = f.newLog();
        QCOMPARE(log.mid(log.size() - 2),
                 (QStringList{"Inside Page_Setup::saveParam_finished()",
                              "Done Page_Setup::saveParam_finished()"}));
        QCOMPARE(f.page->currentParam(), -1);

        // Nothing pending any more.
        f.page->collectorMsg(turn(-10));
        f.cb.clear();
        saveAndWait(f);
        QCOMPARE(f.cb.journal(), QStringList());
    }

    void secondSaveCompletesTwice()
    {
        Fixture f;
        f.enter();
        for (int save = 1; save <= 2; ++save) {
            f.page->collectorMsg(turn(-10));
            f.choose(save); // netmask, then broadcast
            f.page->collectorMsg(turn(1));
            f.leaveItem();
            saveAndWait(f); // the journal now starts at the save's select
        }
        // The second save's thread end runs the completion twice.
        QTRY_COMPARE(f.cb.journal().count("sleep 4000"), 2);
        QTest::qWait(300);
        const QStringList journal = f.cb.journal();
        QCOMPARE(journal.count("sleep 4000"), 2);
        QCOMPARE(journal.count("save_network_settings"), 1);
        QCOMPARE(journal.count("leds 3 0 0"), 2);
        QCOMPARE(journal.count("text 2 5 0 0.255.255.0"), 2);
        QCOMPARE(journal.count("text 2 6 0 193.168.1.255"), 2);
        QCOMPARE(f.newLog().count("Done Page_Setup::saveParam_finished()"), 2);
    }

    void pendingChangesSurviveLeavingThePage()
    {
        Fixture f;
        f.enter();
        f.choose(0);
        f.feed(turn(1));
        f.page->collectorMsg(back());
        f.page->collectorMsg(back());
        QCOMPARE(f.cb.journal().last(), QString("parent onEnter"));
        f.enter();
        saveAndWait(f);
        QVERIFY(f.cb.journal().contains("save_network_settings"));
    }

    // Input during the pauses: held until the flow that pauses has returned.

    void inputDuringTheSaveScreensWaitsForTheFlow()
    {
        Fixture f;
        f.enter();
        f.choose(0);
        f.feed(turn(1));
        f.leaveItem();
        f.choose(5);
        f.page->collectorMsg(turn(1));
        f.leaveItem();
        f.page->collectorMsg(turn(7));
        SaveGate gate(f);
        // A second source of input: while the PSU confirmation holds the
        // screen, a turn away and back and a select on "Save Changes"; while
        // "Were Saved:" does, back to the first row, the IP address opened and
        // turned.
        gate.during("sleep 2000", [&f] {
            f.page->collectorMsg(turn(1));
            f.page->collectorMsg(turn(-1));
            f.page->collectorMsg(select());
        });
        gate.during("sleep 4000", [&f] {
            f.page->collectorMsg(turn(-7));
            f.page->collectorMsg(select());
            f.page->collectorMsg(turn(1));
        });
        int beats = 0;
        QTimer heartbeat;
        heartbeat.setInterval(10);
        connect(&heartbeat, &QTimer::timeout, this, [&beats] { ++beats; });
        heartbeat.start();
        f.cb.clear();
        f.feed(select());

        // The flow has returned with the save running, and the event loop runs
        // while the save waits.
        QTRY_COMPARE(gate.started(), 1);
        const int beatsBefore = beats;
        QTRY_VERIFY(beats >= beatsBefore + 5);
        gate.letSaveEnd();

        // One save, of the addresses of the press. The input held during the
        // PSU screen found the page saving; the edit held during "Were Saved:"
        // comes after the completion has cleared the screen and is pending (the
        // refresh timer draws its turn once more).
        const QStringList edited{"text 2 0 0 194.168.  1. 10", "textat 2 0 0 3 0xffffff 0 194",
                                 "text 2 1 0 ^"};
        QTRY_COMPARE(f.cb.journal().count(edited.first()), 2);
        QTest::qWait(300);
        QCOMPARE(gate.written(), QList<QStringList>{pressedAddresses});
        QCOMPARE(f.cb.journal(),
                 QStringList({"text 2 1 0 Dual PSU", "text 2 2 0 Setting Saved:", "text 2 3 0 ",
                              "text 2 4 0 Enabled", "sleep 2000", "clear 2", "leds 3 -1 0",
                              "save_network_settings", "leds 3 0 0", "text 2 1 0 Network Params",
                              "text 2 2 0 Were Saved:", "text 2 3 0 ", "text 2 4 0 193.168.1.10",
                              "text 2 5 0 255.255.255.0", "text 2 6 0 192.168.1.255",
                              "text 2 7 0 192.168.1.1", "sleep 4000", "clear 2", "batch 2",
                              "text 1 0 1 IP Addr", "text 1 7 0 Save Changes",
                              "text 2 0 0 193.168.  1. 10", "textat 2 0 0 3 0xffffff 0 193",
                              "text 2 1 0 ^", "leds 3 1 0"})
                     + edited + edited);
        QVERIFY(!f.page->isSaving());
        QCOMPARE(f.page->currentParam(), 0);
    }

    void secondSaveWritesTheAddressesOfThePress()
    {
        Fixture f;
        f.enter();
        SaveGate gate(f);
        for (int save = 1; save <= 2; ++save) {
            f.choose(0);
            f.feed(turn(1));
            f.leaveItem();
            f.page->collectorMsg(turn(7));
            f.cb.clear();
            f.feed(select());
            QTRY_COMPARE(gate.started(), save);
            // Whatever changes the editor while the save runs does not reach it.
            f.ip.setFromDotted("10.0.0.1");
            gate.letSaveEnd();
            // The n-th save completes n times.
            QTRY_COMPARE(f.cb.journal().count("clear 2"), save);
            QTest::qWait(300);
            QCOMPARE(f.cb.journal().count("text 2 1 0 Network Params"), save);
            QCOMPARE(f.cb.journal().count("text 2 4 0 10.0.0.1"), save);
            QVERIFY(!f.page->isSaving());
            f.page->collectorMsg(turn(-10));
        }
        QCOMPARE(gate.written(), (QList<QStringList>{pressedAddresses,
                                                     {"11.0.0.1", "255.255.255.0", "192.168.1.255",
                                                      "192.168.1.1"}}));
    }

    // A save that starts while the previous save's thread has reported back
    // but not ended yet starts once it has, the event loop running meanwhile.
    void saveWhileTheLastSaveThreadEnds()
    {
        Fixture f;
        f.enter();
        QSemaphore tailMayEnd;
        QAtomicInt saves;
        f.cb.setSaveAction([&tailMayEnd, &saves] {
            if (saves.fetchAndAddOrdered(1) == 0)
                (new SlowDeletion(&tailMayEnd))->deleteLater();
        });
        f.choose(0);
        f.feed(turn(1));
        f.leaveItem();
        saveAndWait(f);
        f.page->collectorMsg(turn(-10));
        f.choose(0);
        f.feed(turn(1));
        f.leaveItem();

        QElapsedTimer clock;
        clock.start();
        f.pick(7);
        QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
        int beats = 0;
        QTimer heartbeat;
        heartbeat.setInterval(10);
        connect(&heartbeat, &QTimer::timeout, this, [&beats] { ++beats; });
        heartbeat.start();
        QTest::qWait(300);
        QVERIFY(beats >= 10);
        QCOMPARE(f.cb.journal(), QStringList("leds 3 -1 0"));
        QVERIFY(f.page->isSaving());

        tailMayEnd.release();
        QTRY_COMPARE(f.cb.journal().count("leds 3 0 0"), 2);
        QCOMPARE(f.cb.journal().mid(0, 3),
                 (QStringList{"leds 3 -1 0", "save_network_settings", "leds 3 0 0"}));
        QCOMPARE(f.cb.journal().count("text 2 4 0 194.168.1.10"), 2);
    }

    // Font list

    void fontListShowsCurrentFont()
    {
        Fixture f;
        f.enter();
        f.page->collectorMsg(turn(4));
        f.cb.clear();
        f.newLog();
        const QByteArray printed = f.feed(select());
        QCOMPARE(f.page->fontIndex(), 1);
        QCOMPARE(f.cb.takeJournal(), (QStringList{"get_font", "text 2 0 0 6x10", "text 2 1 1 8x13",
                                                  "text 2 2 0 10x20"}));
        QCOMPARE(printed, QByteArray("_font_names.at(0) = 6x10.\n"
                                     "_font_names.at(1) = 8x13.\n"
                                     "Index for key '8x13' is 1\n"));
        QCOMPARE(f.newLog(),
                 (QStringList{"Page_Setup::collectorMsg(TFT_MENU_BUT) ==> _sh_submenu_val = 4",
                              "Page_Setup::collectorMsg() ==> _sh_submenu_val = 4",
                              "Searching for index for font key ' \"8x13\"",
                              "Drawing complete fonts list",
                              "Page_Setup::collectorMsg() ==> Done calling doSubMenuItem( 4 )"}));
    }

    void unknownCurrentFontHighlightsFirstRow()
    {
        Fixture f;
        f.cb.setFontDimensions(7, 14);
        f.enter();
        f.page->collectorMsg(turn(4));
        f.cb.clear();
        f.newLog();
        f.feed(select());
        QCOMPARE(f.page->fontIndex(), -1);
        QCOMPARE(f.cb.journal(), (QStringList{"get_font", "text 2 0 1 6x10", "text 2 1 0 8x13",
                                              "text 2 2 0 10x20"}));
        QVERIFY(f.newLog().contains("Couldn't find match for font key ' \"7x14\""));
        // Leaving commits the highlighted first row.
        f.page->collectorMsg(back());
        QCOMPARE(f.page->fontIndex(), 0);
    }

    void fontTurnsMoveHighlightButNeverSave()
    {
        Fixture f;
        f.enter();
        f.choose(4);
        f.page->collectorMsg(turn(1));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"leds 3 1 0", "text 2 2 1 10x20", "text 2 1 0 8x13"}));
        QCOMPARE(f.newLog(),
                 (QStringList{"Got menu shaft msg", "Inside _current_param != -1 statement",
                              "Before (*_params)[_current_param]->collectorMsg(msg)...",
                              "Inside !_font_change_made statement...",
                              "Leaving !_font_change_made statement...",
                              "Updating font list: _sh_font_val = 2 , _prev_sh_font_val = 1",
                              "Leaving _current_param != -1 statement"}));
        // Past the end: clamped, previous row as before the turn.
        f.page->collectorMsg(turn(5));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"text 2 2 1 10x20", "text 2 1 0 8x13"}));
        f.page->collectorMsg(turn(-1));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"text 2 1 1 8x13", "text 2 2 0 10x20"}));
        f.page->collectorMsg(turn(INT_MIN));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"text 2 0 1 6x10", "text 2 2 0 10x20"}));
        // Turning alone never chose or stored anything.
        QCOMPARE(f.page->fontIndex(), 1);
        QCOMPARE(f.cb.fontWidth(), 8);
        QCOMPARE(f.cb.fontHeight(), 13);
    }

    void firstFontTurnMarksChangeEvenWithoutMoving()
    {
        Fixture f;
        f.cb.setFontDimensions(10, 20);
        f.enter();
        f.choose(4);
        f.page->collectorMsg(turn(1));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"leds 3 1 0", "text 2 2 1 10x20"}));
    }

    void leavingFontListCommitsAndSaveStoresIt()
    {
        Fixture f;
        f.enter();
        f.choose(4);
        f.page->collectorMsg(turn(1));
        f.page->collectorMsg(back());
        QCOMPARE(f.page->fontIndex(), 2);
        f.page->collectorMsg(turn(-10));
        f.cb.clear();
        f.newLog();

        const QByteArray printed = f.pick(7);
        QCOMPARE(printed, QByteArray("parse_font_dimensions(): width = 10, height = 20.\n"));
        QCOMPARE(f.cb.takeJournal(),
                 (QStringList{"update_font 10 20", "text 2 1 0 Font Setting", "text 2 2 0 Was Saved:",
                              "text 2 3 0 ", "text 2 4 0 10x20", "sleep 2000", "clear 2",
                              "leds 3 0 0"}));
        QCOMPARE(f.page->currentParam(), -1);
        QVERIFY(!f.page->isSaving());
        // Saved: a second save has nothing to do.
        f.page->collectorMsg(select());
        QCOMPARE(f.cb.journal(), QStringList());
    }

    void fontListReopensOnCommittedFont()
    {
        Fixture f;
        f.enter();
        f.choose(4);
        f.page->collectorMsg(turn(-1));
        f.page->collectorMsg(back());
        QCOMPARE(f.page->fontIndex(), 0);
        f.cb.clear();
        f.page->collectorMsg(select()); // still on "Font Size"
        QCOMPARE(f.cb.journal(), (QStringList{"text 2 0 1 6x10", "text 2 1 0 8x13", "text 2 2 0 10x20"}));
    }

    void fontDirectoryIsReadOnce()
    {
        Fixture f;
        QVERIFY(_root.writeFonts({"12x24.pcf.gz", "5x7.pcf.gz"}));
        f.enter();
        f.pick(4);
        QCOMPARE(f.cb.journal(),
                 (QStringList{"get_font", "text 2 0 0 6x10", "text 2 1 1 8x13", "text 2 2 0 10x20"}));
    }

    void emptyFontDirectory_data()
    {
        QTest::addColumn<bool>("keepDirectory");
        QTest::newRow("empty") << true;
        QTest::newRow("missing") << false;
    }

    void emptyFontDirectory()
    {
        QFETCH(bool, keepDirectory);
        QDir(_fontDir).removeRecursively();
        if (keepDirectory)
            QVERIFY(QDir().mkpath(_fontDir));
        Fixture f;
        QVERIFY(f.page->fontNames().isEmpty());
        f.enter();
        f.choose(4);
        f.page->collectorMsg(turn(1));
        f.page->collectorMsg(turn(-3));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"leds 3 1 0", "get_font", "get_font"}));
        QCOMPARE(f.newLog().count("Drawing complete fonts list"), 2);
        f.page->collectorMsg(back());
        QCOMPARE(f.page->fontIndex(), -1);
        f.page->collectorMsg(turn(-10));
        f.cb.clear();
        f.newLog();

        // The save skips the font, logs it and clears the pending light.
        f.pick(7);
        QCOMPARE(f.cb.journal(), QStringList{"leds 3 0 0"});
        QVERIFY(f.newLog().contains(
            "Page_Setup: no font chosen, font setting not saved; _font_index = -1"));
        QCOMPARE(f.page->currentParam(), -1);
    }

    // Dual PSU

    void psuChoiceAndSave()
    {
        Fixture f;
        f.enter();
        f.pick(5);
        QCOMPARE(f.cb.takeJournal(), (QStringList{"text 2 0 1 No", "text 2 1 0 Yes"}));

        // No real change: nothing pending.
        f.page->collectorMsg(turn(-1));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"text 2 0 1 No", "text 2 1 0 Yes"}));
        f.page->collectorMsg(turn(1));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"leds 3 1 0", "text 2 0 0 No", "text 2 1 1 Yes"}));
        f.page->collectorMsg(turn(4));
        QCOMPARE(f.cb.takeJournal(), (QStringList{"text 2 0 0 No", "text 2 1 1 Yes"}));
        QCOMPARE(f.page->psuRedundant(), 1);
        f.leaveItem();

        f.choose(7);
        QVERIFY(_root.readFile(ConfigFile).contains("redundant=1"));
    }

    void psuSaveScreen()
    {
        QVERIFY(_root.writeFile(ConfigFile, "[psu]\nredundant=1\n"));
        Fixture f;
        f.enter();
        f.choose(5);
        f.page->collectorMsg(turn(-1));
        f.leaveItem();
        f.pick(7);
        QCOMPARE(f.cb.takeJournal(),
                 (QStringList{"text 2 1 0 Dual PSU", "text 2 2 0 Setting Saved:", "text 2 3 0 ",
                              "text 2 4 0 Disabled", "sleep 2000", "clear 2", "leds 3 0 0"}));
        QVERIFY(_root.readFile(ConfigFile).contains("redundant=0"));
        QCOMPARE(f.page->currentParam(), -1);
    }

    void psuTurnWithoutChangeLeavesNothingToSave()
    {
        Fixture f;
        f.enter();
        f.choose(5);
        f.page->collectorMsg(turn(-2));
        f.leaveItem();
        f.choose(7);
        f.page->collectorMsg(select());
        QCOMPARE(f.cb.journal(), QStringList());
        QCOMPARE(_root.readFile(ConfigFile), QByteArray("[psu]\nredundant=0\n"));
    }

    void psuSaveReportsSuccessEvenIfTheWriteFails()
    {
        Fixture f;
        QVERIFY(QFile::remove(_configPath));
        f.enter();
        f.choose(5);
        f.page->collectorMsg(turn(1));
        f.leaveItem();
        f.pick(7);
        QCOMPARE(f.cb.journal().mid(0, 4),
                 (QStringList{"text 2 1 0 Dual PSU", "text 2 2 0 Setting Saved:", "text 2 3 0 ",
                              "text 2 4 0 Enabled"}));
        QVERIFY(!QFileInfo::exists(_configPath));
    }

    // Revert

    void revertAfterPsuTurnsGoesBackOneTurn()
    {
        Fixture f;
        f.enter();
        f.choose(5);
        f.page->collectorMsg(turn(1));
        f.page->collectorMsg(turn(-1));
        QCOMPARE(f.page->psuRedundant(), 0);
        f.leaveItem();
        f.pick(8);
        QCOMPARE(f.cb.takeJournal(), (QStringList{"leds 3 0 0", "text 2 2 0 Changes were",
                                                  "text 2 3 0 Discarded", "sleep 2000", "get_font",
                                                  "clear 2"}));
        QCOMPARE(f.page->psuRedundant(), 1);
        QCOMPARE(f.page->currentParam(), -1);
        // Nothing pending after the revert: a second one does nothing.
        f.page->collectorMsg(turn(-1));
        f.pick(1);
        QCOMPARE(f.cb.journal(), QStringList());
    }

    void revertReloadsAddressesFromInterfacesFile()
    {
        QVERIFY(_root.writeFile(InterfacesFile, "auto eth0\niface eth0 inet static\n"
                                                "    address 10.0.0.5\n    netmask 255.0.0.0\n"
                                                "    broadcast 10.255.255.255\n    gateway 10.0\n"
                                                "auto eth1\niface eth1 inet static\n    address 172.16.0.1\n"));
        Fixture f;
        f.enter();
        f.choose(1);
        f.feed(turn(1));
        QCOMPARE(f.mask.currentField(), 0);
        f.leaveItem();
        f.page->collectorMsg(turn(8));
        f.feed(select());
        QCOMPARE(f.ip.text(), QString("10.0.0.5"));
        QCOMPARE(f.mask.text(), QString("255.0.0.0"));
        QCOMPARE(f.broad.text(), QString("10.255.255.255"));
        QCOMPARE(f.gate.text(), QString("10.0.0.0"));
        for (const Param_Quad *quad : {&f.ip, &f.mask, &f.broad, &f.gate})
            QCOMPARE(quad->currentField(), -1);
        // Nothing left to save.
        f.page->collectorMsg(turn(-1));
        f.cb.clear();
        f.page->collectorMsg(select());
        QCOMPARE(f.cb.journal(), QStringList());
    }

    void revertWithUnreadableInterfacesFileZeroesEditors()
    {
        Fixture f;
        QVERIFY(QFile::remove(_interfacesPath));
        f.enter();
        f.choose(0);
        f.feed(turn(1));
        f.leaveItem();
        f.page->collectorMsg(turn(8));
        f.newLog();
        f.feed(select());
        QVERIFY(f.newLog().contains("NetUtil : failed to open /etc/network/interfaces"));
        QCOMPARE(f.ip.text(), QString("0.0.0.0"));
        QCOMPARE(f.gate.text(), QString("0.0.0.0"));
    }

    void revertLooksUpFontAgain()
    {
        Fixture f;
        f.enter();
        f.choose(4);
        f.page->collectorMsg(turn(1));
        f.page->collectorMsg(back());
        QCOMPARE(f.page->fontIndex(), 2);
        f.pick(4);
        QCOMPARE(f.page->fontIndex(), 1);
        QVERIFY(!f.cb.journal().contains("update_font 10 20"));
    }

    // Everything at once

    void saveOrderFontThenPsuThenNetwork()
    {
        Fixture f;
        f.enter();
        f.choose(2);
        f.page->collectorMsg(turn(-1));
        f.leaveItem();
        f.choose(4);
        f.page->collectorMsg(turn(-1));
        f.leaveItem();
        f.choose(5);
        f.page->collectorMsg(turn(1));
        f.leaveItem();
        f.choose(7);
        QTRY_VERIFY(!f.page->isSaving());
        f.page->collectorMsg(turn(-10));
        f.pick(7);
        QCOMPARE(f.cb.journal(), QStringList()); // all saved
        QCOMPARE(f.cb.fontWidth(), 6);
        QCOMPARE(f.cb.fontHeight(), 10);
        QVERIFY(_root.readFile(ConfigFile).contains("redundant=1"));
    }

    void saveOrderJournal()
    {
        Fixture f;
        f.enter();
        f.choose(3);
        f.page->collectorMsg(turn(1));
        f.leaveItem();
        f.choose(4);
        f.page->collectorMsg(turn(1));
        f.leaveItem();
        f.choose(5);
        f.page->collectorMsg(turn(1));
        f.leaveItem();
        f.pick(7);
        QTRY_VERIFY(!f.page->isSaving());
        QCOMPARE(f.cb.journal(),
                 (QStringList{"update_font 10 20", "text 2 1 0 Font Setting", "text 2 2 0 Was Saved:",
                              "text 2 3 0 ", "text 2 4 0 10x20", "sleep 2000", "clear 2",
                              "text 2 1 0 Dual PSU", "text 2 2 0 Setting Saved:", "text 2 3 0 ",
                              "text 2 4 0 Enabled", "sleep 2000", "clear 2", "leds 3 -1 0",
                              "save_network_settings", "leds 3 0 0", "text 2 1 0 Network Params",
                              "text 2 2 0 Were Saved:", "text 2 3 0 ", "text 2 4 0 192.168.1.10",
                              "text 2 5 0 255.255.255.0", "text 2 6 0 192.168.1.255",
                              "text 2 7 0 193.168.1.1", "sleep 4000", "clear 2"}));
    }

    // Hostile wiring

    void refreshTimerIsPrecise()
    {
        RecordingCallback cb;
        Page_Setup page(&cb, nullptr, nullptr);
        const auto timer = page.findChild<QTimer *>();
        QVERIFY(timer);
        QCOMPARE(timer->interval(), 150);
        QVERIFY(timer->isSingleShot());
        QCOMPARE(timer->timerType(), Qt::PreciseTimer);
    }

    void missingEditorsAreSkipped()
    {
        RecordingCallback cb;
        MessageRecorder log;
        std::vector<Param *> two;
        Param_Quad ip(&cb, "IP");
        two.push_back(&ip);
        two.push_back(nullptr);
        Page_Setup page(&cb, nullptr, &two);
        Page_Setup none(&cb, nullptr, nullptr);
        for (Page_Setup *p : {&page, &none}) {
            // Events before the first entry reach item 0 (the construction value).
            p->collectorMsg(turn(1));
            p->refresh_last_turn();
            p->onEnter();
            for (int item : {1, 2, 3}) {
                p->collectorMsg(turn(item));
                p->collectorMsg(select());
                p->collectorMsg(select());
                p->collectorMsg(turn(1));
                p->refresh_last_turn();
                p->collectorMsg(back());
                p->collectorMsg(turn(-10));
            }
            p->collectorMsg(turn(7));
            p->collectorMsg(select());
            QTRY_VERIFY(!p->isSaving());
            p->collectorMsg(back());
            p->collectorMsg(back());
        }
        QCOMPARE(cb.undecodableCount(), 0);
        QCOMPARE(cb.journal().count("save_network_settings"), 2);
    }

    void randomEventsNeverBreakThePage()
    {
        Fixture f;
        f.enter();
        quint32 seed = 12345;
        auto next = [&seed](int range) {
            seed = seed * 1103515245u + 12345u;
            return int((seed >> 16) % quint32(range));
        };
        for (int i = 0; i < 3000; ++i) {
            switch (next(5)) {
            case 0:
            case 1:
                f.page->collectorMsg(turn(next(21) - 10));
                break;
            case 2:
                f.page->collectorMsg(select(next(2)));
                break;
            case 3:
                f.page->collectorMsg(back(next(2)));
                break;
            default:
                f.page->refresh_last_turn();
                break;
            }
            if (f.page->isSaving())
                QTRY_VERIFY(!f.page->isSaving());
            QVERIFY(f.page->submenuValue() >= -1 && f.page->submenuValue() <= 8);
            QVERIFY(f.page->fontIndex() >= -1 && f.page->fontIndex() < 3);
            QVERIFY(f.page->psuRedundant() == 0 || f.page->psuRedundant() == 1);
        }
        QCOMPARE(f.cb.undecodableCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestPageSetup)
#include "tst_page_setup.moc"

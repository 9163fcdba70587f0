#include "pages/Page_Setup.h"

#include "buttondriver/KVB_Messages.h"
#include "netutil/NetUtil.h"
#include "pages/FontCatalogue.h"
#include "pages/MenuTables.h"
#include "panel/LauncherConfig.h"

#include <QDebug>
#include <QDeadlineTimer>
#include <QThread>

#include <atomic>

using buttondriver::KVB_ButtonLeds;
using buttondriver::KVB_ClearScreen;
using buttondriver::KVB_DrawText;

namespace {

constexpr int SETUP_MENU_LAST = 8;
constexpr int LEAVE_KEY = 2;

// *value += delta, clamped to 0..last; when clamped, *previous keeps what it
// held before the turn, otherwise it takes the old value. Unlike the menu
// navigation of the main pages, -1 gets no special meaning here.
void stepClamped(int *value, int *previous, qint32 delta, int last)
{
    const qint64 moved = qint64(*value) + delta; // 64 bits: no delta overflows
    if (moved >= 0 && moved <= last)
        *previous = *value;
    *value = int(qBound(qint64(0), moved, qint64(last)));
}

// Runs the controller's network save off the event loop, then pauses 200 ms.
// One for the life of the program, made on the first network save.
class SaverThread : public QThread
{
public:
    // Set before each start; the thread reads it when it runs.
    void setCallback(PageCallback *callback) { _callback.store(callback); }

protected:
    void run() override
    {
        _callback.load()->pcb_save_network_settings();
        msleep(200);
    }

private:
    std::atomic<PageCallback *> _callback{nullptr};
};

SaverThread *saverThread()
{
    static SaverThread *const saver = new SaverThread;
    return saver;
}

} // namespace

Page_Setup::Page_Setup(PageCallback *callback, Page *parent, std::vector<Param *> *params)
    : QObject(nullptr), Page(callback, parent), _params(params)
{
    _psu_redundant = readPsuMode();
    _prev_psu_redundant = _psu_redundant;
    qDebug() << "_sh_psu_val =" << _psu_redundant;

    fontcatalogue::scanFonts(&_font_names, &_font_info);

    _refresh_timer.setSingleShot(true);
    _refresh_timer.setTimerType(Qt::PreciseTimer);
    _refresh_timer.setInterval(150);
    connect(&_refresh_timer, &QTimer::timeout, this, &Page_Setup::refresh_last_turn);
    qDebug() << "Done creating Page_Setup instance";
}

Param_Quad *Page_Setup::editor(int index) const
{
    if (!_params || index < 0 || index >= int(_params->size()))
        return nullptr;
    return dynamic_cast<Param_Quad *>((*_params)[index]);
}

void Page_Setup::sendRow(int row, const QString &text, bool highlighted)
{
    _callback->pcb_send_message(KVB_DrawText(2, row, text, highlighted ? 1 : 0));
}

// Key light 3 tells whether edits are pending: 1 pending, -1 saving, 0 none.
void Page_Setup::sendPending(int state)
{
    _callback->pcb_send_message(KVB_ButtonLeds(3, state, 0));
}

void Page_Setup::saveParam_finished()
{
    // The n-th save's further completions run in the first one's pause, as
    // they always did; the outermost one then handles the input held meanwhile.
    if (_busy) {
        completeSave();
        return;
    }
    _busy = true;
    completeSave();
    handleHeld();
}

void Page_Setup::completeSave()
{
    sendPending(0);
    _saving = false;
    qDebug() << "Inside Page_Setup::saveParam_finished()";
    sendRow(1, QStringLiteral("Network Params"), false);
    sendRow(2, QStringLiteral("Were Saved:"), false);
    sendRow(3, QString(), false);
    for (int i = 0; i < 4; ++i) {
        if (const Param_Quad *quad = editor(i))
            sendRow(4 + i, quad->text(), false);
    }
    _callback->pcb_sleep(4000);
    _callback->pcb_send_message(KVB_ClearScreen(2));
    _param_field = -1;
    _current_param = -1;
    _changes_made = false;
    qDebug() << "Done Page_Setup::saveParam_finished()";
}

void Page_Setup::refresh_last_turn()
{
    if (_current_param < 0 || !_params || _current_param >= int(_params->size()))
        return;
    if (Param *param = (*_params)[_current_param])
        param->refresh();
}

void Page_Setup::collectorMsg(const collector::CollectorMsg &msg)
{
    // Input that arrives during a flow's pauses waits until the flow has
    // returned, in order, as the collector's socket holds what it receives
    // while its handler runs: no flow starts inside another.
    _held.push_back(msg);
    if (!_busy)
        handleHeld();
}

void Page_Setup::handleHeld()
{
    _busy = true;
    while (!_held.empty()) {
        const collector::CollectorMsg msg = _held.front();
        _held.pop_front();
        handleInput(msg);
    }
    _busy = false;
}

void Page_Setup::handleInput(const collector::CollectorMsg &msg)
{
    if (_saving)
        return;

    if (msg.type == collector::MSG_SHAFT) {
        if (msg.id != collector::TFT_MENU_SHAFT)
            return;
        qDebug() << "Got menu shaft msg";
        if (_current_param == -1 || _current_param >= 7) {
            qDebug() << "Inside _current_param == -1 statement";
            stepClamped(&_sh_submenu_val, &_prev_sh_submenu_val, msg.delta, SETUP_MENU_LAST);
            onEnter();
            qDebug() << "Leaving _current_param == -1 statement";
            return;
        }

        qDebug() << "Inside _current_param != -1 statement";
        qDebug() << "Before (*_params)[_current_param]->collectorMsg(msg)...";
        if (_current_param <= 3) {
            _refresh_timer.stop();
            if (!_changes_made) {
                qDebug() << "Inside !_changes_made statement...";
                _changes_made = true;
                sendPending(1);
                qDebug() << "Leaving !_changes_made statement...";
            }
            if (Param_Quad *quad = editor(_current_param))
                quad->collectorMsg(msg);
            _refresh_timer.start();
        } else if (_current_param == 4) {
            // The first turn marks a change even when the highlight cannot move.
            if (!_font_change_made) {
                qDebug() << "Inside !_font_change_made statement...";
                _font_change_made = true;
                sendPending(1);
                qDebug() << "Leaving !_font_change_made statement...";
            }
            // An empty catalogue leaves nothing to select.
            if (!_font_names.isEmpty())
                stepClamped(&_sh_font_val, &_prev_sh_font_val, msg.delta,
                            int(_font_names.size()) - 1);
            doSubMenuItem(4);
        } else if (_current_param == 5) {
            const int valueBefore = _psu_redundant;
            stepClamped(&_psu_redundant, &_prev_psu_redundant, msg.delta, 1);
            // Only a real change marks the PSU choice as pending.
            if (!_psu_change_made && _psu_redundant != valueBefore) {
                _psu_change_made = true;
                sendPending(1);
            }
            doSubMenuItem(5);
        }
        qDebug() << "Leaving _current_param != -1 statement";
        return;
    }

    if (msg.type != collector::MSG_KEY || msg.value == 0)
        return;

    if (msg.id == collector::TFT_MENU_BUT) {
        qDebug() << "Page_Setup::collectorMsg(TFT_MENU_BUT) ==> _sh_submenu_val ="
                 << _sh_submenu_val;
        if (_current_param != -1) {
            // Items 4 and up keep the key dead until the shaft moves or key 2.
            if (_current_param >= 0 && _current_param <= 3) {
                qDebug() << "Page_Setup::collectorMsg(before toggleParamField) ==> _sh_submenu_val ="
                         << _sh_submenu_val;
                toggleParamField();
            }
            return;
        }
        qDebug() << "Page_Setup::collectorMsg() ==> _sh_submenu_val =" << _sh_submenu_val;
        _current_param = _sh_submenu_val;
        doSubMenuItem(_sh_submenu_val);
        qDebug() << "Page_Setup::collectorMsg() ==> Done calling doSubMenuItem(" << _current_param
                 << ")";
    } else if (msg.id == LEAVE_KEY) {
        if (_current_param != -1) {
            _param_field = -1;
            _current_param = -1;
            if (_sh_font_val != -1 && _sh_submenu_val == 4)
                _font_index = _sh_font_val;
            _sh_font_val = -1;
            _callback->pcb_send_message(KVB_ClearScreen(2));
        } else {
            if (_parent)
                _parent->onEnter();
            _sh_submenu_val = -1;
            _prev_sh_submenu_val = -1;
        }
    }
}

void Page_Setup::force_redraw()
{
    _sh_submenu_val = -1;
    _prev_sh_submenu_val = -1;
}

void Page_Setup::onEnter()
{
    std::vector<QByteArray> rows;
    if (_sh_submenu_val == -1) {
        for (int row = 0; row <= SETUP_MENU_LAST; ++row)
            rows.push_back(KVB_DrawText(1, row, setup_menu_items[row], row == 0 ? 1 : 0));
        _sh_submenu_val = 0;
    } else {
        rows.push_back(KVB_DrawText(1, _sh_submenu_val, setup_menu_items[_sh_submenu_val], 1));
        if (_prev_sh_submenu_val >= 0 && _prev_sh_submenu_val <= SETUP_MENU_LAST)
            rows.push_back(KVB_DrawText(1, _prev_sh_submenu_val,
                                        setup_menu_items[_prev_sh_submenu_val], 0));
    }
    _callback->pcb_send_messages(rows);
    _param_field = -1;
    _current_param = -1;
}

void Page_Setup::toggleParamField()
{
    _param_field = (_param_field == -1 || _param_field >= 3) ? 0 : _param_field + 1;
    if (Param_Quad *quad = editor(_current_param)) {
        quad->setCurrentField(_param_field);
        quad->refresh();
    }
}

void Page_Setup::doSubMenuItem(int submenu_id)
{
    switch (submenu_id) {
    case 0:
    case 1:
    case 2:
    case 3:
        qDebug() << "Processing ParamQuad item: submenu_id =" << submenu_id;
        _param_field = 0;
        if (Param_Quad *quad = editor(submenu_id)) {
            quad->setCurrentField(0);
            quad->refresh();
        }
        break;
    case 4:
        if (_font_index == -1)
            fontcatalogue::lookupFontIndex(_callback, _font_names, &_font_index);
        if (_sh_font_val == -1) {
            qDebug() << "Drawing complete fonts list";
            // An empty catalogue shows no rows and leaves nothing highlighted.
            if (!_font_names.isEmpty())
                _sh_font_val = _font_index != -1 ? _font_index : 0;
            for (int i = 0; i < _font_names.size(); ++i)
                sendRow(i, _font_names.at(i), i == _sh_font_val);
        } else {
            qDebug() << "Updating font list: _sh_font_val =" << _sh_font_val
                     << ", _prev_sh_font_val =" << _prev_sh_font_val;
            if (_sh_font_val < _font_names.size())
                sendRow(_sh_font_val, _font_names.at(_sh_font_val), true);
            if (_prev_sh_font_val >= 0 && _prev_sh_font_val < _font_names.size())
                sendRow(_prev_sh_font_val, _font_names.at(_prev_sh_font_val), false);
        }
        break;
    case 5:
        sendRow(0, QStringLiteral("No"), _psu_redundant == 0);
        sendRow(1, QStringLiteral("Yes"), _psu_redundant != 0);
        break;
    case 7:
        saveFlow();
        break;
    case 8:
        if (!_changes_made && !_font_change_made && !_psu_change_made)
            break;
        revertFlow();
        _callback->pcb_send_message(KVB_ClearScreen(2));
        break;
    default:
        break;
    }
}

void Page_Setup::saveFlow()
{
    if (_font_change_made) {
        if (_font_index >= 0 && _font_index < _font_names.size()) {
            const QString name = _font_names.at(_font_index);
            int width = 0;
            int height = 0;
            parse_font_dimensions(name, &width, &height);
            _callback->pcb_update_font_dimensions(width, height);
            sendRow(1, QStringLiteral("Font Setting"), false);
            sendRow(2, QStringLiteral("Was Saved:"), false);
            sendRow(3, QString(), false);
            sendRow(4, name, false);
            _callback->pcb_sleep(2000);
            _callback->pcb_send_message(KVB_ClearScreen(2));
        } else {
            qDebug() << "Page_Setup: no font chosen, font setting not saved; _font_index ="
                     << _font_index;
        }
        _font_change_made = false;
        if (!_changes_made && !_psu_change_made) {
            sendPending(0);
            _param_field = -1;
            _current_param = -1;
        }
    }

    if (_psu_change_made) {
        // The screen reports success whatever the write returns.
        writePsuMode(_psu_redundant);
        sendRow(1, QStringLiteral("Dual PSU"), false);
        sendRow(2, QStringLiteral("Setting Saved:"), false);
        sendRow(3, QString(), false);
        sendRow(4, _psu_redundant != 0 ? QStringLiteral("Enabled") : QStringLiteral("Disabled"),
                false);
        _callback->pcb_sleep(2000);
        _callback->pcb_send_message(KVB_ClearScreen(2));
        _psu_change_made = false;
        _prev_psu_redundant = _psu_redundant;
        if (!_changes_made) {
            sendPending(0);
            _param_field = -1;
            _current_param = -1;
        }
    }

    if (_changes_made) {
        sendPending(-1);
        _saving = true;
        // The save writes the addresses as they are now.
        for (int i = 0; i < 4; ++i) {
            if (Param_Quad *quad = editor(i))
                quad->keepForSave();
        }
        SaverThread *saver = saverThread();
        saver->setCallback(_callback);
        // Each save adds one more queued connection, so the n-th save
        // completes n times.
        connect(saver, &QThread::finished, this, &Page_Setup::saveParam_finished,
                Qt::QueuedConnection);
        startSaver();
    }
}

void Page_Setup::startSaver()
{
    SaverThread *saver = saverThread();
    // The previous save has reported back, but its thread may not have ended
    // yet, and start() would then do nothing or wait. Until it has ended, try
    // again from the event loop; a deadline already past makes wait() only
    // look.
    if (!saver->wait(QDeadlineTimer(0))) {
        QTimer::singleShot(1, this, &Page_Setup::startSaver);
        return;
    }
    saver->start(QThread::InheritPriority);
}

void Page_Setup::revertFlow()
{
    std::vector<QString> values(8);
    NetUtil::readInterfacesFile(values);
    _param_field = -1;
    _current_param = -1;
    for (int i = 0; i < 4; ++i) {
        if (Param_Quad *quad = editor(i)) {
            quad->setFromDotted(values.at(i));
            quad->setCurrentField(-1);
        }
    }
    sendPending(0);
    sendRow(2, QStringLiteral("Changes were"), false);
    sendRow(3, QStringLiteral("Discarded"), false);
    _callback->pcb_sleep(2000);
    fontcatalogue::lookupFontIndex(_callback, _font_names, &_font_index);
    _changes_made = false;
    _psu_redundant = _prev_psu_redundant;
    _font_change_made = false;
    _psu_change_made = false;
}

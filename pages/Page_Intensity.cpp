#include "pages/Page_Intensity.h"

#include "buttondriver/KVB_Messages.h"
#include "pages/ButtonLevelFile.h"
#include "pages/MenuNavigation.h"
#include "pages/MenuTables.h"

#include <QDebug>

using buttondriver::KVB_ButtonLeds;
using buttondriver::KVB_ClearScreen;
using buttondriver::KVB_Cmd10;
using buttondriver::KVB_DrawText;

Page_Intensity::Page_Intensity(PageCallback *callback, Page *parent)
    : QObject(nullptr), Page(callback, parent)
{
    std::vector<QString> values(2);
    if (readButtonlevelFile(values)) {
        bool ok = false;
        _levels[0] = values.at(1).toInt(&ok);
        if (!ok)
            qDebug() << "Error reading TFT parameter from file.";
    }
    // The buttons always start at full level, whatever the file says.
    _levels[1] = 100;

    _apply_timer.setSingleShot(true);
    _apply_timer.setTimerType(Qt::PreciseTimer);
    _apply_timer.setInterval(150);
    connect(&_apply_timer, &QTimer::timeout, this, &Page_Intensity::refresh_last_turn);
}

int Page_Intensity::level(int index) const
{
    return index == 0 || index == 1 ? _levels[index] : -1;
}

void Page_Intensity::refresh_last_turn()
{
    if (_current_item == 0 || _current_item == 1)
        change_intensity();
}

void Page_Intensity::collectorMsg(const collector::CollectorMsg &msg)
{
    if (msg.type == collector::MSG_KEY) {
        if (msg.value == 0)
            return;
        if (msg.id == 2) {
            if (_current_item == -1) {
                if (_parent)
                    _parent->onEnter();
                _current_item = -1;
                _sh_submenu_val = -1;
                return;
            }
            // A turn not applied yet is applied before the item closes.
            if (_apply_timer.isActive()) {
                _apply_timer.stop();
                change_intensity();
            }
            _callback->pcb_send_messages({KVB_ClearScreen(2), KVB_ButtonLeds(-1, 0, 0)});
            _current_item = -1;
        } else if (msg.id == collector::TFT_MENU_BUT) {
            if (_sh_submenu_val != 0 && _sh_submenu_val != 1)
                return;
            _current_item = _sh_submenu_val;
            if (_current_item == 0)
                display_intensity_screen();
        }
        return;
    }

    if (msg.type != collector::MSG_SHAFT || msg.id != collector::TFT_MENU_SHAFT)
        return;

    if (_current_item == 0 || _current_item == 1) {
        _apply_timer.stop();
        const qint64 moved = qint64(_levels[_current_item]) + msg.delta; // no overflow
        _levels[_current_item] = int(qBound(qint64(0), moved, qint64(100)));
        _apply_timer.start();
        return;
    }

    if (menuNavigate(&_sh_submenu_val, &_prev_sh_submenu_val, msg.delta, 1))
        refresh_main_items();
}

void Page_Intensity::onEnter()
{
    qDebug() << "Page_Intensity::onEnter()"
             << "_sh_submenu_val =" << _sh_submenu_val << ", _prev_sh_submenu_val ="
             << _prev_sh_submenu_val;
    _callback->pcb_send_messages({KVB_ClearScreen(2), KVB_ButtonLeds(-1, 1, 0)});
    if (_sh_submenu_val == -1) {
        _callback->pcb_send_messages({KVB_DrawText(1, 0, intensity_menu_items[0], 1),
                                      KVB_DrawText(1, 1, intensity_menu_items[1], 0)});
        _sh_submenu_val = 0;
    }
    qDebug() << "Leaving Page_Intensity::onEnter()";
}

void Page_Intensity::force_redraw()
{
    _sh_submenu_val = -1;
}

void Page_Intensity::refresh_main_items()
{
    if (_sh_submenu_val < 0 || _sh_submenu_val > 1)
        return;
    std::vector<QByteArray> rows{
        KVB_DrawText(1, _sh_submenu_val, intensity_menu_items[_sh_submenu_val], 1)};
    if (_prev_sh_submenu_val >= 0 && _prev_sh_submenu_val <= 1)
        rows.push_back(
            KVB_DrawText(1, _prev_sh_submenu_val, intensity_menu_items[_prev_sh_submenu_val], 0));
    _callback->pcb_send_messages(rows);
}

void Page_Intensity::display_intensity_screen()
{
    _callback->pcb_send_message(KVB_DrawText(2, 0, QStringLiteral("Change TFT"), 0));
    _callback->pcb_send_message(KVB_DrawText(2, 1, QStringLiteral("Intensity:"), 0));
    _callback->pcb_send_message(KVB_DrawText(2, 2, QString(), 0));
    change_intensity();
}

void Page_Intensity::change_intensity()
{
    if (_current_item != 0 && _current_item != 1)
        return;
    _callback->pcb_send_message(
        KVB_DrawText(2, 3, QStringLiteral("%1 %").arg(_levels[_current_item], 3), 0));
    writeButtonlevelFile({QString::number(_levels[1]), QString::number(_levels[0])});
    _callback->pcb_send_message(KVB_Cmd10());
}

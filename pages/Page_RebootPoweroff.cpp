#include "pages/Page_RebootPoweroff.h"

#include "buttondriver/KVB_Messages.h"

#include <QDebug>

Page_RebootPoweroff::Page_RebootPoweroff(PageCallback *callback, Page *parent, bool reboot)
    : Page(callback, parent), reboot(reboot)
{
    qDebug() << "Creating Page_RebootPoweroff instance";
}

void Page_RebootPoweroff::onEnter()
{
    using buttondriver::KVB_DrawText;
    _callback->pcb_send_message(
        KVB_DrawText(1, 0, reboot ? "Confirm Reboot:" : "Confirm Shutdown:", 0));
    _callback->pcb_send_message(KVB_DrawText(1, 1, reboot ? "Reboot now?" : "Shutdown now?", 0));
    _callback->pcb_send_message(KVB_DrawText(1, 2, "", 0));
    _callback->pcb_send_message(KVB_DrawText(1, 3, "No", 1));
    _callback->pcb_send_message(KVB_DrawText(1, 4, "Yes", 0));
    answer = 0;
}

void Page_RebootPoweroff::drawAnswers()
{
    _callback->pcb_send_message(buttondriver::KVB_DrawText(1, 3, "No", answer == 0 ? 1 : 0));
    _callback->pcb_send_message(buttondriver::KVB_DrawText(1, 4, "Yes", answer == 1 ? 1 : 0));
}

void Page_RebootPoweroff::collectorMsg(const collector::CollectorMsg &msg)
{
    if (msg.type == collector::MSG_KEY) {
        if (msg.id != collector::TFT_MENU_BUT || msg.value == 0)
            return;
        if (answer != 1)
            _parent->onEnter();
        else if (reboot)
            _callback->pcb_reboot();
        else
            _callback->pcb_poweroff();
    } else if (msg.type == collector::MSG_SHAFT && msg.id == collector::TFT_MENU_SHAFT) {
        // Wraps rather than clamps; 64 bits so that no delta overflows.
        const qint64 result = qint64(answer) + msg.delta;
        if (result < 0)
            answer = 1;
        else if (result >= 2)
            answer = 0;
        else
            answer = int(result);
        drawAnswers();
    }
}

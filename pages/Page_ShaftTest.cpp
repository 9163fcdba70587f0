#include "pages/Page_ShaftTest.h"

#include "buttondriver/KVB_Messages.h"

#include <QDebug>

#include <algorithm>
#include <iterator>

Page_ShaftTest::Page_ShaftTest(PageCallback *callback, Page *parent) : Page(callback, parent)
{
    qDebug() << "Creating Page_ShaftTest instance";
}

void Page_ShaftTest::drawShaft(int n)
{
    const ShaftRecord &shaft = _shafts[n];
    _callback->pcb_send_message(buttondriver::KVB_DrawText(2, 0, "Shaft Test", 0));
    _callback->pcb_send_message(buttondriver::KVB_DrawText(
        2, n + 1,
        QStringLiteral("%1: %2, %3, %4").arg(n).arg(shaft.presses).arg(shaft.releases).arg(shaft.last_delta),
        0));
}

void Page_ShaftTest::drawAll()
{
    for (int n = 0; n < SHAFT_COUNT; ++n)
        drawShaft(n);
}

void Page_ShaftTest::onEnter()
{
    _callback->pcb_send_message(buttondriver::KVB_ButtonLeds(-1, 0, 0));
    _callback->pcb_send_message(buttondriver::KVB_ClearScreen(2));
    std::fill(std::begin(_shafts), std::end(_shafts), ShaftRecord());
    _swallow_select = true;
    drawAll();
}

void Page_ShaftTest::collectorMsg(const collector::CollectorMsg &msg)
{
    if (msg.type == collector::MSG_KEY) {
        if (msg.id < FIRST_SHAFT_KEY) {
            if (msg.value != 0) {
                _parent->onEnter();
                _swallow_select = true;
            }
            return;
        }
        if (msg.id == collector::TFT_MENU_BUT && _swallow_select) {
            // The release of the select press that opened the page.
            _swallow_select = false;
            return;
        }
        const int n = msg.id - FIRST_SHAFT_KEY;
        // Only the six push switches have records.
        if (n >= SHAFT_COUNT)
            return;
        if (msg.value != 0)
            ++_shafts[n].presses;
        else
            ++_shafts[n].releases;
        drawShaft(n);
    } else if (msg.type == collector::MSG_SHAFT) {
        if (msg.id < 0 || msg.id >= SHAFT_COUNT)
            return;
        ShaftRecord &shaft = _shafts[msg.id];
        // The position wraps like the 32-bit counter it is.
        shaft.position = qint32(quint32(shaft.position) + quint32(msg.delta));
        shaft.last_delta = msg.delta;
        drawShaft(msg.id);
    }
}

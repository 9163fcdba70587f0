#include "pages/Page_GPIOTest.h"

#include "buttondriver/KVB_Messages.h"

Page_GPIOTest::Page_GPIOTest(PageCallback *callback, Page *parent) : Page(callback, parent) {}

void Page_GPIOTest::drawInput(int n)
{
    const QString text = QStringLiteral("GPI %1: %2").arg(n).arg(_states[n] ? "ON" : "OFF");
    _callback->pcb_send_message(buttondriver::KVB_DrawText(2, n, text, 0));
}

void Page_GPIOTest::onEnter()
{
    for (bool &state : _states)
        state = false;
    for (int n = 0; n < GPI_COUNT; ++n)
        drawInput(n);
}

void Page_GPIOTest::collectorMsg(const collector::CollectorMsg &msg)
{
    if (msg.type == collector::MSG_GPI) {
        // Compared unsigned, so negative ids are rejected as well.
        if (quint32(msg.id) < quint32(GPI_COUNT)) {
            _states[msg.id] = msg.value != 0;
            drawInput(msg.id);
        }
    } else if (msg.type == collector::MSG_KEY && msg.id == 2 && msg.value != 0) {
        _parent->onEnter();
    }
}

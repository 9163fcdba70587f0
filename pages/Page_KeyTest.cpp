#include "pages/Page_KeyTest.h"

#include "buttondriver/KVB_Messages.h"

#include <QDebug>

#include <algorithm>
#include <iterator>

int Page_KeyTest::_release_count = 0;
int Page_KeyTest::_blink_count = 0;

Page_KeyTest::Page_KeyTest(PageCallback *callback, Page *parent) : Page(callback, parent)
{
    qDebug() << "Creating Page_KeyTest instance";
    _timer.setTimerType(Qt::PreciseTimer);
    connect(&_timer, &QTimer::timeout, this, &Page_KeyTest::timer_timeout);
}

void Page_KeyTest::drawKey(int k)
{
    if (k < 0)
        k = 0;
    const KeyRecord &key = _keys[k];
    _callback->pcb_send_message(buttondriver::KVB_DrawText(2, 0, "Key Test", 0));
    _callback->pcb_send_message(
        buttondriver::KVB_DrawText(2, 1, QStringLiteral("btid %1 down %2").arg(k).arg(key.down), 0));
    _callback->pcb_send_message(
        buttondriver::KVB_DrawText(2, 2, QStringLiteral("btid %1 up %2").arg(k).arg(key.up), 0));
    // Lit after an odd number of presses.
    _callback->pcb_send_message(buttondriver::KVB_ButtonLeds(k, key.down % 2, 0));
}

void Page_KeyTest::onEnter()
{
    std::fill(std::begin(_keys), std::end(_keys), KeyRecord());
    drawKey(0);
    _timer.start(BLINK_INTERVAL_MS);
    _callback->pcb_send_message(buttondriver::KVB_ButtonLeds(-1, 0, 0));
}

void Page_KeyTest::timer_timeout()
{
    _callback->pcb_send_message(buttondriver::KVB_ButtonLeds(-1, _blink_count % 2 == 0 ? 1 : 0, 0));
    ++_blink_count;
}

void Page_KeyTest::collectorMsg(const collector::CollectorMsg &msg)
{
    if (msg.type != collector::MSG_KEY)
        return;
    // Keys 24 and up are the shafts' push switches; any such press leaves.
    if (msg.id >= KEY_COUNT && msg.value != 0) {
        _timer.stop();
        _callback->pcb_send_message(buttondriver::KVB_ButtonLeds(-1, 0, 0));
        _parent->onEnter();
        return;
    }
    if (_timer.isActive()) {
        // The first two releases end the blinking and are not counted.
        if (msg.value == 0 && ++_release_count == 2) {
            _release_count = 0;
            _timer.stop();
            drawKey(0);
        }
        return;
    }
    // Only the records need the range check.
    if (msg.id < 0 || msg.id >= KEY_COUNT)
        return;
    if (msg.value != 0)
        ++_keys[msg.id].down;
    else
        ++_keys[msg.id].up;
    drawKey(msg.id);
}

#include "pages/Page_LEDTest.h"

#include "buttondriver/KVB_Messages.h"
#include "pages/MenuNavigation.h"

#include <QDebug>

namespace {

struct LedRecord
{
    const char *name;
    quint32 hardware_number; // numbered per command: 22 for LEDs 0-1, 21 for 2-4
    bool state;
    const char *text_false;
    const char *text_true;
};

LedRecord led_table[Page_LEDTest::LED_COUNT] = {
    {"PSU", 0, false, "FAIL", "OK"},
    {"AUX", 1, false, "FAIL", "OK"},
    {"FAULT", 2, false, "OFF", "ON"},
    {"WARNING", 1, false, "OFF", "ON"},
    {"COMM", 0, false, "OFF", "ON"},
};

} // namespace

Page_LEDTest::Page_LEDTest(PageCallback *callback, Page *parent) : Page(callback, parent)
{
    qDebug() << "Creating Page_LEDTest instance";
}

void Page_LEDTest::setLed(int index, int state)
{
    if (index == -1) {
        for (int i = 0; i < LED_COUNT; ++i)
            setLed(i, state);
        return;
    }
    if (index < 0 || index >= LED_COUNT)
        return;
    const quint32 number = led_table[index].hardware_number;
    _callback->pcb_send_message(index <= 1 ? buttondriver::KVB_SetLed2(number, quint32(state))
                                           : buttondriver::KVB_SetLed(number, quint32(state)));
}

void Page_LEDTest::drawLed(int index, bool highlighted)
{
    const LedRecord &led = led_table[index];
    const QString text = QStringLiteral("%1: %2").arg(led.name, led.state ? led.text_true : led.text_false);
    _callback->pcb_send_message(buttondriver::KVB_DrawText(2, index + 3, text, highlighted ? 1 : 0));
}

void Page_LEDTest::onEnter()
{
    selected = 0;
    for (int i = 0; i < LED_COUNT; ++i)
        setLed(i, 0);
    _callback->pcb_send_message(buttondriver::KVB_DrawText(2, 0, "Select LED and ", 0));
    _callback->pcb_send_message(buttondriver::KVB_DrawText(2, 1, "toggle state: ", 0));
    _callback->pcb_send_message(buttondriver::KVB_DrawText(2, 2, "", 0));
    for (int i = 0; i < LED_COUNT; ++i) {
        led_table[i].state = false;
        drawLed(i, i == 0);
    }
    previous = -1;
}

void Page_LEDTest::redraw()
{
    if (previous >= 0) {
        drawLed(previous, false);
        setLed(previous, led_table[previous].state ? 1 : 0);
    }
    drawLed(selected, true);
    setLed(selected, led_table[selected].state ? 1 : 0);
}

void Page_LEDTest::collectorMsg(const collector::CollectorMsg &msg)
{
    if (msg.type == collector::MSG_KEY) {
        if (msg.id == collector::TFT_MENU_BUT && msg.value != 0) {
            led_table[selected].state = !led_table[selected].state;
            redraw();
        } else if (msg.id == 2 && msg.value != 0) {
            _parent->onEnter();
        }
    } else if (msg.type == collector::MSG_SHAFT && msg.id == collector::TFT_MENU_SHAFT) {
        menuNavigate(&selected, &previous, msg.delta, LED_COUNT - 1);
        redraw();
    }
}

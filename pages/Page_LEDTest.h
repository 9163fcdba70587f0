#ifndef PAGE_LEDTEST_H
#define PAGE_LEDTEST_H

#include "pages/Page.h"

// Lists the five status LEDs on screen 2; the menu shaft selects one and the
// select key toggles it.
class Page_LEDTest : public Page
{
public:
    static constexpr int LED_COUNT = 5;

    Page_LEDTest(PageCallback *callback, Page *parent);

    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;

    // Index -1 sets every LED in turn; LEDs 0 and 1 go by command 22, the
    // others by command 21. Other indexes are refused. The table's stored
    // state is not changed.
    void setLed(int index, int state);

private:
    void drawLed(int index, bool highlighted);
    void redraw();

    int selected = 0;
    int previous = -1;
};

#endif // PAGE_LEDTEST_H

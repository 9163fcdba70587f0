#ifndef PAGE_TESTING_H
#define PAGE_TESTING_H

#include "pages/Page.h"
#include "pages/Page_GPIOTest.h"
#include "pages/Page_KeyTest.h"
#include "pages/Page_LEDTest.h"
#include "pages/Page_ShaftTest.h"

// The testing menu on screen 1: leads to the shaft, key, GPI and LED tests.
class Page_Testing : public Page
{
public:
    Page_Testing(PageCallback *callback, Page *parent);

    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;

    // The main page switches the LEDs off through this page's LED setter.
    Page_LEDTest *ledTestPage();

    Page *currentPage() const;
    int submenuValue() const;
    int prevSubmenuValue() const;

private:
    void enter(Page *page);
    void redraw();

    Page_ShaftTest _shaft_test;
    Page_KeyTest _key_test;
    Page_GPIOTest _gpio_test;
    Page_LEDTest _led_test;
    Page *_current_page;
    int _sh_submenu_val = -1;
    int _prev_sh_submenu_val = -1;
};

#endif // PAGE_TESTING_H

#ifndef PAGE_GPIOTEST_H
#define PAGE_GPIOTEST_H

#include "pages/Page.h"

// Shows the eight general-purpose inputs on screen 2, one line each.
class Page_GPIOTest : public Page
{
public:
    static constexpr int GPI_COUNT = 8;

    Page_GPIOTest(PageCallback *callback, Page *parent);

    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;

private:
    void drawInput(int n);

    bool _states[GPI_COUNT] = {};
};

#endif // PAGE_GPIOTEST_H

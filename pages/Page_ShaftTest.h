#ifndef PAGE_SHAFTTEST_H
#define PAGE_SHAFTTEST_H

#include "pages/Page.h"

#include <QtGlobal>

// Shows, per shaft, its push-switch presses and releases and its last turn.
class Page_ShaftTest : public Page
{
public:
    static constexpr int SHAFT_COUNT = 6;
    // Shaft n's push switch is key FIRST_SHAFT_KEY + n.
    static constexpr int FIRST_SHAFT_KEY = 24;

    Page_ShaftTest(PageCallback *callback, Page *parent);

    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;

private:
    struct ShaftRecord
    {
        qint32 position = 0; // sum of the deltas since entry; kept, not shown
        qint32 last_delta = 0;
        qint32 presses = 0;
        qint32 releases = 0;
    };

    void drawShaft(int n);
    void drawAll();

    ShaftRecord _shafts[SHAFT_COUNT];
    bool _swallow_select = false;
};

#endif // PAGE_SHAFTTEST_H

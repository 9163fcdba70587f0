#ifndef PAGE_REBOOTPOWEROFF_H
#define PAGE_REBOOTPOWEROFF_H

#include "pages/Page.h"

// Asks on screen 1 to confirm a reboot (reboot mode) or a shutdown; "No" first.
class Page_RebootPoweroff : public Page
{
public:
    Page_RebootPoweroff(PageCallback *callback, Page *parent, bool reboot);

    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;

private:
    void drawAnswers();

    const bool reboot;
    int answer = 0; // 0 "No", 1 "Yes"
};

#endif // PAGE_REBOOTPOWEROFF_H

#ifndef PAGE_MAIN_H
#define PAGE_MAIN_H

#include "pages/Page.h"
#include "pages/Page_Intensity.h"
#include "pages/Page_RebootPoweroff.h"
#include "pages/Page_Setup.h"
#include "pages/Page_Testing.h"

#include <vector>

// The root of the page tree: the main menu on screen 0. It builds and owns
// every other page.
class Page_Main : public Page
{
public:
    // params: the controller's address editors, lent to the setup page.
    Page_Main(PageCallback *callback, std::vector<Param *> *params);
    ~Page_Main() override;

    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;

    // Redraws the selected and the previously selected item, or the whole
    // menu when it has never been drawn.
    void refresh_main_items();

    // The page that receives events: this page or one of its sub-pages.
    Page *currentPage() const;
    Page_Setup *setupPage();
    Page_Testing *testingPage();
    // Marks the menu as never drawn, so the next entry draws it whole.
    void resetMenuSelection();
    int menuValue() const;
    int prevMenuValue() const;

private:
    void enter(Page *page);

    Page_Setup _setup;
    Page_Testing _testing;
    Page_Intensity _intensity;
    Page_RebootPoweroff _reboot;
    Page_RebootPoweroff _shutdown;
    Page *_current_page;
    int _sh_menu_val = -1;
    int _prev_sh_menu_val = -1;
    // The short version text, shown as the main menu's last item.
    char _version_text[12];
};

#endif // PAGE_MAIN_H

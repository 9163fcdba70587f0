#ifndef PAGE_MAIN_H
#define PAGE_MAIN_H

#include "pages/MenuTables.h"
#include "pages/Page.h"
#include "pages/Page_Intensity.h"
#include "pages/Page_RebootPoweroff.h"
#include "pages/Page_Setup.h"
#include "pages/Page_Testing.h"

#include <QByteArray>

#include <iterator>
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
    // The text-line command of item index, plain or highlighted.
    const QByteArray &itemMessage(int index, bool highlighted);

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
    // Each turn redraws two items: their commands are built once per item
    // text (the table's pointer), not on every turn.
    struct ItemMessages
    {
        const char *text = nullptr;
        QByteArray plain;
        QByteArray highlighted;
    };
    ItemMessages _item_messages[std::size(main_menu_items)];
};

#endif // PAGE_MAIN_H

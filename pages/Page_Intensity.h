#ifndef PAGE_INTENSITY_H
#define PAGE_INTENSITY_H

#include "pages/Page.h"

#include <QObject>
#include <QTimer>

// The INTENSITY page: TFT screen and button levels in percent, applied on
// the driver and kept in the button-level file.
class Page_Intensity : public QObject, public Page
{
    Q_OBJECT

public:
    // Reads the button-level file for the TFT level; the buttons level starts
    // at 100.
    Page_Intensity(PageCallback *callback, Page *parent);
    ~Page_Intensity() override = default;

    // level(0) = TFT screen, level(1) = buttons; -1 for any other index.
    int level(int index) const;
    int currentItem() const { return _current_item; }
    int submenuValue() const { return _sh_submenu_val; }

public slots:
    void refresh_last_turn();
    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;
    void force_redraw();
    void refresh_main_items();
    void display_intensity_screen();
    void change_intensity();

private:
    int _sh_submenu_val = -1;
    int _prev_sh_submenu_val = -1;
    int _current_item = -1;
    int _levels[2] = {100, 100};
    QTimer _apply_timer{this}; // a child, so that tests can find it
};

#endif // PAGE_INTENSITY_H

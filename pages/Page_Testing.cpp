#include "pages/Page_Testing.h"

#include "buttondriver/KVB_Messages.h"
#include "pages/MenuNavigation.h"
#include "pages/MenuTables.h"

#include <QDebug>

#include <iterator>

static constexpr int LAST_TESTING_ITEM = int(std::size(testing_menu_items)) - 1;

Page_Testing::Page_Testing(PageCallback *callback, Page *parent)
    : Page(callback, parent),
      _shaft_test(callback, this),
      _key_test(callback, this),
      _gpio_test(callback, this),
      _led_test(callback, this),
      _current_page(this)
{
}

Page_LEDTest *Page_Testing::ledTestPage()
{
    return &_led_test;
}

Page *Page_Testing::currentPage() const
{
    return _current_page;
}

int Page_Testing::submenuValue() const
{
    return _sh_submenu_val;
}

int Page_Testing::prevSubmenuValue() const
{
    return _prev_sh_submenu_val;
}

void Page_Testing::enter(Page *page)
{
    page->onEnter();
    _current_page = page;
}

void Page_Testing::redraw()
{
    _callback->pcb_send_message(
        buttondriver::KVB_DrawText(1, _sh_submenu_val, testing_menu_items[_sh_submenu_val], 1));
    if (_prev_sh_submenu_val >= 0)
        _callback->pcb_send_message(buttondriver::KVB_DrawText(
            1, _prev_sh_submenu_val, testing_menu_items[_prev_sh_submenu_val], 0));
}

void Page_Testing::collectorMsg(const collector::CollectorMsg &msg)
{
    if (_current_page != this) {
        _current_page->collectorMsg(msg);
        return;
    }
    // Back: any kind of event with id 2 and a non-zero value.
    if (msg.id == 2 && msg.value != 0) {
        _parent->onEnter();
        _sh_submenu_val = -1;
        _prev_sh_submenu_val = -1;
        return;
    }
    if (msg.type == collector::MSG_KEY) {
        if (msg.id != collector::TFT_MENU_BUT || msg.value == 0)
            return;
        switch (_sh_submenu_val) {
        case 0:
            enter(&_shaft_test);
            break;
        case 1:
            enter(&_key_test);
            break;
        case 2:
            enter(&_gpio_test);
            break;
        case 3:
            enter(&_led_test);
            break;
        default:
            break;
        }
    } else if (msg.type == collector::MSG_SHAFT && msg.id == collector::TFT_MENU_SHAFT) {
        if (menuNavigate(&_sh_submenu_val, &_prev_sh_submenu_val, msg.delta, LAST_TESTING_ITEM))
            redraw();
    }
}

void Page_Testing::onEnter()
{
    _current_page = this;
    qDebug() << "Page_Testing::onEnter()";
    qDebug() << "_sh_submenu_val =" << _sh_submenu_val << ", _prev_sh_submenu_val =" << _prev_sh_submenu_val;
    _callback->pcb_send_messages({buttondriver::KVB_ClearScreen(2)});
    if (_sh_submenu_val == -1) {
        for (int i = 0; i <= LAST_TESTING_ITEM; ++i)
            _callback->pcb_send_message(buttondriver::KVB_DrawText(1, i, testing_menu_items[i], i == 0 ? 1 : 0));
        _sh_submenu_val = 0;
    }
    qDebug() << "Leaving Page_Testing::onEnter()";
}

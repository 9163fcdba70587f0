#include "pages/Page_Main.h"

#include "buttondriver/KVB_Messages.h"
#include "pages/MenuNavigation.h"
#include "pages/MenuTables.h"
#include "base/DebugFormat.h"
#include "base/LogOutput.h"
#include "panel/VersionFile.h"

#include <QDebug>
#include <QStringBuilder>

#include <iterator>

static constexpr int LAST_MAIN_ITEM = int(std::size(main_menu_items)) - 1;

Page_Main::Page_Main(PageCallback *callback, std::vector<Param *> *params)
    : Page(callback, nullptr),
      _setup(callback, this, params),
      _testing(callback, this),
      _intensity(callback, this),
      _reboot(callback, this, true),
      _shutdown(callback, this, false),
      _current_page(this)
{
    const QString version = readVersionFile(false);
    qDebug() << "Panel Version:" << verbatim(version);
    // The short form is at most 10 characters, so the terminating zero fits.
    qstrncpy(_version_text, version.toLocal8Bit().constData(), sizeof(_version_text));
    main_menu_items[MAIN_MENU_VERSION_INDEX] = _version_text;
}

Page_Main::~Page_Main()
{
    // The table is static and outlives this page's buffer.
    if (main_menu_items[MAIN_MENU_VERSION_INDEX] == _version_text)
        main_menu_items[MAIN_MENU_VERSION_INDEX] = main_menu_version_placeholder;
}

Page *Page_Main::currentPage() const
{
    return _current_page;
}

Page_Setup *Page_Main::setupPage()
{
    return &_setup;
}

Page_Testing *Page_Main::testingPage()
{
    return &_testing;
}

void Page_Main::resetMenuSelection()
{
    _sh_menu_val = -1;
    _prev_sh_menu_val = -1;
}

int Page_Main::menuValue() const
{
    return _sh_menu_val;
}

int Page_Main::prevMenuValue() const
{
    return _prev_sh_menu_val;
}

void Page_Main::enter(Page *page)
{
    page->onEnter();
    _current_page = page;
}

const QByteArray &Page_Main::itemMessage(int index, bool highlighted)
{
    ItemMessages &item = _item_messages[index];
    if (item.text != main_menu_items[index]) {
        item.text = main_menu_items[index];
        item.plain = buttondriver::KVB_DrawText(0, index, item.text, 0);
        item.highlighted = buttondriver::KVB_DrawText(0, index, item.text, 1);
    }
    return highlighted ? item.highlighted : item.plain;
}

void Page_Main::collectorMsg(const collector::CollectorMsg &msg)
{
    if (_current_page != this) {
        _current_page->collectorMsg(msg);
        return;
    }
    if (msg.type == collector::MSG_SHAFT) {
        if (msg.id == collector::TFT_MENU_SHAFT
            && menuNavigate(&_sh_menu_val, &_prev_sh_menu_val, msg.delta, LAST_MAIN_ITEM))
            refresh_main_items();
        return;
    }
    if (msg.type != collector::MSG_KEY || msg.id != collector::TFT_MENU_BUT || msg.value == 0)
        return;
    qDebug() << "Page_Main::collectorMsg(): Before main switch (_sh_menu_val =" << _sh_menu_val << ")";
    switch (_sh_menu_val) {
    case 0:
        enter(&_setup);
        break;
    case 1:
        enter(&_testing);
        break;
    case 2:
        enter(&_intensity);
        break;
    case 3: // EXIT: the next entry draws the whole menu again
        _sh_menu_val = -1;
        _prev_sh_menu_val = -1;
        _callback->pcb_exit_setup();
        break;
    case 5:
        enter(&_reboot);
        break;
    case 6:
        enter(&_shutdown);
        break;
    default: // the spacers
        break;
    }
}

void Page_Main::onEnter()
{
    _current_page = this;
    qDebug() << "Page_Main::onEnter()";
    std::vector<QByteArray> msgs;
    if (_sh_menu_val == -1)
        msgs.push_back(buttondriver::KVB_ClearScreen(0));
    msgs.push_back(buttondriver::KVB_ClearScreen(1));
    msgs.push_back(buttondriver::KVB_ClearScreen(2));
    msgs.push_back(buttondriver::KVB_ButtonLeds(-1, 0, 0));
    _callback->pcb_send_messages(msgs);
    for (int led = 0; led < Page_LEDTest::LED_COUNT; ++led)
        _testing.ledTestPage()->setLed(led, 0);
    refresh_main_items();
    qDebug() << "Leaving Page_Main::onEnter()";
}

void Page_Main::refresh_main_items()
{
    // Every menu turn logs these four lines: written without QDebug's stream.
    logoutput::debugLine(QStringLiteral("Entering Page_Main::refresh_main_items(): _sh_menu_val = ")
                         % QString::number(_sh_menu_val) % QLatin1String(" , _prev_sh_menu_val = ")
                         % QString::number(_prev_sh_menu_val));
    if (_sh_menu_val != -1) {
        logoutput::debugLine(QStringLiteral("Refreshing previous and current menu items"));
        _callback->pcb_send_message(itemMessage(_sh_menu_val, true));
        if (_prev_sh_menu_val >= 0)
            _callback->pcb_send_message(itemMessage(_prev_sh_menu_val, false));
        logoutput::debugLine(QStringLiteral("Done refreshing previous and current menu items"));
    } else {
        qDebug() << "First time startup for Page_Main::refresh_main_items().";
        for (int i = 0; i <= LAST_MAIN_ITEM; ++i)
            _callback->pcb_send_message(itemMessage(i, i == 0));
        _sh_menu_val = 0;
    }
    logoutput::debugLine(QStringLiteral("Leaving Page_Main::refresh_main_items()"));
}

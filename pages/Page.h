#ifndef PAGE_H
#define PAGE_H

#include "qcollector/CollectorMsg.h"

#include <QByteArray>

#include <vector>

// What a page may ask of the panel controller. The order of the operations is
// part of the interface: keep it.
class PageCallback
{
public:
    virtual ~PageCallback() = default;

    virtual bool pcb_send_messages(const std::vector<QByteArray> &msgs) = 0;
    virtual bool pcb_send_message(const QByteArray &msg) = 0;
    virtual void pcb_exit_setup() = 0;
    virtual void pcb_save_network_settings() = 0;
    virtual void pcb_reserved() = 0;
    virtual void pcb_reboot() = 0;
    virtual void pcb_poweroff() = 0;
    virtual void pcb_sleep(int msecs) = 0;
    virtual void pcb_update_font_dimensions(int width, int height) = 0;
    virtual void pcb_get_current_font_dimensions(int *width, int *height) = 0;
};

// One view of the menu. The owner of the current page hands it every event.
class Page
{
public:
    Page(PageCallback *callback, Page *parent) : _callback(callback), _parent(parent) {}
    virtual ~Page() = default;

    virtual void collectorMsg(const collector::CollectorMsg &msg) = 0;
    virtual void onEnter() = 0;

protected:
    PageCallback *_callback; // not owned
    Page *_parent;           // not owned; null for the main page
};

#endif // PAGE_H

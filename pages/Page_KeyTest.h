#ifndef PAGE_KEYTEST_H
#define PAGE_KEYTEST_H

#include "pages/Page.h"

#include <QObject>
#include <QTimer>

// Blinks all key lights on entry; after two releases it counts presses and
// releases per key and toggles the light of the key last pressed.
class Page_KeyTest : public QObject, public Page
{
    Q_OBJECT

public:
    static constexpr int KEY_COUNT = 24;
    static constexpr int BLINK_INTERVAL_MS = 500;

    Page_KeyTest(PageCallback *callback, Page *parent);

public Q_SLOTS:
    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;
    void timer_timeout();

private:
    struct KeyRecord
    {
        qint32 down = 0;
        qint32 up = 0;
    };

    void drawKey(int k);

    KeyRecord _keys[KEY_COUNT];
    QTimer _timer{this}; // a child, so that tests can find it

    // Process-wide, never reset: the blink phase and a pending release carry
    // over from one visit to the next.
    static int _release_count;
    static int _blink_count;
};

#endif // PAGE_KEYTEST_H

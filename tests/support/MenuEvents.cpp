#include "support/MenuEvents.h"

#include <QTest>

namespace menuevents {

collector::CollectorMsg turn(int delta)
{
    return collector::CollectorMsg::shaft(collector::TFT_MENU_SHAFT, delta);
}

collector::CollectorMsg select(int value)
{
    return collector::CollectorMsg::key(collector::TFT_MENU_BUT, value);
}

collector::CollectorMsg back(int value)
{
    return collector::CollectorMsg::key(2, value);
}

void pauseTurning()
{
    QTest::qWait(260);
}

} // namespace menuevents

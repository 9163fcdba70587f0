#include "support/MenuEvents.h"

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

} // namespace menuevents

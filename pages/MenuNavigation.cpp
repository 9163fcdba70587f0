#include "pages/MenuNavigation.h"

bool menuNavigate(int *selection, int *previous, qint32 delta, int lastIndex)
{
    if (*selection == -1) {
        if (delta < 1)
            return false;
        *previous = -1;
        *selection = delta > lastIndex ? lastIndex : int(delta);
        return true;
    }
    const int remembered = *previous;
    *previous = *selection;
    // 64 bits so that no delta overflows.
    const qint64 result = qint64(*selection) + delta;
    if (result < 0) {
        *selection = 0;
        *previous = remembered;
    } else if (result > lastIndex) {
        *selection = lastIndex;
        *previous = remembered;
    } else {
        *selection = int(result);
    }
    return true;
}

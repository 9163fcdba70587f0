#ifndef MENUEVENTS_H
#define MENUEVENTS_H

#include "qcollector/CollectorMsg.h"

// The collector events that walk the menus: the menu shaft turned, and the
// select key (the menu shaft's push switch) or the back key (2) pressed
// (value 1) or released (value 0).
namespace menuevents {

collector::CollectorMsg turn(int delta);
collector::CollectorMsg select(int value = 1);
collector::CollectorMsg back(int value = 1);

// Waits until the address editors' shared redraw clock (200 ms) has run out,
// so that the next turn redraws at once.
void pauseTurning();

} // namespace menuevents

#endif // MENUEVENTS_H

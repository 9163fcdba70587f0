#ifndef MENUNAVIGATION_H
#define MENUNAVIGATION_H

#include <QtGlobal>

// Moves a menu selection by one turn of the menu shaft (delta steps), clamped
// to 0..lastIndex, never wrapping. A selection of -1 (menu never drawn) takes
// the delta itself as the new selection, and ignores deltas below 1; a delta
// beyond the last index selects the last index. When the turn is clamped the
// previous value keeps what it held before the turn. Returns false when the
// turn is ignored, true when the page has to redraw.
bool menuNavigate(int *selection, int *previous, qint32 delta, int lastIndex);

#endif // MENUNAVIGATION_H

#ifndef SHORTCUTS_H
#define SHORTCUTS_H

#include <QStringList>

class VirtualPanel;

// The keyboard of the virtual panel, shared by the terminal and the web view:
// a key either acts on the panel at once or asks the view to do something.
namespace shortcuts {

enum Key { Up = 0x10000, Down, Escape }; // beyond every byte

enum class Action {
    None,   // not bound
    Panel,  // done on the panel
    Help,   // show or hide the key list
    Redraw, // draw everything again
    Quit,
};

constexpr int HoldMsecs = 5500; // the daemon wants 5 s

// A character code, or one of the keys above.
Action apply(VirtualPanel &panel, int key);

// The key list, one line of at most 80 columns each.
QStringList helpText();

} // namespace shortcuts

#endif // SHORTCUTS_H

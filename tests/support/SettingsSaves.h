#ifndef SETTINGSSAVES_H
#define SETTINGSSAVES_H

#include <QString>

class PanelDaemon;

// Drives a daemon that shows the main menu (first drawing, SETUP selected)
// through every save it can make from the menu:
//   the IP address's first octet one up, and the dual PSU mode switched on,
//   both saved with "Save Changes" (PSU first, then the network save thread);
//   the TFT intensity turned down by 7, applied after the shaft rests;
// and back to the main menu, where a turn must still be drawn at once.
// Waits on the daemon's log and drawing, not on the files, which the caller
// checks (the saves may be refused or fail). False with the step that did not
// happen in *failure.
bool saveEverySetting(PanelDaemon &d, QString *failure);

#endif // SETTINGSSAVES_H

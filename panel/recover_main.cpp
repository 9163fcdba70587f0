// panel-setup-recover: completes or undoes the saves of the settings files
// that a power cut or a kill interrupted, as the daemon does when it starts
// (settingsfile::recoverPending). The boot runs it before networking reads the
// interfaces file. PANEL_SETUP_ROOT moves the paths as in the daemon. It
// exits with 0 whatever it finds: the boot goes on, and what it did is in its
// log.
#include "base/LogOutput.h"
#include "base/SettingsFile.h"

int main()
{
    logoutput::install();
    settingsfile::recoverPending();
    return 0;
}

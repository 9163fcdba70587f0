// Built only by the layering test, which expects this build to succeed: the
// pages link the launcher configuration, a lower library.
#include "panel/LauncherConfig.h"

// Built only by the layering test, which expects this build to fail: the
// pages link no controller, so the controller's header is not to be found.
#include "panel/Setup_Panel.h"

#include "PermissionBitsEnforced.h"

#include <initializer_list>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

// glibc has no wrappers; capget/capset act on the calling thread only.
bool capabilities(__user_cap_data_struct *data, bool set)
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    return syscall(set ? SYS_capset : SYS_capget, &header, data) == 0;
}

} // namespace

PermissionBitsEnforced::PermissionBitsEnforced()
{
    if (!capabilities(_saved, false))
        return;
    __user_cap_data_struct reduced[_LINUX_CAPABILITY_U32S_3];
    for (int i = 0; i < _LINUX_CAPABILITY_U32S_3; ++i)
        reduced[i] = _saved[i];
    for (const int cap : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH})
        reduced[CAP_TO_INDEX(cap)].effective &= ~CAP_TO_MASK(cap);
    _active = capabilities(reduced, true);
}

PermissionBitsEnforced::~PermissionBitsEnforced()
{
    if (_active)
        capabilities(_saved, true);
}

#ifndef PERMISSIONBITSENFORCED_H
#define PERMISSIONBITSENFORCED_H

#include <linux/capability.h>

// The tests run as root, whose CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH make a
// 0444 file writable and a 0000 file readable. While an instance lives, the
// calling thread lacks both in its effective set (they stay permitted and are
// raised again on destruction), so it obeys permission bits like any other
// user. Without those capabilities (a non-root run) it changes nothing.
class PermissionBitsEnforced
{
public:
    PermissionBitsEnforced();
    ~PermissionBitsEnforced();
    PermissionBitsEnforced(const PermissionBitsEnforced &) = delete;
    PermissionBitsEnforced &operator=(const PermissionBitsEnforced &) = delete;

    // False when the capabilities could not be read or dropped.
    bool isActive() const { return _active; }

private:
    __user_cap_data_struct _saved[_LINUX_CAPABILITY_U32S_3] = {};
    bool _active = false;
};

#endif // PERMISSIONBITSENFORCED_H

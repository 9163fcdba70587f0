#ifndef PRIVATEMOUNTS_H
#define PRIVATEMOUNTS_H

#include <QString>

// Mounts that only the test and the processes it starts can see: the calling
// thread leaves the machine's mount namespace for one of its own (children
// started from it inherit it), so a test can make a directory read-only or
// put a tiny RAM disk under it without touching the host. Needs
// CAP_SYS_ADMIN (the tests run as root); each call returns false with the
// reason in *why when the system refuses.
namespace privatemounts {

// Once per process, before the mounts below.
bool enter(QString *why);

// dir, as it stands, becomes read-only (EROFS even for root).
bool bindReadOnly(const QString &dir, QString *why);

// source (a file or a directory) mounted over target, as a device binds a
// writable file over a read-only one.
bool bind(const QString &source, const QString &target, QString *why);

// A fresh tmpfs on dir, with tmpfs options such as "size=256k,nr_inodes=64".
bool mountTmpfs(const QString &dir, const QString &options, QString *why);

// Takes back the last mount on dir (lazily, should something still use it).
bool unmount(const QString &dir, QString *why);

} // namespace privatemounts

#endif // PRIVATEMOUNTS_H

#include "support/PrivateMounts.h"

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <sys/mount.h>

namespace privatemounts {

namespace {

bool failed(const char *what, const QString &dir, QString *why)
{
    if (why)
        *why = QStringLiteral("%1 %2: %3").arg(QLatin1String(what), dir, QString::fromLocal8Bit(strerror(errno)));
    return false;
}

} // namespace

bool enter(QString *why)
{
    if (unshare(CLONE_NEWNS) != 0)
        return failed("unshare(CLONE_NEWNS)", QString(), why);
    // Nothing mounted from here on travels back to the host's namespace.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return failed("making / private", QStringLiteral("/"), why);
    return true;
}

bool bindReadOnly(const QString &dir, QString *why)
{
    const QByteArray path = dir.toLocal8Bit();
    if (mount(path.constData(), path.constData(), nullptr, MS_BIND, nullptr) != 0)
        return failed("bind mount", dir, why);
    if (mount(nullptr, path.constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
        return failed("read-only remount", dir, why);
    return true;
}

bool bind(const QString &source, const QString &target, QString *why)
{
    if (mount(source.toLocal8Bit().constData(), target.toLocal8Bit().constData(), nullptr, MS_BIND, nullptr) != 0)
        return failed("bind mount", target, why);
    return true;
}

bool mountTmpfs(const QString &dir, const QString &options, QString *why)
{
    const QByteArray path = dir.toLocal8Bit();
    const QByteArray data = options.toLatin1();
    if (mount("tmpfs", path.constData(), "tmpfs", MS_NOSUID | MS_NODEV, data.constData()) != 0)
        return failed("tmpfs mount", dir, why);
    return true;
}

bool unmount(const QString &dir, QString *why)
{
    if (umount2(dir.toLocal8Bit().constData(), MNT_DETACH) != 0)
        return failed("unmount", dir, why);
    return true;
}

} // namespace privatemounts

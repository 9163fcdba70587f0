#include "support/CuttingFileOperations.h"

#include <QFile>

#include <cerrno>
#include <unistd.h>

CuttingFileOperations::CuttingFileOperations(int allowed, bool tear) : _allowed(allowed), _tear(tear)
{
    settingsfile::setFileOperations(this);
}

CuttingFileOperations::~CuttingFileOperations()
{
    settingsfile::setFileOperations(nullptr);
}

QByteArray CuttingFileOperations::pathOf(int fd)
{
    char path[4096] = {};
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(fd);
    const ssize_t size = ::readlink(link.constData(), path, sizeof path - 1);
    return size > 0 ? QByteArray(path, int(size)) : QByteArray("?");
}

bool CuttingFileOperations::proceed(const char *name, const QByteArray &path)
{
    ++_attempted;
    _trail << (path.isNull() ? QLatin1String(name) : QLatin1String(name) + QLatin1Char(' ') + QFile::decodeName(path));
    if (beforeEach)
        beforeEach();
    if (!cut())
        return true;
    errno = EIO;
    return false;
}

int CuttingFileOperations::open(const char *path, int flags, mode_t mode)
{
    return proceed("open", path) ? FileOperations::open(path, flags, mode) : -1;
}

ssize_t CuttingFileOperations::pwrite(int fd, const void *data, size_t size, off_t offset)
{
    if (proceed("pwrite"))
        return FileOperations::pwrite(fd, data, size, offset);
    // Only the write that the cut falls into lands in part.
    if (_tear && _attempted == _allowed + 1 && size > 1)
        FileOperations::pwrite(fd, data, size - 1, offset);
    errno = EIO;
    return -1;
}

int CuttingFileOperations::allocate(int fd, off_t size)
{
    return proceed("allocate") ? FileOperations::allocate(fd, size) : -1;
}

int CuttingFileOperations::ftruncate(int fd, off_t size)
{
    return proceed("ftruncate") ? FileOperations::ftruncate(fd, size) : -1;
}

int CuttingFileOperations::fchown(int fd, uid_t owner, gid_t group)
{
    return proceed("fchown") ? FileOperations::fchown(fd, owner, group) : -1;
}

int CuttingFileOperations::fchmod(int fd, mode_t mode)
{
    return proceed("fchmod") ? FileOperations::fchmod(fd, mode) : -1;
}

int CuttingFileOperations::fsync(int fd)
{
    return proceed("fsync", pathOf(fd)) ? FileOperations::fsync(fd) : -1;
}

int CuttingFileOperations::syncfs(int fd)
{
    return proceed("syncfs", pathOf(fd)) ? FileOperations::syncfs(fd) : -1;
}

int CuttingFileOperations::rename(const char *from, const char *to)
{
    return proceed("rename", to) ? FileOperations::rename(from, to) : -1;
}

int CuttingFileOperations::unlink(const char *path)
{
    return proceed("unlink", path) ? FileOperations::unlink(path) : -1;
}

#ifndef CUTTINGFILEOPERATIONS_H
#define CUTTINGFILEOPERATIONS_H

#include "base/SettingsFile.h"

#include <QStringList>

#include <functional>

// The file operations of settings saves, stopped as a power cut stops them:
// the first `allowed` operations happen, every later one fails with EIO and
// changes nothing. With `tear`, a write that the cut falls into stores all
// but its last byte (part of it reached the disk). While an instance
// lives it replaces the system's operations.
class CuttingFileOperations : public settingsfile::FileOperations
{
public:
    // allowed -1: no cut.
    explicit CuttingFileOperations(int allowed = -1, bool tear = false);
    ~CuttingFileOperations() override;
    CuttingFileOperations(const CuttingFileOperations &) = delete;
    CuttingFileOperations &operator=(const CuttingFileOperations &) = delete;

    // Whether an operation met the cut.
    bool cut() const { return _allowed >= 0 && _attempted > _allowed; }
    // Every operation attempted, cut or not: its name and, for those that
    // name a file or sync one, the file ("rename /x/interfaces", "fsync /x",
    // the name it has when it is synced).
    const QStringList &trail() const { return _trail; }
    // Runs before each operation.
    std::function<void()> beforeEach;

    int open(const char *path, int flags, mode_t mode) override;
    ssize_t pwrite(int fd, const void *data, size_t size, off_t offset) override;
    int allocate(int fd, off_t size) override;
    int ftruncate(int fd, off_t size) override;
    int fchown(int fd, uid_t owner, gid_t group) override;
    int fchmod(int fd, mode_t mode) override;
    int fsync(int fd) override;
    int syncfs(int fd) override;
    int rename(const char *from, const char *to) override;
    int unlink(const char *path) override;

private:
    // Counts the operation; false, with errno EIO, once the cut has come.
    bool proceed(const char *name, const QByteArray &path = QByteArray());
    static QByteArray pathOf(int fd);

    const int _allowed;
    const bool _tear;
    int _attempted = 0;
    QStringList _trail;
};

#endif // CUTTINGFILEOPERATIONS_H

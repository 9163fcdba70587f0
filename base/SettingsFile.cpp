#include "base/SettingsFile.h"

#include "base/DirectoryListing.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace settingsfile {

namespace {

// Linux follows at most 40 links in one lookup.
constexpr int MaxLinks = 40;

const char *const CopyInfix = ".panel-setup-";
constexpr int CopySuffixLength = 6;

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

// All of bytes from the file's start.
bool writeAll(int fd, const QByteArray &bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::pwrite(fd, bytes.constData() + done, size_t(bytes.size() - done), off_t(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

void syncDirectory(const QString &dir)
{
    const int fd = ::open(encoded(dir).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    ::fsync(fd);
    ::close(fd);
}

// Errors after which a rename cannot work on this layout, so the file is
// written in place instead.
bool layoutForbidsRename(int error)
{
    return error == EACCES || error == EPERM || error == EROFS || error == EBUSY || error == EXDEV;
}

QString randomSuffix()
{
    static const char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QString suffix;
    for (int i = 0; i < CopySuffixLength; ++i)
        suffix += QLatin1Char(letters[QRandomGenerator::global()->bounded(int(sizeof letters) - 1)]);
    return suffix;
}

enum class Outcome { Done, InPlace, OpenFailed, WriteFailed };

// A copy beside the target, renamed over it. existing: the target's status,
// or null when there is no target yet.
Outcome replaceAtomically(const QString &target, const struct stat *existing, const QByteArray &bytes)
{
    const QFileInfo info(target);
    QString copy;
    int fd = -1;
    for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
        copy = info.absolutePath() + QLatin1Char('/') + info.fileName() + QLatin1String(CopyInfix)
               + randomSuffix();
        // A new file gets the mode that creating it in place would give.
        fd = ::open(encoded(copy).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, existing ? 0600 : 0666);
        if (fd < 0 && errno != EEXIST)
            break;
    }
    if (fd < 0)
        return layoutForbidsRename(errno) ? Outcome::InPlace : Outcome::OpenFailed;

    const auto giveUp = [&](Outcome outcome) {
        ::close(fd);
        ::unlink(encoded(copy).constData());
        return outcome;
    };
    // The owner first: changing it clears set-id bits that the mode then restores.
    if (existing
        && (::fchown(fd, existing->st_uid, existing->st_gid) != 0
            || ::fchmod(fd, existing->st_mode & 07777) != 0))
        return giveUp(Outcome::InPlace);
    if (!writeAll(fd, bytes) || ::fsync(fd) != 0)
        return giveUp(Outcome::WriteFailed);
    if (::close(fd) != 0) {
        ::unlink(encoded(copy).constData());
        return Outcome::WriteFailed;
    }
    if (::rename(encoded(copy).constData(), encoded(target).constData()) != 0) {
        const int error = errno;
        ::unlink(encoded(copy).constData());
        return layoutForbidsRename(error) ? Outcome::InPlace : Outcome::WriteFailed;
    }
    syncDirectory(info.absolutePath());
    return Outcome::Done;
}

SaveResult writeInPlace(const QString &target, const QByteArray &bytes)
{
    const int fd = ::open(encoded(target).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return SaveResult::OpenFailed;
    // Room for the new bytes before the old ones are touched; file systems
    // without the call are written all the same.
    const int reserved = bytes.isEmpty() ? 0 : ::posix_fallocate(fd, 0, off_t(bytes.size()));
    const bool written = (reserved == 0 || reserved == EOPNOTSUPP || reserved == EINVAL)
                         && writeAll(fd, bytes) && ::ftruncate(fd, off_t(bytes.size())) == 0
                         && ::fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    return written && closed ? SaveResult::Saved : SaveResult::WriteFailed;
}

} // namespace

bool readSmallFile(const QString &path, QByteArray *bytes)
{
    const int fd = ::open(encoded(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status = {};
    bool ok = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= MaxReadSize;
    QByteArray read;
    if (ok) {
        // One byte more than allowed tells a file that grew past the limit.
        read.resize(int(MaxReadSize) + 1);
        qint64 done = 0;
        for (;;) {
            const ssize_t n = ::read(fd, read.data() + done, size_t(read.size() - done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                ok = n == 0;
                break;
            }
            done += n;
            if (done == read.size())
                break;
        }
        ok = ok && done <= MaxReadSize;
        read.resize(int(done));
    }
    ::close(fd);
    if (ok && bytes)
        *bytes = read;
    return ok;
}

bool isSmallRegularFile(const QString &path)
{
    struct stat status = {};
    return ::stat(encoded(path).constData(), &status) == 0 && S_ISREG(status.st_mode)
           && status.st_size <= MaxReadSize;
}

QString finalTarget(const QString &path)
{
    QString current = path;
    for (int links = 0; links <= MaxLinks; ++links) {
        const QFileInfo info(current);
        if (!info.isSymLink())
            return current;
        current = info.symLinkTarget();
    }
    return QString();
}

SaveResult save(const QString &path, const QByteArray &bytes)
{
    const QString target = finalTarget(path);
    if (target.isEmpty())
        return SaveResult::OpenFailed;
    struct stat status = {};
    const bool exists = ::stat(encoded(target).constData(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode))
        return SaveResult::OpenFailed;
    // A rename would replace a read-only file too: refuse what opening it for
    // writing refuses.
    if (exists) {
        const int fd = ::open(encoded(target).constData(), O_WRONLY | O_CLOEXEC);
        if (fd < 0)
            return SaveResult::OpenFailed;
        ::close(fd);
    }

    // Other hard links share the file only while it is written in place.
    if (!exists || status.st_nlink == 1) {
        switch (replaceAtomically(target, exists ? &status : nullptr, bytes)) {
        case Outcome::Done:
            return SaveResult::Saved;
        case Outcome::OpenFailed:
            return SaveResult::OpenFailed;
        case Outcome::WriteFailed:
            return SaveResult::WriteFailed;
        case Outcome::InPlace:
            break;
        }
    }
    return writeInPlace(target, bytes);
}

bool isLeftoverOf(const QString &name, const QString &entry)
{
    const QString prefix = name + QLatin1String(CopyInfix);
    if (entry.size() != prefix.size() + CopySuffixLength || !entry.startsWith(prefix))
        return false;
    for (const QChar c : entry.mid(prefix.size())) {
        if (c.unicode() > 127 || !c.isLetterOrNumber())
            return false;
    }
    return true;
}

void removeLeftovers(const QString &path)
{
    const QString target = finalTarget(path);
    if (target.isEmpty())
        return;
    const QFileInfo info(target);
    const QString dir = info.absolutePath();
    using namespace directorylisting;
    for (const QString &entry : entryNames(dir, Files | Hidden | System)) {
        if (isLeftoverOf(info.fileName(), entry))
            QFile::remove(dir + QLatin1Char('/') + entry);
    }
}

} // namespace settingsfile

#include "base/SettingsFile.h"

#include "base/DebugFormat.h"
#include "base/DirectoryListing.h"
#include "base/DevicePaths.h"
#include "base/RuntimeEnv.h"
#include "base/TrustChecks.h"

#include <QCryptographicHash>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/stat.h>
#include <unistd.h>

namespace settingsfile {

FileOperations::~FileOperations() = default;

int FileOperations::open(const char *path, int flags, mode_t mode)
{
    return ::open(path, flags, mode);
}

ssize_t FileOperations::pwrite(int fd, const void *data, size_t size, off_t offset)
{
    return ::pwrite(fd, data, size, offset);
}

int FileOperations::allocate(int fd, off_t size)
{
    return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, size);
}

int FileOperations::ftruncate(int fd, off_t size)
{
    return ::ftruncate(fd, size);
}

int FileOperations::fchown(int fd, uid_t owner, gid_t group)
{
    return ::fchown(fd, owner, group);
}

int FileOperations::fchmod(int fd, mode_t mode)
{
    return ::fchmod(fd, mode);
}

int FileOperations::fsync(int fd)
{
    return ::fsync(fd);
}

int FileOperations::syncfs(int fd)
{
    return ::syncfs(fd);
}

int FileOperations::rename(const char *from, const char *to)
{
    return ::rename(from, to);
}

int FileOperations::unlink(const char *path)
{
    return ::unlink(path);
}

namespace {

// Null: the system's own operations.
FileOperations *operations = nullptr;

FileOperations &ops()
{
    static FileOperations systemOperations;
    return operations ? *operations : systemOperations;
}

// Linux follows at most 40 links in one lookup.
constexpr int MaxLinks = 40;

const char *const CopyInfix = ".panel-setup-";
constexpr int CopySuffixLength = 6;

const char *const RecordSuffix = ".panel-setup-redo";
// The record's four lines take a few dozen bytes besides the path.
constexpr qint64 MaxRecordSize = MaxReadSize + 4096;

// The files that records may name, by their device paths.
const char *const SettingsFiles[] = {devicepaths::Interfaces, devicepaths::ButtonLevel,
                                     devicepaths::LauncherConfig};

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

// All of bytes from the file's start.
bool writeAll(int fd, const QByteArray &bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ops().pwrite(fd, bytes.constData() + done, size_t(bytes.size() - done), off_t(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

// The directory synced and, with fileSystem, its whole file system: vfat
// writes its allocation table only then.
bool syncDirectory(const QString &dir, bool fileSystem = false)
{
    const int fd = ::open(encoded(dir).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    // EINVAL: a file system that does not sync directories.
    const bool synced = (ops().fsync(fd) == 0 || errno == EINVAL) && (!fileSystem || ops().syncfs(fd) == 0);
    ::close(fd);
    return synced;
}

// The file just renamed synced once more: vfat writes the directory entry of
// the new name (first cluster and size) with the file, not with its directory,
// and until then the name holds an empty file, or one whose clusters are free.
bool syncRenamed(int fd)
{
    return ops().fsync(fd) == 0;
}

// Removes path and makes the removal durable; false when there was nothing to remove.
bool removeDurably(const QString &path)
{
    if (ops().unlink(encoded(path).constData()) != 0)
        return false;
    syncDirectory(QFileInfo(path).absolutePath());
    return true;
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

// A file created under a fresh name "<prefix>XXXXXX" in O_EXCL mode; -1 with
// errno when it cannot be.
int createUnique(const QString &prefix, mode_t mode, QString *name)
{
    int fd = -1;
    for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
        *name = prefix + randomSuffix();
        fd = ops().open(encoded(*name).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (fd < 0 && errno != EEXIST)
            break;
    }
    return fd;
}

// What writing the target came to.
struct Written
{
    SaveResult result;
    bool touched; // the target may no longer hold its old bytes
    bool durable; // the new bytes and the file system's metadata are on the medium
};

// NotDurable: renamed, but the directory or the file system did not sync.
enum class Outcome { Done, NotDurable, InPlace, OpenFailed, WriteFailed };

// A copy beside the target, renamed over it. existing: the target's status,
// or null when there is no target yet.
Outcome replaceAtomically(const QString &target, const struct stat *existing, const QByteArray &bytes)
{
    const QFileInfo info(target);
    QString copy;
    // A new file gets the mode that creating it in place would give.
    const int fd = createUnique(info.absolutePath() + QLatin1Char('/') + info.fileName() + QLatin1String(CopyInfix),
                                existing ? 0600 : 0666, &copy);
    if (fd < 0)
        return layoutForbidsRename(errno) ? Outcome::InPlace : Outcome::OpenFailed;

    const auto giveUp = [&](Outcome outcome) {
        ::close(fd);
        ops().unlink(encoded(copy).constData());
        return outcome;
    };
    // The owner first: changing it clears set-id bits that the mode then restores.
    if (existing
        && (ops().fchown(fd, existing->st_uid, existing->st_gid) != 0
            || ops().fchmod(fd, existing->st_mode & 07777) != 0))
        return giveUp(Outcome::InPlace);
    if (!writeAll(fd, bytes) || ops().fsync(fd) != 0)
        return giveUp(Outcome::WriteFailed);
    if (ops().rename(encoded(copy).constData(), encoded(target).constData()) != 0) {
        const int error = errno;
        return giveUp(layoutForbidsRename(error) ? Outcome::InPlace : Outcome::WriteFailed);
    }
    // A rename never crosses file systems: the directory's is the target's.
    const bool synced = syncRenamed(fd) && syncDirectory(info.absolutePath(), true);
    return ::close(fd) == 0 && synced ? Outcome::Done : Outcome::NotDurable;
}

Written writeInPlace(const QString &target, const QByteArray &bytes)
{
    const int fd = ops().open(encoded(target).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return {SaveResult::OpenFailed, false, false};
    // Room for the new bytes before the old ones are touched, the size left as
    // it is; file systems without the call are written all the same.
    if (!bytes.isEmpty() && ops().allocate(fd, off_t(bytes.size())) != 0 && errno != EOPNOTSUPP
        && errno != EINVAL) {
        ::close(fd);
        return {SaveResult::WriteFailed, false, false};
    }
    const bool written = writeAll(fd, bytes) && ops().ftruncate(fd, off_t(bytes.size())) == 0;
    // The file's own file system: a file mounted over another is on another one.
    const bool durable = written && ops().fsync(fd) == 0 && ops().syncfs(fd) == 0;
    const bool closed = ::close(fd) == 0;
    return {durable && closed ? SaveResult::Saved : SaveResult::WriteFailed, true, durable};
}

Written writeTarget(const QString &target, const struct stat *existing, const QByteArray &bytes)
{
    // Other hard links share the file only while it is written in place.
    if (!existing || existing->st_nlink == 1) {
        switch (replaceAtomically(target, existing, bytes)) {
        case Outcome::Done:
            return {SaveResult::Saved, true, true};
        case Outcome::NotDurable:
            return {SaveResult::WriteFailed, true, false};
        case Outcome::OpenFailed:
            return {SaveResult::OpenFailed, false, false};
        case Outcome::WriteFailed:
            return {SaveResult::WriteFailed, false, false};
        case Outcome::InPlace:
            break;
        }
    }
    return writeInPlace(target, bytes);
}

QString stateDir()
{
    return runtimeenv::path(QLatin1String(devicepaths::StateDir));
}

// The device path of the settings file that path names, empty for any other.
QString settingsDevicePath(const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    for (const char *device : SettingsFiles) {
        if (clean == QDir::cleanPath(runtimeenv::path(QLatin1String(device))))
            return QLatin1String(device);
    }
    return QString();
}

QString recordBeside(const QString &target)
{
    const QFileInfo info(target);
    return info.absolutePath() + QLatin1Char('/') + info.fileName() + QLatin1String(RecordSuffix);
}

QString recordInStateDir(const QString &devicePath)
{
    return stateDir() + QLatin1Char('/') + QFileInfo(devicePath).fileName() + QLatin1String(RecordSuffix);
}

// Stores record at path durably: under a temporary name, synced, renamed, the
// directory synced. False, with nothing left, when it cannot.
bool storeDurably(const QString &path, const QByteArray &record)
{
    QString temporary;
    const int fd = createUnique(path + QLatin1Char('-'), 0600, &temporary);
    if (fd < 0)
        return false;
    const bool written = writeAll(fd, record) && ops().fsync(fd) == 0;
    if (!written || ops().rename(encoded(temporary).constData(), encoded(path).constData()) != 0) {
        ::close(fd);
        ops().unlink(encoded(temporary).constData());
        return false;
    }
    const bool synced = syncRenamed(fd) && syncDirectory(QFileInfo(path).absolutePath());
    if (::close(fd) != 0 || !synced) {
        removeDurably(path);
        return false;
    }
    return true;
}

// The record of a save of devicePath, beside its final target or else in the
// state directory; the record left at the other place by an earlier save goes,
// so no older record outlives this save. The record's path, empty when
// neither place took it (then the save goes on without one).
QString storeRecord(const QString &devicePath, const QString &target, const QByteArray &bytes)
{
    const QByteArray record = redoRecord(devicePath, bytes);
    const QString places[2] = {recordBeside(target), recordInStateDir(devicePath)};
    for (int place = 0; place < 2; ++place) {
        if (storeDurably(places[place], record)) {
            removeDurably(places[1 - place]);
            return places[place];
        }
    }
    return QString();
}

// The bytes of path when it is a regular file (not a link) of at most limit
// bytes; opened without blocking.
bool readRegularFile(const QString &path, qint64 limit, int flags, QByteArray *bytes)
{
    const int fd = ::open(encoded(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags);
    if (fd < 0)
        return false;
    struct stat status = {};
    bool ok = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= limit;
    QByteArray read;
    if (ok) {
        // One byte more than allowed tells a file that grew past the limit.
        read.resize(int(limit) + 1);
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
        ok = ok && done <= limit;
        read.resize(int(done));
    }
    ::close(fd);
    if (ok && bytes)
        *bytes = read;
    return ok;
}

struct Record
{
    QString target;
    QByteArray bytes;
};

// A whole record: the exact bytes that redoRecord() makes of its target and contents.
bool parseRecord(const QByteArray &data, Record *record)
{
    const QByteArray targetKey = "target ";
    const QByteArray sizeKey = "size ";
    // The second and third lines.
    const auto targetLine = data.indexOf('\n') + 1;
    const auto sizeLine = targetLine > 0 ? data.indexOf('\n', targetLine) + 1 : 0;
    const auto sizeEnd = sizeLine > 0 ? data.indexOf('\n', sizeLine) : -1;
    if (sizeEnd < 0 || data.mid(targetLine, targetKey.size()) != targetKey
        || data.mid(sizeLine, sizeKey.size()) != sizeKey)
        return false;
    bool isNumber = false;
    const qint64 size = data.mid(sizeLine + sizeKey.size(), sizeEnd - sizeLine - sizeKey.size()).toLongLong(&isNumber);
    if (!isNumber || size < 0 || size > MaxReadSize || size > data.size())
        return false;
    record->target = QFile::decodeName(data.mid(targetLine + targetKey.size(), sizeLine - 1 - targetLine - targetKey.size()));
    record->bytes = data.right(int(size));
    return redoRecord(record->target, record->bytes) == data;
}

// One record found at path, for the settings file at expected (empty: a name
// that belongs to none).
void recoverRecord(const QString &path, const QString &expected)
{
    struct stat status = {};
    if (::lstat(encoded(path).constData(), &status) != 0)
        return;
    QByteArray data;
    Record record;
    if (!readRegularFile(path, MaxRecordSize, O_NOFOLLOW, &data) || !parseRecord(data, &record)) {
        qDebug() << "settingsfile::recoverPending(): removed the invalid record" << verbatim(trustchecks::forLog(path));
        removeDurably(path);
        return;
    }
    if (record.target != expected) {
        // Planted names and targets may hold control characters.
        qDebug() << "settingsfile::recoverPending(): refused the record" << verbatim(trustchecks::forLog(path))
                 << "for" << verbatim(trustchecks::forLog(record.target));
        removeDurably(path);
        return;
    }
    if (save(runtimeenv::path(record.target), record.bytes) != SaveResult::Saved) {
        qDebug() << "settingsfile::recoverPending(): kept the record" << verbatim(trustchecks::forLog(path))
                 << "as its save failed again";
        return;
    }
    // The save's own record took this one's place and is gone, unless the
    // save could store none.
    removeDurably(path);
    qDebug() << "settingsfile::recoverPending(): completed the interrupted save of" << verbatim(record.target);
}

} // namespace

void setFileOperations(FileOperations *replacement)
{
    operations = replacement;
}

bool readSmallFile(const QString &path, QByteArray *bytes)
{
    return readRegularFile(path, MaxReadSize, 0, bytes);
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

    if (bytes.size() > MaxReadSize)
        return SaveResult::WriteFailed;

    const QString devicePath = settingsDevicePath(path);
    const QString record = devicePath.isEmpty() ? QString() : storeRecord(devicePath, target, bytes);
    const Written written = writeTarget(target, exists ? &status : nullptr, bytes);
    // Kept while the file may hold neither its old nor its new bytes on the
    // medium: the next start completes the save.
    if (!record.isEmpty() && (written.durable || !written.touched))
        removeDurably(record);
    return written.result;
}

namespace {

// The base that vfat makes a short name of, for a long name whose part before
// its last dot is base: upper case, without dots and spaces, other characters
// that a short name cannot hold as '_'.
QString shortNameBase(const QString &base)
{
    static const QString allowed = QStringLiteral("$%'-_@~`!(){}^#&");
    QString shortBase;
    for (const QChar c : base) {
        if (c == QLatin1Char('.') || c == QLatin1Char(' '))
            continue;
        const bool kept = c.unicode() <= 127 && (c.isLetterOrNumber() || allowed.contains(c));
        shortBase += kept ? c.toUpper() : QLatin1Char('_');
    }
    return shortBase;
}

// Whether entry is a short name vfat gives "<name>.panel-setup-…": the base's
// first six characters and "~1" to "~9", or, when those are taken, its first
// two, four hexadecimal digits and "~1" to "~8"; the extension "PAN".
bool isShortNameOfCopy(const QString &name, const QString &entry)
{
    const QString upper = entry.toUpper();
    if (!upper.endsWith(QLatin1String(".PAN")))
        return false;
    const QString alias = upper.chopped(4);
    const QString base = shortNameBase(name);
    const auto tildeAt = alias.lastIndexOf(QLatin1Char('~'));
    if (tildeAt < 0 || alias.size() != tildeAt + 2 || alias.at(tildeAt + 1) < QLatin1Char('1')
        || alias.at(tildeAt + 1) > QLatin1Char('9'))
        return false;
    const QString head = alias.left(tildeAt);
    if (head == base.left(6))
        return true;
    const QString hashed = head.mid(qMin(base.size(), 2));
    return head.startsWith(base.left(2)) && hashed.size() == 4 && alias.at(tildeAt + 1) != QLatin1Char('9')
           && std::all_of(hashed.cbegin(), hashed.cend(), [](QChar c) {
                  return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || (c >= QLatin1Char('A') && c <= QLatin1Char('F'));
              });
}

// Whether the directory is on vfat, where entries may have lost their long names.
Names namesIn(const QString &dir)
{
    struct statfs fileSystem = {};
    return ::statfs(encoded(dir).constData(), &fileSystem) == 0 && fileSystem.f_type == MSDOS_SUPER_MAGIC
               ? Names::LongAndShort
               : Names::Long;
}

} // namespace

bool isLeftoverOf(const QString &name, const QString &entry, Names names)
{
    for (const QString &prefix : {name + QLatin1String(CopyInfix), name + QLatin1String(RecordSuffix) + QLatin1Char('-')}) {
        if (entry.size() != prefix.size() + CopySuffixLength || !entry.startsWith(prefix))
            continue;
        const QString tail = entry.mid(prefix.size());
        if (std::all_of(tail.cbegin(), tail.cend(),
                        [](QChar c) { return c.unicode() <= 127 && c.isLetterOrNumber(); }))
            return true;
    }
    return names == Names::LongAndShort && isShortNameOfCopy(name, entry);
}

void removeLeftovers(const QString &path)
{
    const QString target = finalTarget(path);
    if (target.isEmpty())
        return;
    const QFileInfo info(target);
    const QString dir = info.absolutePath();
    const Names names = namesIn(dir);
    using namespace directorylisting;
    for (const QString &entry : entryNames(dir, Files | Hidden | System)) {
        if (isLeftoverOf(info.fileName(), entry, names))
            QFile::remove(dir + QLatin1Char('/') + entry);
    }
}

QByteArray redoRecord(const QString &devicePath, const QByteArray &bytes)
{
    const QByteArray head = "panel-setup redo 1\ntarget " + encoded(devicePath) + "\nsize "
                            + QByteArray::number(bytes.size()) + '\n';
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(head);
    hash.addData(bytes);
    return head + "sha256 " + hash.result().toHex() + '\n' + bytes;
}

void recoverPending()
{
    for (const char *device : SettingsFiles) {
        const QString devicePath = QLatin1String(device);
        const QString target = finalTarget(runtimeenv::path(devicePath));
        if (target.isEmpty())
            continue;
        removeLeftovers(runtimeenv::path(devicePath));
        recoverRecord(recordBeside(target), devicePath);
    }
    const QString state = stateDir();
    const Names names = namesIn(state);
    using namespace directorylisting;
    QStringList entries = entryNames(state, Files | Hidden | System);
    std::sort(entries.begin(), entries.end());
    for (const QString &entry : entries) {
        QString expected;
        bool leftover = false;
        for (const char *device : SettingsFiles) {
            const QString name = QFileInfo(QLatin1String(device)).fileName();
            leftover = leftover || isLeftoverOf(name, entry, names);
            if (entry == name + QLatin1String(RecordSuffix))
                expected = QLatin1String(device);
        }
        if (leftover)
            QFile::remove(state + QLatin1Char('/') + entry);
        else if (entry.endsWith(QLatin1String(RecordSuffix)))
            recoverRecord(state + QLatin1Char('/') + entry, expected);
    }
}

} // namespace settingsfile

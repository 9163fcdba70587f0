#ifndef SETTINGSFILE_H
#define SETTINGSFILE_H

#include <QByteArray>
#include <QString>

#include <sys/types.h>

// The one way the settings files (interfaces, button levels, launcher
// configuration) are saved, on the layouts devices use: a file reached through
// symbolic links (into the flash partition), a writable file bind-mounted over
// a read-only one or in a read-only directory, a file owned by another user or
// with other hard links.
//
// A save replaces the final target of the links. Where it can, it writes a
// copy beside the target (same owner, group and mode), syncs it, renames it
// over the target, syncs it again under the new name (vfat writes the new
// name's directory entry only then) and syncs the directory: a kill or power
// cut leaves the old or the new bytes. Where a rename is impossible or would break the layout
// (read-only directory, a mount point, more than one hard link, an owner the
// process cannot give the copy) it writes in place: space reserved first, so a
// full file system leaves the old bytes, then written, truncated and synced.
//
// A power cut must leave the old or the new bytes on every layout, and a
// rename alone does not promise that everywhere: an in-place write can reach
// the disk without its change of size, and on vfat the allocation table is
// written after the directory. So a save of one of the three settings files
// first stores a redo record: the file's device path, the new bytes and their
// SHA-256, written under a temporary name, synced, renamed, synced again and
// its directory synced. Only then is the file touched; once the new bytes and the file
// system's metadata are on the medium (fsync, syncfs) the record is removed.
// recoverPending(), run at boot and at the daemon's start, completes the save
// of every whole record and drops every torn one (the file was not touched
// before its record was whole).
//
// Records are "<name>.panel-setup-redo" beside the final target when its
// directory is writable, else in the state directory (DevicePaths.h) named
// after the settings file's device path; a record still being written is
// "<name>.panel-setup-redo-XXXXXX". A record reads:
//   "panel-setup redo 1\n"
//   "target <device path>\n"          (such as /etc/network/interfaces)
//   "size <n>\n"                      (decimal, at most MaxReadSize)
//   "sha256 <64 lower-case hex>\n"    (of the three lines above and the bytes)
//   <n> bytes: the file's new contents
// and nothing after them.
namespace settingsfile {

// Settings files are a few hundred bytes; a larger "settings file" (a link to
// a device, a runaway log) is treated as unreadable instead of being read.
constexpr qint64 MaxReadSize = qint64(64) * 1024;

// The bytes of path (its links followed) when it is a regular file of at most
// MaxReadSize bytes that opens for reading. Opened without blocking: a FIFO in
// its place cannot hang the program.
bool readSmallFile(const QString &path, QByteArray *bytes);

// Whether path (its links followed) is a regular file of at most MaxReadSize
// bytes, for readers that open the file themselves.
bool isSmallRegularFile(const QString &path);

enum class SaveResult {
    Saved,
    OpenFailed,  // the file could not be opened or created
    WriteFailed, // it opened, but the bytes could not be stored; the old bytes stay,
                 // or, when the file was already being written, its record stays
                 // and the next start completes the save
};

// Saves bytes to path (its links followed). Bytes above MaxReadSize, which no
// reader would take, are refused as WriteFailed and the file keeps its bytes.
SaveResult save(const QString &path, const QByteArray &bytes);

// The file a path names once its symbolic links (chains too) are followed; the
// path itself when it is no link, empty for a loop.
QString finalTarget(const QString &path);

// The copies and unfinished records that killed saves of this program left
// beside the final target of path (named "<name>.panel-setup-XXXXXX" and
// "<name>.panel-setup-redo-XXXXXX"); nothing else is touched. On vfat also
// such an entry known to the disk only by its short name ("INTERF~1.PAN"):
// a power cut can keep the short entry of a new name and lose its long one.
// No whole record is ever in that state: its directory is synced before the
// file it names is touched.
void removeLeftovers(const QString &path);

enum class Names { Long, LongAndShort };

// What removeLeftovers() takes for such a copy of a file named name; with
// LongAndShort, the short names vfat gives them too.
bool isLeftoverOf(const QString &name, const QString &entry, Names names = Names::Long);

// What a save stores as its redo record for the settings file at devicePath.
QByteArray redoRecord(const QString &devicePath, const QByteArray &bytes);

// Runs once before anything reads a setting (boot, daemon start): removes the
// copies and unfinished records that interrupted saves left beside the three
// settings files and in the state directory, completes the save of each whole
// record through save() and then removes the record, and removes torn records
// and records that name any other file. Logs one line per record; silent when
// there is none. A record whose save fails again stays for the next start.
void recoverPending();

// The file operations of saves and of the recovery, one object for the
// process, so that a test can stop them as a power cut would. Each returns
// what the system call of its name returns, with errno set; allocate reserves
// room without changing the file's size (fallocate with FALLOC_FL_KEEP_SIZE).
class FileOperations
{
public:
    virtual ~FileOperations();
    // Opens for writing (with O_CREAT: creates).
    virtual int open(const char *path, int flags, mode_t mode);
    virtual ssize_t pwrite(int fd, const void *data, size_t size, off_t offset);
    virtual int allocate(int fd, off_t size);
    virtual int ftruncate(int fd, off_t size);
    virtual int fchown(int fd, uid_t owner, gid_t group);
    virtual int fchmod(int fd, mode_t mode);
    virtual int fsync(int fd);
    virtual int syncfs(int fd);
    virtual int rename(const char *from, const char *to);
    virtual int unlink(const char *path);
};

// Replaces the operations (not owned); null puts the system's back. Only while
// no save runs.
void setFileOperations(FileOperations *operations);

} // namespace settingsfile

#endif // SETTINGSFILE_H

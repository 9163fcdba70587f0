#ifndef SETTINGSFILE_H
#define SETTINGSFILE_H

#include <QByteArray>
#include <QString>

// The one way the settings files (interfaces, button levels, launcher
// configuration) are saved, on the layouts devices use: a file reached through
// symbolic links (into the flash partition), a writable file bind-mounted over
// a read-only one or in a read-only directory, a file owned by another user or
// with other hard links.
//
// A save replaces the final target of the links. Where it can, it writes a
// copy beside the target (same owner, group and mode), syncs it, renames it
// over the target and syncs the directory: a kill or power cut leaves the old
// or the new bytes. Where a rename is impossible or would break the layout
// (read-only directory, a mount point, more than one hard link, an owner the
// process cannot give the copy) it writes in place: space reserved first, so a
// full file system leaves the old bytes, then written, truncated and synced.
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
    WriteFailed, // it opened, but the bytes could not be stored; the old bytes stay
};

SaveResult save(const QString &path, const QByteArray &bytes);

// The file a path names once its symbolic links (chains too) are followed; the
// path itself when it is no link, empty for a loop.
QString finalTarget(const QString &path);

// The copies that killed saves of this program left beside the final target
// of path (named "<name>.panel-setup-XXXXXX"); nothing else is touched.
void removeLeftovers(const QString &path);

// What removeLeftovers() takes for such a copy of a file named name.
bool isLeftoverOf(const QString &name, const QString &entry);

} // namespace settingsfile

#endif // SETTINGSFILE_H

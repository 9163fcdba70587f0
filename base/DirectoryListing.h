#ifndef DIRECTORYLISTING_H
#define DIRECTORYLISTING_H

#include <QLatin1String>
#include <QString>
#include <QStringList>

// The program's directory listings: the names QDir's entry list gives for the
// same filter, unsorted, but read with readdir() alone. QDir builds a
// QFileInfo for every entry and matches a name filter with a regular
// expression (PCRE2, compiled for each listing); the /tmp watcher lists on
// every change of /tmp.
namespace directorylisting {

// What a listing keeps. A link counts as what it points at.
enum Kind : unsigned {
    Files = 0x1,  // regular files
    Dirs = 0x2,   // directories
    Hidden = 0x4, // also names that begin with "."
    System = 0x8, // also devices, FIFOs, sockets and links that lead nowhere
};

// The names of the entries of the directory `path` of the given kinds that end
// in `suffix` (ASCII, in any case; empty: every name), in the order the
// directory holds them. Never "." or "..", nor a name that is not valid in the
// file-name encoding. A link to a FIFO, a socket or a device is kept whatever
// the kinds, as QDir keeps it. A directory that cannot be read lists as empty.
QStringList entryNames(const QString &path, unsigned kinds, QLatin1String suffix = QLatin1String());

// Whether the entry `name` of the directory open as `dirFd` is of one of
// `kinds`, its type as readdir() gave it (DT_UNKNOWN where the file system
// does not tell). Hidden names are the caller's business.
bool isOfKinds(int dirFd, const char *name, unsigned char type, unsigned kinds);

} // namespace directorylisting

#endif // DIRECTORYLISTING_H

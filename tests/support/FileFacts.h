#ifndef FILEFACTS_H
#define FILEFACTS_H

#include <QString>
#include <QStringList>

#include <sys/stat.h>

// What the save tests compare before and after a save.

// stat() of path, its links followed; all zero when there is no such file.
struct stat statOf(const QString &path);

// Every entry of dir, hidden ones too, but "." and "..".
QStringList entries(const QString &dir);

#endif // FILEFACTS_H

#include "base/DirectoryListing.h"

#include <QDir>

namespace directorylisting {

QStringList entryNames(const QString &path, unsigned kinds, QLatin1String suffix)
{
    QDir::Filters filters = QDir::NoDotAndDotDot;
    if (kinds & Files)
        filters |= QDir::Files;
    if (kinds & Dirs)
        filters |= QDir::Dirs;
    if (kinds & Hidden)
        filters |= QDir::Hidden;
    if (kinds & System)
        filters |= QDir::System;
    QDir dir(path);
    dir.setFilter(filters);
    dir.setSorting(QDir::Unsorted);
    if (!suffix.isEmpty())
        dir.setNameFilters(QStringList(QLatin1Char('*') + suffix));
    return dir.entryList();
}

} // namespace directorylisting

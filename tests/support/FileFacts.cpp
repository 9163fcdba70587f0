#include "support/FileFacts.h"

#include <QDir>
#include <QFile>

struct stat statOf(const QString &path)
{
    struct stat st = {};
    ::stat(QFile::encodeName(path).constData(), &st);
    return st;
}

QStringList entries(const QString &dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

#include "base/DirectoryListing.h"

#include <QByteArray>
#include <QFile>

#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace directorylisting {

namespace {

char asciiLower(char c)
{
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

bool endsWith(const char *name, size_t length, QLatin1String suffix)
{
    const size_t size = size_t(suffix.size());
    if (length < size)
        return false;
    const char *tail = name + length - size;
    for (size_t i = 0; i < size; ++i) {
        if (asciiLower(tail[i]) != asciiLower(suffix.data()[i]))
            return false;
    }
    return true;
}

// The name as QDir gives it: decoded as the end of a path, so that a
// byte-order mark at its start stays a character. Null when the bytes are not
// valid in the file-name encoding: QDir leaves such names out.
QString decodedName(const char *name, size_t length)
{
    QByteArray inPath(int(length) + 1, '/');
    std::memcpy(inPath.data() + 1, name, length);
    QString decoded = QFile::decodeName(inPath);
    if (QFile::encodeName(decoded) != inPath)
        return QString();
    return decoded.remove(0, 1);
}

} // namespace

// Only an entry of unknown type and a link cost a stat, as they cost QFileInfo one.
bool isOfKinds(int dirFd, const char *name, unsigned char type, unsigned kinds)
{
    bool link = type == DT_LNK;
    struct stat status;
    if (type == DT_UNKNOWN) {
        if (::fstatat(dirFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return (kinds & System) != 0; // gone meanwhile
        link = S_ISLNK(status.st_mode);
        type = IFTODT(status.st_mode);
    }
    if (link) {
        if (::fstatat(dirFd, name, &status, 0) != 0)
            return (kinds & System) != 0; // leads nowhere
        type = IFTODT(status.st_mode);
    }
    if (type == DT_REG)
        return (kinds & Files) != 0;
    if (type == DT_DIR)
        return (kinds & Dirs) != 0;
    return link || (kinds & System) != 0;
}

QStringList entryNames(const QString &path, unsigned kinds, QLatin1String suffix)
{
    QStringList names;
    DIR *dir = ::opendir(QFile::encodeName(path).constData());
    if (!dir)
        return names;
    const int dirFd = ::dirfd(dir);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this call's own; readdir is unsafe only on a shared one
    while (const dirent *entry = ::readdir(dir)) {
        const char *name = entry->d_name;
        const size_t length = std::strlen(name);
        const bool dotted = name[0] == '.';
        if ((dotted && (length == 1 || (length == 2 && name[1] == '.'))) || (dotted && !(kinds & Hidden))
            || !endsWith(name, length, suffix) || !isOfKinds(dirFd, name, entry->d_type, kinds))
            continue;
        const QString decoded = decodedName(name, length);
        if (!decoded.isNull())
            names << decoded;
    }
    ::closedir(dir);
    return names;
}

} // namespace directorylisting

// The benchmark's baseline for a busy /tmp: the least a program can do to
// watch a directory for upgrade images. It waits on inotify for the changes a
// QFileSystemWatcher watches a directory for, takes every pending event in one
// read, writes the line the daemon logs for a change, reads the directory and
// keeps the names that end in ".img" (in any case). No Qt, no project code.
//
//   panel-bench-watch DIRECTORY
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <strings.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

// The names kept by the last listing, each ended by a NUL.
char kept[1 << 20];

size_t listImages(const char *directory)
{
    DIR *dir = opendir(directory);
    if (!dir)
        return 0;
    size_t used = 0;
    size_t images = 0;
    while (const dirent *entry = readdir(dir)) {
        const size_t length = strlen(entry->d_name);
        if (length < 4 || strcasecmp(entry->d_name + length - 4, ".img") != 0 || used + length + 1 > sizeof kept)
            continue;
        memcpy(kept + used, entry->d_name, length + 1);
        used += length + 1;
        ++images;
    }
    closedir(dir);
    return images;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2) {
        fprintf(stderr, "usage: panel-bench-watch DIRECTORY\n");
        return 2;
    }
    const char *directory = argv[1];
    const int fd = inotify_init1(IN_CLOEXEC);
    if (fd < 0 || inotify_add_watch(fd, directory, IN_ATTRIB | IN_MOVE | IN_CREATE | IN_DELETE | IN_DELETE_SELF) < 0) {
        perror("panel-bench-watch: inotify");
        return 1;
    }
    char line[PATH_MAX + 32];
    const int lineLength = snprintf(line, sizeof line, "Path that changed = \"%s\"\n", directory);
    alignas(inotify_event) char events[64 * 1024];
    for (;;) {
        const ssize_t n = read(fd, events, sizeof events);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return 1;
        if (write(STDOUT_FILENO, line, size_t(lineLength)) < 0 && errno != EPIPE)
            return 1;
        listImages(directory);
    }
}

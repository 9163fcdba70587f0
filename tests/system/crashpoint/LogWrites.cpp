#include "LogWrites.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace logwrites {

namespace {

std::uint64_t little64(const unsigned char *bytes)
{
    std::uint64_t value = 0;
    for (int i = 7; i >= 0; --i)
        value = (value << 8) | bytes[i];
    return value;
}

std::uint32_t little32(const unsigned char *bytes)
{
    return std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16
           | std::uint32_t(bytes[3]) << 24;
}

std::string systemError(const std::string &what)
{
    return what + ": " + std::strerror(errno);
}

// a * b, false when it does not fit.
bool multiply(std::uint64_t a, std::uint64_t b, std::uint64_t *product)
{
    if (a != 0 && b > std::numeric_limits<std::uint64_t>::max() / a)
        return false;
    *product = a * b;
    return true;
}

bool writeAll(int fd, const char *data, std::size_t size, std::uint64_t offset, std::string *error)
{
    while (size > 0) {
        const ssize_t n = ::pwrite(fd, data, size, off_t(offset));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            *error = systemError("writing the target at byte " + std::to_string(offset));
            return false;
        }
        data += n;
        size -= std::size_t(n);
        offset += std::uint64_t(n);
    }
    return true;
}

} // namespace

std::string flagNames(std::uint64_t flags)
{
    static const struct
    {
        std::uint64_t bit;
        const char *name;
    } names[] = {{Flush, "FLUSH"}, {Fua, "FUA"}, {Discard, "DISCARD"}, {Mark, "MARK"}, {Metadata, "METADATA"}};
    std::string text;
    for (const auto &name : names) {
        if (flags & name.bit) {
            text += text.empty() ? "" : "|";
            text += name.name;
            flags &= ~name.bit;
        }
    }
    if (flags != 0) {
        char hex[20];
        std::snprintf(hex, sizeof hex, "0x%llx", static_cast<unsigned long long>(flags));
        text += (text.empty() ? "" : "|") + std::string(hex);
    }
    return text.empty() ? "-" : text;
}

Reader::~Reader()
{
    if (_fd >= 0)
        ::close(_fd);
}

bool Reader::readAt(std::uint64_t offset, void *buffer, std::size_t size, std::string *error)
{
    char *out = static_cast<char *>(buffer);
    while (size > 0) {
        const ssize_t n = ::pread(_fd, out, size, off_t(offset));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            *error = systemError("reading the log at byte " + std::to_string(offset));
            return false;
        }
        if (n == 0) {
            *error = "the log ends at byte " + std::to_string(offset);
            return false;
        }
        out += n;
        size -= std::size_t(n);
        offset += std::uint64_t(n);
    }
    return true;
}

bool Reader::open(const std::string &path, std::string *error)
{
    _fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (_fd < 0) {
        *error = systemError(path);
        return false;
    }
    // A block device tells its size through lseek, a file through either.
    const off_t end = ::lseek(_fd, 0, SEEK_END);
    if (end < 0) {
        *error = systemError(path);
        return false;
    }
    _size = std::uint64_t(end);
    unsigned char super[SuperSize];
    if (!readAt(0, super, sizeof super, error)) {
        *error = path + ": no super block: " + *error;
        return false;
    }
    if (little64(super) != Magic) {
        *error = path + ": not a dm-log-writes log (wrong magic)";
        return false;
    }
    if (little64(super + 8) != Version) {
        *error = path + ": log version " + std::to_string(little64(super + 8)) + ", only "
                 + std::to_string(Version) + " is known";
        return false;
    }
    _entries = little64(super + 16);
    _sectorSize = little32(super + 24);
    if (_sectorSize < 512 || _sectorSize > 65536 || (_sectorSize & (_sectorSize - 1)) != 0) {
        *error = path + ": sector size " + std::to_string(_sectorSize) + " is not a power of two from 512 to 65536";
        return false;
    }
    _nextIndex = 0;
    _nextOffset = _sectorSize;
    return true;
}

bool Reader::next(Entry *entry, std::string *error)
{
    error->clear();
    if (_nextIndex >= _entries)
        return false;
    const std::string where = "entry " + std::to_string(_nextIndex);
    std::vector<unsigned char> header(_sectorSize);
    if (_nextOffset > _size || _size - _nextOffset < _sectorSize) {
        *error = where + ": the log ends at byte " + std::to_string(_size) + ", before its header";
        return false;
    }
    if (!readAt(_nextOffset, header.data(), header.size(), error)) {
        *error = where + ": " + *error;
        return false;
    }
    Entry e;
    e.index = _nextIndex;
    e.sector = little64(header.data());
    e.sectors = little64(header.data() + 8);
    e.flags = little64(header.data() + 16);
    e.dataLength = little64(header.data() + 24);
    e.headerOffset = _nextOffset;

    std::uint64_t dataBytes = 0;
    if (e.flags & Mark) {
        if (e.dataLength > _sectorSize - EntryHeaderSize) {
            *error = where + ": a mark of " + std::to_string(e.dataLength) + " bytes does not fit its sector";
            return false;
        }
        e.mark.assign(reinterpret_cast<const char *>(header.data()) + EntryHeaderSize, std::size_t(e.dataLength));
    } else if (e.dataLength != 0) {
        // Only writes through DAX carry their data this way.
        *error = where + ": inline data (" + std::to_string(e.dataLength) + " bytes) is not supported";
        return false;
    } else if (!(e.flags & Discard) && !multiply(e.sectors, _sectorSize, &dataBytes)) {
        *error = where + ": " + std::to_string(e.sectors) + " sectors do not fit a 64-bit size";
        return false;
    }
    std::uint64_t targetEnd = 0;
    if (!multiply(e.sector + e.sectors, _sectorSize, &targetEnd) || e.sector + e.sectors < e.sector) {
        *error = where + ": sector " + std::to_string(e.sector) + " + " + std::to_string(e.sectors)
                 + " is out of range";
        return false;
    }
    const std::uint64_t dataOffset = _nextOffset + _sectorSize;
    if (dataOffset > _size || _size - dataOffset < dataBytes) {
        *error = where + ": the log ends at byte " + std::to_string(_size) + ", within its "
                 + std::to_string(dataBytes) + " bytes of data";
        return false;
    }
    _nextOffset = dataOffset + dataBytes;
    ++_nextIndex;
    *entry = std::move(e);
    return true;
}

bool Reader::readData(const Entry &entry, std::vector<char> *data, std::string *error)
{
    data->resize(std::size_t(entry.sectors * _sectorSize));
    return readAt(entry.headerOffset + _sectorSize, data->data(), data->size(), error);
}

bool apply(Reader &reader, const Entry &entry, int targetFd, std::uint64_t targetSize, std::string *error)
{
    if (!entry.changesTarget())
        return true;
    const std::uint64_t offset = entry.sector * reader.sectorSize();
    const std::uint64_t length = entry.sectors * reader.sectorSize();
    if (offset > targetSize || targetSize - offset < length) {
        *error = "entry " + std::to_string(entry.index) + " changes bytes " + std::to_string(offset) + " to "
                 + std::to_string(offset + length) + ", past the end of the target ("
                 + std::to_string(targetSize) + " bytes)";
        return false;
    }
    if (entry.flags & Discard) {
        // What a discarded range reads as is up to the device: zeros here.
        static const std::vector<char> zeros(64 * 1024, 0);
        for (std::uint64_t done = 0; done < length;) {
            const std::size_t chunk = std::size_t(std::min<std::uint64_t>(zeros.size(), length - done));
            if (!writeAll(targetFd, zeros.data(), chunk, offset + done, error))
                return false;
            done += chunk;
        }
        return true;
    }
    std::vector<char> data;
    if (!reader.readData(entry, &data, error)) {
        *error = "entry " + std::to_string(entry.index) + ": " + *error;
        return false;
    }
    return writeAll(targetFd, data.data(), data.size(), offset, error);
}

} // namespace logwrites

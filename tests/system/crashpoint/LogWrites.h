#ifndef LOGWRITES_H
#define LOGWRITES_H

#include <cstdint>
#include <string>
#include <vector>

// The log that the kernel's dm-log-writes target writes, and its replay onto
// a device or an image file. All numbers are little-endian.
//
// Byte 0 holds the super block (magic, version, number of entries, sector
// size), padded to one sector. Then, for each entry, one sector holding the
// entry header (target sector, number of sectors, flags, data length; a mark
// carries its text right after the header), followed by the data written:
// number of sectors times the sector size. Discards, flushes and marks carry
// no data. Sectors are counted in the sector size of the super block.
//
// The target logs a write once it is on stable storage (at the next flush,
// or at once for FUA writes), so replaying the entries 0 to N gives what the
// disk held after the N-th of them.
namespace logwrites {

constexpr std::uint64_t Magic = 0x6a736677736872ULL;
constexpr std::uint64_t Version = 1;

enum Flag : std::uint64_t {
    Flush = 1 << 0,
    Fua = 1 << 1,
    Discard = 1 << 2,
    Mark = 1 << 3,
    Metadata = 1 << 4,
};

// Sizes of the two headers on disk (the super block without its padding).
constexpr std::size_t SuperSize = 8 + 8 + 8 + 4;
constexpr std::size_t EntryHeaderSize = 8 * 4;

struct Entry
{
    std::uint64_t index = 0;
    std::uint64_t sector = 0;
    std::uint64_t sectors = 0;
    std::uint64_t flags = 0;
    std::uint64_t dataLength = 0;
    std::uint64_t headerOffset = 0; // byte offset of the header in the log
    std::string mark;               // the text of a mark entry

    // Bytes the entry changes on the target (writes and discards).
    bool changesTarget() const { return sectors > 0; }
};

// "FLUSH|FUA", in the order of the flag bits; "-" for none. Unknown bits as
// a number.
std::string flagNames(std::uint64_t flags);

// Reads a log from the start, one entry after the other.
class Reader
{
public:
    Reader() = default;
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    bool open(const std::string &path, std::string *error);

    std::uint64_t entryCount() const { return _entries; }
    std::uint32_t sectorSize() const { return _sectorSize; }

    // The next entry's header; false at the end (error left empty) or on a
    // damaged log (error set).
    bool next(Entry *entry, std::string *error);

    // The bytes that a write entry puts on the target.
    bool readData(const Entry &entry, std::vector<char> *data, std::string *error);

private:
    bool readAt(std::uint64_t offset, void *buffer, std::size_t size, std::string *error);

    int _fd = -1;
    std::uint64_t _size = 0;
    std::uint64_t _entries = 0;
    std::uint32_t _sectorSize = 0;
    std::uint64_t _nextIndex = 0;
    std::uint64_t _nextOffset = 0;
};

// Puts one entry on the target, an open file or device of targetSize bytes:
// a write its data, a discard zeros; others change nothing.
bool apply(Reader &reader, const Entry &entry, int targetFd, std::uint64_t targetSize,
           std::string *error);

} // namespace logwrites

#endif // LOGWRITES_H

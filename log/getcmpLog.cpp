#include "log.h"

#include <endian.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr int64_t COUNT_SIZE = sizeof(uint32_t);
static constexpr int64_t OFFSET_SIZE = sizeof(uint16_t);

static int32_t complain(const char *before, const char *path, const char *after) {
    const int error = errno;
    fprintf(stderr, "%s%s%s\n", before, path, after);
    errno = error;
    return -1;
}

// One read of the file; what it does not fill stays as it is. The bytes it filled.
static size_t readInto(int fd, void *target, size_t size) {
    const ssize_t filled = read(fd, target, size);
    return filled < 0 ? 0 : static_cast<size_t>(filled);
}

static int64_t sizeOf(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 ? static_cast<int64_t>(status.st_size) : 0;
}

// False when it could not be read whole; what was not is zero.
static bool readCount(int fd, uint32_t *count) {
    uint32_t stored = 0;
    const size_t filled = readInto(fd, &stored, sizeof stored);
    *count = be32toh(stored);
    return filled == sizeof stored;
}

// The offset table, its entries zero beyond those that the file had.
struct Offsets {
    uint16_t *table;
    uint32_t read; // entries filled, the last one perhaps by half
    bool isWhole;  // else what follows in the file is no text
};

// A null table when so many offsets cannot be held, by the signed result or by memory. Beyond what
// was read nothing is touched: a damaged count must not cost the memory it asks for.
static Offsets readOffsets(int fd, uint32_t count) {
    Offsets offsets = {nullptr, 0, false};
    if (count <= INT32_MAX)
        offsets.table = static_cast<uint16_t *>(calloc(count, sizeof(uint16_t)));
    if (offsets.table == nullptr)
        return offsets;
    const size_t bytes = readInto(fd, offsets.table, count * sizeof(uint16_t));
    offsets.read = static_cast<uint32_t>((bytes + 1) / sizeof(uint16_t));
    offsets.isWhole = bytes == count * sizeof(uint16_t);
    for (uint32_t index = 0; index < offsets.read; ++index)
        offsets.table[index] = be16toh(offsets.table[index]);
    return offsets;
}

static uint16_t largestOf(const Offsets &offsets) {
    uint16_t largest = 0;
    for (uint32_t index = 0; index < offsets.read; ++index)
        largest = offsets.table[index] > largest ? offsets.table[index] : largest;
    return largest;
}

// Null when the size is more than one read can give, or is not all there. The block reaches as far
// as the largest offset and ends in a zero, so that no offset leads out of it.
static char *readStrings(int fd, int64_t size, uint16_t largestOffset) {
    if (size < 0 || size > INT32_MAX)
        return nullptr;
    const size_t reach = static_cast<size_t>(size > largestOffset ? size : largestOffset);
    char *strings = static_cast<char *>(calloc(reach + 1, 1));
    if (strings != nullptr &&
        readInto(fd, strings, static_cast<size_t>(size)) == static_cast<size_t>(size))
        return strings;
    const int error = errno;
    free(strings);
    errno = error;
    return nullptr;
}

// Without a place to put it the block is released.
template<typename Element>
static void handOver(Element *block, Element **place) {
    if (place != nullptr)
        *place = block;
    else
        free(block);
}

int32_t getcmpLogFmt(const char *path, uint16_t **table, char **strings) {
    path = path == nullptr ? "" : path;
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return complain("getcmpLogFmt: can't open ", path, ".");
    // Kept: a file that is refused from here on stays open.
    const int64_t fileSize = sizeOf(fd);
    if (fileSize < 1)
        return -1;
    uint32_t count;
    const bool isCounted = readCount(fd, &count);
    const Offsets offsets = readOffsets(fd, count);
    const bool isWhole = isCounted && offsets.isWhole;
    const uint16_t largest = largestOf(offsets);
    // Kept: handed over before it is known whether the rest can be read.
    handOver(offsets.table, table);
    char *const area =
        isWhole ? readStrings(fd, fileSize - COUNT_SIZE - OFFSET_SIZE * int64_t{count}, largest)
                : nullptr;
    if (area == nullptr)
        return complain("Unable to read ", path, " strings!");
    handOver(area, strings);
    close(fd);
    return static_cast<int32_t>(count);
}

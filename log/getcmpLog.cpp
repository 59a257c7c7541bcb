#include "log.h"

#include <endian.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
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
    uint16_t bits; // that any of them has: none is above it
    bool isWhole;  // else what follows in the file is no text
};

static_assert(BYTE_ORDER == LITTLE_ENDIAN);

// The word with each two of its bytes swapped. On 64 bits the compiler makes vectors of it.
static size_t swapPairs(size_t word) {
    if constexpr (sizeof word == sizeof(uint32_t)) {
        const uint32_t reversed = __builtin_bswap32(static_cast<uint32_t>(word));
        return reversed << 16 | reversed >> 16;
    }
    constexpr size_t LOW_BYTES = static_cast<size_t>(0x00FF00FF00FF00FF);
    return (word & LOW_BYTES) << 8 | (word >> 8 & LOW_BYTES);
}

// The bits that any of the word's offsets has.
static uint16_t bitsOf(size_t word) {
    uint16_t bits = 0;
    for (; word != 0; word = word >> 8 >> 8)
        bits = static_cast<uint16_t>(bits | word);
    return bits;
}

// Turns big-endian offsets into the host's, a word of them at a time; the bits that any of them
// has.
static uint16_t convert(uint16_t *table, size_t count) {
    constexpr size_t PER_WORD = sizeof(size_t) / sizeof(uint16_t);
    size_t bits = 0, index = 0;
    for (; index + PER_WORD <= count; index += PER_WORD) {
        size_t word;
        memcpy(&word, table + index, sizeof word);
        word = swapPairs(word);
        memcpy(table + index, &word, sizeof word);
        bits |= word;
    }
    for (; index < count; ++index)
        bits |= table[index] = be16toh(table[index]);
    return bitsOf(bits);
}

// A null table when so many offsets cannot be held, by the signed result or by memory. Beyond what
// was read nothing is touched where the file is too small for the table: a damaged count must not
// cost the memory it asks for.
static Offsets readOffsets(int fd, uint32_t count, int64_t fileSize) {
    Offsets offsets = {nullptr, 0, false};
    if (count > INT32_MAX)
        return offsets;
    const size_t size = count * sizeof(uint16_t);
    const bool isInFile = static_cast<int64_t>(size) <= fileSize;
    offsets.table = static_cast<uint16_t *>(isInFile ? malloc(size) : calloc(size, 1));
    if (offsets.table == nullptr)
        return offsets;
    const size_t filled = readInto(fd, offsets.table, size);
    if (isInFile)
        memset(reinterpret_cast<char *>(offsets.table) + filled, 0, size - filled);
    offsets.bits = convert(offsets.table, (filled + 1) / sizeof(uint16_t));
    offsets.isWhole = filled == size;
    return offsets;
}

// Null when the size is more than one read can give, or is not all there. The block reaches as far
// as an offset of these bits can, and ends in a zero, so that no offset leads out of it.
static char *readStrings(int fd, int64_t size, uint16_t offsetBits) {
    if (size < 0 || size > INT32_MAX)
        return nullptr;
    const size_t count = static_cast<size_t>(size);
    const size_t reach = count > offsetBits ? count : offsetBits;
    char *strings = static_cast<char *>(malloc(reach + 1));
    if (strings != nullptr && readInto(fd, strings, count) == count) {
        memset(strings + count, 0, reach + 1 - count);
        return strings;
    }
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
    const Offsets offsets = readOffsets(fd, count, fileSize);
    const bool isWhole = isCounted && offsets.isWhole;
    // Kept: handed over before it is known whether the rest can be read.
    handOver(offsets.table, table);
    const int64_t size = fileSize - COUNT_SIZE - OFFSET_SIZE * int64_t{count};
    char *const area = isWhole ? readStrings(fd, size, offsets.bits) : nullptr;
    if (area == nullptr)
        return complain("Unable to read ", path, " strings!");
    handOver(area, strings);
    close(fd);
    return static_cast<int32_t>(count);
}

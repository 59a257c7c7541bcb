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

// One read of the file; what it does not fill stays as it is.
static int64_t readInto(int fd, void *target, size_t size) {
    return read(fd, target, size);
}

static int64_t sizeOf(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 ? static_cast<int64_t>(status.st_size) : 0;
}

static uint32_t readCount(int fd) {
    uint32_t count = 0;
    readInto(fd, &count, sizeof count);
    return be32toh(count);
}

// Null when so many offsets cannot be held, by the signed result or by memory.
static uint16_t *readOffsets(int fd, uint32_t count) {
    if (count > INT32_MAX)
        return nullptr;
    uint16_t *offsets = static_cast<uint16_t *>(calloc(count, sizeof(uint16_t)));
    if (offsets == nullptr)
        return nullptr;
    readInto(fd, offsets, count * sizeof(uint16_t));
    for (uint32_t index = 0; index < count; ++index)
        offsets[index] = be16toh(offsets[index]);
    return offsets;
}

static uint16_t largestOf(const uint16_t *offsets, uint32_t count) {
    uint16_t largest = 0;
    for (uint32_t index = 0; index < count; ++index)
        largest = offsets[index] > largest ? offsets[index] : largest;
    return largest;
}

// Null when the size is more than one read can give, or is not all there. The block reaches as far
// as the largest offset and ends in a zero, so that no offset leads out of it.
static char *readStrings(int fd, int64_t size, uint16_t largestOffset) {
    if (size < 0 || size > INT32_MAX)
        return nullptr;
    const size_t reach = static_cast<size_t>(size > largestOffset ? size : largestOffset);
    char *strings = static_cast<char *>(calloc(reach + 1, 1));
    if (strings != nullptr && readInto(fd, strings, static_cast<size_t>(size)) == size)
        return strings;
    const int error = errno;
    free(strings);
    errno = error;
    return nullptr;
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
    const uint32_t count = readCount(fd);
    uint16_t *const offsets = readOffsets(fd, count);
    *table = offsets; // Kept: handed over before it is known whether the rest can be read.
    char *const area = offsets == nullptr
                           ? nullptr
                           : readStrings(fd, fileSize - COUNT_SIZE - OFFSET_SIZE * int64_t{count},
                                         largestOf(offsets, count));
    if (area == nullptr)
        return complain("Unable to read ", path, " strings!");
    *strings = area;
    close(fd);
    return static_cast<int32_t>(count);
}

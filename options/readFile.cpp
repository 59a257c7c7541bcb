#include "lineReader.h"

#include "../buffers/arrays.h"

#include <errno.h>
#include <string.h>

static constexpr uint32_t INDIRECT = 1; // elements are heap blocks of their own
static constexpr uint32_t OWN_SIZES = 0;

static Joining joiningOf(uint32_t modes) {
    if ((modes & READ_JOIN_BACKSLASH) != 0)
        return JOIN_BACKSLASH;
    return (modes & READ_JOIN_QUOTED) != 0 ? JOIN_QUOTED : JOIN_NOTHING;
}

// Whether a reader gave no line because the input has ended, and not for want of memory or because
// the input cannot be read. Kept: a folder opens like a file and reads as an empty one.
static bool isAtEnd(FILE *stream) {
    return ferror(stream) != 0 ? errno == EISDIR : feof(stream) != 0;
}

// False when memory is exhausted or reading fails: half a file must not pass for a whole one.
static bool appendLines(uint32_t array, FILE *stream, uint32_t maximum, uint32_t modes) {
    LineReader reader(modes);
    for (uint32_t count = 0; maximum == 0 || count < maximum; ++count) {
        const char *line = reader.next(stream, joiningOf(modes));
        if (line == nullptr)
            return isAtEnd(stream);
        if (arrayVPut(array, line, static_cast<uint32_t>(strlen(line)) + 1) == nullptr)
            return false;
    }
    return ferror(stream) == 0; // what cut the last line short
}

uint32_t readFpIntoArray(FILE *stream, uint32_t maximum, uint32_t modes) {
    if (stream == nullptr)
        return 0;
    const uint32_t array = arrayOpen(INDIRECT, OWN_SIZES);
    if (array == 0)
        return 0;
    if (appendLines(array, stream, maximum, modes))
        return array;
    arrayClose(array);
    return 0;
}

uint32_t readFileIntoArray(const char *path, uint32_t maximum, uint32_t modes) {
    FILE *stream = path == nullptr ? nullptr : fopen(path, "r");
    if (stream == nullptr)
        return 0;
    const uint32_t array = readFpIntoArray(stream, maximum, modes);
    fclose(stream);
    return array;
}

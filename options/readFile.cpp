#include "readInfo.h"

#include "../buffers/arrays.h"

#include <errno.h>
#include <string.h>

static constexpr uint32_t INDIRECT = 1; // elements are heap blocks of their own
static constexpr uint32_t OWN_SIZES = 0;

using Reader = char *(*)(FILE *stream);

static Reader readerFor(uint32_t modes) {
    if ((modes & READ_JOIN_BACKSLASH) != 0)
        return readContLine;
    return (modes & READ_JOIN_QUOTED) != 0 ? readQuotedLine : readLine;
}

// Whether a reader gave no line because the input has ended, and not for want of memory or because
// the input cannot be read. Kept: a folder opens like a file and reads as an empty one.
static bool isAtEnd(FILE *stream) {
    return ferror(stream) != 0 ? errno == EISDIR : feof(stream) != 0;
}

// False when memory is exhausted or reading fails: half a file must not pass for a whole one.
static bool appendLines(uint32_t array, FILE *stream, uint32_t maximum, Reader next) {
    for (uint32_t count = 0; maximum == 0 || count < maximum; ++count) {
        const char *line = next(stream);
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
    ReadInfo saved;
    resetReadLine(&saved);
    setReadLineModes(modes);
    const bool whole = appendLines(array, stream, maximum, readerFor(modes));
    setReadLine(&saved);
    if (whole)
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

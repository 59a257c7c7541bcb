/* Reading logical lines with a state of one's own, beside the process's one reader (readInfo.h):
   for whoever reads a whole file, so that readers in other threads and it do not see one another.
   Internal, C++ only; a state belongs to one thread at a time. */
#ifndef QUARNEL_OPTIONS_LINEREADER_H
#define QUARNEL_OPTIONS_LINEREADER_H

#include "readInfo.h"

#ifdef __cplusplus

#include <stdlib.h>

enum Joining { JOIN_NOTHING, JOIN_BACKSLASH, JOIN_QUOTED };

// The next line, as readLine, readContLine and readQuotedLine give it, under the state's modes. It
// stands in the state's buffer, which only grows and is released with free().
char *readLogicalLine(ReadInfo *state, FILE *stream, Joining joining);

// A reader's state for the time of a file.
struct LineReader {
    explicit LineReader(uint32_t modes) : state{0, 0, modes, nullptr, 0} {}
    ~LineReader() { free(state.buffer); }
    LineReader(const LineReader &) = delete;
    LineReader &operator=(const LineReader &) = delete;

    char *next(FILE *stream, Joining joining) { return readLogicalLine(&state, stream, joining); }

    ReadInfo state;
};

#endif

#endif

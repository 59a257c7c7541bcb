#include "lineReader.h"

#include <errno.h>
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static_assert(sizeof(void *) != 4 ||
              (offsetof(ReadInfo, inlineCnt) == 0 && offsetof(ReadInfo, virtLineCnt) == 4 &&
               offsetof(ReadInfo, modes) == 8 && offsetof(ReadInfo, buffer) == 12 &&
               offsetof(ReadInfo, capacity) == 16 && sizeof(ReadInfo) == 20));

static constexpr uint32_t BUFFER_STEP = 80; // characters; one byte more for the terminator

uint32_t ri_modes;
uint32_t inlineCnt;
uint32_t virtLineCnt;

static char *lineBuffer;
static uint32_t lineCapacity;
static pthread_mutex_t readerLock = PTHREAD_MUTEX_INITIALIZER;

struct ReaderGuard {
    ReaderGuard() { pthread_mutex_lock(&readerLock); }
    ~ReaderGuard() { pthread_mutex_unlock(&readerLock); }
    ReaderGuard(const ReaderGuard &) = delete;
    ReaderGuard &operator=(const ReaderGuard &) = delete;
};

/* ---- the line buffer ---- */

static bool growBuffer(ReadInfo *state, uint32_t length) {
    const uint64_t size = uint64_t{length} + BUFFER_STEP + 1;
    char *buffer = nullptr;
    if (size <= UINT32_MAX && size <= PTRDIFF_MAX)
        buffer = static_cast<char *>(realloc(state->buffer, static_cast<size_t>(size)));
    if (buffer == nullptr) {
        errno = ENOMEM;
        return false;
    }
    memset(buffer + length, 0, BUFFER_STEP + 1);
    state->buffer = buffer;
    state->capacity += BUFFER_STEP;
    return true;
}

static bool storeByte(ReadInfo *state, uint32_t length, int byte) {
    if (length >= state->capacity && !growBuffer(state, length))
        return false;
    state->buffer[length] = static_cast<char>(byte);
    return true;
}

/* ---- one logical line ---- */

// What the bytes of a line so far say about the next one.
struct LineState {
    int previous; // a newline at the start of a physical line; NO_BYTE behind a pair of backslashes
    int quote;    // the open quote, NO_BYTE outside
};
static constexpr int NO_BYTE = 0;

static bool isQuote(int byte) {
    return byte == '"' || byte == '\'' || byte == '`';
}

static void followQuote(LineState *state, int byte) {
    if (state->previous == '\\' || !isQuote(byte))
        return;
    if (state->quote == NO_BYTE)
        state->quote = byte;
    else if (state->quote == byte)
        state->quote = NO_BYTE;
}

enum LineEvent { LINE_GOES_ON, LINE_JOINED, LINE_ENDED };

static LineEvent advance(LineState *state, int byte, Joining joining) {
    const bool escaped = state->previous == '\\' && joining != JOIN_NOTHING;
    if (joining == JOIN_QUOTED)
        followQuote(state, byte);
    state->previous = escaped && byte == '\\' ? NO_BYTE : byte;
    if (byte != '\n')
        return LINE_GOES_ON;
    if (escaped)
        return LINE_JOINED;
    return state->quote == NO_BYTE ? LINE_ENDED : LINE_GOES_ON;
}

// A caught signal interrupts a read; what was read before it is still there, and more may come.
static int nextByte(FILE *stream) {
    int byte;
    while ((byte = getc(stream)) == EOF && ferror(stream) != 0 && errno == EINTR)
        clearerr(stream);
    return byte;
}

// The buffer is not touched until there is a first byte: at the end of input the line returned last
// stays readable.
char *readLogicalLine(ReadInfo *state, FILE *stream, Joining joining) {
    LineState line = {'\n', NO_BYTE};
    LineEvent event = LINE_GOES_ON;
    uint32_t length = 0;
    bool any = false;
    for (int byte; event != LINE_ENDED && (byte = nextByte(stream)) != EOF; any = true) {
        if (line.previous == '\n')
            ++state->inlineCnt;
        if (!storeByte(state, length++, byte))
            return nullptr;
        event = advance(&line, byte, joining);
        if (event == LINE_JOINED && (state->modes & READ_KEEP_JOINT) == 0)
            length -= 2; // the backslash and the newline
    }
    if (!any)
        return nullptr;
    if (event == LINE_ENDED && (state->modes & READ_DROP_NEWLINE) != 0)
        --length;
    state->buffer[length] = '\0';
    ++state->virtLineCnt;
    return state->buffer;
}

/* ---- the process's reader, under the lock ---- */

static ReadInfo sharedState() {
    return {inlineCnt, virtLineCnt, ri_modes, lineBuffer, lineCapacity};
}

// Stored whole: the counters and the modes may be looked at without the lock.
static void shareState(const ReadInfo &state) {
    __atomic_store_n(&inlineCnt, state.inlineCnt, __ATOMIC_RELAXED);
    __atomic_store_n(&virtLineCnt, state.virtLineCnt, __ATOMIC_RELAXED);
    __atomic_store_n(&ri_modes, state.modes, __ATOMIC_RELAXED);
    lineBuffer = state.buffer;
    lineCapacity = state.capacity;
}

static char *lockAndRead(FILE *stream, Joining joining) {
    if (stream == nullptr)
        return nullptr;
    const ReaderGuard guard;
    ReadInfo state = sharedState();
    char *line = readLogicalLine(&state, stream, joining);
    shareState(state);
    return line;
}

char *readLine(FILE *stream) {
    return lockAndRead(stream, JOIN_NOTHING);
}

char *readContLine(FILE *stream) {
    return lockAndRead(stream, JOIN_BACKSLASH);
}

char *readQuotedLine(FILE *stream) {
    return lockAndRead(stream, JOIN_QUOTED);
}

/* ---- the state ---- */

void resetReadLine(ReadInfo *saved) {
    const ReaderGuard guard;
    ReadInfo state = {0, 0, 0, lineBuffer, lineCapacity};
    if (saved != nullptr) {
        *saved = sharedState();
        state.buffer = nullptr;
        state.capacity = 0;
    }
    shareState(state);
}

void setReadLine(ReadInfo *saved) {
    if (saved == nullptr)
        return;
    const ReaderGuard guard;
    if (lineBuffer != saved->buffer)
        free(lineBuffer);
    shareState(*saved);
}

uint32_t setReadLineModes(uint32_t modes) {
    const ReaderGuard guard;
    return __atomic_exchange_n(&ri_modes, modes, __ATOMIC_RELAXED);
}

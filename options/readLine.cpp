#include "lineReader.h"

#include <errno.h>
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/single_threaded.h>

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

// Stores the bytes; returns how many there was room for.
static size_t storeBytes(ReadInfo *state, uint32_t length, const char *bytes, size_t count) {
    size_t stored = 0;
    while (stored < count && (length < state->capacity || growBuffer(state, length))) {
        const size_t room = state->capacity - length;
        const size_t part = count - stored < room ? count - stored : room;
        memcpy(state->buffer + length, bytes + stored, part);
        length += static_cast<uint32_t>(part);
        stored += part;
    }
    return stored;
}

/* ---- the stream ---- */

// The stream is locked once for a piece, not for each byte, and not while it waits for input: a
// thread that is cancelled there leaves no lock behind. As in getc, a stream that its user locks is
// not, and nobody is there to be kept out before the process has a second thread.
struct StreamGuard {
    explicit StreamGuard(FILE *stream) : locked(needsLock(stream) ? stream : nullptr) {
        if (locked != nullptr)
            flockfile(locked);
    }
    ~StreamGuard() {
        if (locked != nullptr)
            funlockfile(locked);
    }
    StreamGuard(const StreamGuard &) = delete;
    StreamGuard &operator=(const StreamGuard &) = delete;

    static bool needsLock(const FILE *stream) {
        return __libc_single_threaded == 0 && (stream->_flags & _IO_USER_LOCK) == 0;
    }

    FILE *locked;
};

// How many bytes the stream has at hand, from its _IO_read_ptr on. The two fields are part of
// libc's binary interface: getc_unlocked is compiled into its callers and takes its bytes there.
static size_t bytesAtHand(const FILE *stream) {
    const ptrdiff_t count = stream->_IO_read_end - stream->_IO_read_ptr;
    return count > 0 ? static_cast<size_t>(count) : 0;
}

// Sees to it that bytes are at hand; false at the end of the input. A caught signal interrupts a
// read; what was read before it is still there, and more may come.
static bool bringBytes(FILE *stream) {
    if (bytesAtHand(stream) != 0)
        return true;
    int byte;
    while ((byte = getc(stream)) == EOF && ferror(stream) != 0 && errno == EINTR)
        clearerr(stream);
    if (byte != EOF)
        ungetc(byte, stream); // back to where it was just taken from: there is room
    return byte != EOF;
}

/* ---- one logical line ---- */

// What the bytes of a line so far say about the next one.
struct LineState {
    int previous; // a newline at the start of a physical line; NO_BYTE behind a pair of backslashes
    int quote;    // the open quote, NO_BYTE outside
};
static constexpr int NO_BYTE = 0;

static constexpr bool isQuote(int byte) {
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

struct MarkTable {
    constexpr MarkTable() {
        for (int byte = 0; byte < 256; ++byte)
            isMark[byte] = byte == '\n' || byte == '\\' || isQuote(byte);
    }

    bool isMark[256] = {};
};
static constexpr MarkTable MARKS;

static int isMark(char byte) {
    return MARKS.isMark[static_cast<unsigned char>(byte)];
}

// How many bytes there are up to the first mark, and with it. Four at a time: one branch for each
// byte costs more than all else that is done for a line.
static size_t lengthToMark(const char *bytes, size_t count) {
    size_t length = 0;
    while (length + 4 <= count && (isMark(bytes[length]) | isMark(bytes[length + 1]) |
                                   isMark(bytes[length + 2]) | isMark(bytes[length + 3])) == 0)
        length += 4;
    while (length < count)
        if (isMark(bytes[length++]) != 0)
            break;
    return length;
}

static size_t lengthToNewline(const char *bytes, size_t count) {
    const void *newline = memchr(bytes, '\n', count);
    return newline == nullptr ? count
                              : static_cast<size_t>(static_cast<const char *>(newline) - bytes) + 1;
}

// How many bytes there are up to the first that says something about the line, and with it: the
// others would pass through advance() without a trace.
static size_t pieceLength(const char *bytes, size_t count, Joining joining) {
    return joining == JOIN_NOTHING ? lengthToNewline(bytes, count) : lengthToMark(bytes, count);
}

static char *endLine(ReadInfo *state, uint32_t length, LineEvent event) {
    if (event == LINE_ENDED && (state->modes & READ_DROP_NEWLINE) != 0)
        --length;
    state->buffer[length] = '\0';
    ++state->virtLineCnt;
    return state->buffer;
}

// Nearly every line: all of it at hand, with room for it, and nothing to join. Null for any other,
// with nothing done.
static char *takeWholeLine(ReadInfo *state, FILE *stream, Joining joining) {
    const StreamGuard guard(stream);
    const char *bytes = stream->_IO_read_ptr;
    const size_t atHand = bytesAtHand(stream);
    const size_t count = atHand < state->capacity ? atHand : state->capacity;
    const size_t length = count == 0 ? 0 : pieceLength(bytes, count, joining);
    if (length == 0 || bytes[length - 1] != '\n')
        return nullptr;
    memcpy(state->buffer, bytes, length);
    stream->_IO_read_ptr += length;
    ++state->inlineCnt;
    return endLine(state, static_cast<uint32_t>(length), LINE_ENDED);
}

// The buffer is not touched until there is a first byte: at the end of input the line returned last
// stays readable.
static char *takePieces(ReadInfo *state, FILE *stream, Joining joining) {
    LineState line = {'\n', NO_BYTE};
    LineEvent event = LINE_GOES_ON;
    uint32_t length = 0;
    bool any = false;
    while (event != LINE_ENDED && bringBytes(stream)) {
        const StreamGuard guard(stream);
        const size_t atHand = bytesAtHand(stream);
        if (atHand == 0)
            continue; // another thread took them
        any = true;
        if (line.previous == '\n')
            ++state->inlineCnt;
        const char *bytes = stream->_IO_read_ptr;
        const size_t count = pieceLength(bytes, atHand, joining);
        const size_t stored = storeBytes(state, length, bytes, count);
        stream->_IO_read_ptr += stored < count ? stored + 1 : count;
        if (stored < count)
            return nullptr;
        length += static_cast<uint32_t>(count);
        if (count > 1)
            line.previous = static_cast<unsigned char>(bytes[count - 2]);
        event = advance(&line, static_cast<unsigned char>(bytes[count - 1]), joining);
        if (event == LINE_JOINED && (state->modes & READ_KEEP_JOINT) == 0)
            length -= 2; // the backslash and the newline
    }
    return any ? endLine(state, length, event) : nullptr;
}

char *readLogicalLine(ReadInfo *state, FILE *stream, Joining joining) {
    char *line = takeWholeLine(state, stream, joining);
    return line != nullptr ? line : takePieces(state, stream, joining);
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

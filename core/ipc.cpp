#include "ipcComm.h"

#include "../clock/clockState.h"
#include "ipcFrame.h"
#include "staticObj.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static_assert(offsetof(IpcChannel, fd) == 0 && offsetof(IpcChannel, flags) == 4 &&
              offsetof(IpcChannel, length) == 8 && offsetof(IpcChannel, capacity) == 12 &&
              offsetof(IpcChannel, buffer) == 16);
static_assert(sizeof(void *) != 4 || sizeof(IpcChannel) == 20);

static constexpr uint32_t OPEN_SECONDS = 4; // how long a reader may take to open its end
static constexpr mode_t PERMISSION_BITS = 07777;

static constexpr int64_t DEFAULT_GRANULE = 120;
static constexpr size_t HEADER_ROOM = IPC_HEADER_ROOM; // "<9>", nine digits, a terminating zero
static constexpr int HEADER_SIZE = 3;                  // what every form of header begins with
static constexpr size_t MESSAGE_MAX = 999999999;       // the longest length of nine digits

static constexpr size_t DISCARDED_MAX = 128;
static constexpr size_t DISCARDED_AREA = DISCARDED_MAX + 1;
static constexpr int32_t RENDERED_MAX = 43; // what the rendering area holds, three characters each
static constexpr size_t RENDERED_AREA = 132;
static_assert(RENDERED_MAX * 3 + 1 <= RENDERED_AREA);

static StaticObj discardedBytes = {free, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};
static StaticObj discardedCount = {nullptr, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};
static StaticObj renderingArea = {free, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};

/* ---- the pipe's node ---- */

static int32_t makeFifo(const char *path, uint32_t mode) {
    // The umask is the process's: two threads that set it aside at once would lose it.
    static pthread_mutex_t guard = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&guard);
    const mode_t mask = umask(0);
    const int result = mknod(path, S_IFIFO | (mode & PERMISSION_BITS), 0);
    umask(mask);
    pthread_mutex_unlock(&guard);
    return result;
}

namespace {

// The timeout that ends the wait for a reader.
struct Interruption {
    uint32_t id;       // NO_CALLOUT: none will come
    int32_t tableSize; // the clock's when it was queued
};

} // namespace

static Interruption queueInterruption() {
    const ClockLock lock; // no hold may begin between the look and the queueing
    if (holdInfo.startTime != 0)
        return {NO_CALLOUT, 0};
    const uint32_t id = clkTimeout(CLK_NO_FUNCTION, 0, OPEN_SECONDS);
    return {id, maxcallouts};
}

// By its identifier, since the application may have queued a timeout without a function, too; by
// its call only where the table has grown meanwhile, which took the identifiers away.
static void cancelInterruption(const Interruption &interruption) {
    const ClockLock lock;
    if (maxcallouts == interruption.tableSize)
        clkUntimeout(interruption.id);
    else
        clkKillTimeout(CLK_NO_FUNCTION, 0);
}

// The open waits for a reader until the timeout interrupts it; it asks at once where no timeout
// would ever come.
static int32_t probeReader(const char *path) {
    const Interruption interruption = queueInterruption();
    const bool waits = interruption.id != NO_CALLOUT;
    const int fd = open(path, O_WRONLY | O_CLOEXEC | (waits ? 0 : O_NONBLOCK));
    const int openError = errno;
    if (fd < 0 && openError == (waits ? EINTR : ENXIO)) {
        // Another signal may have come first. By its identifier alone: if the timeout fired, what
        // has its call is the application's.
        if (waits)
            clkUntimeout(interruption.id);
        errno = openError;
        return 0;
    }
    if (waits)
        cancelInterruption(interruption);
    if (fd >= 0)
        close(fd);
    errno = fd >= 0 ? EBUSY : openError;
    return -1;
}

int32_t ipcInit(const char *path, uint32_t mode) {
    struct stat status;
    if (path == nullptr) {
        errno = EFAULT; // what the status call says of it
        return -1;
    }
    errno = 0;
    if (stat(path, &status) != 0)
        return errno == ENOENT && mode != 0 ? makeFifo(path, mode) : -1;
    if (S_ISFIFO(status.st_mode))
        return probeReader(path);
    errno = EEXIST;
    return -1;
}

/* ---- the channel's buffer ---- */

static bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

static bool areDigits(const char *bytes, int64_t count) {
    for (int64_t index = 0; index < count; ++index)
        if (!isDigit(bytes[index]))
            return false;
    return true;
}

static int64_t granuleOf(const char *setting) {
    int64_t value = 0;
    for (; setting != nullptr && isDigit(*setting) && value <= INT32_MAX; ++setting)
        value = value * 10 + (*setting - '0');
    const bool isNumber = setting != nullptr && *setting == '\0';
    return isNumber && value >= DEFAULT_GRANULE && value <= INT32_MAX ? value : DEFAULT_GRANULE;
}

static int64_t granule() {
    static pthread_mutex_t guard = PTHREAD_MUTEX_INITIALIZER;
    static int64_t size; // 0 until the first growth in the process
    pthread_mutex_lock(&guard);
    if (size == 0)
        size = granuleOf(getenv("MAXMSGSIZE"));
    const int64_t result = size;
    pthread_mutex_unlock(&guard);
    return result;
}

void ipcSettleGranule(void) {
    granule();
}

// Nothing here touches the new bytes: a header that promises what never comes costs no memory.
static bool grow(IpcChannel *channel, int64_t count) {
    const int64_t step = granule();
    const int64_t capacity = (count + step) / step * step;
    const uint64_t size = static_cast<uint64_t>(capacity) + HEADER_ROOM;
    char *buffer = nullptr;
    if (capacity <= INT32_MAX && size <= PTRDIFF_MAX)
        buffer = static_cast<char *>(realloc(channel->buffer, static_cast<size_t>(size)));
    channel->capacity = buffer == nullptr ? 0 : static_cast<int32_t>(capacity);
    channel->buffer = buffer;
    if (buffer == nullptr && errno == 0)
        errno = ENOSPC;
    return buffer != nullptr;
}

static bool ensureCapacity(IpcChannel *channel, int64_t count) {
    return (channel->buffer != nullptr && channel->capacity >= count) || grow(channel, count);
}

// Makes room for the text's bytes. A text inside the buffer is followed to where the growth moves
// it.
static bool ensureCapacityFor(IpcChannel *channel, size_t length, const char **text) {
    const uintptr_t offset =
        reinterpret_cast<uintptr_t>(*text) - reinterpret_cast<uintptr_t>(channel->buffer);
    const bool isInside = channel->buffer != nullptr &&
                          offset < static_cast<uint64_t>(channel->capacity) + HEADER_ROOM;
    if (!ensureCapacity(channel, static_cast<int64_t>(length)))
        return false;
    if (isInside)
        *text = channel->buffer + offset;
    return true;
}

/* ---- sending ---- */

char *ipcPutLongHeader(char *body, size_t length) {
    if (length > MESSAGE_MAX) {
        errno = EFBIG;
        return nullptr;
    }
    char *at = body;
    for (size_t rest = length; rest != 0; rest /= 10)
        *--at = static_cast<char>('0' + rest % 10);
    const char digits = static_cast<char>('0' + (body - at));
    *--at = '>';
    *--at = digits;
    *--at = '<';
    return at;
}

int32_t ipcSend(IpcChannel *channel, const char *message) {
    if (channel == nullptr || message == nullptr) {
        errno = EINVAL;
        return -1;
    }
    errno = 0;
    const size_t length = strlen(message);
    char room[HEADER_ROOM];
    char *const end = room + sizeof room;
    const char *const header = ipcPutHeader(end, length);
    if (header == nullptr || !ensureCapacityFor(channel, length, &message))
        return -1;
    const size_t headerSize = static_cast<size_t>(end - header);
    // The body first: it may lie in this very buffer.
    memmove(channel->buffer + headerSize, message, length + 1);
    memcpy(channel->buffer, header, headerSize);
    const size_t size = headerSize + length;
    const ssize_t written = write(channel->fd, channel->buffer, size);
    return written == static_cast<ssize_t>(size) ? static_cast<int32_t>(length) : -1;
}

/* ---- discarded bytes ---- */

// The thread's area, made on first use; null when memory is exhausted.
static char *threadArea(StaticObj *descriptor, size_t size) {
    char *area = static_cast<char *>(fetchStaticObj(descriptor));
    if (area != nullptr)
        return area;
    area = static_cast<char *>(calloc(1, size));
    if (area != nullptr && storeStaticObj(descriptor, area) != 0) {
        free(area);
        area = nullptr;
    }
    return area;
}

static void setDiscardedCount(size_t count) {
    storeStaticObj(&discardedCount, reinterpret_cast<void *>(count));
}

// Keeps errno: what made the bytes useless is reported after this.
static void keepDiscarded(const char *bytes, size_t count) {
    const int error = errno;
    char *area = threadArea(&discardedBytes, DISCARDED_AREA);
    if (area != nullptr)
        memcpy(area, bytes, count);
    setDiscardedCount(area == nullptr ? 0 : count);
    errno = error;
}

/* ---- receiving ---- */

enum HeaderResult { HEADER_END = 0, HEADER_ERROR = -1, HEADER_VALID = 1, HEADER_BAD = 2 };

// Reads the count bytes of a part of a header with one read.
static HeaderResult readPart(const IpcChannel *channel, char *bytes, size_t count) {
    const ssize_t got = read(channel->fd, bytes, count);
    if (got <= 0)
        return got == 0 ? HEADER_END : HEADER_ERROR;
    if (got == static_cast<ssize_t>(count))
        return HEADER_VALID;
    keepDiscarded(bytes, static_cast<size_t>(got));
    errno = EIO;
    return HEADER_ERROR;
}

static HeaderResult takeLength(IpcChannel *channel, const char *digits, int count) {
    if (!areDigits(digits, count))
        return HEADER_BAD;
    int32_t length = 0;
    for (int index = 0; index < count; ++index)
        length = length * 10 + (digits[index] - '0');
    channel->length = length;
    channel->flags |= IPC_HEADER_READ;
    return HEADER_VALID;
}

// "<0>" asks for no digits, and the read of nothing looks like the end of file. Kept: callers rely
// on it.
static HeaderResult readLongForm(IpcChannel *channel, int count) {
    char digits[HEADER_ROOM];
    const HeaderResult result = readPart(channel, digits, static_cast<size_t>(count));
    return result == HEADER_VALID ? takeLength(channel, digits, count) : result;
}

static HeaderResult readHeader(IpcChannel *channel, char *header) {
    channel->flags &= ~static_cast<uint32_t>(IPC_LINE_BODY);
    const HeaderResult result = readPart(channel, header, HEADER_SIZE);
    if (result != HEADER_VALID)
        return result;
    if (isDigit(header[0]))
        return takeLength(channel, header, HEADER_SIZE);
    if (header[0] == '<' && isDigit(header[1]) && header[2] == '>')
        return readLongForm(channel, header[1] - '0');
    if (memcmp(header, "   ", HEADER_SIZE) != 0)
        return HEADER_BAD;
    channel->flags |= IPC_HEADER_READ | IPC_LINE_BODY;
    return HEADER_VALID;
}

// Throws away everything up to and including the next newline.
static bool resynchronise(const IpcChannel *channel) {
    char bytes[DISCARDED_MAX];
    size_t count = 0;
    char byte;
    ssize_t got;
    while ((got = read(channel->fd, &byte, 1)) == 1) {
        if (count < DISCARDED_MAX)
            bytes[count++] = byte;
        if (byte == '\n')
            break;
    }
    keepDiscarded(bytes, count);
    if (got == 0)
        errno = EIO;
    return got == 1;
}

static HeaderResult findHeader(IpcChannel *channel) {
    char header[HEADER_SIZE];
    HeaderResult result;
    setDiscardedCount(0);
    while ((result = readHeader(channel, header)) == HEADER_BAD) {
        if (header[HEADER_SIZE - 1] == '\n')
            setDiscardedCount(0);
        else if (!resynchronise(channel))
            return HEADER_ERROR;
    }
    return result;
}

static int32_t receiveCounted(IpcChannel *channel) {
    if (!ensureCapacity(channel, channel->length))
        return -1;
    const ssize_t got = read(channel->fd, channel->buffer, static_cast<size_t>(channel->length));
    if (got < 0)
        return -1;
    channel->buffer[got] = '\0';
    channel->flags &= ~static_cast<uint32_t>(IPC_HEADER_READ);
    return static_cast<int32_t>(got);
}

static int32_t receiveLine(IpcChannel *channel) {
    int32_t count = 0;
    do {
        if ((channel->buffer == nullptr || count >= channel->capacity) &&
            !grow(channel, int64_t{count} + 1))
            return -1;
        const ssize_t got = read(channel->fd, channel->buffer + count, 1);
        if (got < 0)
            return -1;
        if (got == 0) {
            // A line cut short is not shown. Kept: callers tell it by errno alone.
            setDiscardedCount(0);
            errno = EIO;
            return -1;
        }
        channel->flags &= ~static_cast<uint32_t>(IPC_HEADER_READ);
    } while (channel->buffer[count++] != '\n');
    channel->buffer[count] = '\0';
    channel->length = count;
    return count;
}

int32_t ipcRecv(IpcChannel *channel) {
    if (channel == nullptr) {
        errno = EINVAL;
        return -1;
    }
    errno = 0;
    if ((channel->flags & IPC_HEADER_READ) == 0) {
        const HeaderResult result = findHeader(channel);
        if (result != HEADER_VALID)
            return result;
    }
    return (channel->flags & IPC_LINE_BODY) != 0 ? receiveLine(channel) : receiveCounted(channel);
}

/* ---- showing what was discarded ---- */

static void render(char *out, unsigned char byte) {
    static const char escaped[] = "\0\b\t\n\f\r";
    static const char letters[] = "0btnfr";
    const void *found = memchr(escaped, byte, sizeof escaped - 1);
    if (found != nullptr)
        snprintf(out, 4, "\\%c ", letters[static_cast<const char *>(found) - escaped]);
    else if (byte == ' ')
        snprintf(out, 4, "sp ");
    else
        snprintf(out, 4, isgraph(byte) != 0 ? "%c  " : "%2.2x ", byte);
}

char *ipcBadData(int32_t maximum) {
    static char nothing[1]; // stays empty: for a thread without memory for an area of its own
    char *area = threadArea(&renderingArea, RENDERED_AREA);
    if (area == nullptr)
        return nothing;
    const size_t kept = reinterpret_cast<size_t>(fetchStaticObj(&discardedCount));
    const char *bytes = static_cast<const char *>(fetchStaticObj(&discardedBytes));
    int32_t count = maximum < RENDERED_MAX ? maximum : RENDERED_MAX;
    if (static_cast<int64_t>(kept) < count)
        count = static_cast<int32_t>(kept);
    char *out = area;
    *out = '\0';
    for (int32_t index = 0; index < count; ++index, out += 3)
        render(out, static_cast<unsigned char>(bytes[index]));
    return area;
}

#include "log.h"

#include "../buffers/charBuffer.h"
#include "../buffers/digits.h"
#include "../buffers/fmtCharBuf.h"
#include "../buffers/simpleFormat.h"
#include "../core/ipcFrame.h"
#include "../core/mkcopy.h"
#include "expandLog.h"
#include "logDstTable.h"
#include "logPipe.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static constexpr uint32_t TO_DAEMON = 1;         // destination: the log file
static constexpr uint32_t TO_STANDARD_ERROR = 2; // destination: shown here; alone, not sent
static constexpr size_t DESTINATION_WIDTH = 8;   // digits in front of a record's body
static constexpr int FIELD_SEPARATOR = 0x1C;
// What a header's parts take at most: the blank before the file, the colon and the line; and that
// with what stands before the names: destination, number, blank and separator, priority, time.
static constexpr int INT_DIGITS = 11; // and the sign
static constexpr int LINE_MAX = 1 + 1 + INT_DIGITS;
static constexpr int NUMBERS_MAX = 8 + INT_DIGITS + 2 + INT_DIGITS + 8 + LINE_MAX;
static constexpr uint32_t FIRST_SYSTEM_ERROR = 1727; // message number of errno 0

uint32_t _destination;
int32_t _priority;
char *logProcName;
uint16_t *FmtTbl;
char *Fmt;
int32_t fmtMax;

enum ErrorMode : char { MODE_UNSETTLED = 0, MODE_NEW = 'F', MODE_OLD = 'T' };

struct ClientContext {
    char *root;               // the log root of the last loginit; earlier ones are never released
    char *formatPath;         // owned copy
    CharBuffer *header;       // the record's header and compressed format: the second pass's format
    CharBuffer *record;       // the record built last
    CharBuffer *spare;        // the next one: the last may be an argument, and outlives a failure
    CharBuffer *errorText;    // of logperror
    CharBuffer *sysErrorText; // of logSysError: apart, as its call may report through logperror
    CharBuffer *relog;        // the record that relogCmpMsg sent last
    char *handedName;         // what getLogProcName returned last
    char *previousName;       // what setLogProcName returned last
    ErrorMode errorMode;      // settled by the first logperror
    bool tableReported;       // that there is no table has been told
};

static ClientContext client;

static const char *orEmpty(const char *text) {
    return text == nullptr ? "" : text;
}

// The buffer, emptied; made on first use. Null when memory is exhausted, which formatting refuses.
static CharBuffer *emptied(CharBuffer **slot) {
    if (*slot == nullptr)
        *slot = mkCharBuffer(0);
    if (*slot != nullptr)
        (*slot)->next = (*slot)->text;
    return *slot;
}

// An owned "directory/name"; null when memory is exhausted.
static char *pathOf(const char *directory, const char *name) {
    const size_t size = strlen(directory) + 1 + strlen(name) + 1;
    char *const path = static_cast<char *>(malloc(size));
    if (path != nullptr)
        snprintf(path, size, "%s/%s", directory, name);
    return path;
}

static const char *rootOrDefault(const char *root) {
    if (root == nullptr)
        root = getenv("LOGROOT");
    return root == nullptr ? "/usr/spool/log" : root;
}

// Takes the root over. Kept: the root and the tables of before are not released, callers may hold
// them.
static bool loadFormats(char *root) {
    client.root = logRoot = root;
    freecopy(client.formatPath);
    client.formatPath = pathOf(orEmpty(root), "cmpLogFmt");
    fmtMax = getcmpLogFmt(client.formatPath, &FmtTbl, &Fmt);
    return fmtMax >= 1;
}

static char *copyRoot(const char *root) {
    return mkcopy(rootOrDefault(root));
}

int32_t loginit(const char *name, uint32_t destination, int32_t priority, const char *root) {
    // Copied first: it may be the name that the next line releases.
    char *const inForce = copyRoot(root);
    setLogProcName(name);
    _destination = destination;
    _priority = priority;
    if (!loadFormats(inForce) || inForce == nullptr)
        return -1;
    return openLogPipe(pathOf(inForce, "logpipe")) ? 0 : -1;
}

int32_t logInit(const char *name) {
    return loginit(name, TO_DAEMON, 0, nullptr);
}

int32_t logend(void) {
    return closeLogPipe();
}

char *setLogProcName(const char *name) {
    char *const copy = mkcopy(name); // before the release: it may be the previous name
    if (copy == nullptr && name != nullptr)
        return nullptr;
    freecopy(client.previousName);
    client.previousName = logProcName;
    logProcName = copy;
    return client.previousName;
}

char *getLogProcName(void) {
    freecopy(client.handedName);
    return client.handedName = mkcopy(logProcName);
}

static char *compressedFormat(int32_t number) {
    return number < 0 || number >= fmtMax ? nullptr : Fmt + FmtTbl[number];
}

char *getCmpFmt(int32_t number) {
    return compressedFormat(number);
}

/* ---- the record, behind the room for its frame's header ---- */

[[gnu::always_inline]] static inline CharBuffer *emptiedRecord(CharBuffer **slot) {
    CharBuffer *const buffer = emptied(slot);
    if (buffer == nullptr)
        return nullptr;
    if (buffer->text == nullptr)
        return fmtCharBuffer(buffer, "%*s", IPC_HEADER_ROOM, "") < 0 ? nullptr : buffer;
    buffer->next += IPC_HEADER_ROOM;
    return buffer;
}

static char *recordIn(const CharBuffer *buffer) {
    return buffer->text + IPC_HEADER_ROOM;
}

static bool sendRecord(const CharBuffer *buffer) {
    char *const record = recordIn(buffer);
    return sendLogRecord(record, static_cast<size_t>(buffer->next - record));
}

// The record built becomes the last one; where it failed to travel, the other way round.
static void exchangeRecords() {
    CharBuffer *const built = client.spare;
    client.spare = client.record;
    client.record = built;
}

namespace {

struct Event {
    int32_t number;
    uint32_t destination;
    int32_t priority;
    const char *file;
    int32_t line;
};

} // namespace

static uint32_t secondsNow() {
    return static_cast<uint32_t>(time(nullptr));
}

// The documented way: the header with the compressed format behind it is the format of the
// arguments. Kept: so that a "%" in a name is a conversion too.
[[gnu::cold]] static bool formatTwice(CharBuffer *record, const Event &event,
                                      const char *compressed, va_list args) {
    CharBuffer *const header = emptied(&client.header);
    const unsigned long mask = event.destination;
    const unsigned long now = secondsNow();
    return fmtCharBuffer(header, "%.8lX%d %c%1d%.8lX%s %s:%d%s", mask, event.number,
                         FIELD_SEPARATOR, event.priority, now, orEmpty(logProcName),
                         orEmpty(event.file), event.line, compressed) >= 0 &&
           vfmtCharBuffer(record, header->text, args) >= 0;
}

// Null where there is no room.
static char *putName(char *at, const char *limit, const char *name) {
    const size_t length = strlen(name);
    if (limit - at < static_cast<ptrdiff_t>(length))
        return nullptr;
    memcpy(at, name, length);
    return at + length;
}

static char *putHeader(char *at, const char *limit, const Event &event) {
    if (limit - at < NUMBERS_MAX)
        return nullptr;
    limit -= LINE_MAX;
    at = putHexadecimal8(at, event.destination);
    at = putSigned(at, event.number);
    *at++ = ' ';
    *at++ = FIELD_SEPARATOR;
    at = putSigned(at, event.priority);
    at = putHexadecimal8(at, secondsNow());
    char *const names = at;
    at = putName(at, limit, orEmpty(logProcName));
    if (at == nullptr)
        return nullptr;
    *at++ = ' ';
    at = putName(at, limit, orEmpty(event.file));
    if (at == nullptr || memchr(names, '%', static_cast<size_t>(at - names)) != nullptr)
        return nullptr;
    *at++ = ':';
    return putSigned(at, event.line);
}

// The same record in one go, where nothing in it is out of the ordinary and the block has room.
static bool formatAtOnce(CharBuffer *record, const Event &event, const char *compressed,
                         va_list args) {
    char *const end = putHeader(record->next, record->limit, event);
    if (end == nullptr)
        return false;
    FormatArguments copy;
    va_copy(copy.list, args);
    char *const next = formatSimply(end, record->limit, compressed, &copy);
    va_end(copy.list);
    if (next == nullptr)
        return false;
    record->next = next;
    return true;
}

// The record, as the last one; null where there is none. Inlined, as what follows on it, into each
// call that logs: returns that come after a system call are dear.
[[gnu::always_inline]] static inline CharBuffer *buildRecord(const Event &event, va_list args) {
    const char *const compressed = compressedFormat(event.number);
    if (compressed == nullptr)
        return nullptr;
    CharBuffer *const record = emptiedRecord(&client.spare);
    if (record == nullptr)
        return nullptr;
    if (!formatAtOnce(record, event, compressed, args) &&
        !formatTwice(record, event, compressed, args))
        return nullptr;
    exchangeRecords();
    return record;
}

char *vfmtEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                int32_t line, va_list args) {
    const CharBuffer *const record = buildRecord({number, destination, priority, file, line}, args);
    return record == nullptr ? nullptr : recordIn(record);
}

char *fmtEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
               int32_t line, ...) {
    va_list args;
    va_start(args, line);
    const CharBuffer *const record = buildRecord({number, destination, priority, file, line}, args);
    va_end(args);
    return record == nullptr ? nullptr : recordIn(record);
}

// Sets the records aside while the library logs an error of its own within a log call: they are
// the call's arguments or its result.
class RecordsAside {
  public:
    RecordsAside() : record_(client.record), spare_(client.spare) {
        client.record = client.spare = nullptr;
    }
    ~RecordsAside() {
        freeCharBuffer(client.record);
        freeCharBuffer(client.spare);
        client.record = record_;
        client.spare = spare_;
    }
    RecordsAside(const RecordsAside &) = delete;
    RecordsAside &operator=(const RecordsAside &) = delete;

  private:
    CharBuffer *record_, *spare_;
};

[[gnu::cold]] static void showRecord(char *record) {
    const RecordsAside aside;
    const char *const expansion = expandLog(record + DESTINATION_WIDTH);
    if (expansion != nullptr)
        fputs(expansion, stderr);
}

// Builds the record, shows it where the destination asks for that, and sends it. Null, errno as the
// failure set it, when it could not be built or sent.
[[gnu::always_inline]] static inline char *logRecord(const Event &event, va_list args) {
    const CharBuffer *const record = buildRecord(event, args);
    if (record == nullptr)
        return nullptr;
    if ((event.destination & TO_STANDARD_ERROR) != 0)
        showRecord(recordIn(record));
    if (event.destination != TO_STANDARD_ERROR && !sendRecord(record)) {
        exchangeRecords(); // the last result's again, which the next call must not build in
        return nullptr;
    }
    return recordIn(record) + DESTINATION_WIDTH;
}

char *vlogEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                int32_t line, va_list args) {
    const int error = errno;
    char *const body = logRecord({number, destination, priority, file, line}, args);
    if (body != nullptr)
        errno = error;
    return body;
}

char *logEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
               int32_t line, ...) {
    va_list args;
    va_start(args, line);
    char *const body = vlogEvent(number, destination, priority, file, line, args);
    va_end(args);
    return body;
}

// Tells of the missing table, with the errno of the call that failed. Once, even if the telling
// fails; counted first, so that what logs while it is told does not tell it again.
static void reportMissingTable(int32_t segment) {
    if (client.tableReported)
        return;
    client.tableReported = true;
    const RecordsAside aside;
    // Kept: readers of the log know the report by this position.
    logperror(_destination | TO_DAEMON, 2, "../logMsg", 191,
              "\n\tattaching logging destination/priority table"
              "\n\tKey parameters: 0x%x -> 0x%x"
              "\n\t-- check \"ipcs -m\" and/or run \"logDstPri\"",
              logDstPriShmKey(), static_cast<uint32_t>(segment));
}

[[gnu::cold]] static bool attachOrReport() {
    int32_t segment;
    if (attachDstPri(&segment))
        return true;
    reportMissingTable(segment);
    return false;
}

static bool haveTable() {
    return dstPriTable.table != nullptr || attachOrReport();
}

[[gnu::always_inline]] static inline char *logRouted(int32_t number, const char *file, int32_t line,
                                                     va_list args) {
    const int error = errno;
    const bool routed = haveTable();
    LogDstPri route = {_priority, _destination};
    char *body = nullptr;
    if (!routed || (number < dstPriRowCount() && readDstPri(number, &route)))
        body = logRecord({number, route.destination, route.priority, file, line}, args);
    errno = error;
    return body;
}

char *vlogMsg(int32_t number, const char *file, int32_t line, va_list args) {
    return logRouted(number, file, line, args);
}

char *logMsg(int32_t number, const char *file, int32_t line, ...) {
    va_list args;
    va_start(args, line);
    char *const body = logRouted(number, file, line, args);
    va_end(args);
    return body;
}

static int32_t systemErrorNumber(int error) {
    return static_cast<int32_t>(FIRST_SYSTEM_ERROR + static_cast<uint32_t>(error));
}

// The formatted text, in the buffer; the empty text without a format and where formatting fails.
static const char *errorTextIn(CharBuffer **slot, const char *format, va_list args) {
    CharBuffer *const buffer = emptied(slot);
    if (format == nullptr || vfmtCharBuffer(buffer, format, args) < 0)
        return "";
    return buffer->text;
}

static ErrorMode settledErrorMode() {
    if (client.errorMode == MODE_UNSETTLED) {
        const char first = *orEmpty(getenv("OLD_LOGPERROR"));
        const bool old = first == 'Y' || first == 'y' || first == 'T' || first == 't';
        client.errorMode = old ? MODE_OLD : MODE_NEW;
    }
    return client.errorMode;
}

char *logperror(uint32_t destination, int32_t priority, const char *file, int32_t line,
                const char *format, ...) {
    const int error = errno;
    const bool old = settledErrorMode() == MODE_OLD;
    va_list args;
    va_start(args, format);
    const char *const text = errorTextIn(&client.errorText, format, args);
    va_end(args);
    // Kept: in the old mode the caller's destination and priority are ignored.
    char *const body = logEvent(systemErrorNumber(error), old ? _destination : destination,
                                old ? 3 : priority, file, line, text);
    errno = error;
    return body;
}

char *logSysError(const char *file, int32_t line, const char *format, ...) {
    const int error = errno;
    va_list args;
    va_start(args, format);
    const char *const text = errorTextIn(&client.sysErrorText, format, args);
    va_end(args);
    const int32_t number = systemErrorNumber(error);
    LogDstPri route = {_priority, _destination};
    // Kept: the table's row count is not asked, as in logMsg; only the segment's end bounds the
    // row.
    if (haveTable())
        readDstPri(number, &route);
    char *const body = logEvent(number, route.destination, route.priority, file, line, text);
    errno = error;
    return body;
}

char *relogCmpMsg(char *body, uint32_t destination) {
    if (body == nullptr || *body == '\0' || destination == 0)
        return nullptr;
    const int error = errno;
    CharBuffer *const relog = emptiedRecord(&client.relog);
    const unsigned long mask = destination;
    if (fmtCharBuffer(relog, "%.8lX%s", mask, body) < 0 || !sendRecord(relog))
        return nullptr;
    errno = error;
    return body;
}

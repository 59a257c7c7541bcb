#include "logMsg.h"

#include "../buffers/arrays.h"
#include "../buffers/clearCopy.h"
#include "../buffers/cntlchrs.h"
#include "../core/mkcopy.h"
#include "byteClass.h"
#include "expandLog.h"
#include "localTime.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static constexpr uint32_t PLAIN_FLAGS = 0x100;
static constexpr int32_t COMMENT = -2;
static constexpr int32_t VISIBLE_TEXT = CLEAR_UPPER | CLEAR_WHITE;
static constexpr uint32_t INLINE_ARRAY = 0;

// The text is scanned, never written to: a copy of a span is made from the span itself.
static char *copySpan(const char *start, const char *end) {
    const size_t length = static_cast<size_t>(end - start);
    char *copy = static_cast<char *>(malloc(length + 1));
    if (copy != nullptr) {
        memcpy(copy, start, length);
        copy[length] = '\0';
    }
    return copy;
}

// A record being read, and whether memory ran out: it is refused then, never returned with less.
struct Reading {
    LogMsg *msg;
    bool exhausted;
};

static void takeCopy(Reading &reading, char **field, const char *start, const char *end) {
    *field = copySpan(start, end);
    reading.exhausted = reading.exhausted || *field == nullptr;
}

// Fills the producer; null unless white space ends it.
static const char *readProducer(Reading &reading, const char *text) {
    const char *end = text;
    while (*end != '\0' && *end != CNTL_FS && !isSpaceByte(*end))
        ++end;
    if (!isSpaceByte(*end))
        return nullptr;
    takeCopy(reading, &reading.msg->producer, text, end);
    return skipSpace(end);
}

// Fills the source file; null unless ":" ends it.
static const char *readFile(Reading &reading, const char *text) {
    const char *end = text;
    while (*end != '\0' && *end != CNTL_FS && *end != ':')
        ++end;
    if (*end != ':')
        return nullptr;
    takeCopy(reading, &reading.msg->file, text, end);
    return end + 1;
}

// Fills the line and gives the separator behind it; null unless there is one.
static const char *readLineNumber(Reading &reading, const char *text) {
    int64_t line = 0;
    for (; isDigitByte(*text); ++text)
        if (line <= INT32_MAX)
            line = line * 10 + (*text - '0');
    if (*text != CNTL_FS && *text != CNTL_GS)
        return nullptr;
    reading.msg->line = static_cast<int32_t>(line > INT32_MAX ? INT32_MAX : line);
    return text;
}

static bool putArgument(uint32_t array, const char *start, const char *end) {
    const LogMsgArg argument = {copySpan(start, end), nullptr};
    if (argument.value != nullptr && arrayPut(array, &argument) != nullptr)
        return true;
    freecopy(argument.value);
    return false;
}

static void readArguments(Reading &reading, const char *text) {
    LogMsg *msg = reading.msg;
    const uint32_t array = arrayOpen(INLINE_ARRAY, sizeof(LogMsgArg));
    reading.exhausted = reading.exhausted || array == 0;
    while (!reading.exhausted) {
        const char *end = text;
        while (*end != '\0' && *end != CNTL_FS && *end != CNTL_GS)
            ++end;
        if (*end == '\0')
            break;
        if (putArgument(array, text, end))
            ++msg->argCount;
        else
            reading.exhausted = true;
        if (*end == CNTL_GS)
            break;
        text = end + 1;
    }
    msg->args = array == 0 ? nullptr : static_cast<LogMsgArg *>(arrayDone(array));
}

// What follows the time. False: malformed, the fields before the fault being filled.
static bool readBody(Reading &reading, const char *text) {
    readLocalTime(reading.msg->time, &reading.msg->tm);
    if ((text = readProducer(reading, text)) == nullptr ||
        (text = readFile(reading, text)) == nullptr ||
        (text = readLineNumber(reading, text)) == nullptr)
        return false;
    if (*text == CNTL_FS)
        readArguments(reading, text + 1);
    return true;
}

static LogMsg *refuse(LogMsg *msg) {
    freeLogMsg(msg);
    return nullptr;
}

static LogMsg *keepText(LogMsg *msg, int wantExpansion, uint32_t flags) {
    if ((flags & PARSE_KEEP_TEXT) == 0)
        return refuse(msg);
    if (wantExpansion == 0 || (msg->expansion = clearCopy(msg->record, VISIBLE_TEXT)) != nullptr)
        return msg;
    return refuse(msg);
}

static LogMsg *keepComment(LogMsg *msg, int wantExpansion, uint32_t flags) {
    if ((flags & PARSE_KEEP_COMMENTS) == 0)
        return refuse(msg);
    if (wantExpansion == 0 || (msg->expansion = mkcopy(msg->record)) != nullptr)
        return msg;
    return refuse(msg);
}

LogMsg *parseCmpLogEnhanced(char *text, int wantExpansion, uint32_t flags) {
    if (text == nullptr)
        return nullptr;
    LogMsg *msg = static_cast<LogMsg *>(calloc(1, sizeof(LogMsg)));
    if (msg == nullptr)
        return nullptr;
    if ((msg->record = mkcopy(text)) == nullptr)
        return refuse(msg);
    char *rest;
    const int32_t type = typeOfCmpLog(text, &msg->index, &msg->priority, &msg->time, &rest);
    if (type == COMMENT)
        return keepComment(msg, wantExpansion, flags);
    if (type < 0)
        return keepText(msg, wantExpansion, flags); // index 0 after a short time. Kept.
    Reading reading = {msg, false};
    const bool whole = readBody(reading, rest);
    if (reading.exhausted)
        return refuse(msg);
    if (!whole) {
        msg->index = -1;
        return keepText(msg, wantExpansion, flags);
    }
    // Copied at once: the expansion lives in a buffer that the next one reuses.
    if (wantExpansion != 0)
        msg->expansion = mkcopy(expandLog(text));
    return msg;
}

LogMsg *parseCmpLog(char *text, int wantExpansion) {
    return parseCmpLogEnhanced(text, wantExpansion, PLAIN_FLAGS);
}

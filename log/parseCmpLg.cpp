#include "parseCmpLg.h"

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
static constexpr uint32_t INLINE_ARRAY = 0;
static constexpr int32_t VISIBLE_TEXT = CLEAR_UPPER | CLEAR_WHITE;

// A stretch of the record's text; a null start: not found.
struct Span {
    const char *start;
    const char *end;
};

// What follows the time, where it stands: the text is never written to.
struct RecordParts {
    Span producer;
    Span file;
    int32_t line;
    const char *arguments; // the first one; null: none
    size_t argCount;
};

// The end of the text, or the separator that ends the argument.
static const char *argumentEnd(const char *text) {
    for (;; ++text) {
        if (static_cast<unsigned char>(*text) > CNTL_GS)
            continue; // most bytes
        if (*text == CNTL_FS || *text == CNTL_GS || *text == '\0')
            return text;
    }
}

// Null unless white space ends the producer.
static const char *findProducer(const char *text, Span *producer) {
    const char *end = text;
    while (*end != '\0' && *end != CNTL_FS && !isSpaceByte(*end))
        ++end;
    if (!isSpaceByte(*end))
        return nullptr;
    *producer = {text, end};
    return skipSpace(end);
}

// Null unless ":" ends the source file.
static const char *findFile(const char *text, Span *file) {
    const char *end = text;
    while (*end != '\0' && *end != CNTL_FS && *end != ':')
        ++end;
    if (*end != ':')
        return nullptr;
    *file = {text, end};
    return end + 1;
}

// The separator behind the line; null unless there is one.
static const char *readLineNumber(const char *text, int32_t *number) {
    int64_t line = 0;
    for (; isDigitByte(*text); ++text)
        if (line <= INT32_MAX)
            line = line * 10 + (*text - '0');
    if (*text != CNTL_FS && *text != CNTL_GS)
        return nullptr;
    *number = static_cast<int32_t>(line > INT32_MAX ? INT32_MAX : line);
    return text;
}

// An unfinished last argument is none.
static size_t countArguments(const char *text) {
    for (size_t count = 0;; ++count) {
        const char *end = argumentEnd(text);
        if (*end == '\0')
            return count;
        if (*end == CNTL_GS)
            return count + 1;
        text = end + 1;
    }
}

// False: malformed, the parts before the fault being found.
static bool findParts(const char *text, RecordParts *parts) {
    if ((text = findProducer(text, &parts->producer)) == nullptr ||
        (text = findFile(text, &parts->file)) == nullptr ||
        (text = readLineNumber(text, &parts->line)) == nullptr)
        return false;
    if (*text == CNTL_FS) {
        parts->arguments = text + 1;
        parts->argCount = countArguments(text + 1);
    }
    return true;
}

// ---- each text a copy of its own

static char *copySpan(const Span &span) {
    const size_t length = static_cast<size_t>(span.end - span.start);
    char *copy = static_cast<char *>(malloc(length + 1));
    if (copy != nullptr) {
        memcpy(copy, span.start, length);
        copy[length] = '\0';
    }
    return copy;
}

// True as well for a part that was not found.
static bool copyPart(char **field, const Span &span) {
    return span.start == nullptr || (*field = copySpan(span)) != nullptr;
}

static bool putArgument(uint32_t array, const Span &span) {
    const LogMsgArg argument = {copySpan(span), nullptr};
    if (argument.value != nullptr && arrayPut(array, &argument) != nullptr)
        return true;
    freecopy(argument.value);
    return false;
}

// Into an array whose block becomes the message's: editors of records count on the room that its
// steps leave behind the last argument.
static bool copyArguments(LogMsg *msg, const RecordParts &parts) {
    if (parts.arguments == nullptr)
        return true;
    const uint32_t array = arrayOpen(INLINE_ARRAY, sizeof(LogMsgArg));
    if (array == 0)
        return false;
    const char *text = parts.arguments;
    bool isWhole = true;
    while (isWhole && static_cast<size_t>(msg->argCount) < parts.argCount) {
        const Span span = {text, argumentEnd(text)};
        isWhole = putArgument(array, span);
        msg->argCount += isWhole ? 1 : 0;
        text = span.end + 1;
    }
    msg->args = static_cast<LogMsgArg *>(arrayDone(array));
    return isWhole;
}

// False when memory is exhausted: the record is refused then, never returned with less.
static bool copyParts(LogMsg *msg, const RecordParts &parts) {
    msg->line = parts.line;
    return copyPart(&msg->producer, parts.producer) && copyPart(&msg->file, parts.file) &&
           copyArguments(msg, parts);
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
    LogMsg *msg = static_cast<LogMsg *>(malloc(sizeof(LogMsg)));
    if (msg == nullptr)
        return nullptr;
    *msg = {};
    if ((msg->record = mkcopy(text)) == nullptr)
        return refuse(msg);
    char *rest;
    const int32_t type = typeOfCmpLog(text, &msg->index, &msg->priority, &msg->time, &rest);
    if (type == COMMENT)
        return keepComment(msg, wantExpansion, flags);
    if (type < 0)
        return keepText(msg, wantExpansion, flags); // index 0 after a short time. Kept.
    readLocalTime(msg->time, &msg->tm);
    RecordParts parts = {};
    const bool isWhole = findParts(rest, &parts);
    if (!copyParts(msg, parts))
        return refuse(msg);
    if (!isWhole) {
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

// ---- all texts in one block

// A LogMsg without parts, and behind it room for so many arguments and for the text twice.
static LogMsg *makeBlock(const char *text, size_t length, size_t argCount) {
    const uint64_t texts = sizeof(LogMsg) + uint64_t{argCount} * sizeof(LogMsgArg);
    const uint64_t size = texts + 2 * (uint64_t{length} + 1);
    LogMsg *msg =
        size > PTRDIFF_MAX ? nullptr : static_cast<LogMsg *>(malloc(static_cast<size_t>(size)));
    if (msg == nullptr)
        return nullptr;
    *msg = {};
    msg->record = reinterpret_cast<char *>(msg) + texts;
    memcpy(msg->record, text, length + 1);
    return msg;
}

// Cuts the parts out of the second copy of the text, by a zero behind each.
static void cutParts(LogMsg *msg, const RecordParts &parts, const char *text, size_t length) {
    char *const copy = msg->record + length + 1;
    memcpy(copy, text, length + 1);
    const auto cut = [&](const Span &span) {
        copy[span.end - text] = '\0';
        return copy + (span.start - text);
    };
    if (parts.producer.start != nullptr)
        msg->producer = cut(parts.producer);
    if (parts.file.start != nullptr)
        msg->file = cut(parts.file);
    msg->line = parts.line;
    msg->argCount = static_cast<int32_t>(parts.argCount);
    msg->args = parts.argCount == 0 ? nullptr : reinterpret_cast<LogMsgArg *>(msg + 1);
    const char *argument = parts.arguments;
    for (size_t i = 0; i < parts.argCount; ++i) {
        const Span span = {argument, argumentEnd(argument)};
        msg->args[i] = {cut(span), nullptr};
        argument = span.end + 1;
    }
}

LogMsg *parseIntoOneBlock(const char *text, uint32_t flags) {
    if (text == nullptr)
        return nullptr;
    int32_t index = 0, priority, time;
    char *rest;
    const int32_t type = typeOfCmpLog(text, &index, &priority, &time, &rest);
    RecordParts parts = {};
    const bool isWhole = type >= 0 && findParts(rest, &parts);
    const uint32_t keeping = type == COMMENT ? PARSE_KEEP_COMMENTS : PARSE_KEEP_TEXT;
    if ((!isWhole && (flags & keeping) == 0) || parts.argCount > INT32_MAX)
        return nullptr;
    const size_t length = strlen(text);
    LogMsg *msg = makeBlock(text, length, parts.argCount);
    if (msg == nullptr)
        return nullptr;
    msg->index = type >= 0 && !isWhole ? -1 : index;
    msg->priority = priority;
    msg->time = time;
    if (type >= 0)
        readLocalTime(time, &msg->tm);
    cutParts(msg, parts, text, length);
    return msg;
}

#include "expandLog.h"

#include "../buffers/clearCopy.h"
#include "../buffers/cntlchrs.h"
#include "../buffers/fmtCharBuf.h"
#include "../core/mkcopy.h"
#include "byteClass.h"
#include "expandTime.h"
#include "expansionSettings.h"
#include "parseCmpLg.h"
#include "priorityMark.h"
#include "synLogFlds.h"
#include "textOut.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static constexpr uint32_t PLAIN_FLAGS = 0x100;
static constexpr int32_t COMMENT = -2;

// Set while an expansion runs: one that is started meanwhile (a format that holds the message
// itself, an error logged on the way) would overwrite its buffers, or recurse without end.
static bool expanding;

// What the directives of one expansion work on.
struct Expansion {
    TextOut out;
    const LogMsg *msg;
    const char *messageText;
};

// Directives. Each gets the format behind its letter and returns where the walk goes on; null is an
// error, which abandons the expansion.

// Reads "(", white space and "%". Null where "%" is missing, else the letter.
static const char *openParenthesis(const char *format) {
    format = skipSpace(format + 1);
    return *format == '%' ? format + 1 : nullptr;
}

static const char *putPriority(Expansion &expansion, const char *format) {
    const int32_t priority = expansion.msg->priority;
    if (*format != '(') {
        putText(expansion.out, priorityMark(priority));
        return format;
    }
    format = openParenthesis(format);
    if (format == nullptr)
        return nullptr;
    if (*format == 's' || *format == 'S')
        putText(expansion.out, priorityMark(priority));
    else if (*format == 'd' || *format == 'D')
        putChar(expansion.out, static_cast<char>('0' + priority));
    else
        return nullptr;
    format = skipSpace(format + 1);
    return *format != '\0' ? format + 1 : format; // taken for the ")", whatever it is. Kept.
}

static const char *putTime(Expansion &expansion, const char *format) {
    TextOut &out = expansion.out;
    if (*format != '(') {
        noteAppend(out, putCtime(out.buffer, expansion.msg, 0) != 0);
        return format;
    }
    const char *end = strchrnul(format, ')');
    noteAppend(out, putTimeLayout(out.buffer, expansion.msg, format + 1, end) != 0);
    return *end != '\0' ? end + 1 : end;
}

static const char *putProducer(Expansion &expansion, const char *format) {
    putText(expansion.out, expansion.msg->producer);
    return format;
}

static const char *putFile(Expansion &expansion, const char *format) {
    putText(expansion.out, expansion.msg->file);
    return format;
}

static const char *putLine(Expansion &expansion, const char *format) {
    putDecimal(expansion.out, expansion.msg->line);
    return format;
}

// Less its last character: records read as lines keep their line feed.
static const char *putRecord(Expansion &expansion, const char *format) {
    const char *record = expansion.msg->record;
    if (*record != '\0')
        putSpan(expansion.out, record, record + strlen(record) - 1);
    return format;
}

// The message text with its arguments; false unless it asks for exactly those there are.
static bool putMessageText(Expansion &expansion) {
    const LogMsg *msg = expansion.msg;
    int32_t used = 0;
    for (const char *text = expansion.messageText;; ++text) {
        const char *percent = strchrnul(text, '%');
        putSpan(expansion.out, text, percent);
        if (*percent == '\0' || percent[1] == '\0')
            return used == msg->argCount;
        text = percent + 1;
        if (*text != 's')
            putChar(expansion.out, *text);
        else if (used < msg->argCount)
            putText(expansion.out, msg->args[used++].value);
        else
            return false;
    }
}

// The letters that stand for a control character behind a backslash, the same in the format and in
// a separator.
static bool namedEscape(char letter, char *value) {
    static constexpr char ESCAPES[][2] = {
        {'b', '\b'}, {'f', '\f'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}};
    for (const char(&escape)[2] : ESCAPES)
        if (escape[0] == letter) {
            *value = escape[1];
            return true;
        }
    return false;
}

// Reads the separator behind "=". Null for a bad escape and at the end of the format.
static const char *readSeparator(const char *format, char *separator) {
    *separator = *format;
    if (*format == '\0')
        return nullptr;
    if (*format++ != '\\')
        return format;
    const char letter = *format;
    if (isOctalByte(letter))
        // One digit, folded in three times. Kept.
        *separator = static_cast<char>((letter - '0') * 73 % 256);
    else if (letter == '\\')
        *separator = letter;
    else if (!namedEscape(letter, separator))
        return nullptr;
    return format + 1;
}

static void putSeparatedArguments(Expansion &expansion, char separator, char last) {
    const LogMsg *msg = expansion.msg;
    for (int32_t i = 0; i < msg->argCount; ++i) {
        putText(expansion.out, msg->args[i].value);
        putChar(expansion.out, i + 1 < msg->argCount ? separator : last);
    }
}

static const char *putRawArguments(Expansion &expansion, const char *format) {
    format = openParenthesis(format);
    if (format == nullptr || (*format != 'r' && *format != 'R'))
        return nullptr;
    ++format;
    char separator = CNTL_FS, last = CNTL_GS; // the record's own
    if (*format == '=') {
        format = readSeparator(format + 1, &separator);
        if (format == nullptr)
            return nullptr;
        last = separator;
    }
    format = skipSpace(format);
    if (*format != ')')
        return nullptr;
    putSeparatedArguments(expansion, separator, last);
    return format + 1;
}

static const char *putMessage(Expansion &expansion, const char *format) {
    if (*format == '(')
        return putRawArguments(expansion, format);
    return putMessageText(expansion) ? format : nullptr;
}

struct Directive {
    char letter;
    const char *(*put)(Expansion &expansion, const char *format);
};

static constexpr Directive DIRECTIVES[] = {
    {'P', putPriority}, {'T', putTime},    {'N', putProducer}, {'S', putFile},
    {'L', putLine},     {'M', putMessage}, {'C', putRecord},
};

// The walk through the format.

static const char *putDirective(Expansion &expansion, const char *format) {
    if (*format == '\0')
        return format;
    const char letter = *format++;
    for (const Directive &directive : DIRECTIVES)
        if (directive.letter == letter)
            return directive.put(expansion, format);
    putChar(expansion.out, letter);
    return format;
}

static const char *putEscape(Expansion &expansion, const char *format) {
    if (*format == '\0')
        return format;
    char value = *format;
    if (!isOctalByte(value)) {
        namedEscape(*format, &value);
        putChar(expansion.out, value);
        return format + 1;
    }
    int octal = 0;
    for (int digits = 0; digits < 3 && isOctalByte(*format); ++digits)
        octal = octal * 8 + (*format++ - '0');
    putChar(expansion.out, static_cast<char>(octal & 0xFF));
    return format;
}

static bool putFormat(Expansion &expansion, const char *format) {
    while (format != nullptr && *format != '\0') {
        const char ch = *format++;
        if (ch == '%')
            format = putDirective(expansion, format);
        else if (ch == '\\')
            format = putEscape(expansion, format);
        else
            putChar(expansion.out, ch);
    }
    return format != nullptr;
}

static bool emptyBuffer(CharBuffer **buffer) {
    if (*buffer == nullptr)
        *buffer = mkCharBuffer(0);
    if (*buffer == nullptr)
        return false;
    (*buffer)->next = (*buffer)->text;
    return true;
}

// All of them build in workBuf: where the building fails, outBuf holds the last result still.

static char *expandRecord(LogMsg *msg) {
    ExpansionSettings &own = expansionSettings;
    Expansion expansion = {{own.workBuf, false}, msg, getExpandFmt(msg->index)};
    if (expansion.messageText == nullptr)
        return nullptr;
    const char *format = own.format;
    if (own.usesSynthetic != 0)
        format = translateSynFields(own.synBuf, own.format, msg, nullptr);
    if (format == nullptr || !putFormat(expansion, format))
        return nullptr;
    char *text = finishText(expansion.out);
    if (text == nullptr || (own.cutoff <= 0 && own.visible == 0))
        return text;
    return postMsg(own.workBuf);
}

static char *expandParsed(LogMsg *msg, uint32_t flags) {
    ExpansionSettings &own = expansionSettings;
    if (!emptyBuffer(&own.workBuf) || !emptyBuffer(&own.synBuf))
        return nullptr;
    if (msg->index == COMMENT)
        return putStrCharBuffer(own.workBuf, msg->record);
    if (msg->index < 0)
        return clearCopyCharBuffer(own.workBuf, msg->record, static_cast<int32_t>(flags));
    return expandRecord(msg);
}

static void takeForResult() {
    ExpansionSettings &own = expansionSettings;
    CharBuffer *built = own.workBuf;
    own.workBuf = own.outBuf;
    own.outBuf = built;
}

char *expandLogEnhanced(char *record, uint32_t flags, int32_t *indexOut) {
    int32_t index;
    if (indexOut == nullptr)
        indexOut = &index;
    *indexOut = -1;
    if (expanding)
        return nullptr;
    expanding = true;
    const bool isSettled = settleExpansionSettings() != 0;
    // The parsed copy outlives the buffers, which the record itself may lie in. Nothing here gives
    // it an expansion, as none runs while one does.
    LogMsg *msg = isSettled ? parseIntoOneBlock(record, flags) : nullptr;
    char *text = nullptr;
    if (msg != nullptr) {
        *indexOut = msg->index;
        text = expandParsed(msg, flags);
        if (text != nullptr)
            takeForResult();
    }
    free(msg);
    expanding = false;
    return text;
}

char *expandLog(char *record) {
    return expandLogEnhanced(record, PLAIN_FLAGS, nullptr);
}

void expandCmpLog(LogMsg *msg) {
    if (msg == nullptr || msg->record == nullptr)
        return;
    freecopy(msg->expansion);
    freecopy(msg->spare6);
    msg->expansion = msg->spare6 = nullptr;
    msg->expansion = mkcopy(expandLog(msg->record));
}

#include "synLogFlds.h"

#include "../buffers/fmtCharBuf.h"
#include "../core/mkcopy.h"
#include "byteClass.h"
#include "expandLog.h"
#include "expandTime.h"
#include "logSyms.h"
#include "priorityMark.h"
#include "symbolIndex.h"
#include "synFieldNames.h"
#include "textOut.h"

#include <stddef.h>
#include <string.h>

// What the fields of one template are filled in from.
struct Filling {
    TextOut &out;
    LogMsg *msg;
    const LogSymbol *symbol; // of the record's index; null when it has none
    const char *key;
};

static void putQuotedIfNeeded(TextOut &out, const char *text) {
    if (text != nullptr && strpbrk(text, " \t\"") != nullptr)
        noteAppend(out, cvtToQuotedStr(out.buffer, text) != nullptr);
    else
        putText(out, text);
}

static void putNumber(const Filling &filling, int number) {
    noteAppend(filling.out, fmtCharBuffer(filling.out.buffer, "%d", number) >= 0);
}

// Fields that stand alone.

static void putQuotedTime(const Filling &filling) {
    putChar(filling.out, '"');
    noteAppend(filling.out, putCtimeOfSeconds(filling.out.buffer, filling.msg->time) != 0);
    putChar(filling.out, '"');
}

static void putExpansion(const Filling &filling) {
    if (filling.msg->expansion == nullptr)
        expandCmpLog(filling.msg);
    putQuotedIfNeeded(filling.out, filling.msg->expansion);
}

static void putSymbol(const Filling &filling, SynFieldKind kind) {
    const LogSymbol *symbol = filling.symbol;
    if (kind == SynFieldKind::CLASS_INDEX)
        noteAppend(filling.out, fmtCharBuffer(filling.out.buffer, "%u",
                                              symbol == nullptr ? 0 : symbol->relIndex) >= 0);
    else if (kind == SynFieldKind::CLASS)
        putText(filling.out, symbol == nullptr ? "<UNDEF-CLASS>" : symbol->className);
    else
        putText(filling.out, symbol == nullptr ? "<UNDEF>" : symbol->name);
}

static void putValue(const Filling &filling, SynFieldKind kind) {
    const LogMsg *msg = filling.msg;
    switch (kind) {
    case SynFieldKind::INDEX:
        putNumber(filling, msg->index);
        break;
    case SynFieldKind::PRIORITY:
        putChar(filling.out, '"');
        putText(filling.out, priorityMark(msg->priority));
        putChar(filling.out, '"');
        break;
    case SynFieldKind::TIME:
        putQuotedTime(filling);
        break;
    case SynFieldKind::PROGRAM:
        putText(filling.out, msg->producer);
        break;
    case SynFieldKind::FILE:
        putText(filling.out, msg->file);
        break;
    case SynFieldKind::LINE:
        putNumber(filling, msg->line);
        break;
    case SynFieldKind::MESSAGE:
        putExpansion(filling);
        break;
    case SynFieldKind::RECORD:
        putQuotedIfNeeded(filling.out, msg->record);
        break;
    case SynFieldKind::KEY:
        putQuotedIfNeeded(filling.out, filling.key != nullptr ? filling.key : "@key@");
        break;
    default:
        putSymbol(filling, kind);
    }
}

// Fields with something behind the name. Each gets the field's start and what follows its name, and
// returns where the walk goes on.

static const char *leave(const Filling &filling, const char *start, const char *end) {
    putSpan(filling.out, start, end);
    return end;
}

static const char *putTimePart(const Filling &filling, const char *start, const char *dot) {
    const char *end = skipName(dot + 1);
    const SynTimePart *part = findSynTimePart(dot + 1, end);
    if (part == nullptr)
        return leave(filling, start, end);
    putNumber(filling, part->value(filling.msg->tm));
    return end;
}

static const char *skipBlanks(const char *text) {
    while (*text == ' ')
        ++text;
    return text;
}

static const char *putArgument(const Filling &filling, const char *start, const char *bracket) {
    const LogMsg *msg = filling.msg;
    const char *selector = skipBlanks(bracket + 1);
    const char *end;
    int32_t position;
    if (isDigitByte(*selector)) {
        position = readArgumentNumber(selector, &end);
    } else if (isNameStartByte(*selector)) {
        end = skipName(selector);
        position = findArgumentName(msg->index, selector, end);
        noteAppend(filling.out, position != NO_MEMORY_FOR_NAME);
    } else {
        return selector; // the field's name, the bracket and the blanks are dropped. Kept.
    }
    end = skipBlanks(end);
    if (*end != ']')
        return leave(filling, start, end);
    if (position < 0 || position >= msg->argCount)
        return leave(filling, start, end + 1);
    putQuotedIfNeeded(filling.out, msg->args[position].value);
    return end + 1;
}

static const char *putField(const Filling &filling, const char *start, const SynField &field) {
    const SynFieldKind kind = field.kind;
    const bool readsRecord = kind != SynFieldKind::KEY;
    if (kind == SynFieldKind::UNKNOWN || kind == SynFieldKind::NONE ||
        (readsRecord && filling.msg == nullptr))
        return leave(filling, start, field.end);
    if (kind == SynFieldKind::TIME && *field.end == '.')
        return putTimePart(filling, start, field.end);
    if (kind == SynFieldKind::FIELD)
        return *field.end == '[' ? putArgument(filling, start, field.end)
                                 : leave(filling, start, field.end);
    putValue(filling, kind);
    return field.end;
}

static void fillIn(const Filling &filling, const char *text) {
    while (*text != '\0') {
        if (*text == '@') {
            const SynField field = findSynField(text);
            if (field.end == nullptr) {
                putText(filling.out, text);
                break;
            }
            text = putField(filling, text, field);
            continue;
        }
        if (*text == '\\' && *++text == '\0')
            break;
        putChar(filling.out, *text++);
    }
}

char *translateSynFields(CharBuffer *buffer, const char *text, LogMsg *msg, const char *key) {
    if (buffer == nullptr || text == nullptr)
        return putStrCharBuffer(buffer, nullptr);
    // Either may be an earlier expansion, whose buffer "@message@" and a catalogue's reports reuse.
    char *ownText = mkcopy(text);
    char *ownKey = mkcopy(key);
    char *result = nullptr;
    if (ownText != nullptr && (ownKey != nullptr || key == nullptr)) {
        const LogSymbol *symbol = msg == nullptr ? nullptr : logFindAbsIndex(msg->index);
        TextOut out = {buffer, symbol == nullptr && msg != nullptr && symbolsAreUnread()};
        fillIn({out, msg, symbol, ownKey}, ownText);
        result = finishText(out);
    }
    freecopy(ownKey);
    freecopy(ownText);
    return result;
}

char *cvtToQuotedStr(CharBuffer *buffer, const char *text) {
    if (buffer == nullptr || text == nullptr)
        return buffer == nullptr ? nullptr : buffer->text;
    TextOut out = {buffer, false};
    putChar(out, '"');
    for (; *text != '\0'; ++text) {
        if (*text == '"' || *text == '\\')
            putChar(out, '\\');
        putChar(out, *text);
    }
    putChar(out, '"');
    return finishText(out);
}

char *dedoublequoteStr(CharBuffer *buffer, const char *text) {
    if (buffer == nullptr || text == nullptr)
        return buffer == nullptr ? nullptr : buffer->text;
    TextOut out = {buffer, false};
    for (; *text != '\0'; ++text) {
        if (*text == '"')
            continue;
        if (*text == '\\') {
            if (text[1] == '\0')
                break;
            if (text[1] == '"' || text[1] == '\\')
                ++text;
        }
        putChar(out, *text);
    }
    return finishText(out);
}

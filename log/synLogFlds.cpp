#include "synLogFlds.h"

#include "../buffers/fmtCharBuf.h"
#include "../core/mkcopy.h"
#include "byteClass.h"
#include "expandLog.h"
#include "expandTime.h"
#include "logSyms.h"
#include "priorityMark.h"
#include "synFieldNames.h"

#include <stddef.h>
#include <string.h>

// What the fields of one template are filled in from.
struct Filling {
    CharBuffer *out;
    LogMsg *msg;
    const LogSymbol *symbol; // of the record's index; null when it has none
    const char *key;
};

static void putSpan(CharBuffer *buffer, const char *start, const char *end) {
    for (; start < end; ++start)
        fputCharBuffer(buffer, *start);
}

static void putQuotedIfNeeded(CharBuffer *buffer, const char *text) {
    if (text == nullptr)
        return;
    if (strpbrk(text, " \t\"") != nullptr)
        cvtToQuotedStr(buffer, text);
    else
        putStrCharBuffer(buffer, text);
}

// Fields that stand alone.

static void putQuotedTime(const Filling &filling) {
    fputCharBuffer(filling.out, '"');
    putCtime(filling.out, filling.msg, 0);
    fputCharBuffer(filling.out, '"');
}

static void putExpansion(const Filling &filling) {
    if (filling.msg->expansion == nullptr)
        expandCmpLog(filling.msg);
    putQuotedIfNeeded(filling.out, filling.msg->expansion);
}

static void putSymbol(const Filling &filling, SynFieldKind kind) {
    const LogSymbol *symbol = filling.symbol;
    if (kind == SynFieldKind::CLASS_INDEX)
        fmtCharBuffer(filling.out, "%u", symbol == nullptr ? 0 : symbol->relIndex);
    else if (kind == SynFieldKind::CLASS)
        putStrCharBuffer(filling.out, symbol == nullptr ? "<UNDEF-CLASS>" : symbol->className);
    else
        putStrCharBuffer(filling.out, symbol == nullptr ? "<UNDEF>" : symbol->name);
}

static void putValue(const Filling &filling, SynFieldKind kind) {
    const LogMsg *msg = filling.msg;
    switch (kind) {
    case SynFieldKind::INDEX:
        fmtCharBuffer(filling.out, "%d", msg->index);
        break;
    case SynFieldKind::PRIORITY:
        fmtCharBuffer(filling.out, "\"%s\"", priorityMark(msg->priority));
        break;
    case SynFieldKind::TIME:
        putQuotedTime(filling);
        break;
    case SynFieldKind::PROGRAM:
        putStrCharBuffer(filling.out, msg->producer);
        break;
    case SynFieldKind::FILE:
        putStrCharBuffer(filling.out, msg->file);
        break;
    case SynFieldKind::LINE:
        fmtCharBuffer(filling.out, "%d", msg->line);
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
    fmtCharBuffer(filling.out, "%d", part->value(filling.msg->tm));
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
                putStrCharBuffer(filling.out, text);
                break;
            }
            text = putField(filling, text, field);
            continue;
        }
        if (*text == '\\' && *++text == '\0')
            break;
        fputCharBuffer(filling.out, *text++);
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
        fillIn({buffer, msg, symbol, ownKey}, ownText);
        result = putStrCharBuffer(buffer, nullptr);
    }
    freecopy(ownKey);
    freecopy(ownText);
    return result;
}

char *cvtToQuotedStr(CharBuffer *buffer, const char *text) {
    if (buffer == nullptr || text == nullptr)
        return buffer == nullptr ? nullptr : buffer->text;
    fputCharBuffer(buffer, '"');
    for (; *text != '\0'; ++text) {
        if (*text == '"' || *text == '\\')
            fputCharBuffer(buffer, '\\');
        fputCharBuffer(buffer, *text);
    }
    fputCharBuffer(buffer, '"');
    return putStrCharBuffer(buffer, nullptr);
}

char *dedoublequoteStr(CharBuffer *buffer, const char *text) {
    if (buffer == nullptr || text == nullptr)
        return buffer == nullptr ? nullptr : buffer->text;
    for (; *text != '\0'; ++text) {
        if (*text == '"')
            continue;
        if (*text == '\\') {
            if (text[1] == '\0')
                break;
            if (text[1] == '"' || text[1] == '\\')
                ++text;
        }
        fputCharBuffer(buffer, *text);
    }
    return putStrCharBuffer(buffer, nullptr);
}

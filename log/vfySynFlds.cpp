#include "synLogFlds.h"

#include "../buffers/fmtCharBuf.h"
#include "byteClass.h"
#include "logFields.h"
#include "logSyms.h"
#include "synFieldNames.h"

#include <stddef.h>
#include <string.h>

// One field being checked. Every check returns where the template goes on, null for an error.
struct Check {
    int32_t index; // of the message; negative: unknown
    const char *start;
    CharBuffer *error;
};

// The message of the last check, emptied by the next.
static CharBuffer *lastError;
// The message where there is no memory for one.
static char noMemory[] = "Invalid synthetic field (out of memory)";

static CharBuffer *emptyError() {
    if (lastError == nullptr)
        lastError = mkCharBuffer(0);
    if (lastError != nullptr)
        lastError->next = lastError->text;
    return lastError;
}

static const char *fail(const Check &check, const char *format, const char *start,
                        const char *end) {
    fmtCharBuffer(check.error, format, static_cast<int>(end - start), start);
    return nullptr;
}

static const char *fail(const Check &check, const char *format, const char *text) {
    fmtCharBuffer(check.error, format, text);
    return nullptr;
}

static const char *checkTimePart(const Check &check, const char *dot) {
    const char *name = dot + 1;
    const char *end = skipName(name);
    if (findSynTimePart(name, end) == nullptr)
        return fail(check, "%.*s : Unrecognized @time@ part field name", name, end);
    return end;
}

static const char *checkNumber(const Check &check, const char *digits) {
    const char *end;
    const int32_t position = readArgumentNumber(digits, &end);
    if (*end != ']')
        return fail(check, "%s : @field@ index improperly formed", check.start);
    if (check.index >= 0) {
        const LogField *field = getLogFieldName(check.index, position);
        if (field == nullptr || field->name == nullptr)
            return fail(check, "%s : @field@ index >= # of fields in message", digits);
    }
    return end; // at the "]", which is then read as text. Kept.
}

static const char *checkName(const Check &check, const char *name) {
    const char *end = skipName(name);
    if (check.index >= 0 && findArgumentName(check.index, name, end) < 0) {
        const char *symbol = logAbsIndexToSymbol(check.index);
        fmtCharBuffer(check.error, "%.*s is an unrecognized field name for message %s",
                      static_cast<int>(end - name), name, symbol != nullptr ? symbol : "??");
        return nullptr;
    }
    while (*end == ' ')
        ++end;
    if (*end == ']')
        return end + 1;
    return fail(check, "%.*s : @field@ index improperly formed", name,
                *end != '\0' ? end + 1 : end);
}

static const char *checkArgument(const Check &check, const char *bracket) {
    if (*bracket != '[')
        return fail(check, "%s : @field@ missing \"[nnn]\"", check.start);
    const char *selector = bracket + 1;
    if (isDigitByte(*selector))
        return checkNumber(check, selector);
    if (isNameStartByte(*selector))
        return checkName(check, selector);
    return fail(check, "%.*s : @field@ index improperly formed", check.start,
                strchrnul(check.start, ']'));
}

static const char *checkField(const Check &check, int keyAllowed) {
    const SynField field = findSynField(check.start);
    if (field.end == nullptr)
        return fail(check, "%s : Improperly constructed synthetic field name", check.start);
    switch (field.kind) {
    case SynFieldKind::UNKNOWN:
    case SynFieldKind::NONE:
        return fail(check, "%.*s : Unrecognized synthetic field name", check.start, field.end);
    case SynFieldKind::KEY:
        if (keyAllowed == 0)
            return fail(check, "%.*s : specified in illegal context", check.start, field.end);
        return field.end;
    case SynFieldKind::TIME:
        return *field.end == '.' ? checkTimePart(check, field.end) : field.end;
    case SynFieldKind::FIELD:
        return checkArgument(check, field.end);
    default:
        return field.end;
    }
}

int decodeSynField(int32_t index, const char *text, char **error, char **next, int keyAllowed) {
    CharBuffer *buffer = emptyError();
    if (error != nullptr)
        *error = nullptr;
    if (text == nullptr || next == nullptr)
        return 0;
    *next = const_cast<char *>(text);
    if (*text != '@')
        return 0;
    const char *end = checkField({index, text, buffer}, keyAllowed);
    if (end != nullptr)
        *next = const_cast<char *>(end);
    else if (error != nullptr)
        *error = buffer != nullptr && buffer->next > buffer->text ? buffer->text : noMemory;
    return end != nullptr ? 1 : 0;
}

// Behind a backslash and what it takes with it: one character; and all of a known field whose
// closing
// "@" is the template's last. With another "@" behind it, that closing one starts a field for the
// translator, and so it does here.
static const char *skipEscaped(const char *backslash) {
    const char *escaped = backslash + 1;
    if (*escaped == '@') {
        const SynField field = findSynField(escaped);
        if (field.kind != SynFieldKind::UNKNOWN && strchr(field.end, '@') == nullptr)
            return field.end;
    }
    return *escaped != '\0' ? escaped + 1 : escaped;
}

int vfySynFields(int32_t index, const char *text, char **error, int keyAllowed) {
    if (error != nullptr)
        *error = nullptr;
    if (text == nullptr)
        return 0;
    while (*text != '\0') {
        if (*text == '\\') {
            text = skipEscaped(text);
        } else if (*text != '@') {
            ++text;
        } else {
            char *next;
            if (decodeSynField(index, text, error, &next, keyAllowed) == 0)
                return 0;
            text = next;
        }
    }
    return 1;
}

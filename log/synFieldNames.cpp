#include "synFieldNames.h"

#include "byteClass.h"
#include "logFields.h"

#include <errno.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

struct NamedKind {
    const char *name;
    SynFieldKind kind;
};

static constexpr NamedKind NAMES[] = {
    {"@msgPtr@", SynFieldKind::NONE},     {"@index@", SynFieldKind::INDEX},
    {"@id@", SynFieldKind::INDEX},        {"@i@", SynFieldKind::INDEX},
    {"@logfile@", SynFieldKind::NONE},    {"@priority@", SynFieldKind::PRIORITY},
    {"@pri@", SynFieldKind::PRIORITY},    {"@p@", SynFieldKind::PRIORITY},
    {"@time@", SynFieldKind::TIME},       {"@t@", SynFieldKind::TIME},
    {"@program@", SynFieldKind::PROGRAM}, {"@prog@", SynFieldKind::PROGRAM},
    {"@file@", SynFieldKind::FILE},       {"@line@", SynFieldKind::LINE},
    {"@field@", SynFieldKind::FIELD},     {"@f@", SynFieldKind::FIELD},
    {"@message@", SynFieldKind::MESSAGE}, {"@msg@", SynFieldKind::MESSAGE},
    {"@m@", SynFieldKind::MESSAGE},       {"@cmpmsg@", SynFieldKind::RECORD},
    {"@symbol@", SynFieldKind::SYMBOL},   {"@sym@", SynFieldKind::SYMBOL},
    {"@s@", SynFieldKind::SYMBOL},        {"@class@", SynFieldKind::CLASS},
    {"@c@", SynFieldKind::CLASS},         {"@classIndex@", SynFieldKind::CLASS_INDEX},
    {"@ci@", SynFieldKind::CLASS_INDEX},  {"@key@", SynFieldKind::KEY},
};

static constexpr SynTimePart TIME_PARTS[] = {
    {"sec", [](const struct tm &tm) { return tm.tm_sec; }},
    {"min", [](const struct tm &tm) { return tm.tm_min; }},
    {"hour", [](const struct tm &tm) { return tm.tm_hour; }},
    {"mday", [](const struct tm &tm) { return tm.tm_mday; }},
    {"mon", [](const struct tm &tm) { return tm.tm_mon + 1; }},
    {"year", [](const struct tm &tm) { return tm.tm_year; }},
    {"wday", [](const struct tm &tm) { return tm.tm_wday; }},
    {"yday", [](const struct tm &tm) { return tm.tm_yday; }},
    {"isdst", [](const struct tm &tm) { return tm.tm_isdst; }},
};

static bool isSpan(const char *text, const char *start, const char *end) {
    const size_t length = static_cast<size_t>(end - start);
    return strncmp(text, start, length) == 0 && text[length] == '\0';
}

SynField findSynField(const char *text) {
    const char *closing = strchr(text + 1, '@');
    if (closing == nullptr)
        return {SynFieldKind::UNKNOWN, nullptr};
    const char *end = closing + 1;
    for (const NamedKind &entry : NAMES)
        if (isSpan(entry.name, text, end))
            return {entry.kind, end};
    return {SynFieldKind::UNKNOWN, end};
}

const SynTimePart *findSynTimePart(const char *name, const char *end) {
    for (const SynTimePart &part : TIME_PARTS)
        if (isSpan(part.name, name, end))
            return &part;
    return nullptr;
}

const char *skipName(const char *text) {
    while (isNameByte(*text))
        ++text;
    return text;
}

int32_t readArgumentNumber(const char *text, const char **end) {
    int64_t base = 10;
    if (*text == '0') {
        base = 8;
        if ((text[1] | 0x20) == 'x' && hexDigitValue(text[2]) < 16) {
            base = 16;
            text += 2;
        }
    }
    int64_t number = 0;
    for (int64_t digit; (digit = hexDigitValue(*text)) < base; ++text)
        if (number <= INT32_MAX)
            number = number * base + digit;
    *end = text;
    return number > INT32_MAX ? INT32_MAX : static_cast<int32_t>(number);
}

int32_t findArgumentName(int32_t index, const char *name, const char *end) {
    char *copy = strndup(name, static_cast<size_t>(end - name));
    if (copy == nullptr)
        return NO_MEMORY_FOR_NAME;
    errno = 0;
    const int32_t position = cvtLogFieldNameToIndex(index, copy);
    const bool isLookedUp = position >= 0 || errno != ENOMEM;
    free(copy);
    return isLookedUp ? position : NO_MEMORY_FOR_NAME;
}

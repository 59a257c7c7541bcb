#include "logMsg.h"

#include "../buffers/cntlchrs.h"
#include "byteClass.h"

static constexpr int TIME_DIGITS = 8;
static constexpr int32_t TEXT = -1;
static constexpr int32_t COMMENT = -2;

// Where the parts of a record's head go; nothing here is null.
struct HeadOutputs {
    int32_t *index;
    int32_t *priority;
    int32_t *time;
    char **rest;
};

static int32_t classify(int32_t type, const HeadOutputs &out, const char *rest) {
    *out.index = type;
    *out.rest = const_cast<char *>(rest);
    return type;
}

// A head that fails from its time on leaves the index alone. Kept: the parser relies on it.
static int32_t readTime(const char *text, int32_t index, const HeadOutputs &out) {
    uint32_t time = 0;
    int digits = 0;
    for (uint32_t value; digits < TIME_DIGITS && (value = hexDigitValue(*text)) < 16; ++digits) {
        time = time << 4 | value;
        ++text;
    }
    *out.rest = const_cast<char *>(text);
    if (digits < TIME_DIGITS)
        return TEXT;
    *out.time = static_cast<int32_t>(time);
    *out.index = index;
    return index;
}

static int32_t readHead(const char *text, const HeadOutputs &out) {
    uint32_t index = 0; // unsigned: an overlong number wraps
    for (; isDigitByte(*text); ++text)
        index = index * 10 + static_cast<uint32_t>(*text - '0');
    text = skipSpace(text);
    if (*text != CNTL_FS)
        return classify(TEXT, out, text);
    ++text;
    if (!isDigitByte(*text))
        return classify(TEXT, out, text);
    *out.priority = *text - '0';
    return readTime(text + 1, static_cast<int32_t>(index), out);
}

int32_t typeOfCmpLog(const char *text, int32_t *indexOut, int32_t *priorityOut, int32_t *timeOut,
                     char **restOut) {
    int32_t index, priority, time;
    char *rest;
    if (text == nullptr)
        return TEXT;
    const HeadOutputs out = {
        indexOut != nullptr ? indexOut : &index, priorityOut != nullptr ? priorityOut : &priority,
        timeOut != nullptr ? timeOut : &time, restOut != nullptr ? restOut : &rest};
    *out.priority = 0;
    *out.time = 0;
    if (isDigitByte(*text))
        return readHead(text, out);
    const char *first = skipSpace(text);
    // The empty text is text; a line of white space alone is a comment.
    const bool blank = *first == '\0' && first != text;
    return classify(blank || *first == '#' ? COMMENT : TEXT, out, first);
}

/* Appending to a CharBuffer where a text with a hole would be worse than none: the appends of one
   text go through a TextOut, which remembers that one of them found no memory. Whoever hands the
   text out looks at that once, at the end. Internal, C++ only; one thread at a time. */
#ifndef QUARNEL_LOG_TEXTOUT_H
#define QUARNEL_LOG_TEXTOUT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "../buffers/charBuffer.h"

#ifdef __cplusplus

struct TextOut {
    CharBuffer *buffer;
    bool failed; // an append found no memory: the text has a hole
};

static inline void noteAppend(TextOut &out, bool appended) {
    out.failed = out.failed || !appended;
}

static inline size_t roomOf(const TextOut &out) {
    return static_cast<size_t>(out.buffer->limit - out.buffer->next);
}

// The result of fputCharBuffer does not tell 0xFF from failure; the content's length does.
static inline void putChar(TextOut &out, char ch) {
    if (roomOf(out) > 0) {
        *out.buffer->next++ = ch;
        return;
    }
    const ptrdiff_t length = out.buffer->next - out.buffer->text;
    fputCharBuffer(out.buffer, ch);
    noteAppend(out, out.buffer->next - out.buffer->text > length);
}

static inline void putSpan(TextOut &out, const char *start, const char *end) {
    const size_t length = static_cast<size_t>(end - start);
    if (length < roomOf(out)) { // a buffer without a block has none
        memcpy(out.buffer->next, start, length);
        out.buffer->next += length;
        return;
    }
    for (; start < end; ++start)
        putChar(out, *start);
}

// A null text appends nothing.
static inline void putText(TextOut &out, const char *text) {
    if (text == nullptr)
        return;
    const size_t length = strlen(text);
    if (length < roomOf(out))
        putSpan(out, text, text + length);
    else
        noteAppend(out, putStrCharBuffer(out.buffer, text) != nullptr);
}

// As "%d" writes it.
static inline void putDecimal(TextOut &out, int32_t value) {
    char digits[11];
    char *const end = digits + sizeof digits;
    char *first = end;
    uint32_t rest = static_cast<uint32_t>(value);
    if (value < 0)
        rest = 0 - rest;
    do
        *--first = static_cast<char>('0' + rest % 10);
    while ((rest /= 10) != 0);
    if (value < 0)
        *--first = '-';
    putSpan(out, first, end);
}

// The terminated text; null when it has a hole.
static inline char *finishText(TextOut &out) {
    char *const text = putStrCharBuffer(out.buffer, nullptr);
    return out.failed ? nullptr : text;
}

#endif

#endif

/* Appending to a CharBuffer where a text with a hole would be worse than none: the appends of one
   text go through a TextOut, which remembers that one of them found no memory. Whoever hands the
   text out looks at that once, at the end. Internal, C++ only; one thread at a time. */
#ifndef QUARNEL_LOG_TEXTOUT_H
#define QUARNEL_LOG_TEXTOUT_H

#include <stddef.h>

#include "../buffers/charBuffer.h"

#ifdef __cplusplus

struct TextOut {
    CharBuffer *buffer;
    bool failed; // an append found no memory: the text has a hole
};

static inline void noteAppend(TextOut &out, bool appended) {
    out.failed = out.failed || !appended;
}

// The result of fputCharBuffer does not tell 0xFF from failure; the content's length does.
static inline void putChar(TextOut &out, char ch) {
    const ptrdiff_t length = out.buffer->next - out.buffer->text;
    fputCharBuffer(out.buffer, ch);
    noteAppend(out, out.buffer->next - out.buffer->text > length);
}

// A null text appends nothing.
static inline void putText(TextOut &out, const char *text) {
    if (text != nullptr)
        noteAppend(out, putStrCharBuffer(out.buffer, text) != nullptr);
}

static inline void putSpan(TextOut &out, const char *start, const char *end) {
    for (; start < end; ++start)
        putChar(out, *start);
}

// The terminated text; null when it has a hole.
static inline char *finishText(TextOut &out) {
    char *const text = putStrCharBuffer(out.buffer, nullptr);
    return out.failed ? nullptr : text;
}

#endif

#endif

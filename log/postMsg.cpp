#include "expandLog.h"

#include "../buffers/fmtCharBuf.h"
#include "byteClass.h"
#include "expansionSettings.h"
#include "textOut.h"

#include <stddef.h>

static constexpr int32_t VISIBLE_INCREMENT = 128;

// The emptied work area for what is made of the source; null when memory is exhausted. It grows by
// parts of the source's length: by small steps, a long text would be moved again and again.
static CharBuffer *workArea(CharBuffer **slot, const CharBuffer *source) {
    constexpr ptrdiff_t STEPS = 8;
    if (*slot == nullptr)
        *slot = mkCharBuffer(VISIBLE_INCREMENT);
    if (*slot == nullptr)
        return nullptr;
    const ptrdiff_t part = (source->next - source->text) / STEPS;
    (*slot)->increment = static_cast<uint32_t>(VISIBLE_INCREMENT + part);
    (*slot)->next = (*slot)->text;
    return *slot;
}

static const char *visibleWhite(char ch) {
    switch (ch) {
    case '\b':
        return "\\b";
    case '\t':
        return "\\t";
    case '\n':
        return "\\n\n";
    case '\f':
        return "\\f\n";
    case '\r':
        return "\\r";
    default:
        return nullptr;
    }
}

static char *renderVisibly(CharBuffer *buffer, const CharBuffer *source) {
    TextOut out = {buffer, false};
    for (const char *at = source->text; at < source->next; ++at) {
        const unsigned byte = static_cast<unsigned char>(*at);
        const char *white = visibleWhite(*at);
        if (white != nullptr)
            putText(out, white);
        else if (isPrintByte(*at))
            putChar(out, *at);
        else
            noteAppend(out, fmtCharBuffer(buffer, "<%o>", byte) >= 0);
    }
    return finishText(out);
}

/* Wrapping reads the text from one buffer and writes lines into the other, so that its cost does
   not grow with lines times length. A line is written when its end is known; until then the walk
   only keeps the line's start, its last blank or tab before the cut-off column, and the column. A
   break takes the walk back to that blank, so columns may be counted again, but a run of blanks
   beyond the cut-off is measured once. */
struct Wrapping {
    TextOut out;
    const char *end;         // of the text
    const char *lineStart;   // first byte not yet written
    const char *breakAt;     // where this line may break; null: nowhere
    int64_t column;          // where the next character goes
    const char *blanksStart; // the run of blanks measured last
    const char *blanksEnd;
};

static bool cutOff(const Wrapping &walk) {
    return walk.column >= expansionSettings.cutoff;
}

static void advanceColumn(int64_t &column, char ch) {
    if (ch == '\b')
        column = column > 0 ? column - 1 : 0;
    else if (ch == '\t')
        column %= 8; // as visualWidth does. Kept.
    else if (ch == '\n' || ch == '\r')
        column = 0;
    else if (isPrintByte(ch))
        ++column;
}

// A break never splits an inserted prefix and never precedes a line's first character, so that
// every break leaves less to wrap, whatever the prefix and the column.
static bool mustBreakBefore(const Wrapping &walk, const char *at) {
    return *at != ' ' && isPrintByte(*at) && cutOff(walk) && at != walk.lineStart;
}

// Goes on behind the prefix. The walk advances by the prefix's width: a prefix wider than long
// takes characters of the text with it, one narrower than long leaves its own tail to be counted.
// The character at the point so reached counts as one column, whatever it is. Kept.
static const char *continueLine(Wrapping &walk) {
    const ExpansionSettings &own = expansionSettings;
    const int32_t width = own.contPrefixWidth, length = own.contPrefixLength;
    walk.column = width;
    walk.breakAt = nullptr;
    if (width < length) {
        ++walk.column;
        for (const char *tail = own.contPrefix + width + 1; *tail != '\0'; ++tail)
            advanceColumn(walk.column, *tail);
        return walk.lineStart;
    }
    const ptrdiff_t skipped = width - length;
    if (walk.end - walk.lineStart <= skipped)
        return walk.end;
    ++walk.column;
    return walk.lineStart + skipped + 1;
}

static const char *breakLine(Wrapping &walk, const char *at) {
    const char *lineEnd = walk.breakAt != nullptr ? walk.breakAt : at;
    putSpan(walk.out, walk.lineStart, lineEnd);
    putChar(walk.out, '\n');
    putText(walk.out, expansionSettings.contPrefix);
    walk.lineStart = walk.breakAt != nullptr ? lineEnd + 1 : lineEnd;
    return continueLine(walk);
}

static const char *passWideBlanks(Wrapping &walk, const char *at) {
    if (at < walk.blanksStart || at >= walk.blanksEnd) {
        walk.blanksStart = walk.blanksEnd = at;
        while (walk.blanksEnd < walk.end && *walk.blanksEnd == ' ')
            ++walk.blanksEnd;
    }
    walk.column += walk.blanksEnd - at;
    return walk.blanksEnd;
}

static char *wrap(CharBuffer *buffer, const CharBuffer *source) {
    Wrapping walk = {{buffer, false}, source->next, source->text, nullptr, 0, nullptr, nullptr};
    const char *at = source->text;
    while (at < walk.end) {
        if (mustBreakBefore(walk, at)) {
            at = breakLine(walk, at);
            continue;
        }
        if (*at == ' ' && cutOff(walk)) {
            at = passWideBlanks(walk, at);
            continue;
        }
        if (*at == ' ' || (*at == '\t' && !cutOff(walk)))
            walk.breakAt = at;
        advanceColumn(walk.column, *at++);
    }
    putSpan(walk.out, walk.lineStart, walk.end);
    return finishText(walk.out);
}

// The buffers keep their increments.
static void exchangeBlocks(CharBuffer *one, CharBuffer *other) {
    const CharBuffer before = *one;
    one->text = other->text;
    one->limit = other->limit;
    one->next = other->next;
    one->size = other->size;
    other->text = before.text;
    other->limit = before.limit;
    other->next = before.next;
    other->size = before.size;
}

// Each step reads one buffer and fills another, and the buffer is given the last one's block: what
// fails on the way leaves the buffer's content alone.
char *postMsg(CharBuffer *buffer) {
    ExpansionSettings &own = expansionSettings;
    char *text = putStrCharBuffer(buffer, nullptr);
    if (text == nullptr || (own.visible == 0 && own.cutoff < 1))
        return text;
    CharBuffer *result = buffer;
    if (own.visible != 0) {
        CharBuffer *shown = workArea(&own.visBuf, result);
        if (shown == nullptr || renderVisibly(shown, result) == nullptr)
            return nullptr;
        result = shown;
    }
    if (own.cutoff >= 1) {
        CharBuffer *lines = workArea(&own.wrapBuf, result);
        if (lines == nullptr || wrap(lines, result) == nullptr)
            return nullptr;
        result = lines;
    }
    exchangeBlocks(buffer, result);
    return buffer->text;
}

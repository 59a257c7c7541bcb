#define QN_NO_APPENDS_IN_PLACE // they are defined here
#include "charBuffer.h"

#include "../core/mkcopy.h"
#include "charBufferRoom.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static_assert(sizeof(void *) != 4 ||
              (offsetof(CharBuffer, size) == 12 && sizeof(CharBuffer) == 20));

static constexpr uint32_t DEFAULT_INCREMENT = 128;

static int64_t contentLength(const CharBuffer *buffer) {
    return buffer->next - buffer->text;
}

CharBuffer *mkCharBuffer(int32_t increment) {
    CharBuffer *buffer = static_cast<CharBuffer *>(calloc(1, sizeof(CharBuffer)));
    if (buffer != nullptr)
        buffer->increment = increment < 1 ? DEFAULT_INCREMENT : static_cast<uint32_t>(increment);
    return buffer;
}

void freeCharBuffer(CharBuffer *buffer) {
    if (buffer == nullptr)
        return;
    freecopy(buffer->text);
    free(buffer);
}

char *detachCharBuffer(CharBuffer *buffer) {
    if (buffer == nullptr)
        return nullptr;
    char *text = buffer->text;
    free(buffer);
    return text;
}

static uint32_t growthStep(const CharBuffer *buffer) {
    return buffer->increment == 0 ? DEFAULT_INCREMENT : buffer->increment;
}

static bool growTo(CharBuffer *buffer, uint64_t size) {
    if (size > INT32_MAX)
        return false;
    // Only a first block of one increment carries a spare byte. Kept: callers rely on the sizes.
    const bool isSpared = buffer->text == nullptr && size == growthStep(buffer);
    const ptrdiff_t length = buffer->next - buffer->text;
    char *text =
        static_cast<char *>(realloc(buffer->text, static_cast<size_t>(size) + (isSpared ? 1 : 0)));
    if (text == nullptr)
        return false;
    buffer->text = text;
    buffer->next = text + length;
    buffer->size = static_cast<int32_t>(size);
    buffer->limit = text + size;
    return true;
}

char *expandCharBuffer(CharBuffer *buffer) {
    if (buffer == nullptr)
        return nullptr;
    const uint64_t size = static_cast<uint64_t>(buffer->size) + growthStep(buffer);
    return growTo(buffer, size) ? buffer->text : nullptr;
}

bool reserveCharBuffer(CharBuffer *buffer, uint64_t bytes) {
    const uint64_t needed = static_cast<uint64_t>(contentLength(buffer)) + bytes;
    const uint64_t size = static_cast<uint64_t>(buffer->size);
    if (needed <= size)
        return true;
    const uint64_t step = growthStep(buffer);
    // Mostly one step: a division costs more than the rest.
    const uint64_t steps = needed - size <= step ? 1 : (needed - size + step - 1) / step;
    return growTo(buffer, size + steps * step);
}

// What fputCharBuffer does, with a result that no character can be mistaken for.
static bool append(CharBuffer *buffer, char ch) {
    if (buffer->next >= buffer->limit && expandCharBuffer(buffer) == nullptr)
        return false;
    *buffer->next++ = ch;
    return true;
}

int fputCharBuffer(CharBuffer *buffer, char ch) {
    if (buffer == nullptr || !append(buffer, ch))
        return -1;
    return static_cast<signed char>(ch);
}

static char *appendText(CharBuffer *buffer, const char *text, size_t count) {
    if (!reserveCharBuffer(buffer, uint64_t{count} + 1))
        return nullptr;
    if (count > 0)
        memcpy(buffer->next, text, count);
    buffer->next += count;
    *buffer->next = '\0';
    return buffer->text;
}

char *putStrCharBuffer(CharBuffer *buffer, const char *text) {
    return buffer == nullptr ? nullptr
                             : appendText(buffer, text, text == nullptr ? 0 : strlen(text));
}

int removeLastCharBufferChar(CharBuffer *buffer) {
    if (buffer == nullptr || buffer->next <= buffer->text)
        return -1;
    const signed char removed = static_cast<signed char>(*--buffer->next);
    *buffer->next = '\0';
    return removed;
}

// Appends zeros up to the index, which lies at or beyond the content's end, where so many bytes are
// to follow them.
static bool fillTo(CharBuffer *buffer, int32_t index, uint64_t following) {
    const size_t gap = static_cast<size_t>(index - contentLength(buffer));
    if (!reserveCharBuffer(buffer, gap + following))
        return false;
    if (gap > 0)
        memset(buffer->next, 0, gap);
    buffer->next += gap;
    return true;
}

// Opens a gap of count bytes at the index, which lies inside the content; the byte at next moves
// with the rest.
static bool openGap(CharBuffer *buffer, int32_t index, size_t count) {
    if (!reserveCharBuffer(buffer, uint64_t{count} + 1))
        return false;
    char *place = buffer->text + index;
    memmove(place + count, place, static_cast<size_t>(buffer->next - place) + 1);
    buffer->next += count;
    return true;
}

char *insertChrIntoCharBuffer(CharBuffer *buffer, char ch, int32_t index) {
    if (buffer == nullptr)
        return nullptr;
    if (index < 0)
        return buffer->text;
    if (contentLength(buffer) <= index)
        return fillTo(buffer, index, 1) && append(buffer, ch) ? buffer->text : nullptr;
    if (!openGap(buffer, index, 1))
        return nullptr;
    buffer->text[index] = ch;
    return buffer->text;
}

char *insertStrIntoCharBuffer(CharBuffer *buffer, const char *text, int32_t index) {
    if (buffer == nullptr)
        return nullptr;
    if (text == nullptr || *text == '\0' || index < 0)
        return buffer->text;
    const size_t count = strlen(text);
    if (contentLength(buffer) <= index)
        return fillTo(buffer, index, uint64_t{count} + 1) ? appendText(buffer, text, count)
                                                          : nullptr;
    if (!openGap(buffer, index, count))
        return nullptr;
    memcpy(buffer->text + index, text, count);
    return buffer->text;
}

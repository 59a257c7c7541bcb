#include "charBuffer.h"

#include "../core/mkcopy.h"

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

char *expandCharBuffer(CharBuffer *buffer) {
    if (buffer == nullptr)
        return nullptr;
    const uint32_t increment = buffer->increment == 0 ? DEFAULT_INCREMENT : buffer->increment;
    const uint64_t size = static_cast<uint64_t>(buffer->size) + increment;
    if (size > INT32_MAX)
        return nullptr;
    const ptrdiff_t length = buffer->text == nullptr ? 0 : buffer->next - buffer->text;
    // Only the first block carries a spare byte. Kept: callers rely on the block sizes.
    const size_t blockSize = static_cast<size_t>(size) + (buffer->text == nullptr ? 1 : 0);
    char *text = static_cast<char *>(realloc(buffer->text, blockSize));
    if (text == nullptr)
        return nullptr;
    buffer->text = text;
    buffer->next = text + length;
    buffer->size = static_cast<int32_t>(size);
    buffer->limit = text + size;
    return text;
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

char *putStrCharBuffer(CharBuffer *buffer, const char *text) {
    if (buffer == nullptr)
        return nullptr;
    if (text != nullptr)
        for (; *text != '\0'; ++text)
            if (!append(buffer, *text))
                return nullptr;
    if (buffer->next >= buffer->limit && expandCharBuffer(buffer) == nullptr)
        return nullptr;
    *buffer->next = '\0';
    return buffer->text;
}

int removeLastCharBufferChar(CharBuffer *buffer) {
    if (buffer == nullptr || buffer->next <= buffer->text)
        return -1;
    const int removed = static_cast<signed char>(*--buffer->next);
    *buffer->next = '\0';
    return removed;
}

static bool fillTo(CharBuffer *buffer, int32_t index) {
    while (contentLength(buffer) < index)
        if (!append(buffer, '\0'))
            return false;
    return true;
}

// Opens a gap of count bytes at the index, which lies inside the content; the byte at next moves
// with the rest.
static bool openGap(CharBuffer *buffer, int32_t index, size_t count) {
    while (static_cast<uint64_t>(contentLength(buffer)) + count >=
           static_cast<uint64_t>(buffer->size))
        if (expandCharBuffer(buffer) == nullptr)
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
        return fillTo(buffer, index) && append(buffer, ch) ? buffer->text : nullptr;
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
    if (contentLength(buffer) <= index)
        return fillTo(buffer, index) ? putStrCharBuffer(buffer, text) : nullptr;
    const size_t count = strlen(text);
    if (!openGap(buffer, index, count))
        return nullptr;
    memcpy(buffer->text + index, text, count);
    return buffer->text;
}

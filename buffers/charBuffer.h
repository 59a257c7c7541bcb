/* Growable text buffers.

   A CharBuffer owns one heap block and a write position in it. What always holds: text <= next <=
   limit; limit is text + size; all three pointers are null and size is 0 until the first character
   is stored. The content is the bytes from text to next. It is terminated only where a function
   says so: appending characters one by one does not terminate, and putStrCharBuffer(buffer, NULL)
   is how callers terminate such content. Growing moves the block: keep no pointer into it across a
   call that may grow.

   Growth is linear, by the increment chosen at creation: choose it to suit the expected size. When
   memory is exhausted a growth fails and the buffer stays as it was.

   Make a buffer with mkCharBuffer, fill it, read buffer->text, and end with freeCharBuffer, or with
   detachCharBuffer to keep the block. A buffer belongs to one thread at a time; nothing here is
   safe in a signal handler. errno is whatever the allocation left. */
#ifndef QUARNEL_BUFFERS_CHARBUFFER_H
#define QUARNEL_BUFFERS_CHARBUFFER_H

#include <stddef.h>
#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct CharBuffer {
    char *text;         /* the block, owned; null until something is stored */
    char *limit;        /* text + size: the first position not to be written without growing */
    char *next;         /* where the next character goes */
    int32_t size;       /* usable bytes in the block */
    uint32_t increment; /* growth step in bytes; 0 counts as 128 */
} CharBuffer;

/* A new empty buffer, to be released with freeCharBuffer or detachCharBuffer; no block yet. An
   increment below 1 means 128 bytes. Null when memory is exhausted. */
QN_API CharBuffer *mkCharBuffer(int32_t increment);

/* Releases the buffer and its block; null is ignored. */
QN_API void freeCharBuffer(CharBuffer *buffer);

/* Releases the buffer but not its block, which it returns: the caller's, to be released with
   freecopy. Null for a null buffer and for one that never stored anything. */
QN_API char *detachCharBuffer(CharBuffer *buffer);

/* Grows the block by one increment and returns it. The first block has one spare byte beyond its
   limit, later ones have none. Null, the buffer unchanged, for a null buffer, when memory is
   exhausted and when the size would pass INT32_MAX. */
QN_API char *expandCharBuffer(CharBuffer *buffer);

/* Appends the character, unterminated. Returns it as a signed character: 0xFF comes back as -1, the
   same as failure (null buffer, no memory). Who must tell them apart looks at whether the buffer's
   next has moved. */
QN_API int fputCharBuffer(CharBuffer *buffer, char ch);

/* Appends the text and terminates the content; with a null text it only terminates. The text must
   not lie in the buffer. The block ends up as large as appending one by one would make it. Returns
   the block; null for a null buffer and, the content unchanged, when memory is exhausted. */
QN_API char *putStrCharBuffer(CharBuffer *buffer, const char *text);

/* Removes the last character, leaving a zero in its place, and returns it as a signed character; -1
   if there is none. */
QN_API int removeLastCharBufferChar(CharBuffer *buffer);

/* Insert at the index, in bytes from the start. Beyond the content's end the gap is filled with
   zeros. Inside the content the byte at next (a terminator, where there is one) moves up with the
   rest, so terminated content stays terminated; a character put at or beyond the end is not
   terminated, a text is. The text must not lie in the buffer. A negative index, and a null or empty
   text, change nothing. Both return the block; null for a null buffer and, the content unchanged,
   when memory is exhausted. */
QN_API char *insertChrIntoCharBuffer(CharBuffer *buffer, char ch, int32_t index);
QN_API char *insertStrIntoCharBuffer(CharBuffer *buffer, const char *text, int32_t index);

/* The two appends once more, for callers that are compiled with optimisation: where there is room
   they are made in place, without a call. What takes their address gets the library's. */
#if defined __GNUC__ && defined __OPTIMIZE__ && !defined QN_NO_APPENDS_IN_PLACE

extern __inline __attribute__((__gnu_inline__)) int fputCharBuffer(CharBuffer *buffer, char ch) {
    const signed char stored = (signed char)ch;
    if (!buffer)
        return -1;
    if (__builtin_expect(buffer->next >= buffer->limit, 0) && !expandCharBuffer(buffer))
        return -1;
    *buffer->next++ = ch;
    return stored;
}

extern __inline __attribute__((__gnu_inline__)) char *putStrCharBuffer(CharBuffer *buffer,
                                                                       const char *text) {
    const ptrdiff_t count = text ? (ptrdiff_t)__builtin_strlen(text) : 0;
    char *place;
    if (!buffer)
        return NULL;
    if (__builtin_expect(buffer->limit - buffer->next <= count, 0)) {
        if (count > 0) /* at the content's end an insertion appends */
            return insertStrIntoCharBuffer(buffer, text, (int32_t)(buffer->next - buffer->text));
        if (!expandCharBuffer(buffer))
            return NULL;
    }
    place = buffer->next;
    buffer->next = place + count;
    if (count > 0)
        __builtin_memcpy(place, text, (size_t)count);
    place[count] = '\0';
    return buffer->text;
}

#endif

#ifdef __cplusplus
}
#endif

#endif

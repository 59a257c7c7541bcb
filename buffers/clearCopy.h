/* Visible renderings: copies of a text in which control characters, bytes above 0x7F and, if asked
   for, white space are shown in a form of the caller's choice.

   The flags are one mode (0 to 15, in CLEAR_MODE_MASK) and any of the other bits. Characters that
   are graphic in the current locale, as those of ASCII are in each, are copied in every mode; the
   library sets no locale, and in the default one every byte above 0x7F is rendered. Inside the
   angle brackets such a byte shows as "-" and its 7-bit part. The worked renderings:

       byte   ESCAPE     OCTAL   HEX    CARET    LOWER     UPPER
       0x01   <\001>     <001>   <01>   <^A>     <soh>     <SOH>
       0x81   <-\001>    <201>   <81>   <-^A>    <-soh>    <-SOH>
       0xC1   <-A>       <301>   <c1>   <-A>     <-A>      <-A>
       0x0B   <\v>       <013>   <0b>   <^K>     <vt>      <VT>
       0x7F   <\177>     <177>   <7f>   raw      <del>     <DEL>

   In CLEAR_CARET the delete byte itself stands in the brackets. Kept: callers rely on it.

   The functions may be called from any thread, each buffer by one at a time, and from no signal
   handler. errno is whatever the allocation left. */
#ifndef QUARNEL_BUFFERS_CLEARCOPY_H
#define QUARNEL_BUFFERS_CLEARCOPY_H

#include <stdint.h>

#include "../core/export.h"
#include "charBuffer.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    CLEAR_ESCAPE,            /* "<\001>", "<\v>" */
    CLEAR_DOT,               /* "." */
    CLEAR_BLANK,             /* " " */
    CLEAR_OCTAL,             /* "<001>", of the whole byte */
    CLEAR_HEX,               /* "<01>", of the whole byte */
    CLEAR_CARET,             /* "<^A>" */
    CLEAR_LOWER,             /* "<soh>" */
    CLEAR_UPPER,             /* "<SOH>" */
    CLEAR_MODE_MASK = 0x0F,  /* modes 8 to 15 render as nothing */
    CLEAR_WHITE = 0x10,      /* render new-lines, form feeds, carriage returns and spaces */
    CLEAR_BACKSPACE = 0x20,  /* first let each backspace erase the character before it */
    CLEAR_KEEP_BS = 0x40,    /* copy backspaces */
    CLEAR_KEEP_WHITE = 0x80, /* copy a new-line, form feed or carriage return after its rendering */
    CLEAR_SPACE = 0x400,     /* render spaces */
    CLEAR_TAB = 0x800        /* render tabs, but only together with CLEAR_WHITE */
};

/* Replaces the buffer's content by the rendering of so many bytes, terminated, and returns the
   buffer's text. The source must not lie in the buffer. Null, nothing written, for a null buffer or
   source; null as well, the content then empty, when memory is exhausted. */
QN_API char *clearCopyBinaryCharBuffer(CharBuffer *buffer, const char *source, uint32_t length,
                                       int32_t flags);

/* As clearCopyBinaryCharBuffer, of a terminated text. */
QN_API char *clearCopyCharBuffer(CharBuffer *buffer, const char *text, int32_t flags);

/* The rendering of so many bytes as a new text, to be released with freecopy; null for a null
   source and when memory is exhausted. */
QN_API char *clearCopyBinary(const char *source, uint32_t length, int32_t flags);

/* As clearCopyBinary, of a terminated text. */
QN_API char *clearCopy(const char *text, int32_t flags);

#ifdef __cplusplus
}
#endif

#endif

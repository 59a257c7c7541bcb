/* Formatting, as printf does it, to the end of a CharBuffer.

   Before formatting, a scan of the format and of the arguments computes a bound of the output's
   length, and the buffer grows once to hold it. The bound decides the sizes of blocks; it is a
   mixture of exact counts and estimates, and it can fall short (for e and E, f below 0.5 or of no
   number, g of precision 0, a signed number with a precision, c with a width, a null "%s").
   Nothing is ever written past the block: where the text does not fit, the block grows to the next
   multiple of the increment above the real length and the text is formatted again.

   The scan knows: the flags space, "+", "#" and "-"; a width and a precision of digits or "*"; one
   "l"; the conversions d i u o x X c s f e E g G. Any other conversion ("%p", "%hd", "%n", "%Lf")
   takes no argument in the scan, though it does in the formatting, so the scan reads the arguments
   after it one place early: a "%s" there may be given a number for an address. Kept: callers rely
   on the bound. Use such a conversion only where nothing but numbers of the same width follows. A
   "%s" without a precision, or with precision 0, is measured to its terminator; with a precision
   above 0 no byte beyond it is read.

   A null format is the empty one. Neither an argument nor the format may lie in the buffer that is
   formatted into. fmtStr
   and vfmtStr are safe in any thread, the others where the buffer is this thread's; none is safe in
   a signal handler. */
#ifndef QUARNEL_BUFFERS_FMTCHARBUF_H
#define QUARNEL_BUFFERS_FMTCHARBUF_H

#include <stdarg.h>
#include <stdint.h>

#include "../core/export.h"
#include "charBuffer.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The bound in bytes, terminator included; INT32_MAX where it would pass that. The list is read
   from a copy: the caller's stands where it stood. */
QN_API int32_t vmaxFormatLength(const char *format, va_list args);
QN_API int32_t maxFormatLength(const char *format, ...);

/* Appends the formatted text, terminated, and returns the number of characters as the system's
   formatter counts them. A zero byte put out by "%c" ends what is appended, though the count goes
   on. Returns -1, the content and its terminator as they were, for a null buffer, when memory is
   exhausted, and when the formatter fails (errno is then its own); the block may have grown. */
QN_API int32_t vfmtCharBuffer(CharBuffer *buffer, const char *format, va_list args);
QN_API int32_t fmtCharBuffer(CharBuffer *buffer, const char *format, ...);

/* The formatted text, in a scratch buffer of the calling thread: valid until the thread's next call
   of either function, or its end. No earlier result of them may be an argument. When the formatting
   fails the result is the empty text, or null where the thread has no block yet. */
QN_API char *vfmtStr(const char *format, va_list args);
QN_API char *fmtStr(const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif

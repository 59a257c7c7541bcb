/* The fast half of formatting: what records and messages are made of, in one pass instead of a scan
   and a call of the system's formatter. Internal.

   It knows literal text, "%%", and the conversions d i u x X s c with digits for a width (or a zero
   and digits) and, for numbers, a precision of digits, with or without an "l". Everything else, and
   every odd argument (a null text, the character 0, a precision for a text), is left to the general
   way, of which it is an exact copy: the same bytes, and the same bound. */
#ifndef QUARNEL_BUFFERS_SIMPLEFORMAT_H
#define QUARNEL_BUFFERS_SIMPLEFORMAT_H

#include <stdarg.h>
#include <stdint.h>

/* Writes the formatted text, terminated, to out. Returns its length; -1, with anything in the room
   behind its first byte, where the format or an argument is not simple, and where the text or the
   bound that the general way has for it (vmaxFormatLength) is more than the room. The list is read
   from a copy. */
int32_t formatSimply(char *out, int64_t room, const char *format, va_list args);

#endif

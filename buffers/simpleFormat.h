/* The fast half of formatting: what records and messages are made of, in one pass instead of a scan
   and a call of the system's formatter. Internal.

   It knows literal text, "%%", "%c", "%s" with or without a width of digits, and the conversions d
   i u x X with digits for a width (or a zero and digits) and for a precision, with or without an
   "l". Everything else, and every odd argument (a null text, the character 0), is left to the
   general way, of which it is an exact copy. The general way's bound (vmaxFormatLength) of what is
   simple is never more than the text's length and the terminator: what fits makes no block grow. */
#ifndef QUARNEL_BUFFERS_SIMPLEFORMAT_H
#define QUARNEL_BUFFERS_SIMPLEFORMAT_H

#include <stdarg.h>

/* Wrapped, so that it can be passed on where va_list is an array type. */
typedef struct FormatArguments {
    va_list list;
} FormatArguments;

/* Writes the formatted text, terminated, to the bytes before the limit. Returns the place of its
   terminator, the list then standing behind the arguments used; null, with anything in the room and
   the list of no more use, where the format or an argument is not simple and where the text does
   not fit. */
char *formatSimply(char *at, char *limit, const char *format, FormatArguments *args);

#endif

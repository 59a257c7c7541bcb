/* Splitting a line into words. Keeps no state: safe from any thread and from signal handlers. */
#ifndef QUARNEL_OPTIONS_PARSELN_H
#define QUARNEL_OPTIONS_PARSELN_H

#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Splits the line in place into words separated by white space, stores where each begins, and
   returns their number, maximum at most. Words stay in the line and live as long as it does.

   Double quotes are removed; between them white space belongs to the word, and an unclosed one
   makes the word run to the end. A backslash is removed and the character after it kept whatever it
   is; only a newline after a backslash outside quotes ends the word. A backslash at the very end is
   removed too.

   What lies beyond the last word allowed stays in the line as it was, moved down by the characters
   removed before it. 0, the line untouched, for a maximum below 1 and for null arguments. Takes
   time in proportion to the line. */
QN_API int32_t parseln(char *line, char **words, int32_t maximum);

#ifdef __cplusplus
}
#endif

#endif

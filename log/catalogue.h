/* What the readers of the catalogue share: where its files lie, how paths and numbers are made of
   texts, and the walk over the "#define" lines of a header. Internal; one thread at a time. */
#ifndef QUARNEL_LOG_CATALOGUE_H
#define QUARNEL_LOG_CATALOGUE_H

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

#include "../buffers/charBuffer.h"

#define CATALOGUE_CLASS_FILE "systemLog.h"

/* Whether the start classes are being read. A report of that read may be shown expanded, with the
 * symbol of the report itself: lookups made meanwhile must not read anything. */
extern bool readingStartClasses;

/* The value of "LOGROOT", or "/usr/spool/log" where it is unset. */
const char *catalogueRoot(void);

/* The text formatted into the buffer anew; the buffer is made when it is null. Null when memory is
   exhausted. No argument may lie in the buffer. */
const char *formatAnew(CharBuffer **buffer, const char *format, ...);

/* The number at the start of the text, as strtol reads it; beyond 32 bits the nearest. *end, unless
 * end is null, is set to what follows it, the text itself where there is none. */
int32_t leadingNumber(const char *text, int base, const char **end);

#define DEFINE_MAX_WORDS 4

/* Told of a line: its words (writable, valid for the call only) and how many, 3 or 4. */
typedef void (*DefineHandler)(void *context, char **words, int32_t count);

/* Reads the stream to its end and hands over each line that starts with "#" and whose first word is
   "#define", if it has three words. Words beyond the fourth are not looked at. The line reader's
   state is given back as it was; the handler may read other files with it. False when the stream
   cannot be read to its end, or memory for a line is exhausted. */
bool readDefines(FILE *stream, DefineHandler handler, void *context);

#endif

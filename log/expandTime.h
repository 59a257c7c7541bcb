/* The time directives of the expansion format. Internal. */
#ifndef QUARNEL_LOG_EXPANDTIME_H
#define QUARNEL_LOG_EXPANDTIME_H

#include "../buffers/charBuffer.h"
#include "logMsg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Appends the record's time in the form of ctime, with its line feed or without. */
int putCtime(CharBuffer *buffer, const LogMsg *msg, int withLineFeed);

/* The same of those seconds, whatever a record's broken-down time was changed to; without line
 * feed. */
int putCtimeOfSeconds(CharBuffer *buffer, int32_t seconds);

/* Appends the text between "%T(" and its ")", given by its first and past its last character, with
 * the directives in it replaced. None need leave the buffer terminated. All return 1, or 0 when
 * memory was exhausted: what was appended has a hole then. */
int putTimeLayout(CharBuffer *buffer, const LogMsg *msg, const char *layout, const char *end);

#ifdef __cplusplus
}
#endif

#endif

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

/* Appends the text between "%T(" and its ")", given by its first and past its last character, with
 * the directives in it replaced. Neither need leave the buffer terminated. Both return 1, or 0 when
 * memory was exhausted: what was appended has a hole then. */
int putTimeLayout(CharBuffer *buffer, const LogMsg *msg, const char *layout, const char *end);

#ifdef __cplusplus
}
#endif

#endif

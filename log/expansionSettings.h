/* The one settings object of the expansion: what the setters of expandLog.h set, the buffers that
   an expansion works in, and the cache of the text format file. Internal, not exported; constant
   initialised, so that nothing can fail on first use. One thread at a time. */
#ifndef QUARNEL_LOG_EXPANSIONSETTINGS_H
#define QUARNEL_LOG_EXPANSIONSETTINGS_H

#include <stdint.h>

#include "../buffers/charBuffer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ExpansionSettings {
    char *format;             /* the expansion format, owned; null until installed */
    int usesSynthetic;        /* whether format holds "@" */
    int32_t cutoff;           /* wrap column; 0: no wrapping; negative: ask the environment */
    char *contPrefix;         /* put in front of wrapped lines, owned; null: none */
    int32_t contPrefixWidth;  /* its visualWidth from column 0 */
    int32_t contPrefixLength; /* its length in bytes */
    int visible;              /* whether control characters are shown */
    CharBuffer *outBuf;       /* the last expansion that succeeded: the result handed out */
    CharBuffer *synBuf;       /* the format with its synthetic fields filled in */
    CharBuffer *visBuf;       /* work area of visible rendering */
    char **textFmtCache;      /* message texts by message index, owned; null: not read */
    int32_t textFmtCapacity;  /* slots in textFmtCache */
    int textFmtFd;            /* the open text format file, or -1 */
    CharBuffer *textFmtPath;  /* its path; null until decided or set */
    CharBuffer *workBuf;      /* the expansion being built; changes places with outBuf when whole */
    CharBuffer *wrapBuf;      /* work area of wrapping */
} ExpansionSettings;

extern ExpansionSettings expansionSettings;

/* What an expansion starts with: where the format or the cut-off is not set, takes it from the
   environment, and with the cut-off the continuation prefix. 1, or 0 when memory is exhausted. */
int settleExpansionSettings(void);

#ifdef __cplusplus
}
#endif

#endif

/* The named fields of each message, from the field catalogue (dataDict.h).

   The first lookup opens the catalogue's two files, by the paths set or, where none is, as
   "ddMapLog" and "dataDictLog" in the log root ("LOGROOT", or "/usr/spool/log"); they stay open
   until endDdMapLog. Lists are read on demand and kept: a lookup costs one read of the files for a
   message's first time and then, whatever the size of the catalogue, none. A list that could not be
   read is tried again at the next lookup. Nothing is ever printed.

   Lists, descriptors and names belong to the catalogue and are valid until endDdMapLog. The state
   is the process's, without locks: one thread at a time, and no signal handler. The line reader is
   given back as it was found. After a fork parent and child may both go on looking up. */
#ifndef QUARNEL_LOG_LOGFIELDS_H
#define QUARNEL_LOG_LOGFIELDS_H

#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LogField {
    char *name;
    uint8_t position; /* place in the list, from 0 (its low eight bits) */
    char type;        /* 'S' where the dictionary gives none */
    int16_t first;    /* the field's numbers, 0 where not given; of a larger one the low 16 bits, */
    int32_t second;   /* and beyond 32 bits the nearest */
} LogField;

typedef struct LogFieldList {
    uint32_t count;   /* fields */
    LogField *fields; /* that many, in the dictionary's order */
    int32_t number;   /* the message, as read from its line */
} LogFieldList;

/* The message's list. Null for a number that is not in the index, when a file cannot be opened or
   read, when the line found is another message's (a stale index), and when memory is exhausted. */
QN_API LogFieldList *getLogFormatFields(int32_t number);

/* The message's first field of exactly that name; null when there is none, and for null and the
 * empty name, which read nothing. */
QN_API LogField *findLogFieldName(int32_t number, const char *name);

/* That field's position, or -1. */
QN_API int32_t cvtLogFieldNameToIndex(int32_t number, const char *name);

/* The message's field at that place of the list, from 0; null when there is none. */
QN_API LogField *getLogFieldName(int32_t number, int32_t position);

/* That field's name, or null. */
QN_API char *cvtLogFieldIndexToName(int32_t number, int32_t position);

#ifdef __cplusplus
}
#endif

#endif

/* Message classes: where in the numbering of messages each begins.

   The class file "systemLog.h" gives each class the first number of its block, in lines

       #define _NETMSG_START 100

   and the end of the numbering in a line of the name __MAX_LOGMSG. The table keeps the file's order
   and the end as a record named "_MAX_LOGMSG"; sizes are right when the file lists the classes in
   ascending order and the end last. A number is one or more decimal digits and nothing else (beyond
   32 bits: the highest there is); any other line is passed over.

   There is no table until the first read; every read replaces it whole. A lookup without a table
   reads the default file, "head/systemLog.h" under the log root ("LOGROOT", or "/usr/spool/log").
   A file that cannot be opened leaves no table and is reported through logperror each time. The
   state is the process's, without locks: one thread at a time, and no signal handler. The line
   reader is given back as it was found. Texts belong to the table until the next read. */
#ifndef QUARNEL_LOG_LOGSTARTCL_H
#define QUARNEL_LOG_LOGSTARTCL_H

#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LogStartClass {
    char *name;    /* owned by the table */
    int32_t start; /* the class's first message number */
} LogStartClass;

/* The answer for a class that is not known. */
#define LOG_UNKNOWN_CLASS 1000000

/* Raised at every read of a class file, failed ones too, so that users see that the table is
 * another. */
QN_API extern int32_t logClassReadCnt;

/* Reads the file at the path, or the default one for null. Returns the handle of the table, an
   array of LogStartClass (buffers/arrays.h); 0, and no table, when the file cannot be opened or
   read to its end, or memory is exhausted. */
QN_API uint32_t logReadStartClasses(const char *path);

/* The start of the first class of that name; LOG_UNKNOWN_CLASS for any other name, null and the
 * empty one included, and without a readable file. */
QN_API int32_t logStartClass(const char *name);

/* The number of messages of the class: up to the start of the record after it. LOG_UNKNOWN_CLASS
   for the last record and without a readable file, but 0 for a name that is not in the table. Kept:
   callers tell the two apart from logStartClass. */
QN_API int32_t logClassSize(const char *name);

/* The number of records but one, the end of the numbering being no class: -1 for a table without
 * records. 0 without a readable file. */
QN_API int32_t logTotalClasses(void);

/* The name of the record at the position in the file's order, from 0, the end's included. Null for
 * any other position and without a readable file. */
QN_API char *logGetClass(int32_t position);

/* The end of the numbering, as logStartClass("_MAX_LOGMSG"). */
QN_API int32_t logMaxLogMsgIndex(void);

#ifdef __cplusplus
}
#endif

#endif

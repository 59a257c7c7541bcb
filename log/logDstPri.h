/* The shared destination/priority table, which routes the messages of logMsg and logSysError.

   It is a System V shared memory segment that a separate tool makes and changes; here it is only
   read. The key is that of logDstPriShmKey. It is looked for when it is first needed, and once
   found it stays attached for the life of the process. In the byte order of the machine:

     0    row count, 32 bits signed
     4    12 bytes that are not read
     16   the rows, by message number, 8 bytes each: priority, then destination mask

   A row stands at a multiple of 8. Whoever changes one under running clients stores its 8 bytes at
   once; the client loads them at once, at each call, and so never sees half a change. Rows that the
   count tells but the segment has no room for do not exist.

   One thread at a time, as for the log client; not from a signal handler. */
#ifndef QUARNEL_LOG_LOGDSTPRI_H
#define QUARNEL_LOG_LOGDSTPRI_H

#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LogDstPri {
    int32_t priority;     /* of the message's records */
    uint32_t destination; /* their destination mask */
} LogDstPri;

typedef struct LogDstPriTable {
    int32_t rowCount;              /* messages that the table routes */
    uint8_t reserved[12];          /* not read */
    __extension__ LogDstPri row[]; /* by message number */
} LogDstPriTable;

/* The key of the segment, settled at the first call of the process. The environment's
   "LOGDSTPRISHMKEY" is a number (decimal, 0x hexadecimal, 0 octal; beyond 32 bits it is all ones)
   when it begins with a digit and converts whole. Any other value is packed from its first four
   bytes, each shifted in from the right as a signed byte, so that one above 0x7F also sets all bits
   to its left. Where the variable is unset, or the result is 0, the key is 0x4C474450. Kept: that
   is "PDGL" in memory order, while the variable set to "PDGL" gives 0x5044474C. */
QN_API uint32_t logDstPriShmKey(void);

/* The row of a message, in the mapping: not to be written, good for the life of the process, its
   fields changing when the table is changed. Null for a number outside the table, and when there is
   no table, errno then telling why. Looks for the table if need be, but reports nothing. */
QN_API const LogDstPri *getLogMsgDstPri(int32_t number);

#ifdef __cplusplus
}
#endif

#endif

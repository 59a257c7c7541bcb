/* What the log client itself needs of the shared destination/priority table; logDstPri.h tells of
   the table. Internal. */
#ifndef QUARNEL_LOG_LOGDSTTABLE_H
#define QUARNEL_LOG_LOGDSTTABLE_H

#include <stdint.h>

#include "logDstPri.h"

/* Attaches the table unless it is. True when it is attached; false, errno set by the call that
   failed, otherwise. The identifier of the segment is stored when this call found it, else -1. */
bool attachDstPri(int32_t *segment);

/* Rows of the attached table: what it tells, as far as the segment has room for them. */
int32_t dstPriRowCount(void);

/* Takes the row with one load, whether the table's count tells of it or not. False, the row left
   alone, where the segment has no room for it and where no table is attached. */
bool readDstPri(int32_t number, LogDstPri *row);

#endif

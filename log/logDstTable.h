/* What the log client itself needs of the shared destination/priority table; logDstPri.h tells of
   the table. Internal, C++ only. */
#ifndef QUARNEL_LOG_LOGDSTTABLE_H
#define QUARNEL_LOG_LOGDSTTABLE_H

#include <stdint.h>
#include <string.h>

#include "logDstPri.h"

#ifdef __cplusplus

/* The attached table. */
struct DstPriTable {
    const LogDstPriTable *table; /* in the segment; null until attached */
    int32_t rowsHeld;            /* rows that the segment has room for */
};
extern DstPriTable dstPriTable;

/* Attaches the table unless it is. True when it is attached; false, errno set by the call that
   failed, otherwise. The identifier of the segment is stored when this call found it, else -1. */
bool attachDstPri(int32_t *segment);

/* Rows of the attached table: what it tells, as far as the segment has room for them. */
static inline int32_t dstPriRowCount() {
    if (dstPriTable.table == nullptr)
        return 0;
    const int32_t told = __atomic_load_n(&dstPriTable.table->rowCount, __ATOMIC_RELAXED);
    return told < dstPriTable.rowsHeld ? told : dstPriTable.rowsHeld;
}

/* Takes the row with one load, whether the table's count tells of it or not. False, the row left
   alone, where the segment has no room for it and where no table is attached. */
static inline bool readDstPri(int32_t number, LogDstPri *row) {
    if (number < 0 || number >= dstPriTable.rowsHeld)
        return false;
    // The alignment makes it one load on i386 too, without the help of a library.
    typedef uint64_t RowWord __attribute__((aligned(8)));
    static_assert(sizeof(RowWord) == sizeof(LogDstPri));
    const void *const address = &dstPriTable.table->row[number];
    const uint64_t word = __atomic_load_n(static_cast<const RowWord *>(address), __ATOMIC_RELAXED);
    memcpy(row, &word, sizeof *row);
    return true;
}

#endif

#endif

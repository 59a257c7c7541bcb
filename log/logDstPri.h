#ifndef QUARNEL_LOG_LOGDSTPRI_H
#define QUARNEL_LOG_LOGDSTPRI_H

#include <stdint.h>
#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LogDstPri {
    int32_t priority;
    uint32_t destination;
} LogDstPri; /* 8 bytes */
typedef struct LogDstPriTable {
    int32_t rowCount;
    uint8_t reserved[12];
    __extension__ LogDstPri row[];
} LogDstPriTable;
QN_API uint32_t logDstPriShmKey(void);
QN_API const LogDstPri *getLogMsgDstPri(int32_t number); /* the mapping is read-only */

#ifdef __cplusplus
}
#endif

#endif

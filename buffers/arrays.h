#ifndef QUARNEL_BUFFERS_ARRAYS_H
#define QUARNEL_BUFFERS_ARRAYS_H

#include <pthread.h>
#include <stdint.h>
#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ArrayDescriptor {
    uint32_t type;
    void *storage;
    uint32_t elemSize;
    uint32_t count;
    uint32_t capacity;
    uint32_t increment;
    uint32_t changes;
    uint32_t nextFree;
} ArrayDescriptor; /* 32 bytes on i386 */
typedef void (*ArrayFatalFunc)(const char *message);
QN_API extern ArrayDescriptor *arrDescPtr;
QN_API extern pthread_mutex_t arrAccessLock;
QN_API ArrayDescriptor *arrayInit(uint32_t count);
QN_API uint32_t arrayOpen(uint32_t type, uint32_t elemSize);
QN_API ArrayDescriptor *arrayCkDescriptor(uint32_t index);
QN_API ArrayDescriptor *arrayValidDescriptor(uint32_t index);
QN_API void *expandArray(ArrayDescriptor *descriptor, int32_t slots);
QN_API void *arrayPut(uint32_t index, const void *source);
QN_API void *arrayVPut(uint32_t index, const void *source, uint32_t size);
QN_API int32_t arrayDel(uint32_t index, void *element);
QN_API int32_t arrayClose(uint32_t index);
QN_API void *arrayDone(uint32_t index);
QN_API ArrayFatalFunc arraySetFatalFunc(ArrayFatalFunc function);
QN_API void arrayAudit(void);

#ifdef __cplusplus
}
#endif

#endif

#ifndef QUARNEL_CORE_IPCCOMM_H
#define QUARNEL_CORE_IPCCOMM_H

#include <stdint.h>
#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct IpcChannel {
    int32_t fd;       /* -1: closed */
    uint32_t flags;   /* IPC_HEADER_READ 1, IPC_LINE_BODY 2 */
    int32_t length;   /* body length from the last header */
    int32_t capacity; /* usable bytes in buffer */
    char *buffer;
} IpcChannel;
QN_API int32_t ipcInit(const char *path, uint32_t mode);
QN_API int32_t ipcSend(IpcChannel *channel, const char *message);
QN_API int32_t ipcRecv(IpcChannel *channel);
QN_API char *ipcBadData(int32_t maximum);

#ifdef __cplusplus
}
#endif

#endif

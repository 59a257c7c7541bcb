/* Sending a frame with another call than write(2). Internal. */
#ifndef QUARNEL_CORE_IPCSENDBY_H
#define QUARNEL_CORE_IPCSENDBY_H

#include <stddef.h>
#include <sys/types.h>

#include "ipcComm.h"

/* As write(2): the bytes written, or -1 with errno. */
typedef ssize_t (*IpcWriteFunction)(int fd, const void *bytes, size_t count);

/* As ipcSend, the frame written by one call of the function. */
int32_t ipcSendBy(IpcChannel *channel, const char *message, IpcWriteFunction writeOut);

#endif

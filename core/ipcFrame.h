/* The header of a frame, for whoever builds the frame in place. Internal, C++ only. */
#ifndef QUARNEL_CORE_IPCFRAME_H
#define QUARNEL_CORE_IPCFRAME_H

#include <stddef.h>

#include "ipcComm.h"

/* What no header is longer than, a terminator included. */
#define IPC_HEADER_ROOM 13

/* Longer bodies have the header that tells the number of its digits. */
#define IPC_SHORT_FORM_MAX 999

#ifdef __cplusplus

/* Settles in what steps the buffers of channels grow, as the first growth in the process does. */
void ipcSettleGranule(void);

/* ipcPutHeader of more than IPC_SHORT_FORM_MAX bytes. */
char *ipcPutLongHeader(char *body, size_t length);

/* Writes the header of a body of so many bytes right in front of it, where IPC_HEADER_ROOM bytes
   are free. Returns where it begins; null, errno EFBIG, beyond 999,999,999 bytes. */
static inline char *ipcPutHeader(char *body, size_t length) {
    if (length > IPC_SHORT_FORM_MAX)
        return ipcPutLongHeader(body, length);
    uint32_t rest = static_cast<uint32_t>(length);
    char *at = body;
    *--at = static_cast<char>('0' + rest % 10);
    rest /= 10;
    *--at = static_cast<char>('0' + rest % 10);
    *--at = static_cast<char>('0' + rest / 10);
    return at;
}

#endif

#endif

/* The client's end of the log pipe: one for the process, closed at first. Internal; one thread at a
   time. */
#ifndef QUARNEL_LOG_LOGPIPE_H
#define QUARNEL_LOG_LOGPIPE_H

#include <stddef.h>
#include <stdint.h>

/* Closes the pipe if it is open, and opens the one at the path, without waiting for a reader and
   closed on exec. The path is an owned copy, taken over; null fails. False, errno set, on failure:
   later records try again. */
bool openLogPipe(char *path);

/* Sends the record as one frame, which is made in place: in front of the record there is room for
   its header (IPC_HEADER_ROOM). If that fails the pipe is opened anew and the record sent once
   more. False, errno as the last failure set it, when that fails too. No SIGPIPE reaches the
   process. */
bool sendLogRecord(char *record, size_t length);

/* Closes the pipe, keeping its descriptor's number. Returns what close returned, or the descriptor
   when it is negative. */
int32_t closeLogPipe(void);

#endif

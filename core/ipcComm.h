/* Text frames over pipes.

   A frame is a header and exactly as many body bytes as it announces; nothing ends it. The length
   stands as three digits ("005hello"), or from 1000 on as "<", the number of its digits, ">" and
   the digits ("<4>1234..."). Three blanks announce a line instead: everything up to and including
   the next newline; such a header is understood, never sent.

   A channel is the caller's record of one open pipe end. It starts as {descriptor, 0, 0, 0, null},
   stays in the caller's hands, and is ended by closing the descriptor and releasing the buffer with
   free(). What always holds: the buffer is null or has capacity + 13 bytes, and the library moves
   it only when it grows. It grows to the next multiple of a granule above what it must hold. The
   granule is 120, or the environment variable MAXMSGSIZE if that is a decimal number from 120 to
   2147483647; it is read once in a process, at the first growth of any channel.

   A channel belongs to one thread at a time; different channels are independent. The bytes that
   ipcRecv threw away are remembered for each thread. Nothing here is safe in a signal handler, and
   nothing loops: a signal, a full pipe or a short transfer is the caller's to judge. A pipe without
   readers raises SIGPIPE as any write to it does.

     IpcChannel channel = {open(path, O_RDONLY), 0, 0, 0, NULL};
     while ((length = ipcRecv(&channel)) > 0)
         consume(channel.buffer, length);
     free(channel.buffer); */
#ifndef QUARNEL_CORE_IPCCOMM_H
#define QUARNEL_CORE_IPCCOMM_H

#include <stdint.h>

#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define IPC_HEADER_READ 1 /* a header has been read, its body has not */
#define IPC_LINE_BODY 2   /* that body ends with a newline and was not counted */

typedef struct IpcChannel {
    int32_t fd;       /* the open pipe end; -1: closed */
    uint32_t flags;   /* IPC_ bits */
    int32_t length;   /* body length in bytes: from the last header, or of the last line */
    int32_t capacity; /* usable bytes in buffer */
    char *buffer; /* the last body received, terminated, or the last frame sent; null at first */
} IpcChannel;

/* Makes a FIFO, or finds out whether somebody reads it.

   Where nothing exists and the mode is not 0, creates a FIFO with exactly the mode's permission
   bits (07777; the umask does not count) and returns 0. Where a FIFO exists, opens it for writing
   and waits up to 4 seconds for a reader: 0 if none came. -1 otherwise, with errno: EBUSY the FIFO
   has a reader, EEXIST the path is no FIFO, ENOENT nothing exists and the mode is 0, EFAULT the
   path is null, else that of the call which failed.

   The wait is a timeout of the clock, so SIGALRM must reach the calling thread: in a process of
   several threads the others block it meanwhile, or the wait may have no end. Any signal that
   interrupts the open ends the wait as the timeout does. Where no timeout can be had (the clock is
   held, or its table full) the answer is given without waiting. No timeout is left behind.

   Any thread may call it, several at once too; the clock's lock is not held while it waits. While
   the umask is changed, files that other threads create are made without it, and an umask that
   another thread sets is lost. */
QN_API int32_t ipcInit(const char *path, uint32_t mode);

/* Writes the text as one frame, with one write. Returns its length in bytes. -1 when the write
   failed or wrote less (part of the frame is then in the pipe, errno 0), EFBIG beyond 999,999,999
   bytes, ENOMEM (ENOSPC where the system gives no reason) when the buffer cannot grow, EINVAL for a
   null argument. The text may lie in the channel's own buffer. */
QN_API int32_t ipcSend(IpcChannel *channel, const char *message);

/* Reads the next frame. Returns the length of its body in bytes, the body standing in the channel's
   buffer with a zero behind it; a line keeps its newline. 0 at end of file, for an empty body and
   for the header "<0>".
   The body is read with one read: fewer bytes than the header announced are returned as they come,
   and the rest is taken for the next header (frames up to the pipe's atomic size arrive whole).

   Unknown bytes are thrown away: three that end in a newline are, others together with everything
   up to the next newline, and the frame behind them is returned.

   -1 with errno: EIO where the input ends within a header, a line or a resynchronisation, ENOMEM
   (ENOSPC where the system gives no reason) when the buffer cannot grow, EINVAL for a null channel,
   else that of the read. After a failed read of the first byte of a body the header stays read and
   the next call goes on with the body. When growing fails the capacity becomes 0 and the buffer
   null; the old block is not released, since callers may still be reading from it.

   Costs three reads at most for a frame; a line and a resynchronisation cost one read a byte, since
   what follows must stay in the pipe. */
QN_API int32_t ipcRecv(IpcChannel *channel);

/* Shows the bytes that ipcRecv discarded last in the calling thread, up to maximum of them (43 at
   most), three characters each: "\0 ", "\b ", "\t ", "\n ", "\f ", "\r ", "sp ", a graphic
   character and two blanks, or two hexadecimal digits and a blank. Empty when nothing was
   discarded. What is remembered: the first 128 bytes of the last resynchronisation, or the bytes of
   a header cut short; it is cleared when a call reads its first header and when three bytes that
   end in a newline are thrown away, so it outlives the frame that was found behind it. The text is
   the thread's, valid until its next call. */
QN_API char *ipcBadData(int32_t maximum);

#ifdef __cplusplus
}
#endif

#endif

/* The log client: what an application logs with.

   A log call writes no text. It builds a compact record (destination, message number, priority,
   time, process, source position, arguments) and sends it as one frame (ipcComm.h) down the named
   pipe "logpipe" under the log root, to the log daemon. The record is one text; these are its
   parts, with nothing between them but what is told, and no newline at the end:

     00000001            destination mask, 8 upper-case hexadecimal digits
     12                  message number, decimal
     blank, byte 0x1C
     0                   priority, decimal
     5F000000            seconds since 1970, 8 upper-case hexadecimal digits
     tst, blank          process name
     a, colon            source file
     7                   source line, decimal
     ...                 the arguments, as the compressed format of the message writes them

   All but the destination is the record's body: what the log file holds, and what logMsg.h and
   expandLog.h read.

   Stages: loginit before logging, any number of log calls, logend. Before loginit the pipe is
   closed and no message number is good: every log call gives null and sends nothing. loginit may
   come again at any time; what it replaces (root, format tables) is never released, so that a text
   handed out earlier stays good.

   What always holds:
   - The destination mask is carried for the daemon. Only two things are read here: bit value 2 also
     shows the message, expanded, on standard error; a mask of exactly 2 shows it and sends nothing.
   - Message numbers run from 0 to fmtMax - 1. 1727 + errno are those of the system's errors.
   - A log call never waits for the daemon, and a daemon that died never signals the application. A
     record that the pipe does not take is tried once more after a reopening, then dropped. The
     disposition of SIGPIPE, the signal mask and pending signals are as before the call.
   - A record that was sent leaves errno as it was. After a failure logMsg, vlogMsg, logperror and
     logSysError leave it as it was too; logEvent, vlogEvent and relogCmpMsg leave it as the failure
     set it (0 when the pipe took only part of the record).
   - Texts returned are the library's, valid until the next record is built, unless told otherwise.

   The record's header, the process and file name in it included, is the printf format that the
   arguments go through: a "%" in either name is taken as a conversion, and nothing escapes it.
   Kept: readers rely on the bytes that this gives. Conversions must therefore match the arguments
   given, with those of the names first; one too many reads an argument that does not exist, which C
   leaves undefined. Give no name that holds "%", and none from an untrusted source.

   A record of up to PIPE_BUF (4096) bytes, its frame header included, goes whole or not at all. A
   longer one may be cut by a pipe that is nearly full, or mixed with the frames of other writers:
   the rest of a cut one is not sent, the whole record follows after the reopening, and the daemon
   finds its way back at the next line feed it meets, at the cost of the frames between. Keep
   arguments short.

   The client is process-wide and unguarded: one thread at a time, and no call from a signal
   handler. */
#ifndef QUARNEL_LOG_LOG_H
#define QUARNEL_LOG_LOG_H

#include <stdarg.h>
#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Set by loginit; an application may change the first two at any time. */
QN_API extern uint32_t _destination; /* mask of messages that the shared table does not route */
QN_API extern int32_t _priority;     /* and their priority */
QN_API extern char *logProcName;     /* process name in the records; setLogProcName changes it */
QN_API extern char *logRoot;         /* the log root directory in force; null before loginit */

/* The compressed formats, one for each message number; loaded by loginit, never released. */
QN_API extern uint16_t *FmtTbl; /* by message number: offset of its format in Fmt, in bytes */
QN_API extern char *Fmt;        /* the formats, each zero-terminated */
QN_API extern int32_t fmtMax;   /* entries of FmtTbl; below 1 when there are none */

/* The two-character mark of each priority from 0 to 4 ("  ", "M ", "* ", "**", "*C"), then null. */
QN_API extern const char *const msgPri[];

/* Loads a file of compressed formats: a 4-byte count N, N 2-byte offsets, both big-endian, and the
   zero-terminated formats that the offsets count from. Returns N and stores two heap blocks, the
   caller's, to be released with free: the N offsets and the formats. Whatever the file holds, every
   offset leads to a terminated text within the block, an empty one where the offset points past the
   formats.

   -1 on failure, errno telling which call failed, if one did. A file that cannot be opened is told
   on standard error ("getcmpLogFmt: can't open %s."), an empty one is not, and both leave the
   stored pointers alone. A file cut short in its offsets or formats, or with a count that cannot be
   held, is told ("Unable to read %s strings!"): the offsets that could be read, the rest zero, are
   stored by then (null where they cannot be held), the formats are not. What has a null place is
   released instead of stored. Kept: once opened, a file
   that is refused stays open (and closes on exec). */
QN_API int32_t getcmpLogFmt(const char *path, uint16_t **table, char **strings);

/* Names the process, sets the defaults for messages that the shared table does not route, loads
   "cmpLogFmt" of the log root and opens its "logpipe". A null root is the environment's "LOGROOT",
   the empty one included, or "/usr/spool/log" where that is unset. A null name is no name: the
   records show an empty one. A name that there is no memory for leaves the one before.

   0 on success. -1 when the formats cannot be loaded (the pipe of before stays open, no message
   number is good; name, root and defaults are the new ones already), and when the pipe cannot be
   opened, be it that nobody reads it: each later record then tries to open it again. */
QN_API int32_t loginit(const char *name, uint32_t destination, int32_t priority, const char *root);

/* loginit with destination 1, priority 0 and the environment's log root. */
QN_API int32_t logInit(const char *name);

/* Closes the pipe. Returns what close returned, or the descriptor when it is negative (never
   opened). Kept: the descriptor's number stays stored, a later record finds it closed and reopens
   the pipe. So log nothing between logend and loginit in a process that opens files meanwhile: one
   of them may have been given that number. */
QN_API int32_t logend(void);

/* Changes the process name to a copy of the text and returns the one before, which stays good until
   the next call; it may be given back. See above for a "%" in it. Null for no name; null, too, with
   nothing changed, where memory is exhausted. */
QN_API char *setLogProcName(const char *name);

/* A copy of the process name, good until the next call; null when there is none, and where memory
 * is exhausted. */
QN_API char *getLogProcName(void);

/* Build a record and send nothing. Returns the record, its 8-digit destination first; null for a
   bad message number, and when the arguments cannot be formatted (memory, a width out of bounds).
   The line is the caller's source line; a null file is an empty one. */
QN_API char *vfmtEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                       int32_t line, va_list args);
QN_API char *fmtEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                      int32_t line, ...);

/* Build a record, show it where the destination asks for that, and send it. Return the record after
   its destination; null when it could not be built or sent. A message that has no expansion is sent
   without being shown. */
QN_API char *vlogEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                       int32_t line, va_list args);
QN_API char *logEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                      int32_t line, ...);

/* As logEvent, with the destination and priority that the shared table (logDstPri.h) has for the
   message at this moment; null, nothing sent, for a number outside that table. Without a table each
   call looks for one, the first to fail reports it as an error of its own, and _destination and
   _priority are used. */
QN_API char *vlogMsg(int32_t number, const char *file, int32_t line, va_list args);
QN_API char *logMsg(int32_t number, const char *file, int32_t line, ...);

/* Logs the system error that errno holds (message 1727 + errno) with the formatted text as its
   argument; a null or empty format is the empty text, and so is one that cannot be formatted.
   Results as logEvent. Where the environment
   had "OLD_LOGPERROR" begin with Y, y, T or t at the first call of the process, the destination and
   priority given are ignored: _destination and priority 3 it is. Kept: scripts rely on it. */
QN_API char *logperror(uint32_t destination, int32_t priority, const char *file, int32_t line,
                       const char *format, ...);

/* As logperror, routed by the shared table's row for the message, or by _destination and _priority
   where there is no table. Kept: the row is taken without asking the table's row count, and the
   defaults are used only beyond the segment's end. "OLD_LOGPERROR" plays no part. */
QN_API char *logSysError(const char *file, int32_t line, const char *format, ...);

/* Sends the body of a record (as logEvent returns it) again, to another destination; nothing is
   shown on standard error. Returns the body given; null when it is null or empty, when the
   destination is 0, and when it could not be sent. */
QN_API char *relogCmpMsg(char *body, uint32_t destination);

/* The compressed format of a message, good for the life of the process; null for a bad number. */
QN_API char *getCmpFmt(int32_t number);

#ifdef __cplusplus
}
#endif

#endif

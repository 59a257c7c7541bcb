/* The parsed log record.

   A reader holds one line: a compressed record as it stands in a log file (it begins at the message
   index), a comment, a blank line or free text. typeOfCmpLog tells which; parseCmpLogEnhanced takes
   a record apart into a LogMsg; freeLogMsg ends it; the chg functions change a LogMsg so that its
   fields, its record text and its expansion stay in step.

   What the parser accepts, from left to right: the index (decimal digits), white space or none, FS
   (0x1C), the priority (one digit), the time (8 hexadecimal digits, either case), the producer (up
   to white space), white space, the source file (up to ":"), ":", the line (decimal digits or
   none), then GS (0x1D), or FS and the arguments, each ended by FS, the last by GS. What follows is
   not read. An unfinished last argument is dropped.

   What holds of a LogMsg: every text in it is the LogMsg's own, made with mkcopy and released with
   freecopy. index >= 0 means that tm is set and, unless the record was malformed and kept as text,
   producer and file too. argCount > 0 means that args holds that many. For index < 0 only record
   and expansion mean something.

   A null text is refused, a null LogMsg ignored. There is no limit on a line's length or on the
   number of arguments but memory. Different records may be used by different threads; whatever
   asks for an expansion (wantExpansion, and the chg functions on a record that has one) belongs to
   the process's one expanding thread (expandLog.h), and chgProducerLogMsg to one thread at a time.
   Nothing here is safe in a signal handler. */
#ifndef QUARNEL_LOG_LOGMSG_H
#define QUARNEL_LOG_LOGMSG_H

#include <stdint.h>
#include <time.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LogMsgArg {
    char *value; /* the argument as between its separators, possibly empty */
    char *spare; /* reserved: never set here, released with the record */
} LogMsgArg;

typedef struct LogMsg {
    char *record;     /* the whole line, unchanged */
    char *spare1;     /* reserved: never set here, released with the record */
    int32_t index;    /* message index; -1: free text; -2: comment or blank line */
    char *spare2;     /* reserved, as spare1 */
    char *spare3;     /* reserved, as spare1 */
    int32_t priority; /* 0 to 9; 0 to 4 have a mark in msgPri */
    int32_t time;     /* signed seconds since the epoch */
    struct tm tm;     /* localtime of time; tzname and its like may stay as they were */
    char *producer;   /* name of the program that wrote the record */
    char *spare4;     /* reserved; released and emptied when the producer changes */
    char *file;       /* source file name */
    char *spare5;     /* reserved, as spare1 */
    int32_t line;     /* source line; INT32_MAX for digits that do not fit */
    int32_t argCount; /* elements of args */
    LogMsgArg *args;  /* the arguments in record order; null when there are none */
    char *expansion;  /* the record as people read it, where it was asked for; else null */
    char *spare6;     /* reserved; released and emptied whenever expansion is rebuilt */
} LogMsg;

/* Bits of the parser's flag word. The others are the rendering mode of buffers/clearCopy.h, which
   expandLogEnhanced reads; the plain entry points pass 0x100. */
#define PARSE_KEEP_TEXT 0x200     /* keep what is no well-formed record, as index -1 */
#define PARSE_KEEP_COMMENTS 0x400 /* keep comments and blank lines, as index -2 */

/* The class of a line: its message index for a record's head, -2 for a comment ("#" first but for
   white space) or a blank line, -1 for anything else, the empty text and a null one included. An
   index beyond 31 bits comes out negative, in 32 bits: but for -2, such a line is text.

   Each output may be null; a null text sets none. *priorityOut and *timeOut are 0 unless read.
   *restOut is where reading stopped, in the text: just after the time on success. Where the time
   has fewer than 8 digits the result is -1, *priorityOut stays set and *indexOut stays as it was:
   kept, callers rely on it. */
QN_API int32_t typeOfCmpLog(const char *text, int32_t *indexOut, int32_t *priorityOut,
                            int32_t *timeOut, char **restOut);

/* A new LogMsg, the caller's, to be released with freeLogMsg. Null when the text is null, when it
   is no well-formed record and the flags do not keep it, and when memory is exhausted.

   wantExpansion fills expansion: with a copy of expandLog(text) for a record (null where that
   fails), of the text for a comment, and with its visible rendering, clearCopy(text, 23), for free
   text. What is kept after a fault in the middle has index -1 and the fields before the fault; a
   record with a short time keeps index 0. The text is only read. */
QN_API LogMsg *parseCmpLogEnhanced(char *text, int wantExpansion, uint32_t flags);

/* As parseCmpLogEnhanced with flags 0x100: well-formed records only. */
QN_API LogMsg *parseCmpLog(char *text, int wantExpansion);

/* Releases the record with every text in it; null is ignored. */
QN_API void freeLogMsg(LogMsg *msg);

/* Sets the priority, in the field and in the record text (the character after its first FS; text
   without one stays), and rebuilds expansion if there is one. Returns the previous priority; -1,
   nothing changed, for a null record or a priority outside 0 to 4. */
QN_API int32_t chgPriorityLogMsg(LogMsg *msg, int32_t priority);

/* Sets the time, likewise: the fields time and tm, the eight digits in the text, the expansion.
   Returns the previous time; -1 for a null record. */
QN_API int32_t chgTimeLogMsg(LogMsg *msg, int32_t time);

/* Sets the producer, likewise. Every character of the name must be graphic; the empty name is
   accepted. Returns the previous producer, the library's, valid until the next call for any record
   (one thread at a time in the process); null, nothing changed, when an argument is null, the name
   refused or memory exhausted. It is null, too, where the record had no producer. */
QN_API char *chgProducerLogMsg(LogMsg *msg, const char *producer);

#ifdef __cplusplus
}
#endif

#endif

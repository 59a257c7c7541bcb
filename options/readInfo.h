/* Reading text a logical line at a time.

   There is one reader in the process: one line buffer, two counters and the modes, shared by all
   threads and guarded by one mutex. The text a reader returns stands in that buffer and is valid
   until the next read by anybody: copy it before anything that may read a file. Whoever reads a
   file in the middle of another's reading takes the state away with resetReadLine and gives it back
   with setReadLine; the two functions that read into an array leave it alone.

   Any thread may call any function here, and none is lost in the counters. The text, however, is
   not kept from other threads: only one at a time may read lines and look at what it got, unless it
   reads into an array. The mutex is held while a line is read: a thread that waits for input there,
   on a pipe say, keeps the others waiting at readLine, readContLine, readQuotedLine and the three
   functions of the state.

     ReadInfo saved;
     resetReadLine(&saved);
     setReadLineModes(READ_DROP_NEWLINE | READ_JOIN_QUOTED);
     while ((line = readQuotedLine(stream)) != NULL)
         use(line);
     setReadLine(&saved);

   White space inside a line, bytes above 0x7F and the kind of line end are the caller's; a zero
   byte is stored and ends the text for who reads it as one. A read that a caught signal interrupts
   goes on. Any other failed read counts as the end of input for the three readers; ferror tells.
   Nothing here is safe in a signal handler. */
#ifndef QUARNEL_OPTIONS_READINFO_H
#define QUARNEL_OPTIONS_READINFO_H

#include <stdint.h>
#include <stdio.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define READ_DROP_NEWLINE 1   /* drop the newline that ends a logical line */
#define READ_JOIN_BACKSLASH 2 /* into an array: read with readContLine */
#define READ_JOIN_QUOTED 4    /* into an array: read with readQuotedLine */
#define READ_KEEP_JOINT 8     /* keep the backslash and the newline of a joined line */

typedef struct ReadInfo {
    uint32_t inlineCnt;   /* physical lines begun */
    uint32_t virtLineCnt; /* logical lines returned */
    uint32_t modes;       /* READ_ bits */
    char *buffer;         /* the line buffer, owned by the record between the two calls */
    uint32_t capacity;    /* characters that fit into it, the terminator not counted */
} ReadInfo;

/* Looked at without the mutex. They are stored whole, at the end of each call: a thread that looks
   at them while others read loads them atomically (relaxed). */
QN_API extern uint32_t ri_modes;    /* READ_ bits in force */
QN_API extern uint32_t inlineCnt;   /* physical lines begun since the last reset */
QN_API extern uint32_t virtLineCnt; /* logical lines returned since the last reset */

/* The next line of the stream, terminated, in the shared buffer. Null at the end of input (the last
   line stays readable), for a null stream, and, with errno ENOMEM, when memory is exhausted; what
   was read of the line is lost then. A last line without a newline is a line. The newline is kept
   unless READ_DROP_NEWLINE is set, so that an empty line is "" with it and the newline without.

   readLine ends a line at every newline.

   readContLine joins lines: where a backslash stands before a newline, and is not the second of a
   pair, both are removed (kept under READ_KEEP_JOINT) and the line goes on.

   readQuotedLine joins as well the lines inside a quote, whose newlines are kept. A single, double
   or back quote opens and is closed by its like, unless it follows a backslash; the others are
   ordinary inside. */
QN_API char *readLine(FILE *stream);
QN_API char *readContLine(FILE *stream);
QN_API char *readQuotedLine(FILE *stream);

/* Takes the state away: stores it in the record, buffer included, then zeroes counters and modes.
   With null only zeroes them; the buffer stays. */
QN_API void resetReadLine(ReadInfo *saved);

/* Puts a state back that resetReadLine took away, once; the buffer in use is released. Null is
   ignored. */
QN_API void setReadLine(ReadInfo *saved);

/* Installs the modes and returns those they replace. */
QN_API uint32_t setReadLineModes(uint32_t modes);

/* Read all lines, or the first maximum lines unless that is 0, into a dynamic array of texts, and
   return its index; the caller closes it with arrayClose. The modes choose the reader, the
   backslash before the quoted one. The process's reader plays no part: any number of threads may
   read files so, each its own. 0 for a null stream,
   a file that cannot be opened (errno tells why), and when memory is exhausted or reading fails:
   never a part for the whole. An empty file is an array without elements; so is a directory, which
   opens but cannot be read. */
QN_API uint32_t readFpIntoArray(FILE *stream, uint32_t maximum, uint32_t modes);
QN_API uint32_t readFileIntoArray(const char *path, uint32_t maximum, uint32_t modes);

#ifdef __cplusplus
}
#endif

#endif

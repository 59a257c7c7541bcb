/* The symbols of messages, as the log headers define them.

   The headers of a directory (files "log", a class in capitals, ".h") give a message its name in
   lines

       #define NET_DOWN logNET(3)

   which name the third message of the class NET; only a comment may follow. Its absolute number is
   the class's start (logStartCl.h) plus its relative number minus 1. A symbol can be told by its
   name, in the log form, logNET(3), or in the short form, NET003.

   There is no table until the first read. A lookup without one reads the current directory: the one
   set, else "head" under the log root ("LOGROOT", or "/usr/spool/log"); a directory that cannot be
   read gives no symbols, without a message. logReadSymbols sorts the table by name;
   logReadHeader alone appends in the file's order. Records and texts belong to the table, which
   alone releases them: they are valid until the symbols are freed or read again, a record's address
   also only until a header is read. Lookups by absolute number and by class and relative number
   take time independent of the number of symbols, a lookup by name the logarithm of it.

   The state is the process's, without locks: one thread at a time, and no signal handler. The line
   reader is given back as it was found. */
#ifndef QUARNEL_LOG_LOGSYMS_H
#define QUARNEL_LOG_LOGSYMS_H

#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LogSymbol {
    char *name;       /* the defined name, owned by the table */
    int32_t absIndex; /* the message number; -1: class unknown, or relIndex is -1 */
    char *className;  /* owned by the table */
    int32_t relIndex; /* the number in parentheses; -1: not a number throughout */
} LogSymbol;

/* The users' own: the library never changes it. */
QN_API extern int32_t logSymsReadCnt;

/* Makes the directory the current one and reads the start classes from its "systemLog.h" (a failure
   is reported there). Another directory than the current one drops all symbols. Returns the name
   that was current before, the library's until the next call. Null, and exhausted memory,
   change nothing and return the name kept from the call before. */
QN_API char *logSetHeaderDirName(const char *dir);

/* The current directory's name, the library's; null when none was set. */
QN_API char *logGetHeaderDirName(void);

/* Appends the symbols of one header to the table and returns how many. 0 when the file cannot be
   opened, which is reported through logperror, and for null, which is not; 0 and nothing appended,
   too, when it cannot be read to its end or memory is exhausted. Lines that are no definition of a
   message are passed over. The table is not sorted: see logSortSymbols. */
QN_API int32_t logReadHeader(const char *path);

/* Reads all headers of the directory, after making it the current one, or of the current one for
   null, in place of the symbols there were. Returns the number of symbols, 0 when the directory
   cannot be read and, nothing changed, when memory for its name is exhausted. 0 and no table, so
   that the next lookup reads anew, when a header cannot be read to its end or memory is exhausted
   meanwhile. */
QN_API int32_t logReadSymbols(const char *dir);

/* Sorts by name, bytewise, then by absolute number. logFindDefineName searches by that order. */
QN_API void logSortSymbols(void);

/* Drops all symbols. */
QN_API void logFreeSymbols(void);

/* The record of that name (any, where there are several); null for null and when there is none. */
QN_API LogSymbol *logFindDefineName(const char *name);

/* The first record, in the table's order, of the class and relative number; null when there is
   none, for null and for a negative number. */
QN_API LogSymbol *logFindRelIndex(const char *className, int32_t relIndex);

/* The record of a symbol told by name, in the short form or the log form, tried in this order. The
   numbers of both forms are decimal, though a header's may be octal (010 is 8 there). Kept: callers
   rely on it. Null when there is none, for null and the empty text. */
QN_API LogSymbol *logFindSymbol(const char *symbol);

/* The first record, in the table's order, of the absolute number; null when there is none and for a
 * negative number. */
QN_API LogSymbol *logFindAbsIndex(int32_t absIndex);

/* A field of what logFindSymbol or logFindAbsIndex finds; -1 or null when it finds nothing. */
QN_API int32_t logSymbolToAbsIndex(const char *symbol);
QN_API int32_t logSymbolToRelIndex(const char *symbol);
QN_API char *logSymbolToClass(const char *symbol);
QN_API char *logAbsIndexToSymbol(int32_t absIndex);

/* The number of symbols. */
QN_API int32_t logTotalSymbols(void);

/* The record at the position in the table's order, from 0; null for any other position. */
QN_API LogSymbol *logGetSymbol(int32_t position);

#ifdef __cplusplus
}
#endif

#endif

/* Option processing: a program's settings from a file of shell-like assignments.

   A program lists its options in a table that ends with a row without a name, and calls
   processProgramOptions once. The rows' defaults are applied, then the statements of one file: the
   primary options file when one is set and readable, else the file in /etc/default named like the
   program. Names that the table lacks go to the default option, normally the one that
   makeDfltOptionEnv sets, which exports them.

   A line holds statements NAME=value separated by ";". A "#" outside quotes begins a comment. Two
   passes treat a value: parseXeqY cuts it out and peels its quotes, shellVariable then expands what
   is left. So quotes peel twice: what shall reach the second pass quoted must be quoted twice.

   Nothing is reported: unreadable files, malformed statements, values that do not convert and
   statements for which memory is exhausted are passed over. parseXeqY keeps its working texts per
   thread; the default option, the primary file's path and the look into the password database have
   a mutex each. No lock is held while a handler or a command runs. Handlers may parse, replace the
   default option and process further files.

   Any thread may call any function here, but for two things that are the application's to exclude.
   The environment is the process's: setting it (setEnvVar, optEnv, "${NAME:=word}", a row without a
   handler) in one thread while another reads it. And a table, its destinations and the defaults
   that optBool changes in place are for one thread at a time. Nothing here is safe in a signal
   handler. */
#ifndef QUARNEL_OPTIONS_OPTIONS_H
#define QUARNEL_OPTIONS_OPTIONS_H

#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct OptionEntry OptionEntry;

/* Called with the row, the name and the value as the statement gave them; the value is null when
   nothing followed the
   "=", or the row's default when defaults are applied. Both texts are the library's and valid
   during the call. The entry is the table's row; for names that the table lacks it is a copy of the
   default option, made for this call and released after it: keep no pointer to it or its texts. */
typedef void (*OptionHandler)(OptionEntry *entry, char *name, char *value);

struct OptionEntry {
    char *name;         /* as written in the file; null ends the table */
    char *defaultValue; /* applied before the file is read and for statements without a value; may
                           be null */
    OptionHandler handler; /* null: the option is exported to the environment */
    void *destination;     /* where optStr, optInteger and optBool store; may be null */
};

/* Applies the table's defaults (of rows with both a handler and a default, in order), then one
   options file as told above. A null table has no rows; with a null program path no file is read.
 */
QN_API void processProgramOptions(const char *program, OptionEntry *table);

/* Processes the file's lines. 0 when it cannot be read, else 1. Kept: the array that an empty file
   was read into stays open (one entry of the array table each time). */
QN_API int processOptionsFile(const char *path, OptionEntry *table);

/* Processes the lines, an array that ends with null. 0 for a null array, else 1. */
QN_API int processOptions(char **lines, OptionEntry *table);

/* Takes one statement from the line, which is not changed. The first two arguments are ignored. 1
   for an assignment, 0 for none (then name may have been found all the same) and, with errno
   ENOMEM, when memory is exhausted. value is null when the text ends after the "=". rest, which may
   be a null pointer, receives the text from the character that ended the value onward, null when
   there is none; a backslash at the very end ends the value and leaves no rest. The results live in
   storage of the calling thread until its next call, which may be given one as the line. */
QN_API int parseXeqY(intptr_t ignored1, intptr_t ignored2, const char *line, char **name,
                     char **value, char **rest);

/* The text expanded as a shell would: a new text, to be released with freecopy; null for null and
   when memory is exhausted or a command's output cannot be read: never a text with a piece missing.

   \c is c. Quotes are dropped; nothing is expanded between single ones. $NAME and ${NAME} give the
   variable's value or nothing; ${NAME:-word}, ${NAME:=word}, ${NAME:+word} as in a shell (":=" sets
   the variable too), any other operator the value or nothing. A "${" without "}" ends the
   expansion, the rest of the text is dropped. `command` gives the command's output less one final
   newline. ~user gives the user's home directory. Outside quotes a run of blanks becomes one, at
   the end none. */
QN_API char *shellVariable(char *text);

/* Runs the command that stands between the backquote at the start of the text and the next
   unescaped one, or the text's end, and returns a pointer to that place; the text itself when it
   does not start with a backquote. Backslashes stay in the command. *result, unless result is null,
   becomes the output less one final newline, a new text to be released with freecopy; it is null
   when there was no command, it could not be run, or its output not be read or held whole. A
   zero byte in the output ends the text.

   The command is run by the shell with the process's environment, and waited for however long it
   runs. It inherits the signal mask: while the clock is held SIGALRM is blocked in it too,
   unless the shell clears it. */
QN_API char *quotedShCmd(char *text, char **result);

/* Exports "name=value", "" for a null value. The text becomes part of the environment and is never
   released. 0, or non-zero with errno when memory is exhausted; a null name does nothing and gives
   0. */
QN_API int setEnvVar(const char *name, const char *value);

/* Handlers. Each takes the value, or the entry's default when the value is null. */

/* destination: char **. Stores a copy (mkcopy), nothing where memory is exhausted; the copy that it
 * replaces is not released. */
QN_API void optStr(OptionEntry *entry, char *name, char *value);

/* destination: int32_t *. Stores the number (decimal, 0x hexadecimal, leading-0 octal) when it is
   the whole text, clamped to 32 bits; the empty text is 0. */
QN_API void optInteger(OptionEntry *entry, char *name, char *value);

/* Exports the name with the text. */
QN_API void optEnv(OptionEntry *entry, char *name, char *value);

/* destination: int32_t *. Stores 1 for T, TRUE, ON, Y, YES, SET and numbers other than 0, and 0 for
   F, FALSE, OFF, N, NO, CLEAR and 0, in either case; nothing for any other text. Kept: the text is
   turned to upper case in place, so a default value must be writable unless it is upper case
   already. */
QN_API void optBool(OptionEntry *entry, char *name, char *value);

/* Makes a copy of the entry the default option, null for none: names that a table lacks are then
   dropped. The handler is called with yet another copy, valid during that call only, so that it may
   replace the default option. Where memory is exhausted the one before stays. */
QN_API void setDefaultOption(OptionEntry *entry);

/* Sets the default option that exports each name, likewise. */
QN_API void makeDfltOptionEnv(void);

/* Sets the primary options file, null for none. The path is copied; where memory is exhausted the
 * one before stays. */
QN_API void setPrimaryOptionsFile(const char *path);

/* A new text "<prefix>/etc/default/<base name of program>", to be released with freecopy; null when
   an argument is null or memory is exhausted. */
QN_API char *createStandardOptionsName(const char *prefix, const char *program);

#ifdef __cplusplus
}
#endif

#endif

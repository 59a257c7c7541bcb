/* Synthetic fields: names between two "@", written in a template and filled in from a record.

     @index@ @id@ @i@          the message index
     @priority@ @pri@ @p@      the priority's mark, in double quotes (empty above 4)
     @time@ @t@                the time as ctime gives it, without its line feed, in double quotes
     @time@.sec and so on      one part of it: sec min hour mday mon (1 to 12) year (since 1900)
   wday yday isdst
     @program@ @prog@          the producer
     @file@ @line@             the source position
     @field@[n] @f@[n]         argument n, from 0; decimal, octal behind 0, hexadecimal behind 0x
     @field@[name] @f@[name]   the argument of that name in the field catalogue (logFields.h)
     @message@ @msg@ @m@       the record's expansion, made if it has none
     @cmpmsg@                  the record's text
     @symbol@ @sym@ @s@        the message's symbol (logSyms.h), or <UNDEF>
     @class@ @c@               its class, or <UNDEF-CLASS>
     @classIndex@ @ci@         its number in the class, or 0
     @key@                     the caller's text, or "@key@" where there is none
     @msgPtr@ @logfile@        known names without a value: refused by the checker, left unchanged
   by the translator

   Arguments, message, record text and key are quoted if they hold a blank, a tab or a double quote,
   so that the result can be split into words again. A backslash makes the character behind it an
   ordinary one: of a field behind one, the closing "@" starts another field where one more "@"
   follows ("\@p@ @i@" holds the field "@ @", which is none).

   translateSynFields and the checkers use the catalogue and, for "@message@", the expansion: one
   thread at a time, and no signal handler. The quoting pair works on the caller's buffer alone. */
#ifndef QUARNEL_LOG_SYNLOGFLDS_H
#define QUARNEL_LOG_SYNLOGFLDS_H

#include <stdint.h>

#include "../buffers/charBuffer.h"
#include "../core/export.h"
#include "logMsg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Appends the template, its fields filled in, to the buffer, terminates it and returns its text.
   Backslashes are dropped, but for those behind an "@" that no other follows: from there on the
   template is copied. What cannot be filled in stays as it is written, and so does every field that
   would read the record where msg is null. "@message@" may set msg->expansion; while an expansion
   runs it is empty unless the record already has one. Null for a null buffer, and when memory is
   exhausted; a null template appends nothing. The template and the key may lie anywhere. */
QN_API char *translateSynFields(CharBuffer *buffer, const char *text, LogMsg *msg, const char *key);

/* 1 when every field of the template is valid for the message index (negative: unknown), 0 if not
   or if the text is null. A failure sets *error (error may be null) to a message, the library's
   until the next check; it is null otherwise. "@key@" is valid only when keyAllowed is not 0. */
QN_API int vfySynFields(int32_t index, const char *text, char **error, int keyAllowed);

/* Checks the one field at the "@" that text starts with, likewise. Valid: 1, and *next is where the
   check of the template goes on. A null text or next, and a text that starts with no "@" (*next is
   then the text), give 0 without a message. */
QN_API int decodeSynField(int32_t index, const char *text, char **error, char **next,
                          int keyAllowed);

/* Appends the text between double quotes, with a backslash before each double quote and backslash
   in it. */
QN_API char *cvtToQuotedStr(CharBuffer *buffer, const char *text);

/* Undoes it: appends the text without its double quotes, a backslash before a double quote or a
   backslash giving that character alone; before another it is kept, at the end dropped.

   Both terminate the buffer and return its text, null when memory is exhausted. The text must not
   lie in the buffer. For a null buffer or text nothing is written. */
QN_API char *dedoublequoteStr(CharBuffer *buffer, const char *text);

#ifdef __cplusplus
}
#endif

#endif

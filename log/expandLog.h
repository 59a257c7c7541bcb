/* Expansion of log records into text, and its settings.

   An expansion takes a record apart (logMsg.h), fetches the message's own text from the text format
   file, and fills the expansion format. Then, where that is set, control characters are shown and
   long lines wrapped.

   The expansion format. "%" and a letter is a directive; "\" and b, f, n, r, t is that control
   character, "\" and up to three octal digits that byte, "\" and anything else that character; all
   else is copied. A "%" or "\" at the end is dropped.

     %P        the priority's mark of msgPri, empty above 4
     %P(%s)    the same; %P(%d): the priority as a digit
     %T        the time as ctime gives it, without its line feed
     %T(...)   the text up to the next ")" with the time directives below filled in
     %N %S %L  producer, source file, line
     %M        the message text, each "%s" in it an argument, "%" and another character that one
     %M(%r)    the arguments as they stand, with the record's own separators: FS, and GS at the end
     %M(%r=c)  the arguments, each followed by the character c, or by an escape: \\ \b \f \n \r \t,
               or "\" and one octal digit d for the byte d * 73 modulo 256
     %C        the whole record less its last character
     %x        any other x: x

   In the parentheses of P and M, S is as good as s, D as d and R as r. White space may follow "(";
   after the letter, or the separator, it may precede ")". For %P( whatever character then follows
   is taken for the ")".

   Time directives, zero-padded: %A %a weekday, %B %b %h month (full, abbreviated), %D mm/dd/yy,
   %d day, %e day padded with a blank, %H hour, %I hour of twelve, %j day of the year, %M minute, %m
   month, %p AM or PM, %R HH:MM, %S second, %T HH:MM:SS, %U %W week (from Sunday, from Monday), %w
   weekday digit, %Y %y year, %Z zone, %u the time as 8 hexadecimal digits, %n line feed, %t tab,
   %c %C the ctime text with its line feed. %r is the hour modulo 12 with minute and second and AM
   up to hour 12: noon shows as 00 and AM, kept because readers of old logs count on it. Weeks are
   counted by a rule of their own (weekOf in expandTime.cpp), kept likewise.

   The text format file holds at byte 16 * i the directory entry of message i: 16 bytes of text,
   "offset length" in decimal, white space before and between; then, anywhere, the message texts,
   unterminated. It is TEXTLOGFMT, else "textLogFmt", taken under the log root unless it holds "/".

   What a setter has not set comes from the environment when an expansion starts: the format from
   LOGFORMAT (an invalid one is reported once and the default "%P %T %N %S:%L\n%M" used), the
   cut-off column from LOGCOLUMN, and together with a cut-off other than 0 the continuation prefix
   from LOGCONTPREFIX.

   Settings, buffers and cache belong to the whole process and have no lock: one thread at a time,
   and never a signal handler. An expansion that is started while one runs gives null. Texts
   returned are the library's; each function says until when they stay valid. A setter may be given
   the text that it or its getter returned. errno is whatever the calls made left. */
#ifndef QUARNEL_LOG_EXPANDLOG_H
#define QUARNEL_LOG_EXPANDLOG_H

#include <stdint.h>

#include "../buffers/charBuffer.h"
#include "../core/export.h"
#include "logMsg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The message's own text, valid until endExpandFmt or setExpandFmt. Null when the index is
   negative, the file cannot be opened (the next call tries again), or its entry or text is missing,
   cut short, or not a number pair within 0 and INT32_MAX bytes of length. Cached: a text is read
   once. Where logRoot is null it becomes LOGROOT, or "/usr/spool/log". */
QN_API char *getExpandFmt(int32_t index);

/* Closes the text format file and releases the cached texts; its path stays. */
QN_API void endExpandFmt(void);

/* endExpandFmt, and from now on the file is the given one, as it stands. For null or "" every
   lookup fails until the next call: kept, there is no way back to the default name. Returns the
   stored path, "" for none, valid until the next call; null, nothing changed, when memory is
   exhausted. The path may be any text of this family, a cached message text too. */
QN_API char *setExpandFmt(const char *path);

/* The expansion format, valid until it is changed; null before the first expansion or change. */
QN_API char *getExpansionFmt(void);

/* Installs a copy of the format, and it wins over LOGFORMAT. An invalid one ("%P(" or "%M(" without
   "%" and one of its letters behind it) changes nothing and is reported on standard error:
   "Invalid expansion format - %s\n". Null is ignored. */
QN_API void chgExpansionFmt(const char *format);

/* The cut-off column in bytes shown; 0 means no wrapping, a negative one that the next expansion
   asks LOGCOLUMN. chgExpansionCutoff returns the one before. */
QN_API int32_t getExpansionCutoff(void);
QN_API int32_t chgExpansionCutoff(int32_t column);

/* What is put in front of wrapped lines; null: nothing. Valid until it is changed. */
QN_API char *getContinuationPrefix(void);

/* Installs a copy of the prefix, or none for null. Returns its width from column 0, measured under
   the visible mode of now; 0 for none. When memory is exhausted the old one stays, and its width is
   returned. Prefixes should be printable: wrapping counts a prefix's
   width as its length. */
QN_API int32_t chgContinuationPrefix(const char *prefix);

/* Whether expansions show control characters; 0 at first. setVisible returns what it was. */
QN_API int getVisible(void);
QN_API int setVisible(int visible);

/* The columns by which the text moves a terminal's cursor from column start; behind a line feed,
   form feed or carriage return, the width of the last line. A tab takes the column modulo 8, not to
   the next stop. In visible mode control characters count what they show as; bytes above 0x7F count
   3, not 5. All kept: prefixes in use are measured so. 0 for null. */
QN_API int32_t visualWidth(const char *text, int32_t start);

/* The record as people read it, valid until the next expansion that succeeds; never longer lines
   than the cut-off allows. *indexOut (may be null) is the parsed index, -1 when nothing was parsed.
   The record is only read, and may be an earlier result.

   With the keep flags of logMsg.h, free text is rendered visibly (the flags are also
   clearCopyCharBuffer's mode) and a comment given as it stands, neither of them wrapped. Null, with
   nothing printed, when the parser refuses the record, getExpandFmt has no text for it, the message
   text asks for more or fewer arguments than there are, a directive's parentheses are wrong, an
   expansion is running, or memory is exhausted. */
QN_API char *expandLogEnhanced(char *record, uint32_t flags, int32_t *indexOut);

/* As expandLogEnhanced with flags 0x100: well-formed records only. */
QN_API char *expandLog(char *record);

/* Renders the buffer's content visibly, if visible mode is on, and wraps it, if the cut-off is
   above 0; what an expansion ends with. Lines break at the last blank or tab before the cut-off, or
   at the cut-off where there is none; a blank or tab broken at becomes the line feed. A break may
   go back over a line feed to a blank before it: kept. Returns the buffer's text, terminated, which
   may be another block than before; null for a null buffer and, the content unchanged, when memory
   is exhausted. */
QN_API char *postMsg(CharBuffer *buffer);

/* Renews msg->expansion from msg->record (null where expandLog fails) and releases spare6. A null
   msg, or one without a record, is left alone. */
QN_API void expandCmpLog(LogMsg *msg);

#ifdef __cplusplus
}
#endif

#endif

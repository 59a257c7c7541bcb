/* Matching against compiled regular expressions.

   A pattern is a byte program; regex/match.h has its instructions and the means to write one down.
   Nothing here compiles a pattern from text. Programs are only read and may be shared by threads;
   the matcher's own state belongs to the calling thread and is released when that thread ends.

   The interpreter backtracks, longest first, without recursion: the length of the subject and the
   number of repetitions cost no stack. Time is in the order of program length times subject length,
   squared where repeated groups overlap. A program has no length of its own: bytes are read only as
   an instruction is reached, and only those that its opcode, its class lengths and its sub-program
   lengths claim; an instruction that would leave the sub-program it stands in fails unread. Bytes
   further on may be looked at before: at most 256, and none behind the page of memory in which the
   first instruction stands (of an anchored program the one after MATCH_ANCHOR). A search ends after
   MATCH_STEP_LIMIT steps at most (regex/match.h), as no match: a few seconds.

   So a program from somebody else, which may be cut or wrong, can fail, not match, or match what it
   should not; it hangs nobody. Hand it over with MATCH_PADDING zero bytes behind it: its last bytes
   can claim as many, and a zero byte that is reached as an instruction fails.

   No function here is safe in a signal handler. Subjects are texts of bytes; characters are
   compared as unsigned bytes, whatever the locale. */
#ifndef QUARNEL_REGEX_REGULAREXP_H
#define QUARNEL_REGEX_REGULAREXP_H

#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The captured texts of one match: a single block, the caller's, released with free(). The texts
 * lie in the block as well. */
typedef struct CaptureBlock {
    int32_t count;               /* the highest group number set, plus one */
    __extension__ char *group[]; /* by group number; null for a group that is not set */
} CaptureBlock;

/* Searches the subject for the first place where the program matches. Returns the place in the
   subject just past the matched text, null when nothing matches, when the pattern or the subject
   is null, when memory is exhausted and past MATCH_STEP_LIMIT. An empty match counts when the
   program came to its MATCH_END; a program that ends otherwise having taken nothing from the
   subject's start does not match.

   Unless block is null, *block receives the captured texts, or null when there is no match or no
   group is set. Where several records carry one group number, the highest record counts. Groups 0
   to 9 are those the program numbers, 10 and up those numbered automatically. */
QN_API char *regularExp(const char *pattern, const char *subject, CaptureBlock **block);

/* As regularExp, with up to ten char * buffers after the subject instead of a block: the text of
   each group 0 to 9 that is set is copied, terminated, into the buffer of that number, which must
   be large enough (the subject's size always is). No buffer is asked for beyond the highest of
   these groups that is set, and none at all without a match; a null buffer, and one whose group is
   not set, is left alone. */
QN_API char *regEx(const char *pattern, const char *subject, ...);

/* The start of the text that the calling thread's last regularExp or regEx matched, in its subject;
 * null if that call failed or there was none. */
QN_API char *startPatMatch(void);

#ifdef __cplusplus
}
#endif

#endif

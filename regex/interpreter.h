/* The interpreter of compiled patterns: what regularExp.cpp asks of interpreter.cpp. Internal. */
#ifndef QUARNEL_REGEX_INTERPRETER_H
#define QUARNEL_REGEX_INTERPRETER_H

#include "match.h"

/* Room for one more entry of that size on the stack: it grows by half, at least by `step` entries,
   in whole steps. Returns the address after the last entry in use, null when memory is exhausted
   (the stack is then as before). The count stays. */
void *roomOnMatchStack(MatchStack *stack, size_t entrySize, uint32_t step);

/* Searches the subject. Returns the place just past the match and sets *start to where it begins;
   the captures are then in state->records. Null when there is no match, or none could be found with
   the memory and steps available; all records are then unset. */
const char *searchSubject(MatchState *state, const char *pattern, const char *subject,
                          const char **start);

#endif

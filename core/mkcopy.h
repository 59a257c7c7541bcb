/* Owned copies of texts.

   A copy is a zero-terminated text in a heap block of exactly its length + 1 bytes. It belongs to
   whoever received it, until freecopy. Both functions are safe from any thread and, since they use
   the heap, from no signal handler. */
#ifndef QUARNEL_CORE_MKCOPY_H
#define QUARNEL_CORE_MKCOPY_H

#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A new copy of the text, to be released with freecopy; null for null, and when memory is
 * exhausted. */
QN_API char *mkcopy(const char *text);

/* Releases a copy; null is ignored. */
QN_API void freecopy(char *copy);

#ifdef __cplusplus
}
#endif

#endif

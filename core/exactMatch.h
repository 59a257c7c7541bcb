/* Finding a text in a list of keywords. Safe from any thread and from signal handlers. */
#ifndef QUARNEL_CORE_EXACTMATCH_H
#define QUARNEL_CORE_EXACTMATCH_H

#include <stdint.h>

#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The position, counted from 1, of the first entry that equals the text byte for byte. The list
   ends with a null entry. 0 when none matches or an argument is null. */
QN_API uint32_t exactMatch(const char *text, const char *const *list);

#ifdef __cplusplus
}
#endif

#endif

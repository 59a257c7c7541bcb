/* Where in a table of symbols the first record of an absolute number, or of a class and relative
   number, stands: hash tables of positions, so that a lookup costs the same whatever the size of
   the catalogue. Internal; one thread at a time. */
#ifndef QUARNEL_LOG_SYMBOLINDEX_H
#define QUARNEL_LOG_SYMBOLINDEX_H

#include <stdint.h>

#include "logSyms.h"

/* All zeros: an empty index. */
typedef struct SymbolIndex {
    uint32_t *byAbsolute; /* slots: position + 1, or 0; the first record of each number */
    uint32_t *byRelative; /* the same by class and relative number */
    uint32_t slotCount;   /* slots of each; 0 or a power of two */
    uint32_t covered;     /* records indexed, from the first */
} SymbolIndex;

/* Takes in the records that were appended since. False when memory is exhausted; the index is then
   as before. */
int coverSymbols(SymbolIndex *index, const LogSymbol *symbols, uint32_t count);

/* Empties it: to be called when records were moved or dropped. */
void clearSymbolIndex(SymbolIndex *index);

/* The position of the first of the covered records with that number, or -1. */
int64_t findAbsolute(const SymbolIndex *index, const LogSymbol *symbols, int32_t absIndex);
int64_t findRelative(const SymbolIndex *index, const LogSymbol *symbols, const char *className,
                     int32_t relIndex);

/* Whether the last reading of all symbols was given up, so that a symbol not found may exist all
   the same. Of logSyms.cpp. */
bool symbolsAreUnread();

#endif

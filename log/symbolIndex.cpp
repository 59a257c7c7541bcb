#include "symbolIndex.h"

#include <stdlib.h>
#include <string.h>

static constexpr uint32_t FEWEST_SLOTS = 64;

// Spreads the bits of the number over the low ones.
static uint32_t mixed(uint32_t number) {
    number = (number ^ number >> 16) * 0x45D9F3BU;
    number = (number ^ number >> 16) * 0x45D9F3BU;
    return number ^ number >> 16;
}

static uint32_t hashOf(const char *className, int32_t relIndex) {
    uint32_t hash = 2166136261U;
    for (; *className != '\0'; ++className)
        hash = (hash ^ static_cast<unsigned char>(*className)) * 16777619U;
    return mixed(hash + static_cast<uint32_t>(relIndex) * 0x9E3779B9U);
}

static bool isRelative(const LogSymbol &symbol, const char *className, int32_t relIndex) {
    return symbol.relIndex == relIndex && strcmp(symbol.className, className) == 0;
}

// The slot that holds the first record of the number, or the empty one where it belongs.
static uint32_t *absoluteSlot(const SymbolIndex *index, const LogSymbol *symbols,
                              int32_t absIndex) {
    uint32_t at = mixed(static_cast<uint32_t>(absIndex)) & (index->slotCount - 1);
    while (index->byAbsolute[at] != 0 && symbols[index->byAbsolute[at] - 1].absIndex != absIndex)
        at = (at + 1) & (index->slotCount - 1);
    return &index->byAbsolute[at];
}

static uint32_t *relativeSlot(const SymbolIndex *index, const LogSymbol *symbols,
                              const char *className, int32_t relIndex) {
    uint32_t at = hashOf(className, relIndex) & (index->slotCount - 1);
    while (index->byRelative[at] != 0 &&
           !isRelative(symbols[index->byRelative[at] - 1], className, relIndex))
        at = (at + 1) & (index->slotCount - 1);
    return &index->byRelative[at];
}

// The first record of a number stays: later ones are found by nobody.
static void take(SymbolIndex *index, const LogSymbol *symbols, uint32_t position) {
    const LogSymbol &symbol = symbols[position];
    uint32_t *slot = absoluteSlot(index, symbols, symbol.absIndex);
    if (*slot == 0)
        *slot = position + 1;
    slot = relativeSlot(index, symbols, symbol.className, symbol.relIndex);
    if (*slot == 0)
        *slot = position + 1;
}

// Makes room for so many records: at least half of the slots stay empty.
static bool makeSlots(SymbolIndex *index, uint32_t count) {
    if (index->slotCount != 0 && count <= index->slotCount / 2)
        return true;
    uint32_t slotCount = index->slotCount == 0 ? FEWEST_SLOTS : index->slotCount;
    while (slotCount / 2 < count) {
        if (slotCount > UINT32_MAX / 2)
            return false;
        slotCount *= 2;
    }
    uint32_t *byAbsolute = static_cast<uint32_t *>(calloc(slotCount, sizeof(uint32_t)));
    uint32_t *byRelative = static_cast<uint32_t *>(calloc(slotCount, sizeof(uint32_t)));
    if (byAbsolute == nullptr || byRelative == nullptr) {
        free(byAbsolute);
        free(byRelative);
        return false;
    }
    clearSymbolIndex(index);
    *index = {byAbsolute, byRelative, slotCount, 0};
    return true;
}

int coverSymbols(SymbolIndex *index, const LogSymbol *symbols, uint32_t count) {
    if (!makeSlots(index, count))
        return 0;
    for (; index->covered < count; ++index->covered)
        take(index, symbols, index->covered);
    return 1;
}

void clearSymbolIndex(SymbolIndex *index) {
    free(index->byAbsolute);
    free(index->byRelative);
    *index = {};
}

int64_t findAbsolute(const SymbolIndex *index, const LogSymbol *symbols, int32_t absIndex) {
    return static_cast<int64_t>(*absoluteSlot(index, symbols, absIndex)) - 1;
}

int64_t findRelative(const SymbolIndex *index, const LogSymbol *symbols, const char *className,
                     int32_t relIndex) {
    return static_cast<int64_t>(*relativeSlot(index, symbols, className, relIndex)) - 1;
}

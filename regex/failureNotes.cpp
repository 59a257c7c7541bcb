#include "failureNotes.h"

#include <stdlib.h>
#include <string.h>

// Noting starts after this many: short searches never pay for it.
static constexpr size_t FAILURES_BEFORE_NOTES = 4096;
static constexpr size_t MEMORY_LIMIT = 64U << 20;

static bool coverOffset(FailureNotes *notes, size_t offset) {
    if (offset < notes->count)
        return true;
    const size_t count = (offset + 1) * 2;
    Byte **byOffset = static_cast<Byte **>(realloc(notes->byOffset, count * sizeof(Byte *)));
    if (byOffset == nullptr)
        return false;
    memset(byOffset + notes->count, 0, (count - notes->count) * sizeof(Byte *));
    notes->byOffset = byOffset;
    notes->count = count;
    return true;
}

// The bits of the instruction, made on first use; null without memory.
static Byte *bitsFor(FailureNotes *notes, const Byte *code) {
    const size_t offset = static_cast<size_t>(code - notes->program);
    if (!coverOffset(notes, offset))
        return nullptr;
    if (notes->byOffset[offset] == nullptr) {
        if (notes->subjectSize == 0)
            notes->subjectSize = strlen(notes->subject) + 1;
        const size_t size = notes->subjectSize / 8 + 1;
        if (notes->memory + size > MEMORY_LIMIT)
            return nullptr;
        notes->byOffset[offset] = static_cast<Byte *>(calloc(1, size));
        if (notes->byOffset[offset] != nullptr)
            notes->memory += size;
    }
    return notes->byOffset[offset];
}

// Sets the bits from `first` to before `end`, whole bytes at once.
static void setBits(Byte *bits, size_t first, size_t end) {
    for (; first < end && first % 8 != 0; ++first)
        bits[first / 8] |= static_cast<Byte>(1U << first % 8);
    memset(bits + first / 8, UINT8_MAX, (end - first) / 8);
    for (first += (end - first) / 8 * 8; first < end; ++first)
        bits[first / 8] |= static_cast<Byte>(1U << first % 8);
}

void noteFailures(FailureNotes *notes, const Byte *code, const char *first, const char *end) {
    if (notes->failures < FAILURES_BEFORE_NOTES)
        notes->failures += static_cast<size_t>(end - first);
    if (notes->failures < FAILURES_BEFORE_NOTES)
        return;
    Byte *bits = bitsFor(notes, code);
    if (bits != nullptr)
        setBits(bits, static_cast<size_t>(first - notes->subject),
                static_cast<size_t>(end - notes->subject));
}

void freeFailureNotes(FailureNotes *notes) {
    for (size_t i = 0; i < notes->count; ++i)
        free(notes->byOffset[i]);
    free(notes->byOffset);
}

/* Failures of a search, noted so that they are not tried again. Internal.

   Whether going on from an instruction at some place fails depends on nothing else, captures
   included. Once a search has been through many failures they are noted, a bit for each place of
   the subject: a few repetitions in a row would otherwise take time in the order of a power of the
   subject's length. Without memory for it a failure is merely not noted. */
#ifndef QUARNEL_REGEX_FAILURENOTES_H
#define QUARNEL_REGEX_FAILURENOTES_H

#include "items.h"

struct FailureNotes {
    const Byte *program;
    const char *subject;
    size_t subjectSize; // with the terminator; 0 until wanted
    size_t failures;    // noted or not, up to the number where noting starts
    Byte **byOffset;    // by offset of the instruction: a bit for each place that failed, or null
    size_t count;
    size_t memory; // bytes of all bits
};

// Going on from the instruction failed at the places from `first` to before `end`.
void noteFailures(FailureNotes *notes, const Byte *code, const char *first, const char *end);

// Gives the memory back.
void freeFailureNotes(FailureNotes *notes);

// The bits of the instruction, null when none is noted.
static inline const Byte *failuresOf(const FailureNotes *notes, const Byte *code) {
    const size_t offset = static_cast<size_t>(code - notes->program);
    return offset < notes->count ? notes->byOffset[offset] : nullptr;
}

static inline bool isNoted(const FailureNotes *notes, const Byte *bits, const char *at) {
    const size_t place = static_cast<size_t>(at - notes->subject);
    return (bits[place / 8] >> place % 8 & 1) != 0;
}

static inline bool hasFailed(const FailureNotes *notes, const Byte *code, const char *at) {
    const Byte *bits = failuresOf(notes, code);
    return bits != nullptr && isNoted(notes, bits, at);
}

#endif

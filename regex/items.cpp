/* Runs of items.

   A class repeated is first made a set of bits, by shifts: a look into it for each character then
   costs the same whatever the class. */
#include "items.h"

#include <string.h>

static constexpr unsigned WORD_BITS = 32;

// The characters that an item matches. Filled by words, looked into by bytes, which is faster.
struct CharacterSet {
    uint32_t words[(UINT8_MAX + 1) / WORD_BITS];
};
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "bit n of the words is bit n of the bytes");

static bool isIn(const CharacterSet &set, char at) {
    const Byte character = static_cast<Byte>(at);
    const Byte *bytes = reinterpret_cast<const Byte *>(set.words);
    return (bytes[character / 8] >> character % 8 & 1) != 0;
}

static void add(CharacterSet *set, Byte low, Byte high) {
    const unsigned first = low / WORD_BITS, last = high / WORD_BITS;
    const uint32_t from = UINT32_MAX << low % WORD_BITS;
    const uint32_t upTo = UINT32_MAX >> (WORD_BITS - 1 - high % WORD_BITS);
    if (first == last) {
        set->words[first] |= from & upTo;
        return;
    }
    if (low > high)
        return;
    set->words[first] |= from;
    for (unsigned between = first + 1; between < last; ++between)
        set->words[between] = UINT32_MAX;
    set->words[last] |= upTo;
}

static void fillSet(CharacterSet *set, Byte kind, const Byte *operand) {
    *set = {};
    const Byte *end = operand + *operand;
    for (const Byte *member = operand + 1; member < end;) {
        if (*member != MATCH_RANGE) {
            set->words[*member / WORD_BITS] |= 1U << *member % WORD_BITS;
            ++member;
            continue;
        }
        if (end - member < 3)
            break;
        add(set, member[1], member[2]);
        member += 3;
    }
    if (kind == MATCH_NOT_IN_CLASS)
        for (uint32_t &word : set->words)
            word = ~word;
    set->words[0] &= ~1U; // the terminator
}

// Four characters a turn: a run may be of thousands.
static const char *endOfSetRun(const CharacterSet &set, const char *at) {
    for (;; at += 4) {
        if (!isIn(set, at[0]))
            return at;
        if (!isIn(set, at[1]))
            return at + 1;
        if (!isIn(set, at[2]))
            return at + 2;
        if (!isIn(set, at[3]))
            return at + 3;
    }
}

// The set takes all members, and those of a program cut short may not be there to be read. So it is
// not made where a character by itself asks for none, or for those up to the one that decides: only
// where all were asked for, or the program goes on behind them.
static bool isRunEmpty(Byte kind, const Byte *operand, char first) {
    return first == '\0' || (kind == MATCH_NOT_IN_CLASS && !matches(kind, operand, first));
}

static const char *endOfClassRun(Byte kind, const Byte *operand, const char *from, size_t most) {
    if (isRunEmpty(kind, operand, *from))
        return from;
    CharacterSet set;
    fillSet(&set, kind, operand);
    if (most == SIZE_MAX)
        return endOfSetRun(set, from);
    size_t taken = 0;
    while (taken < most && isIn(set, from[taken]))
        ++taken;
    return from + taken;
}

const char *endOfItems(Byte kind, const Byte *operand, const char *from, size_t most) {
    if (isClass(kind))
        return endOfClassRun(kind, operand, from, most);
    if (kind == MATCH_ANY)
        return from + strnlen(from, most);
    size_t taken = 0;
    while (taken < most && matches(MATCH_CHARACTER, operand, from[taken]))
        ++taken;
    return from + taken;
}

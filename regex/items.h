/* Items: the instructions that match one character of the subject, or a run of such characters.
   Internal.

   A `limit` is the end of the sub-program that the instruction stands in, null for the program
   itself. An instruction that would leave its sub-program is not decoded, and nothing behind the
   limit is read. */
#ifndef QUARNEL_REGEX_ITEMS_H
#define QUARNEL_REGEX_ITEMS_H

#include "match.h"

using Byte = unsigned char;

struct Repeat {
    uint32_t min;
    uint32_t max;
    bool unlimited; // max does not count
};

// An item, taken apart.
struct Item {
    Byte kind; // its opcode without how often
    const Byte *operand;
    Repeat repeat;
    const Byte *rest; // the instruction after it
};

// Whether that many bytes from there on belong to the sub-program.
static inline bool within(const Byte *limit, const Byte *from, ptrdiff_t count) {
    return limit == nullptr || limit - from >= count;
}

// An opcode without how often.
static inline Byte kindOf(Byte opcode) {
    return static_cast<Byte>(opcode & ~MATCH_REPEAT_MASK);
}

static inline Repeat countedRepeat(const Byte *pair) {
    const uint32_t max = pair[1] < pair[0] ? pair[0] : pair[1];
    return {pair[0], max, pair[1] == MATCH_NO_LIMIT};
}

// The two kinds of classes differ in this bit.
static constexpr int OTHER_CLASS = MATCH_IN_CLASS ^ MATCH_NOT_IN_CLASS;
static_assert((OTHER_CLASS & (OTHER_CLASS - 1)) == 0);

static inline bool isClass(Byte kind) {
    return (kind & ~OTHER_CLASS) == (MATCH_NOT_IN_CLASS & ~OTHER_CLASS);
}

static inline bool isItem(Byte opcode) {
    const Byte kind = kindOf(opcode);
    return kind == MATCH_CHARACTER || kind == MATCH_ANY || isClass(kind);
}

// Sets the size of an item's operand. False when it would leave the sub-program.
static inline bool operandSize(Byte kind, const Byte *operand, const Byte *limit, ptrdiff_t *size) {
    if (kind == MATCH_ANY)
        *size = 0;
    else if (kind == MATCH_CHARACTER)
        *size = 1;
    else if (within(limit, operand, 1))
        *size = *operand;
    else
        return false;
    return within(limit, operand, *size);
}

// False when it would leave the sub-program. The byte at `code` must be an item's opcode.
static inline bool decodeItem(const Byte *code, const Byte *limit, Item *item) {
    static constexpr Repeat REPEATS[] = {{1, 1, false}, {0, 0, true}, {1, 1, true}};
    const int how = *code & MATCH_REPEAT_MASK;
    item->kind = kindOf(*code);
    item->operand = code + 1;
    ptrdiff_t size;
    if (!operandSize(item->kind, item->operand, limit, &size))
        return false;
    item->rest = item->operand + size;
    if (how != MATCH_COUNTED) {
        item->repeat = REPEATS[how];
        return true;
    }
    if (!within(limit, item->rest, 2))
        return false;
    item->repeat = countedRepeat(item->rest);
    item->rest += 2;
    return true;
}

static inline bool inClass(const Byte *operand, Byte character) {
    const Byte *end = operand + *operand;
    for (const Byte *member = operand + 1; member < end;) {
        if (*member != MATCH_RANGE) {
            if (*member++ == character)
                return true;
            continue;
        }
        if (end - member < 3)
            return false;
        if (member[1] <= character && character <= member[2])
            return true;
        member += 3;
    }
    return false;
}

// Whether an item of that kind and operand matches the character; never the terminator.
static inline bool matches(Byte kind, const Byte *operand, char at) {
    const Byte character = static_cast<Byte>(at);
    if (character == '\0')
        return false;
    switch (kind) {
    case MATCH_ANY:
        return true;
    case MATCH_CHARACTER:
        return character == *operand;
    default:
        return inClass(operand, character) == (kind == MATCH_IN_CLASS);
    }
}

// The end of the longest run from that place of characters that the item matches, of at most
// `most`.
const char *endOfItems(Byte kind, const Byte *operand, const char *from, size_t most);

#endif

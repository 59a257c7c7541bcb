/* What a program asks for further on.

   Going on fails at once where the next instruction that takes a character refuses the one there;
   so only the places that it accepts are tried, found by the C library where it is a character.

   A search fails as a whole where a character that the program must match is missing. It is looked
   for before a search of a subject of middling length: one short is tried sooner, and to look
   through all of a long one costs more than a try that fails early. The program is walked for it
   without being run, up to the first instruction that is not plain.

   Covered by tests/regex/reference_test: random programs on short and long subjects. */
#include "ahead.h"

#include <string.h>

// The rests of subjects that are looked through, in bytes: from this on and below that.
static constexpr size_t LOOK_THROUGH_LEAST = 32;
static constexpr size_t LOOK_THROUGH_MOST = 1024;

// So much of a program is looked at in the hope of something to look for.
static constexpr uintptr_t PROGRAM_MOST = 256;

// What the walk reads of an instruction: the opcode and the byte behind it.
static constexpr ptrdiff_t HEAD = 2;

// Memory is readable or not by pages of at least this.
static constexpr uintptr_t PAGE = 4096;

const char *lastAccepted(const Byte *ahead, const char *first, const char *end) {
    if (first == end)
        return nullptr;
    if (ahead == nullptr)
        return end - 1;
    if (*ahead == MATCH_SUBJECT_END)
        return end[-1] == '\0' ? end - 1 : nullptr;
    const Byte kind = kindOf(*ahead);
    if (kind == MATCH_CHARACTER)
        return static_cast<const char *>(
            memrchr(first, ahead[1], static_cast<size_t>(end - first)));
    while (first != end)
        if (matches(kind, ahead + 1, *--end))
            return end;
    return nullptr;
}

// The first place from that one on that such an item accepts, or the terminator's.
static const char *firstOfSeveral(Byte kind, const Byte *operand, const char *from) {
    static constexpr int BY_THEMSELVES = 2; // a set, which takes longer to make, pays from then on
    // A complement asks for no more of its members than refuse a character: a set would for all.
    for (int i = 0; kind != MATCH_IN_CLASS || i < BY_THEMSELVES; ++i, ++from)
        if (*from == '\0' || matches(kind, operand, *from))
            return from;
    // A run of what a class refuses ends at what it accepts.
    return endOfItems(kind ^ OTHER_CLASS, operand, from, SIZE_MAX);
}

const char *firstAccepted(const Byte *ahead, const char *from) {
    if (ahead == nullptr)
        return from;
    if (*ahead == MATCH_SUBJECT_END)
        return from + strlen(from);
    if (*from == '\0') // refused whatever the operand, which is not read for it
        return nullptr;
    if (kindOf(*ahead) == MATCH_CHARACTER)
        return strchr(from, ahead[1]);
    const char *place = firstOfSeveral(kindOf(*ahead), ahead + 1, from);
    return *place == '\0' ? nullptr : place;
}

static bool isCounted(Byte item) {
    return (item & MATCH_REPEAT_MASK) == MATCH_COUNTED;
}

// What the program must match further on.
struct Needed {
    const Byte *character; // the last of those found; null: none
    bool isLast;           // the subject ends behind it
};

// Walks the program from that instruction on, up to its first group or counted item. Not all of
// what it reads need ever be reached, so it stays within the page.
static Needed neededFrom(const Byte *code) {
    const uintptr_t inPage = PAGE - reinterpret_cast<uintptr_t>(code) % PAGE;
    const Byte *end = code + (inPage < PROGRAM_MOST ? inPage : PROGRAM_MOST) - (HEAD - 1);
    const Byte *needed = nullptr;
    while (code < end) {
        const Byte opcode = *code;
        if (opcode == MATCH_CHARACTER) {
            needed = code + 1;
            code += 2;
        } else if (isClass(kindOf(opcode)) && !isCounted(opcode))
            code += 1 + code[1];
        else if (opcode == MATCH_CLOSE)
            code += 3;
        else if (opcode == MATCH_OPEN || (kindOf(opcode) == MATCH_CHARACTER && !isCounted(opcode)))
            code += 2;
        else if (kindOf(opcode) == MATCH_ANY && !isCounted(opcode))
            ++code;
        else
            // The character is its instruction's last byte, and each other instruction has a byte:
            // where it lies right before this one, nothing stands between the two.
            return {needed, opcode == MATCH_SUBJECT_END && needed == code - 1};
    }
    return {needed, false};
}

const char *hopelessFrom(const Byte *code, const char *at) {
    const size_t length = strnlen(at, LOOK_THROUGH_MOST);
    if (length < LOOK_THROUGH_LEAST || length == LOOK_THROUGH_MOST)
        return nullptr;
    const Needed needed = neededFrom(code);
    if (needed.character == nullptr)
        return nullptr;
    const Byte character = *needed.character;
    if (needed.isLast)
        return static_cast<Byte>(at[length - 1]) == character ? nullptr : at;
    const void *last = memrchr(at, character, length);
    return last == nullptr ? at : static_cast<const char *>(last) + 1;
}

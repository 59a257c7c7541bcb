/* What a program asks for further on: hopeless ways are left out. Internal. */
#ifndef QUARNEL_REGEX_AHEAD_H
#define QUARNEL_REGEX_AHEAD_H

#include "items.h"

// The size of an instruction that takes nothing from the subject and succeeds; 0: it is another.
static inline ptrdiff_t sizeToPassOver(Byte opcode) {
    if (opcode == MATCH_CLOSE)
        return 3;
    return opcode == MATCH_OPEN || opcode == MATCH_SKIP || opcode == MATCH_SKIP_TOO ? 2 : 0;
}

// Whether the instruction is an item, whole within its sub-program, that must match a character.
static inline bool mustTakeOne(const Byte *code, const Byte *limit) {
    const int how = *code & MATCH_REPEAT_MASK;
    ptrdiff_t operand;
    return isItem(*code) && (how == MATCH_ONCE || how == MATCH_ONE_OR_MORE) &&
           operandSize(kindOf(*code), code + 1, limit, &operand);
}

// The instruction that decides by the character at the place reached whether going on from that
// one fails at once: an item that must match one, or MATCH_SUBJECT_END. Null when there is none.
// What it passes over succeeds whatever the subject, so nothing is read that would not be.
static inline const Byte *itemAhead(const Byte *code, const Byte *limit) {
    static constexpr int PASSED_OVER_MOST = 4; // further on, captures are made for their own sake
    for (int passed = 0; passed <= PASSED_OVER_MOST && within(limit, code, 1); ++passed) {
        const ptrdiff_t size = sizeToPassOver(*code);
        if (size != 0) {
            code += size;
            continue;
        }
        const bool decides = *code == MATCH_SUBJECT_END || mustTakeOne(code, limit);
        return decides ? code : nullptr;
    }
    return nullptr;
}

// Whether that instruction accepts the character; true without one.
static inline bool accepts(const Byte *ahead, char character) {
    if (ahead == nullptr)
        return true;
    return *ahead == MATCH_SUBJECT_END ? character == '\0'
                                       : matches(kindOf(*ahead), ahead + 1, character);
}

// The last place from `first` to before `end` whose character that instruction accepts, null when
// there is none. Without an instruction, the last of all. (The terminator counts as accepted by a
// character of that value, which then refuses it itself; below too.)
const char *lastAccepted(const Byte *ahead, const char *first, const char *end);

// The first place from that one on, the terminator's included, that the instruction accepts; null
// when there is none. Without an instruction, the place itself.
const char *firstAccepted(const Byte *ahead, const char *from);

// The first place at or after `at` from where the subject lacks a character that the program must
// match from that instruction on: going on from there is hopeless. It is one of three:
//   null        none is known
//   `at`        the character is missing, so going on is hopeless everywhere
//   behind it   the place after the character's last occurrence: up to there it may be matched
// The instruction is one of the program itself, not of a sub-program.
const char *hopelessFrom(const Byte *code, const char *at);

#endif

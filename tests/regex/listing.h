/* A compiled pattern as text: one instruction a line, its offset first, sub-programs indented. What
   tests compare programs by. */
#ifndef TESTS_REGEX_LISTING_H
#define TESTS_REGEX_LISTING_H

#include "regex/match.h"

#include <cstdio>
#include <string>

namespace listing {

inline std::string characterText(unsigned char ch) {
    char text[8];
    if (ch > ' ' && ch < 0x7F)
        snprintf(text, sizeof text, "'%c'", ch);
    else
        snprintf(text, sizeof text, "%02X", ch);
    return text;
}

inline std::string classText(const unsigned char *operand) {
    std::string text;
    for (int i = 1; i < *operand; ++i) {
        text += ' ';
        if (operand[i] == MATCH_RANGE && i + 2 < *operand) {
            text += characterText(operand[i + 1]) + "-" + characterText(operand[i + 2]);
            i += 2;
        } else
            text += operand[i] == MATCH_RANGE ? "cut-range" : characterText(operand[i]);
    }
    return text;
}

// The item's name and operands; sets the size of the instruction.
inline std::string itemText(const unsigned char *code, size_t *size) {
    static const char *const HOW[] = {"", "*", "+", ""};
    const int kind = *code & ~MATCH_REPEAT_MASK, how = *code & MATCH_REPEAT_MASK;
    std::string text;
    *size = 1;
    if (kind == MATCH_ANY)
        text = "any";
    else if (kind == MATCH_CHARACTER) {
        text = "character " + characterText(code[1]);
        *size = 2;
    } else {
        text = (kind == MATCH_IN_CLASS ? "in" : "not-in") + classText(code + 1);
        *size = 1U + code[1];
    }
    text += HOW[how];
    if (how == MATCH_COUNTED) {
        text += " {" + std::to_string(code[*size]) + "," + std::to_string(code[*size + 1]) + "}";
        *size += 2;
    }
    return text;
}

inline bool isItem(unsigned char opcode) {
    const int kind = opcode & ~MATCH_REPEAT_MASK;
    return kind == MATCH_NOT_IN_CLASS || kind == MATCH_CHARACTER || kind == MATCH_IN_CLASS ||
           kind == MATCH_ANY;
}

inline bool isGroup(unsigned char opcode) {
    const int kind = opcode & ~MATCH_LENGTH_HIGH_MASK;
    return kind == MATCH_GROUP_COUNTED || kind == MATCH_GROUP_ZERO_OR_MORE ||
           kind == MATCH_GROUP_ONE_OR_MORE;
}

inline std::string plainText(const unsigned char *code, size_t *size) {
    const auto slot = [code] { return std::to_string(static_cast<signed char>(code[1])); };
    *size = 1;
    switch (*code) {
    case MATCH_OPEN:
        *size = 2;
        return "open " + slot();
    case MATCH_CLOSE:
        *size = 3;
        return "close " + slot() + " group " + std::to_string(code[2]);
    case MATCH_SUBJECT_END:
        return "subject-end";
    case MATCH_SKIP:
    case MATCH_SKIP_TOO:
        *size = 2;
        return "skip";
    case MATCH_SUB_END_REPLACING:
        return "sub-end replacing";
    case MATCH_SUB_END_SAVING:
        return "sub-end saving";
    case MATCH_SUB_END:
        return "sub-end";
    case MATCH_END:
        return "end";
    default:
        return "fail " + characterText(*code);
    }
}

// The instructions from `at` up to the limit, or without one up to the program's end or the first
// byte that is no instruction.
inline std::string listCode(const unsigned char *program, size_t at, size_t limit,
                            const std::string &indent) {
    std::string text;
    while (at < limit) {
        const unsigned char opcode = program[at];
        text += indent + std::to_string(at) + ": ";
        if (isGroup(opcode)) {
            const size_t sub = at + 2;
            const size_t end =
                sub + static_cast<size_t>((opcode & MATCH_LENGTH_HIGH_MASK) << 8 | program[at + 1]);
            const int kind = opcode & ~MATCH_LENGTH_HIGH_MASK;
            text += kind == MATCH_GROUP_COUNTED ? "group {" + std::to_string(program[end]) + "," +
                                                      std::to_string(program[end + 1]) + "}\n"
                    : kind == MATCH_GROUP_ONE_OR_MORE ? "group+\n"
                                                      : "group*\n";
            text += listCode(program, sub, end, indent + "  ");
            at = end + (kind == MATCH_GROUP_COUNTED ? 2 : 0);
            continue;
        }
        size_t size;
        text += (isItem(opcode) ? itemText : plainText)(program + at, &size) + "\n";
        const bool last = text.find("fail", text.rfind(": ")) != std::string::npos;
        if (limit == SIZE_MAX && (opcode == MATCH_END || opcode == MATCH_SUB_END || last))
            break;
        at += size;
    }
    return text;
}

inline std::string listProgram(const char *pattern) {
    const unsigned char *program = reinterpret_cast<const unsigned char *>(pattern);
    if (*program == MATCH_ANCHOR)
        return "0: anchored\n" + listCode(program, 1, SIZE_MAX, "");
    return listCode(program, 0, SIZE_MAX, "");
}

} // namespace listing

#endif

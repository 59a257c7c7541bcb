/* The patterns of the log headers, as programs of the matcher. Internal. */
#ifndef QUARNEL_LOG_SYMBOLPATTERNS_H
#define QUARNEL_LOG_SYMBOLPATTERNS_H

#include "../regex/match.h"

#ifdef __cplusplus
namespace symbolPatterns {

inline constexpr auto CAPITAL = matchProgram::range('A', 'Z');
inline constexpr auto SMALL = matchProgram::range('a', 'z');
inline constexpr auto DIGIT = matchProgram::range('0', '9');
inline constexpr auto UNDERSCORE = matchProgram::one('_');

/* log[A-Z][A-Z0-9_]*.h */
inline constexpr auto HEADER_FILE = matchProgram::program(
    matchProgram::ANCHORED, matchProgram::text("log"), matchProgram::in(CAPITAL),
    matchProgram::zeroOrMore(matchProgram::in(CAPITAL, DIGIT, UNDERSCORE)),
    matchProgram::text(".h"), matchProgram::AT_END);

/* [a-zA-Z][a-zA-Z0-9_]* */
inline constexpr auto DEFINED_NAME = matchProgram::program(
    matchProgram::ANCHORED, matchProgram::in(SMALL, CAPITAL),
    matchProgram::zeroOrMore(matchProgram::in(SMALL, CAPITAL, DIGIT, UNDERSCORE)),
    matchProgram::AT_END);

/* Groups of the two forms of a symbol. */
enum { GROUP_CLASS = 0, GROUP_NUMBER = 1 };

/* log([A-Z][A-Z0-9a-z_]+)(([0-9]*)): what a header defines a name as, and the log form */
inline constexpr auto LOG_FORM = matchProgram::program(
    matchProgram::ANCHORED, matchProgram::text("log"),
    matchProgram::capture(
        GROUP_CLASS, matchProgram::in(CAPITAL),
        matchProgram::oneOrMore(matchProgram::in(CAPITAL, DIGIT, SMALL, UNDERSCORE))),
    matchProgram::text("("),
    matchProgram::capture(GROUP_NUMBER, matchProgram::zeroOrMore(matchProgram::in(DIGIT))),
    matchProgram::text(")"), matchProgram::AT_END);

/* ([A-Z][A-Z0-9a-z_]*[A-Z0-9a-z])([0-9]{3}) */
inline constexpr auto SHORT_FORM = matchProgram::program(
    matchProgram::ANCHORED,
    matchProgram::capture(
        GROUP_CLASS, matchProgram::in(CAPITAL),
        matchProgram::zeroOrMore(matchProgram::in(CAPITAL, DIGIT, SMALL, UNDERSCORE)),
        matchProgram::in(CAPITAL, DIGIT, SMALL)),
    matchProgram::capture(GROUP_NUMBER, matchProgram::times(matchProgram::in(DIGIT), 3, 3)),
    matchProgram::AT_END);

// What DEFINED_NAME and LOG_FORM take, read without the matcher: headers have many thousand lines.

struct WordTable {
    constexpr WordTable() {
        for (const char *ch = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
             *ch != '\0'; ++ch)
            isWord[static_cast<unsigned char>(*ch)] = true;
    }
    bool isWord[256] = {};
};
inline constexpr WordTable WORD;

template<typename Char>
Char *skipWord(Char *text) {
    while (WORD.isWord[static_cast<unsigned char>(*text)])
        ++text;
    return text;
}

inline bool isDefinedName(const char *text) {
    return *text != '_' && (*text < '0' || *text > '9') && *text != '\0' && *skipWord(text) == '\0';
}

/* The groups of LOG_FORM in the text. */
struct LogForm {
    char *className, *classEnd;
    char *number, *numberEnd;
};

inline bool readLogForm(char *text, LogForm *form) {
    if (text[0] != 'l' || text[1] != 'o' || text[2] != 'g' || text[3] < 'A' || text[3] > 'Z')
        return false;
    form->className = text + 3;
    form->classEnd = text = skipWord(text + 4);
    if (text < form->className + 2 || *text++ != '(')
        return false;
    form->number = text;
    while (*text >= '0' && *text <= '9')
        ++text;
    form->numberEnd = text;
    return text[0] == ')' && text[1] == '\0';
}

} // namespace symbolPatterns
#endif

#endif

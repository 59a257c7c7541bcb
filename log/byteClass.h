/* Classes of bytes for the readers and writers of records, by the current locale and always on the
   unsigned byte: a char above 0x7F must not become a negative argument. What is the same in every
   locale, the classes of ASCII's graphic characters, is not asked for. Internal, C++ only. */
#ifndef QUARNEL_LOG_BYTECLASS_H
#define QUARNEL_LOG_BYTECLASS_H

#include <ctype.h>

#ifdef __cplusplus

static inline bool isAsciiGraph(char ch) {
    return ch > ' ' && ch < 0x7F;
}

static inline bool isAsciiLetter(char ch) {
    return (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
}

static inline bool isDigitByte(char ch) {
    return ch >= '0' && ch <= '9';
}

static inline bool isSpaceByte(char ch) {
    return ch == ' ' || (!isAsciiGraph(ch) && isspace(static_cast<unsigned char>(ch)) != 0);
}

static inline bool isPrintByte(char ch) {
    return ch == ' ' || isAsciiGraph(ch) || isprint(static_cast<unsigned char>(ch)) != 0;
}

static inline bool isGraphByte(char ch) {
    return isAsciiGraph(ch) || isgraph(static_cast<unsigned char>(ch)) != 0;
}

static inline bool isNameStartByte(char ch) {
    return isAsciiLetter(ch) || ch == '_' ||
           (!isAsciiGraph(ch) && isalpha(static_cast<unsigned char>(ch)) != 0);
}

static inline bool isNameByte(char ch) {
    return isDigitByte(ch) || isNameStartByte(ch);
}

static inline bool isOctalByte(char ch) {
    return ch >= '0' && ch <= '7';
}

// The value of a hexadecimal digit of either case; 16 for any other byte.
static inline unsigned hexDigitValue(char ch) {
    if (isDigitByte(ch))
        return static_cast<unsigned>(ch - '0');
    const char lower = static_cast<char>(ch | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a') + 10 : 16;
}

static inline const char *skipSpace(const char *text) {
    while (isSpaceByte(*text))
        ++text;
    return text;
}

#endif

#endif

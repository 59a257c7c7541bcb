/* Classes of bytes for the readers and writers of records, by the current locale and always on the
   unsigned byte: a char above 0x7F must not become a negative argument. Internal, C++ only. */
#ifndef QUARNEL_LOG_BYTECLASS_H
#define QUARNEL_LOG_BYTECLASS_H

#include <ctype.h>

#ifdef __cplusplus

static inline bool isDigitByte(char ch) {
    return isdigit(static_cast<unsigned char>(ch)) != 0;
}

static inline bool isSpaceByte(char ch) {
    return isspace(static_cast<unsigned char>(ch)) != 0;
}

static inline bool isPrintByte(char ch) {
    return isprint(static_cast<unsigned char>(ch)) != 0;
}

static inline bool isGraphByte(char ch) {
    return isgraph(static_cast<unsigned char>(ch)) != 0;
}

static inline bool isNameStartByte(char ch) {
    return isalpha(static_cast<unsigned char>(ch)) != 0 || ch == '_';
}

static inline bool isNameByte(char ch) {
    return isalnum(static_cast<unsigned char>(ch)) != 0 || ch == '_';
}

static inline bool isOctalByte(char ch) {
    return ch >= '0' && ch <= '7';
}

static inline const char *skipSpace(const char *text) {
    while (isSpaceByte(*text))
        ++text;
    return text;
}

#endif

#endif

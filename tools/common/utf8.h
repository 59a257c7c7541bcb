/* UTF-8 among bytes that may be anything. */
#ifndef TOOLS_COMMON_UTF8_H
#define TOOLS_COMMON_UTF8_H

#include <cstddef>
#include <string_view>

/* The bytes of the character of two bytes or more at the position; 0 where there is none. Longer
   forms than needed and surrogates are none. */
size_t utf8Sequence(std::string_view text, size_t at);

/* Whether the character there, of two bytes, is one of the second row of control characters, U+0080
   to U+009F. */
bool isUtf8Control(std::string_view text, size_t at);

#endif

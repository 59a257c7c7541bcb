/* JSON of any bytes. */
#ifndef TOOLS_COMMON_JSONTEXT_H
#define TOOLS_COMMON_JSONTEXT_H

#include <string>
#include <string_view>

/* Appends the text as a string, its quotes included; null for a null one. Control characters are
   escaped, those above U+007E too: a terminal may see it. */
void appendJson(std::string &json, std::string_view text);
void appendJson(std::string &json, const char *text);

/* Appends the text as UTF-8: a byte that belongs to no character as the character of its number. */
void appendUtf8(std::string &utf8, std::string_view text);

#endif

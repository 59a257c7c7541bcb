/* What a terminal may be sent, and how wide it is. */
#ifndef TOOLS_COMMON_TERMINAL_H
#define TOOLS_COMMON_TERMINAL_H

#include <string>
#include <string_view>

/* The columns of the terminal behind the descriptor; 0 when there is none or it does not tell. */
int terminalColumns(int fd);

/* Whether colours suit the descriptor: a terminal that can, and NO_COLOR not set (or empty). */
bool terminalTakesColour(int fd);

/* Whether the locale of the environment has UTF-8: block characters will be shown as such. */
bool localeIsUtf8();

/* The text with every control character spelled out: backspace, form feed and carriage return as \b
   \f \r, others by their octal value, as <33>. Tab and line feed stay. Bytes above 7F stay where
   they are the UTF-8 of something printable; the second row of control characters does not. */
std::string withoutControls(std::string_view text);
void appendWithoutControls(std::string &safe, std::string_view text);

/* Writes to standard output: as it is, but for a terminal without controls. */
void writeShown(std::string_view text);

#endif

#include "terminal.h"

#include <cstdio>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

int terminalColumns(int fd) {
    winsize size = {};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool terminalTakesColour(int fd) {
    const char *refused = getenv("NO_COLOR");
    const char *terminal = getenv("TERM");
    return isatty(fd) && (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

static bool isContinuation(std::string_view text, size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

// The bytes of the UTF-8 sequence at the position; 0 when there is none, or none that may be shown:
// U+0080 to U+009F are controls, longer forms than needed could hide one.
static size_t printableSequence(std::string_view text, size_t at) {
    const auto first = static_cast<unsigned char>(text[at]);
    const size_t length = first >= 0xC2 && first <= 0xDF   ? 2
                          : first >= 0xE0 && first <= 0xEF ? 3
                          : first >= 0xF0 && first <= 0xF4 ? 4
                                                           : 0;
    for (size_t i = 1; i < length; i++)
        if (!isContinuation(text, at + i))
            return 0;
    if (length == 0)
        return 0;
    const auto second = static_cast<unsigned char>(text[at + 1]);
    const bool refused = (first == 0xC2 && second < 0xA0) || (first == 0xE0 && second < 0xA0) ||
                         (first == 0xED && second >= 0xA0) || (first == 0xF0 && second < 0x90) ||
                         (first == 0xF4 && second >= 0x90);
    return refused ? 0 : length;
}

static std::string spelledOut(unsigned char byte) {
    switch (byte) {
    case '\b':
        return "\\b";
    case '\f':
        return "\\f";
    case '\r':
        return "\\r";
    default: {
        char octal[16];
        snprintf(octal, sizeof octal, "<%o>", byte);
        return octal;
    }
    }
}

std::string withoutControls(std::string_view text) {
    std::string safe;
    safe.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const bool plain = (byte >= ' ' && byte < 0x7F) || byte == '\n' || byte == '\t';
        const size_t length = plain ? 1 : byte < 0x80 ? 0 : printableSequence(text, at);
        if (length > 0)
            safe.append(text, at, length);
        else
            safe += spelledOut(byte);
        at += length > 0 ? length : 1;
    }
    return safe;
}

void writeShown(std::string_view text) {
    static const bool toTerminal = isatty(STDOUT_FILENO) == 1;
    const std::string shown = toTerminal ? withoutControls(text) : std::string(text);
    fwrite(shown.data(), 1, shown.size(), stdout);
}

#include "terminal.h"

#include "utf8.h"

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

// Whether the bytes are such as every terminal may see. No branch: compilers look at many at once.
static bool isPlainBlock(const char *block, size_t size) {
    unsigned char odd = 0;
    for (size_t i = 0; i < size; i++) {
        const auto byte = static_cast<unsigned char>(block[i]);
        const bool printable = static_cast<unsigned char>(byte - ' ') <= '~' - ' ';
        odd |= static_cast<unsigned char>(!printable & (byte != '\n') & (byte != '\t'));
    }
    return odd == 0;
}

static size_t plainPrefix(std::string_view text) {
    constexpr size_t BLOCK = 16;
    size_t at = 0;
    while (at + BLOCK <= text.size() && isPlainBlock(text.data() + at, BLOCK))
        at += BLOCK;
    // The last bytes within a whole block, some of which were seen already.
    if (at > 0 && at + BLOCK > text.size() &&
        isPlainBlock(text.data() + text.size() - BLOCK, BLOCK))
        return text.size();
    while (at < text.size() && isPlainBlock(text.data() + at, 1))
        at++;
    return at;
}

void appendWithoutControls(std::string &safe, std::string_view text) {
    for (size_t at = 0; at < text.size();) {
        const size_t plain = plainPrefix(text.substr(at));
        safe.append(text, at, plain);
        at += plain;
        if (at == text.size())
            break;
        const size_t length = isUtf8Control(text, at) ? 0 : utf8Sequence(text, at);
        if (length > 0)
            safe.append(text, at, length);
        else
            safe += spelledOut(static_cast<unsigned char>(text[at]));
        at += length > 0 ? length : 1;
    }
}

std::string withoutControls(std::string_view text) {
    std::string safe;
    safe.reserve(text.size());
    appendWithoutControls(safe, text);
    return safe;
}

void writeShown(std::string_view text) {
    static const bool toTerminal = isatty(STDOUT_FILENO) == 1;
    const std::string shown = toTerminal ? withoutControls(text) : std::string(text);
    fwrite(shown.data(), 1, shown.size(), stdout);
}

bool localeIsUtf8() {
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = getenv(name);
        if (value == nullptr || *value == '\0')
            continue;
        const std::string_view locale = value;
        return locale.find("UTF-8") != std::string_view::npos ||
               locale.find("utf8") != std::string_view::npos;
    }
    return false;
}

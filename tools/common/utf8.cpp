#include "utf8.h"

static bool isContinuation(std::string_view text, size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

size_t utf8Sequence(std::string_view text, size_t at) {
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
    const bool refused = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                         (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
    return refused ? 0 : length;
}

bool isUtf8Control(std::string_view text, size_t at) {
    return text[at] == '\xC2' && at + 1 < text.size() &&
           static_cast<unsigned char>(text[at + 1]) < 0xA0;
}

/* The few colours: what deserves a look stands out, the rest is plain. */
#ifndef TOOLS_QNLOG_COLOURS_H
#define TOOLS_QNLOG_COLOURS_H

#include <cstdint>
#include <cstddef>
#include <iterator>

constexpr const char *MARK_COLOUR = "35";   // of what is no record
constexpr const char *HEADING_COLOUR = "1"; // of a table

inline const char *priorityColour(int32_t priority) {
    // The last one for those above 4.
    constexpr const char *COLOURS[] = {"", "36", "33", "31", "1;37;41", "1;31"};
    constexpr size_t LAST = std::size(COLOURS) - 1;
    const size_t index = priority < 0 ? 0 : static_cast<size_t>(priority);
    return COLOURS[index < LAST ? index : LAST];
}

#endif

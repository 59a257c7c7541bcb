#include "panel.h"

#include "colours.h"

#include <algorithm>

namespace {

constexpr size_t GAP = 2;         // columns between the parts of a line
constexpr size_t SHARE_WIDTH = 5; // "100 %"
constexpr size_t LONGEST_BAR = 40;

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

size_t characters(const std::string &text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return !isContinuation(byte); }));
}

std::string padded(std::string text, size_t width) {
    const size_t used = characters(text);
    return used < width ? text.append(width - used, ' ') : text;
}

std::string aligned(const std::string &text, size_t width) {
    const size_t used = characters(text);
    return (used < width ? std::string(width - used, ' ') : "") + text;
}

// Its beginning with a "~", where there is no room for all of it.
std::string shortened(const std::string &text, size_t width) {
    if (characters(text) <= width)
        return text;
    size_t end = 0;
    for (size_t left = width; left > 0; left--)
        do
            end++;
        while (end < text.size() && isContinuation(text[end]));
    while (end > 0 && isContinuation(text[end - 1]))
        end--;
    return text.substr(0, end - 1) + "~";
}

// In eighths of a column where there are characters for them. Never nothing for something.
std::string barOf(uint64_t count, uint64_t largest, size_t width, bool blocks) {
    constexpr const char *EIGHTHS[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const uint64_t steps = blocks ? 8 : 1;
    const double share = static_cast<double>(count) / static_cast<double>(largest);
    const auto scaled =
        static_cast<uint64_t>(share * static_cast<double>(width) * static_cast<double>(steps));
    const uint64_t length = std::max<uint64_t>(scaled, count > 0 ? 1 : 0);
    std::string bar;
    for (uint64_t i = 0; i < length / steps; i++)
        bar += blocks ? "█" : "#";
    return bar + EIGHTHS[length % steps];
}

std::string shareOf(uint64_t count, uint64_t whole) {
    const uint64_t share = (count * 200 + whole) / (2 * whole); // rounded
    return share == 0 ? "< 1 %" : std::to_string(share) + " %";
}

std::string painted(const std::string &text, const char *colour, bool wanted) {
    return wanted && *colour != '\0' ? std::string("\x1B[") + colour + "m" + text + "\x1B[0m"
                                     : text;
}

struct Columns {
    size_t label = 0;
    size_t count = 0;
    size_t bar = 0;
    size_t rest = 0; // behind the bars
};

Columns columnsFor(const std::string &heading, const std::vector<Count> &counts, size_t width) {
    Columns columns;
    columns.label = characters(heading);
    columns.count = characters("count");
    for (const Count &each : counts) {
        columns.label = std::max(columns.label, characters(each.label));
        columns.count = std::max(columns.count, grouped(each.count).size());
    }
    columns.label = std::min(columns.label, std::max<size_t>(width * 2 / 5, 12));
    const size_t used = columns.label + columns.count + SHARE_WIDTH + 3 * GAP;
    const size_t free = used < width ? width - used : 0;
    columns.bar = std::min(free, LONGEST_BAR);
    columns.rest = free - columns.bar;
    return columns;
}

} // namespace

std::string grouped(uint64_t number) {
    std::string text = std::to_string(number);
    for (size_t at = text.size(); at > 3;)
        text.insert(at -= 3, 1, ',');
    return text;
}

Lines panelOf(const std::string &heading, const std::vector<Count> &counts, uint64_t whole,
              const StatisticsStyle &style) {
    const auto width = static_cast<size_t>(style.width);
    const Columns columns = columnsFor(heading, counts, width);
    const std::string gap(GAP, ' ');
    uint64_t largest = 1;
    for (const Count &each : counts)
        largest = std::max(largest, each.hasBar ? each.count : 0);
    Lines lines = {
        painted(padded(padded(heading, columns.label) + gap + aligned("count", columns.count) +
                           gap + aligned("share", SHARE_WIDTH),
                       width),
                HEADING_COLOUR, style.colour)};
    for (const Count &each : counts) {
        const std::string bar = padded(
            each.hasBar ? barOf(each.count, largest, columns.bar, style.blocks) : "", columns.bar);
        lines.push_back(padded(shortened(each.label, columns.label), columns.label) + gap +
                        aligned(grouped(each.count), columns.count) + gap +
                        aligned(shareOf(each.count, std::max<uint64_t>(whole, 1)), SHARE_WIDTH) +
                        gap + painted(bar, each.colour, style.colour) +
                        std::string(columns.rest, ' '));
    }
    return lines;
}

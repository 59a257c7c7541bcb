#include "moment.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace {

constexpr int64_t DAY = 86400;

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

void skipBlanks(std::string_view &text) {
    while (startsWith(text, " "))
        text.remove_prefix(1);
}

// Digits, at most ten, from the beginning of the text on.
std::optional<int64_t> takeNumber(std::string_view &text) {
    int64_t number = 0;
    const char *const begin = text.data();
    const auto [end, error] = std::from_chars(begin, begin + text.size(), number);
    if (error != std::errc() || text[0] == '-' || end - begin > 10)
        return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - begin));
    return number;
}

// "m", "min", "mins", "minute", "minutes": any beginning of the unit's name that is told by its
// first letter.
std::optional<int64_t> takeUnit(std::string_view &text) {
    constexpr struct {
        std::string_view name;
        int64_t seconds;
    } UNITS[] = {{"seconds", 1}, {"minutes", 60}, {"mins", 60},      {"hours", 3600},
                 {"hrs", 3600},  {"days", DAY},   {"weeks", 7 * DAY}};
    size_t length = 0;
    while (length < text.size() && std::islower(static_cast<unsigned char>(text[length])) != 0)
        length++;
    for (const auto &unit : UNITS)
        if (length > 0 && startsWith(unit.name, text.substr(0, length))) {
            text.remove_prefix(length);
            return unit.seconds;
        }
    return std::nullopt;
}

std::optional<int64_t> durationAgo(std::string_view text) {
    int64_t seconds = 0;
    if (startsWith(text, "-"))
        text.remove_prefix(1);
    do {
        const std::optional<int64_t> count = takeNumber(text);
        skipBlanks(text);
        const std::optional<int64_t> unit = count ? takeUnit(text) : std::nullopt;
        if (!unit)
            return std::nullopt;
        seconds += *count * *unit;
        skipBlanks(text);
    } while (!text.empty() && text != "ago");
    return seconds;
}

std::optional<int64_t> sinceEpoch(std::string_view text) {
    constexpr size_t TOLD_FROM_A_YEAR = 9; // digits
    const bool marked = startsWith(text, "@");
    if (marked)
        text.remove_prefix(1);
    else if (text.size() < TOLD_FROM_A_YEAR)
        return std::nullopt;
    const std::optional<int64_t> number = takeNumber(text);
    return text.empty() ? number : std::nullopt;
}

// The whole text in the layout; the fields that it does not name keep their values.
bool fits(const std::string &text, const char *layout, tm &fields) {
    tm read = fields;
    const char *end = strptime(text.c_str(), layout, &read);
    if (end == nullptr || *end != '\0')
        return false;
    fields = read;
    return true;
}

// By the zone of the text, or the local one. None for a day that its month has not.
std::optional<int64_t> secondsOf(tm fields, bool hasZone) {
    const int day = fields.tm_mday;
    const long offset = fields.tm_gmtoff;
    fields.tm_isdst = hasZone ? 0 : -1;
    const int64_t seconds = hasZone ? timegm(&fields) - int64_t{offset} : mktime(&fields);
    return fields.tm_mday == day ? std::optional<int64_t>(seconds) : std::nullopt;
}

std::optional<int64_t> onTheClock(const std::string &text, const tm &midnight) {
    for (const char *layout :
         {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%S",
          "%H:%M", "%H:%M:%S", "%a %b %d %H:%M:%S %Y", "%Y-%m-%dT%H:%M:%S%z"}) {
        tm fields = midnight;
        if (fits(text, layout, fields))
            return secondsOf(fields, std::string_view(layout).find("%z") != std::string_view::npos);
    }
    return std::nullopt;
}

// "today", "yesterday", alone or before a time of the day.
std::optional<int64_t> onADayByName(const std::string &text, tm midnight) {
    constexpr struct {
        std::string_view name;
        int days;
    } DAYS[] = {{"today", 0}, {"yesterday", -1}, {"tomorrow", 1}};
    for (const auto &day : DAYS) {
        if (!startsWith(text, day.name))
            continue;
        std::string rest = text.substr(day.name.size());
        if (!rest.empty() && rest[0] != ' ')
            continue;
        rest.erase(0, std::min(rest.find_first_not_of(' '), rest.size()));
        if (!rest.empty() && !fits(rest, "%H:%M", midnight) && !fits(rest, "%H:%M:%S", midnight))
            continue;
        midnight.tm_mday += day.days;
        midnight.tm_isdst = -1;
        return mktime(&midnight);
    }
    return std::nullopt;
}

} // namespace

int64_t parseMoment(const std::string &text, int64_t now) {
    if (text == "now")
        return now;
    if (const std::optional<int64_t> ago = durationAgo(text))
        return now - *ago;
    if (const std::optional<int64_t> seconds = sinceEpoch(text))
        return *seconds;
    const auto systemNow = static_cast<time_t>(now);
    tm midnight = {};
    localtime_r(&systemNow, &midnight);
    midnight.tm_hour = midnight.tm_min = midnight.tm_sec = 0;
    if (const std::optional<int64_t> seconds = onTheClock(text, midnight))
        return *seconds;
    if (const std::optional<int64_t> seconds = onADayByName(text, midnight))
        return *seconds;
    throw std::invalid_argument("\"" + text +
                                "\" is no time (15m, yesterday 14:00, 2026-03-01 12:30, @seconds)");
}

#include "selection.h"

#include "log/expandLog.h"
#include "log/logFields.h"
#include "log/logSyms.h"

#include <algorithm>
#include <charconv>
#include <fnmatch.h>
#include <limits>
#include <sstream>
#include <stdexcept>

bool Selection::accepts(const LogMsg &msg) const {
    return std::all_of(conditions_.begin(), conditions_.end(),
                       [&](const Condition &condition) { return condition(msg); });
}

static int64_t parseNumber(const std::string &text) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0)
        throw std::invalid_argument("\"" + text + "\" is no number");
    return number;
}

NumberSet::NumberSet(const std::string &list) {
    std::istringstream stream(list);
    for (std::string part; std::getline(stream, part, ',');) {
        const size_t dash = part.find('-');
        const std::string low = part.substr(0, dash);
        const std::string high = dash == std::string::npos ? low : part.substr(dash + 1);
        const Range range = {parseNumber(low), high.empty() && dash != std::string::npos
                                                   ? std::numeric_limits<int64_t>::max()
                                                   : parseNumber(high)};
        if (range.low > range.high)
            throw std::invalid_argument("\"" + part + "\" holds no number");
        ranges_.push_back(range);
    }
    if (ranges_.empty())
        throw std::invalid_argument("the list is empty");
}

bool NumberSet::holds(int64_t number) const {
    return std::any_of(ranges_.begin(), ranges_.end(), [number](const Range &range) {
        return range.low <= number && number <= range.high;
    });
}

// The whole text in the layout; the fields that it does not name keep their values.
static bool fits(const std::string &text, const char *layout, tm &fields) {
    tm read = fields;
    const char *end = strptime(text.c_str(), layout, &read);
    if (end == nullptr || *end != '\0')
        return false;
    fields = read;
    return true;
}

static bool secondsAgo(const std::string &text, int64_t &seconds) {
    constexpr struct {
        char letter;
        int64_t seconds;
    } UNITS[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
    for (const auto &unit : UNITS)
        if (text.size() >= 2 && text.size() <= 9 && text.back() == unit.letter) {
            seconds = parseNumber(text.substr(0, text.size() - 1)) * unit.seconds;
            return true;
        }
    return false;
}

time_t parseMoment(const std::string &text, time_t now) {
    int64_t ago = 0;
    if (!text.empty() && text[0] == '@')
        return static_cast<time_t>(parseNumber(text.substr(1)));
    if (secondsAgo(text, ago))
        return static_cast<time_t>(now - ago);
    tm fields = {};
    localtime_r(&now, &fields);
    fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
    for (const char *layout : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M",
                               "%Y-%m-%dT%H:%M:%S", "%H:%M", "%H:%M:%S"})
        if (fits(text, layout, fields)) {
            fields.tm_isdst = -1;
            return mktime(&fields);
        }
    throw std::invalid_argument("\"" + text + "\" is no time (2026-03-01, 12:30, @seconds, 15m)");
}

Condition priorityIn(const std::string &list) {
    return [set = NumberSet(list)](const LogMsg &msg) { return set.holds(msg.priority); };
}

Condition numberIn(const std::string &list) {
    return [set = NumberSet(list)](const LogMsg &msg) { return set.holds(msg.index); };
}

// Whether the text, which may be none, matches any of the patterns.
static bool matchesAny(const std::vector<std::string> &patterns, const char *text) {
    return text != nullptr &&
           std::any_of(patterns.begin(), patterns.end(), [text](const std::string &pattern) {
               return fnmatch(pattern.c_str(), text, 0) == 0;
           });
}

Condition producerLike(const std::vector<std::string> &patterns) {
    return [patterns](const LogMsg &msg) { return matchesAny(patterns, msg.producer); };
}

Condition symbolLike(const std::vector<std::string> &patterns) {
    return [patterns](const LogMsg &msg) {
        return matchesAny(patterns, logAbsIndexToSymbol(msg.index));
    };
}

Condition classLike(const std::vector<std::string> &patterns) {
    return [patterns](const LogMsg &msg) {
        const LogSymbol *symbol = logFindAbsIndex(msg.index);
        return symbol != nullptr && matchesAny(patterns, symbol->className);
    };
}

Condition fieldLike(const std::string &text) {
    const size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0)
        throw std::invalid_argument("\"" + text + "\" is not NAME=PATTERN");
    return [name = text.substr(0, sign), pattern = text.substr(sign + 1)](const LogMsg &msg) {
        const int32_t position = cvtLogFieldNameToIndex(msg.index, name.c_str());
        return position >= 0 && position < msg.argCount &&
               fnmatch(pattern.c_str(), msg.args[position].value, 0) == 0;
    };
}

// The message alone is had by a layout that holds nothing else.
Condition messageHolding(const std::string &part) {
    return [part](const LogMsg &msg) {
        const char *current = getExpansionFmt();
        const std::string layout = current == nullptr ? "" : current;
        chgExpansionFmt("%M");
        const char *message = expandLog(msg.record);
        const bool holds =
            message != nullptr && std::string(message).find(part) != std::string::npos;
        chgExpansionFmt(layout.c_str());
        return holds;
    };
}

Condition notBefore(time_t moment) {
    return [moment](const LogMsg &msg) { return msg.time >= moment; };
}

Condition notAfter(time_t moment) {
    return [moment](const LogMsg &msg) { return msg.time <= moment; };
}

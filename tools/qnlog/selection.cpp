#include "selection.h"

#include "messageText.h"

#include "log/logFields.h"
#include "log/logSyms.h"

#include <algorithm>
#include <charconv>
#include <fnmatch.h>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <unordered_map>

void Selection::require(Condition condition, Cost cost) {
    const auto place =
        std::upper_bound(conditions_.begin(), conditions_.end(), cost,
                         [](Cost wanted, const Entry &entry) { return wanted < entry.cost; });
    conditions_.insert(place, {std::move(condition), cost});
}

bool Selection::accepts(Record &record) const {
    return std::all_of(conditions_.begin(), conditions_.end(),
                       [&](const Entry &entry) { return entry.condition(record); });
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

Condition priorityIn(const std::string &list) {
    return [set = NumberSet(list)](Record &record) { return set.holds(record.priority()); };
}

Condition numberIn(const std::string &list) {
    return [set = NumberSet(list)](Record &record) { return set.holds(record.number()); };
}

// Whether a text matches the pattern, which for most is the text itself.
class Pattern {
  public:
    explicit Pattern(std::string pattern)
        : pattern_(std::move(pattern)),
          plain_(pattern_.find_first_of("*?[\\") == std::string::npos) {}
    bool matches(std::string_view text) const {
        return plain_ ? text == pattern_
                      : fnmatch(pattern_.c_str(), std::string(text).c_str(), 0) == 0;
    }

  private:
    std::string pattern_;
    bool plain_;
};

// What the catalogue says of a number is asked once.
template<typename Judge>
static Condition byNumber(Judge judge) {
    return [judge, known = std::unordered_map<int32_t, bool>()](Record &record) mutable {
        const auto [place, fresh] = known.try_emplace(record.number(), false);
        if (fresh)
            place->second = judge(record.number());
        return place->second;
    };
}

Condition producerLike(const std::string &pattern) {
    return [like = Pattern(pattern)](Record &record) { return like.matches(record.producer()); };
}

Condition symbolLike(const std::string &pattern) {
    return byNumber([like = Pattern(pattern)](int32_t number) {
        const char *symbol = logAbsIndexToSymbol(number);
        return symbol != nullptr && like.matches(symbol);
    });
}

Condition classLike(const std::string &pattern) {
    return byNumber([like = Pattern(pattern)](int32_t number) {
        const LogSymbol *symbol = logFindAbsIndex(number);
        return symbol != nullptr && like.matches(symbol->className);
    });
}

Condition fieldLike(const std::string &text) {
    const size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0)
        throw std::invalid_argument("\"" + text + "\" is not NAME=PATTERN");
    return [name = text.substr(0, sign), like = Pattern(text.substr(sign + 1))](Record &record) {
        const int32_t position = cvtLogFieldNameToIndex(record.number(), name.c_str());
        if (position < 0)
            return false;
        const std::vector<std::string_view> arguments = record.arguments();
        return static_cast<size_t>(position) < arguments.size() &&
               like.matches(arguments[static_cast<size_t>(position)]);
    };
}

Condition messageHolding(const std::string &part) {
    return [part](Record &record) {
        const char *message = messageText(record);
        return message != nullptr && std::string_view(message).find(part) != std::string_view::npos;
    };
}

Condition anyOf(std::vector<Condition> conditions) {
    return [conditions = std::move(conditions)](Record &record) {
        return std::any_of(conditions.begin(), conditions.end(),
                           [&](const Condition &condition) { return condition(record); });
    };
}

Condition noneOf(Condition condition) {
    return [condition = std::move(condition)](Record &record) { return !condition(record); };
}

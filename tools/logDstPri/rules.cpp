#include "rules.h"

#include "../common/report.h"
#include "../common/wholeFiles.h"

#include "log/logSyms.h"

#include <charconv>
#include <fnmatch.h>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>

constexpr size_t COUNT_BYTES = 4;
constexpr size_t ROW_BYTES = 8;
constexpr uint32_t MAX_PRIORITY = 4; // the last one that has a mark

static uint32_t bigEndian(const std::string &bytes, size_t at) {
    uint32_t value = 0;
    for (size_t each = 0; each < 4; ++each)
        value = value << 8 | static_cast<uint8_t>(bytes[at + each]);
    return value;
}

Routing readCompiledRouting(const std::string &path) {
    const std::string bytes = readWholeFile(path);
    const size_t count = bytes.size() < COUNT_BYTES ? 0 : bigEndian(bytes, 0);
    if (bytes.size() != COUNT_BYTES + ROW_BYTES * count || count == 0)
        throw WorkFailed(path + ": not a compiled routing (run qncatalog)");
    Routing routing;
    for (size_t at = COUNT_BYTES; at < bytes.size(); at += ROW_BYTES)
        routing.push_back({static_cast<int32_t>(bigEndian(bytes, at)), bigEndian(bytes, at + 4)});
    return routing;
}

// Decimal, or hexadecimal behind 0x. Throws std::invalid_argument.
static uint32_t parseNumber(const std::string &text) {
    const bool isHex = text.rfind("0x", 0) == 0;
    const char *first = text.data() + (isHex ? 2 : 0);
    const char *last = text.data() + text.size();
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(first, last, value, isHex ? 16 : 10);
    if (error != std::errc() || end != last)
        throw std::invalid_argument("\"" + text + "\" is no number of 32 bits");
    return value;
}

using Matcher = std::function<bool(size_t number)>;

static Matcher numberMatcher(const std::string &range) {
    const size_t dash = range.find('-');
    const uint32_t low = parseNumber(range.substr(0, dash));
    const uint32_t high = dash == std::string::npos ? low : parseNumber(range.substr(dash + 1));
    return [low, high](size_t number) { return low <= number && number <= high; };
}

static bool matches(const std::string &pattern, const char *text) {
    return text != nullptr && fnmatch(pattern.c_str(), text, 0) == 0;
}

static Matcher matcherOf(const std::string &kind, const std::string &what) {
    if (kind == "number")
        return numberMatcher(what);
    if (kind == "symbol")
        return [what](size_t number) {
            return matches(what, logAbsIndexToSymbol(static_cast<int32_t>(number)));
        };
    if (kind == "class")
        return [what](size_t number) {
            const LogSymbol *symbol = logFindAbsIndex(static_cast<int32_t>(number));
            return symbol != nullptr && matches(what, symbol->className);
        };
    throw std::invalid_argument("\"" + kind + "\" is none of class, symbol, number");
}

// "-" keeps what stands.
static std::optional<uint32_t> parseChange(const std::string &text) {
    return text == "-" ? std::nullopt : std::optional<uint32_t>(parseNumber(text));
}

static void applyRule(const std::string &line, Routing &routing) {
    std::istringstream words(line);
    std::string kind, what, priorityText, destinationText, more;
    if (!(words >> kind >> what >> priorityText >> destinationText) || words >> more)
        throw std::invalid_argument("a rule is: class|symbol|number WHICH PRIORITY DESTINATION");
    const Matcher matcher = matcherOf(kind, what);
    const std::optional<uint32_t> priority = parseChange(priorityText);
    const std::optional<uint32_t> destination = parseChange(destinationText);
    if (priority && *priority > MAX_PRIORITY)
        throw std::invalid_argument("priority " + priorityText + " is above 4");
    bool any = false;
    for (size_t number = 0; number < routing.size(); ++number) {
        if (!matcher(number))
            continue;
        any = true;
        if (priority)
            routing[number].priority = static_cast<int32_t>(*priority);
        if (destination)
            routing[number].destination = *destination;
    }
    if (!any)
        throw std::invalid_argument("no message is meant by " + kind + " " + what);
}

bool applyRules(const std::string &path, Routing &routing) {
    std::istringstream lines(readWholeFile(path));
    bool sound = true;
    size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        line = line.substr(0, line.find('#'));
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        try {
            applyRule(line, routing);
        } catch (const std::invalid_argument &mistake) {
            reportError(path, number, mistake.what());
            sound = false;
        }
    }
    return sound;
}

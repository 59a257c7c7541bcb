#include "scriptParser.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

namespace {

using Words = std::vector<std::string_view>;

constexpr std::array<std::string_view, TRIGGER_COUNT> TRIGGER_WORDS = {"open", "timer", "dial"};
constexpr size_t MAX_FILE_SIZE = 1U << 20;
constexpr size_t MAX_SHOWN = 40;

// What a fault says is one readable line, whatever bytes the script holds.
std::string quoted(std::string_view word) {
    std::string shown = "\"";
    for (const char ch : word.substr(0, MAX_SHOWN))
        shown += isprint(static_cast<unsigned char>(ch)) != 0 ? ch : '?';
    return shown + (word.size() > MAX_SHOWN ? "...\"" : "\"");
}

bool isBlank(char ch) {
    return ch == ' ' || ch == '\t' || ch == '\r';
}

Words split(std::string_view line) {
    line = line.substr(0, line.find('#'));
    Words words;
    for (size_t at = 0; at < line.size();) {
        const size_t start = at;
        while (at < line.size() && !isBlank(line[at]))
            ++at;
        if (at > start)
            words.push_back(line.substr(start, at - start));
        else
            ++at;
    }
    return words;
}

bool parseNumber(std::string_view word, int32_t lowest, int32_t &number) {
    int32_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || value < lowest)
        return false;
    number = value;
    return true;
}

constexpr int32_t LOWEST = std::numeric_limits<int32_t>::min();

// One script being parsed: what it holds so far, and the block that events join.
struct Parser {
    LineScript script;
    ScriptBlock *block = nullptr; // null until the first block opens

    // Each returns the reason why the line is refused, empty when it is not.
    std::string openBlock(size_t trigger, const Words &words);
    std::string addEvent(const Words &words);
    std::string takeLine(std::string_view line);
};

std::string parseRefusal(const Words &words, int32_t &result) {
    if (words[1] != "refused")
        return "\"refused\" expected, not " + quoted(words[1]);
    result = 0;
    if (words.size() > 2 && !parseNumber(words[2], LOWEST, result))
        return quoted(words[2]) + " is no 32-bit result";
    if (result == 1)
        return "result 1 would be an accepted start";
    if (words.size() > 3)
        return "nothing may follow the result, not " + quoted(words[3]);
    return "";
}

std::string Parser::openBlock(size_t trigger, const Words &words) {
    std::deque<ScriptBlock> &blocks = script[trigger];
    if (trigger == TRIGGER_OPEN && words.size() > 1)
        return "nothing may follow \"open\", not " + quoted(words[1]);
    if (trigger == TRIGGER_OPEN && !blocks.empty())
        return "\"open\" may stand only once";
    ScriptBlock fresh;
    if (words.size() > 1)
        if (std::string reason = parseRefusal(words, fresh.result); !reason.empty())
            return reason;
    blocks.push_back(fresh);
    block = &blocks.back();
    return "";
}

std::string Parser::addEvent(const Words &words) {
    ScriptedEvent event = {};
    if (!parseNumber(words[0], 0, event.delay))
        return quoted(words[0]) + " is neither \"open\", \"timer\", \"dial\" nor a delay of 0 to "
                                  "2147483647 milliseconds";
    if (block == nullptr)
        return "an event before the first \"open\", \"timer\" or \"dial\"";
    if (block->result != 1)
        return "an event after a refused start";
    if (words.size() < 3 || words[1] != "event")
        return "\"event\" and a code expected after the delay";
    if (!parseNumber(words[2], LOWEST, event.code))
        return quoted(words[2]) + " is no 32-bit code";
    if (words.size() > 3 && (words.size() < 5 || words[3] != "sub"))
        return "\"sub\" and a sub-code, or nothing, expected after the code";
    if (words.size() > 3 && !parseNumber(words[4], LOWEST, event.subcode))
        return quoted(words[4]) + " is no 32-bit sub-code";
    if (words.size() > 5)
        return "nothing may follow the sub-code, not " + quoted(words[5]);
    block->events.push_back(event);
    return "";
}

std::string Parser::takeLine(std::string_view line) {
    const Words words = split(line);
    if (words.empty())
        return "";
    for (size_t trigger = 0; trigger < TRIGGER_COUNT; ++trigger)
        if (words[0] == TRIGGER_WORDS[trigger])
            return openBlock(trigger, words);
    return addEvent(words);
}

} // namespace

bool parseLineScript(const std::string &name, const std::string &text, LineScript &script,
                     std::string &fault) {
    Parser parser;
    std::string_view rest = text;
    for (uint32_t number = 1; !rest.empty(); ++number) {
        const size_t length = rest.find('\n');
        const std::string reason = parser.takeLine(rest.substr(0, length));
        if (!reason.empty()) {
            fault = name;
            fault.append(":").append(std::to_string(number)).append(": ").append(reason);
            return false;
        }
        rest.remove_prefix(length == std::string_view::npos ? rest.size() : length + 1);
    }
    script = std::move(parser.script);
    return true;
}

// False with errno set, EFBIG beyond the limit.
static bool readFile(const std::string &path, std::string &text) {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(path.c_str(), "re"), fclose);
    if (file == nullptr)
        return false;
    char part[4096];
    for (size_t count; (count = fread(part, 1, sizeof part, file.get())) > 0;) {
        text.append(part, count);
        if (text.size() > MAX_FILE_SIZE) {
            errno = EFBIG;
            return false;
        }
    }
    return ferror(file.get()) == 0;
}

bool readLineScript(const std::string &path, LineScript &script, std::string &fault) {
    std::string text;
    if (!readFile(path, text)) {
        fault = path + ": " + strerror(errno);
        return false;
    }
    return parseLineScript(path, text, script, fault);
}

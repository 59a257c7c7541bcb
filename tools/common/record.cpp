#include "record.h"

#include "log/logMsg.h"

#include <climits>

constexpr char FS = '\x1C';
constexpr char GS = '\x1D';

static bool isSpace(char ch) {
    return ch == ' ' || (ch >= '\t' && ch <= '\r');
}

// Digits that do not fit count as the highest number.
static const char *readLine(const char *text, int32_t &line) {
    int64_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text)
        if (value <= INT32_MAX)
            value = value * 10 + (*text - '0');
    line = static_cast<int32_t>(value > INT32_MAX ? INT32_MAX : value);
    return text;
}

// What follows the time; false where it is no record's.
bool Record::readPlace(const char *text) {
    const char *end = text;
    while (*end != '\0' && *end != FS && !isSpace(*end))
        ++end;
    if (!isSpace(*end))
        return false;
    producer_ = {text, static_cast<size_t>(end - text)};
    while (isSpace(*end))
        ++end;
    text = end;
    while (*end != '\0' && *end != FS && *end != ':')
        ++end;
    if (*end != ':')
        return false;
    file_ = {text, static_cast<size_t>(end - text)};
    end = readLine(end + 1, line_);
    rest_ = {end, static_cast<size_t>(text_.data() + text_.size() - end)};
    return *end == FS || *end == GS;
}

Record::Kind Record::kindOf(const LogEntry &entry) {
    if (entry.bytes.find('\0') != std::string_view::npos)
        return Kind::FOREIGN;
    if (entry.cut)
        return Kind::CUT;
    char *rest = nullptr;
    const int32_t type = typeOfCmpLog(text_.c_str(), &number_, &priority_, &time_, &rest);
    if (type >= 0)
        return readPlace(rest) ? Kind::RECORD : Kind::FOREIGN;
    return type == -2 ? Kind::COMMENT : Kind::FOREIGN;
}

void Record::read(const LogEntry &entry) {
    text_.assign(entry.bytes);
    text_ += '\n';
    kind_ = kindOf(entry);
}

std::vector<std::string_view> Record::arguments() const {
    std::vector<std::string_view> found;
    std::string_view left = rest_;
    while (!left.empty() && left[0] == FS) {
        left.remove_prefix(1);
        const size_t end = left.find_first_of("\x1C\x1D");
        if (end == std::string_view::npos)
            break;
        found.push_back(left.substr(0, end));
        left.remove_prefix(end);
    }
    return found;
}

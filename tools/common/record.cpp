#include "record.h"

#include <algorithm>

constexpr char FS = '\x1C';
constexpr char GS = '\x1D';

static bool isSpace(char ch) {
    return ch == ' ' || (ch >= '\t' && ch <= '\r');
}

static bool isDigit(char ch) {
    return ch >= '0' && ch <= '9';
}

// 16 for what is no hexadecimal digit.
static uint32_t hexValue(char ch) {
    const auto letter = static_cast<unsigned char>((ch | 0x20) - 'a');
    if (isDigit(ch))
        return static_cast<uint32_t>(ch - '0');
    return letter < 6 ? letter + 10U : 16;
}

namespace {

// What is left of an entry. A step moves on only where it finds what it looks for.
class Rest {
  public:
    explicit Rest(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}
    bool isAt(char ch) const { return at_ != end_ && *at_ == ch; }
    bool isAtSpace() const { return at_ != end_ && isSpace(*at_); }
    bool isAtDigit() const { return at_ != end_ && isDigit(*at_); }
    bool isEmpty() const { return at_ == end_; }
    std::string_view view() const { return {at_, static_cast<size_t>(end_ - at_)}; }
    char take() { return *at_++; }
    void skipSpace() {
        while (isAtSpace())
            ++at_;
    }
    template<typename Ends>
    std::string_view takeUntil(Ends ends) {
        const char *const from = at_;
        while (at_ != end_ && !ends(*at_))
            ++at_;
        return {from, static_cast<size_t>(at_ - from)};
    }
    bool takeTime(uint32_t &time) {
        constexpr int DIGITS = 8;
        if (end_ - at_ < DIGITS)
            return false;
        for (int i = 0; i < DIGITS; i++) {
            const uint32_t value = hexValue(at_[i]);
            if (value > 15)
                return false;
            time = time << 4 | value;
        }
        at_ += DIGITS;
        return true;
    }

  private:
    const char *at_;
    const char *end_;
};

} // namespace

// Up to the time; false where it is no record's. A number that is too large wraps, as the parser's.
static bool readHead(Rest &rest, int32_t &number, int32_t &priority, int32_t &time) {
    uint32_t wrapped = 0;
    uint32_t seconds = 0;
    while (rest.isAtDigit())
        wrapped = wrapped * 10 + static_cast<uint32_t>(rest.take() - '0');
    number = static_cast<int32_t>(wrapped);
    rest.skipSpace();
    if (!rest.isAt(FS))
        return false;
    rest.take();
    if (!rest.isAtDigit())
        return false;
    priority = rest.take() - '0';
    if (!rest.takeTime(seconds))
        return false;
    time = static_cast<int32_t>(seconds);
    return true;
}

// Digits that do not fit count as the highest number.
static int32_t readLine(Rest &rest) {
    int64_t line = 0;
    while (rest.isAtDigit())
        line = std::min<int64_t>(line * 10 + (rest.take() - '0'), INT32_MAX);
    return static_cast<int32_t>(line);
}

Record::Kind Record::readRecord() {
    constexpr int32_t COMMENT = -2; // a wrapped number that reads as this is the parser's comment
    Rest rest(bytes_);
    if (!readHead(rest, number_, priority_, time_))
        return Kind::FOREIGN;
    if (number_ < 0)
        return number_ == COMMENT ? Kind::COMMENT : Kind::FOREIGN;
    producer_ = rest.takeUntil([](char ch) { return ch == FS || isSpace(ch); });
    if (!rest.isAtSpace())
        return Kind::FOREIGN;
    rest.skipSpace();
    file_ = rest.takeUntil([](char ch) { return ch == FS || ch == ':'; });
    if (!rest.isAt(':'))
        return Kind::FOREIGN;
    rest.take();
    line_ = readLine(rest);
    rest_ = rest.view();
    return rest.isAt(FS) || rest.isAt(GS) ? Kind::RECORD : Kind::FOREIGN;
}

Record::Kind Record::kindOf(const LogEntry &entry) {
    if (entry.bytes.find('\0') != std::string_view::npos)
        return Kind::FOREIGN;
    if (entry.cut)
        return Kind::CUT;
    Rest rest(entry.bytes);
    if (rest.isAtDigit())
        return readRecord();
    rest.skipSpace();
    return rest.isEmpty() || rest.isAt('#') ? Kind::COMMENT : Kind::FOREIGN;
}

void Record::read(const LogEntry &entry) {
    bytes_ = entry.bytes;
    text_.clear();
    kind_ = kindOf(entry);
}

char *Record::text() {
    if (text_.empty())
        text_.assign(bytes_) += '\n';
    return text_.data();
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

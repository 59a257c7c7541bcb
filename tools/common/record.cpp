#include "record.h"

#include <algorithm>
#include <array>

constexpr char FS = '\x1C';
constexpr char GS = '\x1D';

// What a byte may be, a bit for each: one look tells where a part ends.
enum ByteClass : uint8_t { SPACE = 1, DIGIT = 2, SEPARATOR = 4, COLON = 8 };

static constexpr std::array<uint8_t, 256> makeClasses() {
    std::array<uint8_t, 256> classes = {};
    for (const char each : {' ', '\t', '\n', '\v', '\f', '\r'})
        classes[static_cast<unsigned char>(each)] = SPACE;
    for (char each = '0'; each <= '9'; each++)
        classes[static_cast<unsigned char>(each)] = DIGIT;
    classes[static_cast<unsigned char>(FS)] = SEPARATOR;
    classes[':'] = COLON;
    return classes;
}

static constexpr uint8_t NO_HEX_DIGIT = 0x10;

static constexpr std::array<uint8_t, 256> makeHexValues() {
    std::array<uint8_t, 256> values = {};
    values.fill(NO_HEX_DIGIT);
    for (uint8_t value = 0; value < 10; value++)
        values[static_cast<size_t>('0' + value)] = value;
    for (uint8_t value = 10; value < 16; value++)
        values[static_cast<size_t>('a' + value - 10)] =
            values[static_cast<size_t>('A' + value - 10)] = value;
    return values;
}

static constexpr std::array<uint8_t, 256> CLASSES = makeClasses();
static constexpr std::array<uint8_t, 256> HEX_VALUES = makeHexValues();

static bool isOf(char ch, unsigned classes) {
    return (CLASSES[static_cast<unsigned char>(ch)] & classes) != 0;
}

namespace {

// What is left of an entry. A step moves on only where it finds what it looks for.
class Rest {
  public:
    explicit Rest(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}
    bool isAt(char ch) const { return at_ != end_ && *at_ == ch; }
    bool isAtSpace() const { return at_ != end_ && isOf(*at_, SPACE); }
    bool isAtDigit() const { return at_ != end_ && isOf(*at_, DIGIT); }
    bool isEmpty() const { return at_ == end_; }
    std::string_view view() const { return {at_, static_cast<size_t>(end_ - at_)}; }
    char take() { return *at_++; }
    void skipSpace() {
        while (isAtSpace())
            ++at_;
    }
    std::string_view takeUntil(unsigned classes) {
        const char *const from = at_;
        while (at_ != end_ && !isOf(*at_, classes))
            ++at_;
        return {from, static_cast<size_t>(at_ - from)};
    }
    bool takeTime(uint32_t &time) {
        constexpr int DIGITS = 8;
        if (end_ - at_ < DIGITS)
            return false;
        uint32_t seen = 0;
        for (int i = 0; i < DIGITS; i++) {
            const uint32_t value = HEX_VALUES[static_cast<unsigned char>(at_[i])];
            time = time << 4 | (value & 0xF);
            seen |= value;
        }
        at_ += DIGITS;
        return (seen & NO_HEX_DIGIT) == 0;
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
    producer_ = rest.takeUntil(SEPARATOR | SPACE);
    if (!rest.isAtSpace())
        return Kind::FOREIGN;
    rest.skipSpace();
    file_ = rest.takeUntil(SEPARATOR | COLON);
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

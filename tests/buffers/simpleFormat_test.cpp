/* The fast half of formatting against the system's formatter and the general bound: the same random
   formats and arguments through both. What the fast half refuses is counted, so that it cannot
   refuse all. */
#include "buffers/fmtCharBuf.h"
#include "buffers/simpleFormat.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

// The formats are made here.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

namespace {

constexpr size_t ROOM = 4096;

// Within a block of just the room, so that a sanitizer sees the first byte past it.
int32_t simply(std::string &text, size_t room, const char *format, ...) {
    std::string block(room, '#');
    FormatArguments args;
    va_start(args.list, format);
    const char *const end = formatSimply(block.data(), block.data() + room, format, &args);
    va_end(args.list);
    if (end == nullptr)
        return -1;
    EXPECT_EQ(*end, '\0') << format;
    text = block.c_str();
    return static_cast<int32_t>(end - block.data());
}

class Formats {
  public:
    explicit Formats(unsigned seed) : engine_(seed) {}
    unsigned below(unsigned bound) { return static_cast<unsigned>(engine_()) % bound; }
    std::string one(const char *letters, const char *length) {
        std::string conversion = "%";
        if (below(4) == 0)
            conversion += "0";
        if (below(3) == 0)
            conversion += std::to_string(below(12) + 1);
        if (below(4) == 0)
            conversion += "." + std::to_string(below(12));
        if (below(40) == 0)
            conversion = "%-5";
        return conversion + length + letters[below(static_cast<unsigned>(strlen(letters)))];
    }
    std::string literal() {
        static const char *const TEXTS[] = {"", " ", "\x1C", "%%", "a:%%b", "some longer text "};
        return TEXTS[below(6)];
    }
    long number() {
        static const long EDGES[] = {0,       1,       9,        10,       99,      100,
                                     INT_MAX, INT_MIN, LONG_MAX, LONG_MIN, INT_MIN, -1};
        return below(2) == 0 ? EDGES[below(12)] : static_cast<long>(engine_()) >> below(30);
    }

  private:
    std::mt19937 engine_;
};

// Of the numbers d i u x X, of texts and of characters: three arguments of fixed types.
template<typename First, typename Second, typename Third>
int compareOne(const std::string &format, First first, Second second, Third third) {
    char expected[ROOM];
    const int count = snprintf(expected, sizeof expected, format.c_str(), first, second, third);
    const int32_t bound = maxFormatLength(format.c_str(), first, second, third);
    std::string text;
    const int32_t length = simply(text, ROOM, format.c_str(), first, second, third);
    if (length < 0)
        return 0;
    EXPECT_EQ(count, length) << format;
    EXPECT_EQ(expected, text) << format;
    EXPECT_LE(bound, count + 1) << format;
    const auto least = static_cast<size_t>(count) + 1;
    EXPECT_EQ(count, simply(text, least, format.c_str(), first, second, third)) << format;
    EXPECT_EQ(expected, text) << format;
    EXPECT_EQ(-1, simply(text, least - 1, format.c_str(), first, second, third)) << format;
    return 1;
}

} // namespace

TEST(SimpleFormat, sameBytesAndBoundAsTheGeneralWay) {
    Formats random(20261121);
    int simple = 0;
    constexpr int CASES = 20000;
    for (int i = 0; i < CASES; ++i) {
        const std::string a = random.literal(), b = random.literal(), c = random.literal();
        const std::string text(random.below(40), 'x');
        const long first = random.number(), second = random.number();
        switch (random.below(3)) {
        case 0:
            simple += compareOne(a + random.one("diuxX", "") + b + random.one("s", "") + c +
                                     random.one("diuxX", "l") + a,
                                 static_cast<int>(first), text.c_str(), second);
            break;
        case 1:
            simple += compareOne(a + random.one("s", "") + b + random.one("c", "") + c +
                                     random.one("uxX", ""),
                                 text.c_str(), 'a' + static_cast<int>(random.below(26)),
                                 static_cast<unsigned>(first));
            break;
        default:
            simple += compareOne(random.one("diuxX", "l") + random.one("diuxX", "") +
                                     random.one("diuxX", "l"),
                                 first, static_cast<int>(second), second);
        }
    }
    EXPECT_GT(simple, CASES / 4);
    EXPECT_LT(simple, CASES); // the rest has flags that are not simple
}

TEST(SimpleFormat, refusesWhatIsNotSimple) {
    std::string text;
    const char *const none = nullptr;
    EXPECT_EQ(-1, simply(text, ROOM, "%s", none));
    EXPECT_EQ(-1, simply(text, ROOM, "%c", 0));
    EXPECT_EQ(-1, simply(text, ROOM, "%.0d", 0));
    EXPECT_EQ(-1, simply(text, ROOM, "%.2s", "abc"));
    EXPECT_EQ(-1, simply(text, ROOM, "%1000d", 1));
    EXPECT_EQ(-1, simply(text, ROOM, "%*d", 3, 1));
    EXPECT_EQ(-1, simply(text, ROOM, "%+d", 1));
    EXPECT_EQ(-1, simply(text, ROOM, "%#x", 1));
    EXPECT_EQ(-1, simply(text, ROOM, "%hd", 1));
    EXPECT_EQ(-1, simply(text, ROOM, "%lld", 1LL));
    EXPECT_EQ(-1, simply(text, ROOM, "%f", 1.0));
    EXPECT_EQ(-1, simply(text, ROOM, "%o", 1));
    EXPECT_EQ(-1, simply(text, ROOM, "text %"));
    EXPECT_EQ(-1, simply(text, ROOM, "%5"));
    EXPECT_EQ(-1, simply(text, 0, ""));
    EXPECT_EQ(0, simply(text, 1, ""));
}

TEST(SimpleFormat, everyRoomThatIsTooSmallIsRefused) {
    std::string text;
    for (size_t room = 0; room < 19; ++room)
        EXPECT_EQ(-1, simply(text, room, "ab%%%5d %s %c %X", -42, "text", 'z', 0xFFU)) << room;
    EXPECT_EQ(18, simply(text, 19, "ab%%%5d %s %c %X", -42, "text", 'z', 0xFFU));
    EXPECT_EQ("ab%  -42 text z FF", text);
}

// In the room that a buffer has; what does not fit, or is not simple, goes the general way.
template<typename Value>
std::string inBuffer(const char *format, Value value) {
    CharBuffer *const buffer = mkCharBuffer(0);
    fmtCharBuffer(buffer, "<");
    const int32_t length = fmtCharBuffer(buffer, format, value);
    const std::string text = buffer->text;
    EXPECT_EQ(static_cast<size_t>(length) + 1, text.size()) << format;
    freeCharBuffer(buffer);
    return text;
}

TEST(SimpleFormat, buffersHoldWhatTheSystemsFormatterWrites) {
    const char *const none = nullptr;
    EXPECT_EQ("<  007", inBuffer("%5.3d", 7));
    EXPECT_EQ("<  007", inBuffer("%05.3d", 7));
    EXPECT_EQ("<00007", inBuffer("%05d", 7));
    EXPECT_EQ("<   -4", inBuffer("%5i", -4));
    EXPECT_EQ("<  abc", inBuffer("%5s", "abc"));
    EXPECT_EQ("<  abc", inBuffer("%5ls", L"abc"));
    EXPECT_EQ("<  (null)", inBuffer("%8s", none));
    EXPECT_EQ("<" + std::string(197, ' ') + "abc", inBuffer("%200s", "abc"));
    EXPECT_EQ("<" + std::string(124, ' ') + "abc", inBuffer("%127s", "abc"));
}

// One list serves several formats in turn, each going on where the one before stopped.
static std::string inTurn(const char *first, const char *second, ...) {
    char text[64];
    FormatArguments args;
    va_start(args.list, second);
    char *const middle = formatSimply(text, text + sizeof text, first, &args);
    EXPECT_EQ(middle, text + 7);
    EXPECT_NE(formatSimply(middle, text + sizeof text, second, &args), nullptr);
    va_end(args.list);
    return text;
}

TEST(SimpleFormat, theListStandsBehindTheArgumentsUsed) {
    EXPECT_EQ("4 ab -1 7 cd", inTurn("%d %s %d", " %u %s", 4, "ab", -1, 7U, "cd"));
}

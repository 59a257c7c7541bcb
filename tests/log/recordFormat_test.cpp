/* The record, which is built in one go where all is simple, against the two passes of the system's
   formatter that it is documented to be: random messages, names and arguments, some of them odd. */
#include "clientFixture.h"

#include <random>

// The formats are made here.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

namespace {

constexpr int FORMATS = 1500;
constexpr size_t ROOM = 8192;

class Random {
  public:
    explicit Random(unsigned seed) : engine_(seed) {}
    unsigned below(unsigned bound) { return static_cast<unsigned>(engine_()) % bound; }
    std::string text(unsigned longest) { return std::string(below(longest + 1), 'x'); }
    int number() {
        static const int EDGES[] = {0, 9, 10, 99, 100, 999, 1000, INT32_MAX, INT32_MIN, -1};
        return below(2) == 0 ? EDGES[below(10)] : static_cast<int>(engine_()) >> below(30);
    }
    // A conversion of the letter, seldom one that is not simple.
    std::string conversion(const char *letter) {
        static const char *const FORMS[] = {"", "", "", "", "5", "08", "-6", "12", ".3"};
        return "%"s + FORMS[below(9)] + letter;
    }

  private:
    std::mt19937 engine_;
};

// The arguments are always an int, a text, an unsigned and a long, as far as they are used.
const char *const LETTERS[] = {"d", "s", "u", "ld"};
constexpr size_t ARGUMENTS = 4;

std::string conversions(Random &random, size_t from, size_t to) {
    std::string format;
    for (size_t index = from; index < to; ++index)
        format += (random.below(8) == 0 ? "%%" : "\x1C") + random.conversion(LETTERS[index]);
    return format;
}

// How many arguments the names take: none, mostly.
constexpr size_t TAKEN[] = {0, 0, 0, 1, 2};

std::map<int, std::string> randomFormats(Random &random) {
    std::map<int, std::string> formats;
    for (int number = 0; number < FORMATS; ++number)
        formats[number] = conversions(random, TAKEN[number % 5], random.below(3) + 2) + "\x1D";
    return formats;
}

struct Names {
    std::string process, file;
};

Names randomNames(Random &random, size_t taken) {
    Names names = {random.text(12), random.text(random.below(20) == 0 ? 600 : 30)};
    if (taken == 1 && random.below(2) == 0) {
        names.process += '%'; // the conversion goes on in the file's name: "% d"
        names.file.insert(0, "d");
        return names;
    }
    const size_t inProcess = taken == 0 ? 0 : random.below(static_cast<unsigned>(taken) + 1);
    names.process += conversions(random, 0, inProcess);
    names.file += conversions(random, inProcess, taken);
    return names;
}

std::string inTwoPasses(int number, uint32_t destination, int32_t priority, const Names &names,
                        int line, int first, const char *second, unsigned third, long fourth) {
    static char header[ROOM], record[ROOM];
    snprintf(header, ROOM, "%.8lX%d %c%1d%.8lX%s %s:%d%s", static_cast<unsigned long>(destination),
             number, 0x1C, priority, 0x5F000000UL, names.process.c_str(), names.file.c_str(), line,
             getCmpFmt(number));
    snprintf(record, ROOM, header, first, second, third, fourth);
    return record;
}

void compareOne(Random &random, int number) {
    const Names names = randomNames(random, TAKEN[number % 5]);
    setLogProcName(names.process.c_str());
    const auto destination = static_cast<uint32_t>(random.number());
    const int priority = random.below(4) == 0 ? random.number() : 2, line = random.number();
    const std::string text = random.text(random.below(10) == 0 ? 3000 : 60);
    const int first = random.number();
    const auto third = static_cast<unsigned>(random.number());
    const long fourth = random.number();
    const char *record = fmtEvent(number, destination, priority, names.file.c_str(), line, first,
                                  text.c_str(), third, fourth);
    ASSERT_NE(record, nullptr) << getCmpFmt(number);
    ASSERT_EQ(record, inTwoPasses(number, destination, priority, names, line, first, text.c_str(),
                                  third, fourth))
        << names.process << " " << names.file << " " << getCmpFmt(number);
}

TEST(RecordFormat, sameBytesAsTwoPassesOfTheSystemsFormatter) {
    withClient([](ClientRoot &root) {
        Random random(20261121);
        root.dir().write("cmpLogFmt", formatFile(randomFormats(random)));
        ASSERT_EQ(loginit("", 1, 0, root.path().c_str()), 0);
        for (int round = 0; round < 4 * FORMATS && !testing::Test::HasFailure(); ++round)
            compareOne(random, round % FORMATS);
    });
}

// The block of a record has 128 bytes at first, and as many more with each growth.
TEST(RecordFormat, everyLengthAroundABlocksEnd) {
    withClient([](ClientRoot &) {
        for (int length = 0; length < 300; ++length) {
            const std::string text(static_cast<size_t>(length), 't'), file(text);
            EXPECT_EQ(fmtEvent(NUMBER_TEXT, 1, 0, "a", 7, 4, text.c_str()), "0000000113 \x1C"
                                                                            "05F000000tst a:7\x1C"
                                                                            "4\x1C" +
                                                                                text + "\x1D");
            EXPECT_EQ(fmtEvent(PLAIN, 1, 0, file.c_str(), -2147483647), "0000000112 \x1C"
                                                                        "05F000000tst " +
                                                                            file + ":-2147483647");
        }
    });
}

} // namespace

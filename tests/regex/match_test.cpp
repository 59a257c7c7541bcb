/* Programs put together at compile time, against bytes worked out by hand, and the listing. */
#include "regex/match.h"
#include "regex/regularExp.h"

#include "listing.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace matchProgram;

template<size_t N>
std::string bytesOf(const Bytes<N> &program) {
    return std::string(program.bytes, N);
}

constexpr auto LETTERS = join(range('a', 'z'), range('A', 'Z'));
constexpr auto IDENTIFIER =
    program(ANCHORED, in(LETTERS), zeroOrMore(in(LETTERS, range('0', '9'), one('_'))), AT_END);
constexpr auto LOG_FORM =
    program(ANCHORED, text("log"),
            capture(0, in(range('A', 'Z')),
                    oneOrMore(in(range('A', 'Z'), range('0', '9'), range('a', 'z'), one('_')))),
            text("("), capture(1, zeroOrMore(in(range('0', '9')))), text(")"), AT_END);

TEST(Match, identifierComposesToItsBytes) {
    EXPECT_EQ(bytesOf(IDENTIFIER),
              std::string("\x20\x18\x07\x10\x61\x7A\x10\x41\x5A\x19\x0B\x10\x61\x7A\x10\x41\x5A\x10"
                          "\x30\x39\x5F\x1C\x34",
                          23));
}

TEST(Match, capturingProgramComposesToItsBytes) {
    EXPECT_EQ(bytesOf(LOG_FORM),
              std::string("\x20\x14\x6C\x14\x6F\x14\x67\x3C\x00\x18\x04\x10\x41\x5A\x1A\x0B\x10\x41"
                          "\x5A\x10\x30\x39\x10\x61\x7A\x5F\x0C\x00\x00\x14\x28\x3C\x01\x19\x04"
                          "\x10\x30\x39\x0C\x01\x01\x14\x29\x1C\x34",
                          45));
}

TEST(Match, listingShowsEveryOperand) {
    EXPECT_EQ(listing::listProgram(LOG_FORM.bytes), "0: anchored\n"
                                                    "1: character 'l'\n"
                                                    "3: character 'o'\n"
                                                    "5: character 'g'\n"
                                                    "7: open 0\n"
                                                    "9: in 'A'-'Z'\n"
                                                    "14: in 'A'-'Z' '0'-'9' 'a'-'z' '_'+\n"
                                                    "26: close 0 group 0\n"
                                                    "29: character '('\n"
                                                    "31: open 1\n"
                                                    "33: in '0'-'9'*\n"
                                                    "38: close 1 group 1\n"
                                                    "41: character ')'\n"
                                                    "43: subject-end\n"
                                                    "44: end\n");
}

constexpr auto NESTED =
    program(groupTimes(2, 5, groupZeroOrMore(times(ANY, 1, 255)), notIn(one(' '))),
            groupOneOrMore(byte(MATCH_OPEN), byte(-1), byte(MATCH_CLOSE), byte(-1), byte(0)));

TEST(Match, listingIndentsSubPrograms) {
    EXPECT_EQ(listing::listProgram(NESTED.bytes), "0: group {2,5}\n"
                                                  "  2: group*\n"
                                                  "    4: any {1,255}\n"
                                                  "    7: sub-end\n"
                                                  "  8: not-in 20\n"
                                                  "  11: sub-end\n"
                                                  "14: group+\n"
                                                  "  16: open -1\n"
                                                  "  18: close -1 group 0\n"
                                                  "  21: sub-end\n"
                                                  "22: end\n");
}

constexpr auto LONG_GROUP =
    program(groupZeroOrMore(text("0123456789012345678901234567890123456789012345678901234567890123"
                                 "0123456789012345678901234567890123456789012345678901234567890123"
                                 "0123456789")));

TEST(Match, subProgramLengthHasTenBits) {
    // 138 characters of two bytes and the end: 277 = 0x115
    EXPECT_EQ(LONG_GROUP.bytes[0], 57);
    EXPECT_EQ(LONG_GROUP.bytes[1], 0x15);
    const std::string once = "0123456789012345678901234567890123456789012345678901234567890123"
                             "0123456789012345678901234567890123456789012345678901234567890123"
                             "0123456789";
    const std::string subject = once + once + "0";
    EXPECT_EQ(regularExp(LONG_GROUP.bytes, subject.c_str(), nullptr), subject.c_str() + 276);
}

TEST(Match, composedProgramsMatchWhatTheySay) {
    EXPECT_NE(regularExp(IDENTIFIER.bytes, "a_9", nullptr), nullptr);
    EXPECT_EQ(regularExp(IDENTIFIER.bytes, "9a", nullptr), nullptr);
    char name[20], number[20];
    EXPECT_NE(regEx(LOG_FORM.bytes, "logNET(12)", name, number), nullptr);
    EXPECT_STREQ(name, "NET");
    EXPECT_STREQ(number, "12");
}

} // namespace

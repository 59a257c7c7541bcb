/* Opcode by opcode, then captures, both operations' results, growth of every stack, long subjects
   on a small stack, damaged and hostile programs, threads. */
#include "regex/match.h"
#include "regex/regularExp.h"

#include "support/childProcess.h"
#include "support/failingAlloc.h"
#include "support/threadSanitizer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace matchProgram;

constexpr const char *NO_MATCH = "no match";

template<size_t N>
std::string str(const Bytes<N> &part) {
    return std::string(part.bytes, N);
}

const std::string END = str(byte(MATCH_END));
const std::string ANCHOR = str(byte(MATCH_ANCHOR));

// What is matched, or NO_MATCH.
std::string matched(const std::string &program, const char *subject) {
    const char *end = regularExp(program.c_str(), subject, nullptr);
    return end == nullptr ? NO_MATCH : std::string(const_cast<const char *>(startPatMatch()), end);
}

// The captured texts in order of group number: "0=a 1= 10=b"; "null" without a block.
std::string captured(const std::string &program, const char *subject) {
    CaptureBlock *block = reinterpret_cast<CaptureBlock *>(8);
    if (regularExp(program.c_str(), subject, &block) == nullptr) {
        EXPECT_EQ(block, nullptr);
        return NO_MATCH;
    }
    if (block == nullptr)
        return "null";
    std::string text;
    for (int32_t group = 0; group < block->count; ++group)
        if (block->group[group] != nullptr)
            text += (text.empty() ? "" : " ") + std::to_string(group) + "=" + block->group[group];
    free(block);
    return text;
}

struct OpcodeCase {
    const char *what;
    std::string program; // anchored, without its end
    const char *subject, *expected;
};

const std::string DIGIT_CLASS = "\x04\x10"
                                "09";

const OpcodeCase OPCODES[] = {
    {"20 one",
     "\x14"
     "a",
     "aa", "a"},
    {"20 other",
     "\x14"
     "a",
     "b", NO_MATCH},
    {"20 end",
     "\x14"
     "a",
     "", NO_MATCH},
    {"20 terminator", std::string("\x14\0", 2), "", NO_MATCH},
    {"20 terminator after a run", std::string("\x41\x14\0", 3), "aaaaaaaaaaaaaaaaaaaa", NO_MATCH},
    {"21 none",
     "\x15"
     "a",
     "b", ""},
    {"21 many",
     "\x15"
     "a",
     "aaab", "aaa"},
    {"21 terminator", std::string("\x15\0", 2), "", ""},
    {"22 none",
     "\x16"
     "a",
     "b", NO_MATCH},
    {"22 one",
     "\x16"
     "a",
     "ab", "a"},
    {"22 many",
     "\x16"
     "a",
     "aaab", "aaa"},
    {"23 too few",
     "\x17"
     "a\x02\x03",
     "ab", NO_MATCH},
    {"23 min",
     "\x17"
     "a\x02\x03",
     "aab", "aa"},
    {"23 max",
     "\x17"
     "a\x02\x03",
     "aaaa", "aaa"},
    {"23 no limit",
     "\x17"
     "a\x01\xFF",
     "aaaaaaab", "aaaaaaa"},
    {"23 zero",
     std::string("\x17"
                 "a\0\0",
                 4),
     "aa", ""},
    {"23 max below min",
     "\x17"
     "a\x02\x01",
     "aaaa", "aa"},
    {"64 one", "\x40", "xy", "x"},
    {"64 end", "\x40", "", NO_MATCH},
    {"65 none", "\x41", "", ""},
    {"65 all", "\x41", "xyz", "xyz"},
    {"66 none", "\x42", "", NO_MATCH},
    {"66 all", "\x42", "xyz", "xyz"},
    {"67 too few", "\x43\x02\x03", "x", NO_MATCH},
    {"67 max", "\x43\x02\x03", "wxyz", "wxy"},
    {"24 in", "\x18" + DIGIT_CLASS, "12", "1"},
    {"24 out", "\x18" + DIGIT_CLASS, "a", NO_MATCH},
    {"24 end", "\x18" + DIGIT_CLASS, "", NO_MATCH},
    {"25", "\x19" + DIGIT_CLASS, "12a", "12"},
    {"26 none", "\x1A" + DIGIT_CLASS, "a", NO_MATCH},
    {"26", "\x1A" + DIGIT_CLASS, "12a", "12"},
    {"27", "\x1B" + DIGIT_CLASS + "\x01\x02", "123", "12"},
    {"8 in", "\x08" + DIGIT_CLASS, "1", NO_MATCH},
    {"8 out", "\x08" + DIGIT_CLASS, "a", "a"},
    {"8 end", "\x08" + DIGIT_CLASS, "", NO_MATCH},
    {"9", "\x09" + DIGIT_CLASS, "ab1", "ab"},
    {"10 none", "\x0A" + DIGIT_CLASS, "1", NO_MATCH},
    {"10", "\x0A" + DIGIT_CLASS, "ab1", "ab"},
    {"11", "\x0B" + DIGIT_CLASS + "\x01\x02", "abc", "ab"},
    {"class member above 127", "\x19\x04\x10\x80\xFF",
     "\x80\xC3\xFF"
     "a",
     "\x80\xC3\xFF"},
    {"class length is unsigned", "\x18\xF0" + std::string(238, 'x') + "y", "y", "y"},
    {"class without members", "\x19\x01", "a", ""},
    {"complement of no members", "\x09\x01", "ab", "ab"},
    {"member zero is not the end", std::string("\x18\x02\0", 3), "", NO_MATCH},
    {"range from zero is not the end", std::string("\x18\x04\x10\0\xFF", 5), "", NO_MATCH},
    {"range cut short",
     "\x19\x03\x10"
     "a",
     "a", ""},
    {"range cut short, once",
     "\x18\x03\x10"
     "a",
     "a", NO_MATCH},
    {"range upside down, once",
     "\x18\x04\x10"
     "ba",
     "a", NO_MATCH},
    {"range upside down",
     "\x19\x04\x10"
     "ba",
     "ab", ""},
    {"28 at end", "\x41\x1C", "ab", "ab"},
    {"28 before end", "\x1C", "a", NO_MATCH},
    {"40 and 44 skip",
     "\x28\xFF\x2C\x34\x14"
     "a",
     "a", "a"},
    {"56 none",
     "\x38\x03\x14"
     "a\x2F",
     "b", ""},
    {"56 many",
     "\x38\x03\x14"
     "a\x2F",
     "aab", "aa"},
    {"56 gives back",
     "\x38\x02\x40\x2F\x14"
     "b",
     "abab", "abab"},
    {"68 none",
     "\x44\x03\x14"
     "a\x2F",
     "b", NO_MATCH},
    {"68 many",
     "\x44\x03\x14"
     "a\x2F",
     "aab", "aa"},
    {"68 keeps one",
     "\x44\x02\x40\x2F\x14"
     "b",
     "b", NO_MATCH},
    {"48 too few",
     "\x30\x03\x14"
     "a\x2F\x02\x03",
     "ab", NO_MATCH},
    {"48 max",
     "\x30\x03\x14"
     "a\x2F\x02\x03",
     "aaaa", "aaa"},
    {"48 no limit",
     "\x30\x03\x14"
     "a\x2F\x02\xFF",
     "aaaaa", "aaaaa"},
    {"48 gives back to min",
     "\x30\x02\x40\x2F\x01\x03\x14"
     "b",
     "abb", "abb"},
    {"48 not below min",
     "\x30\x02\x40\x2F\x02\x03\x14"
     "b",
     "ab", NO_MATCH},
    {"48 zero",
     std::string("\x30\x03\x14"
                 "a\x2F\0\0",
                 7),
     "aa", ""},
    {"48 max below min",
     "\x30\x03\x14"
     "a\x2F\x02\x01",
     "aaaa", "aa"},
    {"52 in a sub-program ends all",
     "\x38\x02\x40\x34\x14"
     "z",
     "ab", "a"},
    {"a repetition is not re-entered",
     "\x38\x02\x41\x2F\x14"
     "b",
     "ab", NO_MATCH},
    {"sub-program without its end",
     "\x44\x02\x14"
     "a\x2F",
     "a", NO_MATCH},
    {"sub-program of no bytes", std::string("\x38\x00", 2), "a", ""},
    {"group leaving its sub-program", "\x44\x04\x38\x09\x40\x2F", "a", NO_MATCH},
    {"class leaving its sub-program",
     "\x44\x04\x18\x05"
     "a\x2F",
     "a", NO_MATCH},
    {"unknown byte", "\x01", "a", NO_MATCH},
    {"anchor inside", "\x20", "a", NO_MATCH},
    {"unknown byte not reached",
     "\x38\x03\x14"
     "b\x01",
     "a", ""},
};

TEST(RegularExp, everyOpcodeMatchesWhatItSays) {
    for (const OpcodeCase &row : OPCODES)
        EXPECT_EQ(matched(ANCHOR + row.program + END, row.subject), row.expected) << row.what;
}

TEST(RegularExp, everyOtherByteFails) {
    const std::string known = "\x08\x09\x0A\x0B\x0C\x14\x15\x16\x17\x18\x19\x1A\x1B\x1C\x28\x2C\x2D"
                              "\x2E\x2F\x30\x31\x32\x33\x34\x38\x39\x3A\x3B\x3C\x40\x41\x42\x43\x44"
                              "\x45\x46\x47";
    for (int opcode = 0; opcode < 256; ++opcode)
        if (known.find(static_cast<char>(opcode)) == std::string::npos) {
            EXPECT_EQ(matched(ANCHOR + static_cast<char>(opcode) + END, "abc"), NO_MATCH) << opcode;
        }
}

TEST(RegularExp, repetitionsGiveBackOneAtATimeDownToTheirMinimum) {
    const struct {
        std::string repetition;
        const char *subject, *expected;
    } ROWS[] = {
        {str(zeroOrMore(ANY)), "b", "b"},
        {str(zeroOrMore(ANY)), "abab", "abab"},
        {str(oneOrMore(ANY)), "b", NO_MATCH},
        {str(oneOrMore(ANY)), "abb", "abb"},
        {str(times(ANY, 2, 4)), "ab", NO_MATCH},
        {str(times(ANY, 2, 4)), "aab", "aab"},
        {str(times(ANY, 2, 4)), "aaaaab", NO_MATCH},
        {str(times(ANY, 2, 255)), "aaaaab", "aaaaab"},
    };
    for (const auto &row : ROWS)
        EXPECT_EQ(matched(ANCHOR + row.repetition +
                              "\x14"
                              "b" +
                              END,
                          row.subject),
                  row.expected)
            << row.subject;
}

TEST(RegularExp, classOfACapitalRangeHoldsTheCapitalsAndNothingElse) {
    const std::string program = str(join(ANCHORED, in(range('A', 'Z')), AT_END)) + END;
    for (int ch = 1; ch < 256; ++ch) {
        const char subject[2] = {static_cast<char>(ch), '\0'};
        EXPECT_EQ(regularExp(program.c_str(), subject, nullptr) != nullptr, ch >= 'A' && ch <= 'Z')
            << ch;
    }
}

TEST(RegularExp, repeatedClassHoldsWhatASingleOneDoes) {
    static const int EDGES[] = {0, 1, 31, 32, 33, 95, 96, 127, 128, 200, 223, 224, 254, 255};
    for (const int low : EDGES)
        for (const int high : EDGES) {
            const auto members =
                join(range(static_cast<char>(low), static_cast<char>(high)), one('k'));
            for (int ch = 1; ch < 256; ++ch) {
                const bool isIn = (low <= ch && ch <= high) || ch == 'k';
                const char subject[2] = {static_cast<char>(ch), '\0'};
                const auto takes = [&](const auto &item) {
                    return regularExp(program(ANCHORED, item).bytes, subject, nullptr) ==
                           subject + 1;
                };
                ASSERT_EQ(takes(in(members)), isIn) << low << " " << high << " " << ch;
                ASSERT_EQ(takes(zeroOrMore(in(members))), isIn) << low << " " << high << " " << ch;
                ASSERT_EQ(takes(times(in(members), 0, 2)), isIn) << low << " " << high << " " << ch;
                ASSERT_EQ(takes(oneOrMore(notIn(members))), !isIn)
                    << low << " " << high << " " << ch;
            }
        }
}

// ---- where a match may start and end

TEST(RegularExp, anchoredEmptyMatchIsTheSubjectItself) {
    const char *subject = "abc";
    EXPECT_EQ(regularExp((ANCHOR + END).c_str(), subject, nullptr), subject);
    EXPECT_EQ(startPatMatch(), subject);
}

TEST(RegularExp, emptyMatchWithoutTheEndOpcodeIsNone) {
    const char *subject = "abc";
    EXPECT_EQ(regularExp("\x20\x2F", subject, nullptr), nullptr);
    EXPECT_EQ(startPatMatch(), nullptr);
    EXPECT_EQ(regularExp("\x2F", subject, nullptr), nullptr);
    EXPECT_EQ(regularExp("\x40\x2F", subject, nullptr), subject + 1);
}

TEST(RegularExp, literalFirstIsTriedAtItsCharacterOnly) {
    const char *subject = "xxabxabc";
    const std::string program = str(text("abc")) + END;
    EXPECT_EQ(regularExp(program.c_str(), subject, nullptr), subject + 8);
    EXPECT_EQ(startPatMatch(), subject + 5);
    EXPECT_EQ(matched(program, "xyz"), NO_MATCH);
    EXPECT_EQ(matched(str(character('\xE9')) + END, "caf\xE9"), "\xE9");
}

TEST(RegularExp, literalMissingFromTheSubjectRunsNothing) {
    // Were it run, the unreadable page behind it would be touched.
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char *memory = static_cast<char *>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(mprotect(memory + page, page, PROT_NONE), 0);
    char *program = memory + page - 2;
    memcpy(program, "\x14q", 2);
    EXPECT_EQ(regularExp(program, "abc", nullptr), nullptr);
    munmap(memory, 2 * page);
}

TEST(RegularExp, otherProgramsAreTriedEverywhereTheTerminatorIncluded) {
    const char *subject = "ab";
    EXPECT_EQ(regularExp(str(program(AT_END)).c_str(), subject, nullptr), subject + 2);
    EXPECT_EQ(startPatMatch(), subject + 2);
    EXPECT_EQ(matched(str(program(in(range('0', '9')))), "ab7"), "7");
    EXPECT_EQ(matched(str(program(AT_END)), ""), "");
}

TEST(RegularExp, anchoredIsTriedAtTheStartOnly) {
    EXPECT_EQ(matched(str(program(ANCHORED, text("b"))), "ab"), NO_MATCH);
}

TEST(RegularExp, firstPlaceThatMatchesWinsThoughALaterOneIsLonger) {
    EXPECT_EQ(matched(str(program(oneOrMore(in(range('0', '9'))))), "a1b2345"), "1");
}

TEST(RegularExp, startIsForgottenByAFailedCall) {
    EXPECT_EQ(matched(str(program(text("a"))), "xa"), "a");
    EXPECT_EQ(initSptr()->succeeded, 1);
    EXPECT_EQ(matched(str(program(text("a"))), "xb"), NO_MATCH);
    EXPECT_EQ(startPatMatch(), nullptr);
    EXPECT_EQ(initSptr()->succeeded, 0);
}

TEST(RegularExp, nullArgumentsMatchNothing) {
    CaptureBlock *block = reinterpret_cast<CaptureBlock *>(8);
    EXPECT_EQ(regularExp(nullptr, "a", &block), nullptr);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(regularExp("\x34", nullptr, nullptr), nullptr);
    EXPECT_EQ(regEx(nullptr, nullptr), nullptr);
    EXPECT_EQ(startPatMatch(), nullptr);
}

// ---- captures

TEST(RegularExp, blockHoldsTheTextsInOneAllocation) {
    const std::string program = str(
        matchProgram::program(ANCHORED, capture(2, text("ab")), ANY, capture(0, zeroOrMore(ANY))));
    CaptureBlock *block = nullptr;
    ASSERT_NE(regularExp(program.c_str(), "abcde", &block), nullptr);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->count, 3);
    EXPECT_STREQ(block->group[0], "de");
    EXPECT_EQ(block->group[1], nullptr);
    EXPECT_STREQ(block->group[2], "ab");
    // The texts follow the pointers, each terminated, record by record.
    EXPECT_EQ(block->group[0], reinterpret_cast<char *>(&block->group[3]));
    EXPECT_EQ(block->group[2], block->group[0] + 3);
    free(block);
}

struct CaptureCase {
    const char *what;
    std::string program; // anchored, without its end
    const char *subject, *expected;
};

const std::string OPEN_AUTO = "\x3C\xFF";
const std::string CLOSE_AUTO = "\x0C\xFF\x63"; // the group number is not looked at
const std::string SLOT_0 = std::string("\x3C\0", 2);
const std::string CLOSE_0 = std::string("\x0C\0\0", 3);

std::string group(const std::string &sub) {
    const size_t length = sub.size() + 1;
    return std::string{static_cast<char>(MATCH_GROUP_ZERO_OR_MORE | length >> 8),
                       static_cast<char>(length & 0xFF)} +
           sub + "\x2F";
}

const CaptureCase CAPTURES[] = {
    {"no record", "\x40", "a", "null"},
    {"opened only", SLOT_0 + "\x40", "a", "null"},
    {"closed only", CLOSE_0, "a", "null"},
    {"empty text", SLOT_0 + CLOSE_0, "a", "0="},
    {"reopened and not closed again", SLOT_0 + "\x40" + CLOSE_0 + "\x40" + SLOT_0, "ab", "null"},
    {"reopened where it closed", SLOT_0 + "\x40" + CLOSE_0 + SLOT_0, "ab", "0="},
    {"number differs from the slot", "\x3C\x05\x40\x0C\x05\x07", "ab", "7=a"},
    {"two records of one number: the higher", "\x3C\x05\x40\x0C\x05\x07\x3C\x06\x40\x0C\x06\x07",
     "ab", "7=b"},
    {"group numbers are unsigned", "\x3C\x05\x40\x0C\x05\xC8", "ab", "200=a"},
    {"automatic ones in order of closing",
     OPEN_AUTO + "\x40" + OPEN_AUTO + "\x40" + CLOSE_AUTO + "\x40" + CLOSE_AUTO, "abc",
     "10=b 11=abc"},
    {"automatic ones side by side",
     OPEN_AUTO + "\x40" + CLOSE_AUTO + OPEN_AUTO + "\x40" + CLOSE_AUTO, "ab", "10=a 11=b"},
    {"close passes the closed ones by",
     OPEN_AUTO + "\x40" + OPEN_AUTO + CLOSE_AUTO + OPEN_AUTO + "\x40" + CLOSE_AUTO + "\x40" +
         CLOSE_AUTO,
     "abc", "10= 11=b 12=abc"},
    {"close with none open does nothing", CLOSE_AUTO + OPEN_AUTO + "\x40" + CLOSE_AUTO, "a",
     "10=a"},
    {"the last repetition counts", group(SLOT_0 + "\x40" + CLOSE_0), "abc", "0=c"},
    {"a failed repetition is undone",
     group(SLOT_0 + "\x40" + CLOSE_0 +
           "\x14"
           "x"),
     "axbxc", "0=b"},
    {"a repetition given back is undone",
     group(SLOT_0 + "\x40" + CLOSE_0) + "\x14"
                                        "c\x1C",
     "abc", "0=b"},
    {"given back to none",
     group(SLOT_0 + "\x40" + CLOSE_0) + "\x14"
                                        "a",
     "abc", "null"},
    {"automatic counters go back too",
     group(OPEN_AUTO + "\x40" + CLOSE_AUTO) + OPEN_AUTO +
         "\x14"
         "c" +
         CLOSE_AUTO,
     "abc", "10=a 11=b 12=c"},
    {"an open automatic record of a failed repetition is not closed later",
     OPEN_AUTO +
         group(OPEN_AUTO + "\x40\x14"
                           "x") +
         "\x40" + CLOSE_AUTO,
     "ab", "10=a"},
    {"a retry puts records back",
     "\x41" + SLOT_0 + "\x40" + CLOSE_0 +
         "\x28x\x14"
         "c",
     "abcd", "0=b"},
    {"empty repetition ends the group and keeps its record",
     group(SLOT_0 +
           "\x15"
           "a" +
           CLOSE_0),
     "aab", "0="},
    {"mandatory repetitions of nothing stop at one",
     "\x30\x06" + OPEN_AUTO + CLOSE_AUTO + "\x2F\x05\x09", "a", "10="},
};

TEST(RegularExp, recordsTellWhatTheMatchPassed) {
    for (const CaptureCase &row : CAPTURES)
        EXPECT_EQ(captured(ANCHOR + row.program + END, row.subject), row.expected) << row.what;
}

TEST(RegularExp, recordsOfAnEarlierPlaceOrCallAreForgotten) {
    const std::string program =
        str(join(byte(MATCH_OPEN), byte(0), ANY, byte(MATCH_CLOSE), byte(0), byte(0), text("x"))) +
        END;
    EXPECT_EQ(captured(program, "abx"), "0=b");
    EXPECT_EQ(captured("\x40\x34", "abx"), "null");
    EXPECT_EQ(captured(program, "abc"), NO_MATCH);
}

// Made once and not at each start: a slot of 127 is one step, and as many records.
TEST(RegularExp, recordsMadeAtAnEarlierPlaceStayUnset) {
    const auto sub = join(character('x'), byte(MATCH_OPEN), byte(127));
    const std::string program = str(matchProgram::program(groupTimes(0, 1, sub), character('Z')));
    EXPECT_EQ(matched(program, "xyZ"), "Z");
    EXPECT_EQ(initSptr()->records.count, 128U);
    EXPECT_EQ(captured(program, "xyZ"), "null");
    // Without a choice or a group to go back to
    EXPECT_EQ(captured(std::string("\x40\x3C\x7F\x0C\x7F\x03\x1C") + END, "xyZ"), "3=");
    EXPECT_EQ(captured(std::string("\x40\x3C\x02\x14y\x0C\x02\x02") + END, "axy"), "2=y");
    // Automatic ones are counted from each start
    EXPECT_EQ(captured(std::string("\x3C\xFF\x40\x0C\xFF\x01\x14y") + END, "axy"), "10=x");
}

TEST(RegularExp, regExCopiesEachGroupIntoItsBuffer) {
    const std::string program = str(matchProgram::program(
        capture(0, text("a")), capture(2, zeroOrMore(ANY)), capture(9, AT_END)));
    char buffer[10][8];
    for (char(&each)[8] : buffer)
        strcpy(each, "before");
    char *end = regEx(program.c_str(), "xabc", buffer[0], buffer[1], buffer[2], buffer[3],
                      buffer[4], buffer[5], buffer[6], buffer[7], nullptr, buffer[9]);
    EXPECT_STREQ(end, "");
    EXPECT_STREQ(buffer[0], "a");
    EXPECT_STREQ(buffer[1], "before");
    EXPECT_STREQ(buffer[2], "bc");
    EXPECT_STREQ(buffer[9], "");
    EXPECT_STREQ(startPatMatch(), "abc");
}

TEST(RegularExp, regExAsksForNoBufferBeyondTheHighestGroupSet) {
    // Poison where a further buffer would be found.
    char *poison = reinterpret_cast<char *>(1);
    char first[8] = "before";
    EXPECT_NE(regEx(str(program(capture(0, text("a")))).c_str(), "a", first, poison, poison),
              nullptr);
    EXPECT_STREQ(first, "a");
    EXPECT_NE(regEx(str(program(text("a"))).c_str(), "a", poison, poison), nullptr);
    EXPECT_EQ(regEx(str(program(capture(0, text("a")))).c_str(), "b", poison), nullptr);
    // Groups from 10 up have no buffer and ask for none.
    EXPECT_NE(regEx((OPEN_AUTO + "\x40" + CLOSE_AUTO + END).c_str(), "a", poison, poison), nullptr);
}

TEST(RegularExp, regExTakesTheHigherRecordOfOneNumberAsTheBlockDoes) {
    char text[8];
    EXPECT_NE(regEx("\x3C\x05\x40\x0C\x05\x01\x3C\x06\x40\x0C\x06\x01\x34", "ab", nullptr, text),
              nullptr);
    EXPECT_STREQ(text, "b");
}

// ---- saved places

std::vector<long> savedPlaces(const std::string &program) {
    std::vector<long> offsets;
    const MatchState *state = initSptr();
    const MatchPlace *places = static_cast<const MatchPlace *>(state->places.entries);
    for (int32_t i = state->now.placeLast; i != MATCH_UNSET; i = places[i].below)
        offsets.insert(offsets.begin(), places[i].place - program.c_str());
    return offsets;
}

TEST(RegularExp, savingEndsSucceedAndSaveThePlaceAfterThem) {
    const std::string saving = std::string("\x20\x38\x03\x14"
                                           "a\x2E\x1C") +
                               END;
    EXPECT_EQ(matched(saving, "aa"), "aa");
    EXPECT_EQ(savedPlaces(saving), (std::vector<long>{6, 6}));
    const std::string replacing = std::string("\x20\x38\x03\x14"
                                              "a\x2D\x1C") +
                                  END;
    EXPECT_EQ(matched(replacing, "aa"), "aa");
    EXPECT_EQ(savedPlaces(replacing), (std::vector<long>{6}));
    EXPECT_EQ(matched(saving, ""), "");
    EXPECT_EQ(savedPlaces(saving), (std::vector<long>{}));
}

TEST(RegularExp, savedPlacesOfARepetitionGivenBackAreDropped) {
    const std::string program = std::string("\x20\x38\x02\x40\x2E\x14"
                                            "b") +
                                END;
    EXPECT_EQ(matched(program, "abab"), "abab");
    EXPECT_EQ(savedPlaces(program), (std::vector<long>{5, 5, 5}));
    const std::string replacing = std::string("\x20\x38\x02\x40\x2D\x14"
                                              "b") +
                                  END;
    EXPECT_EQ(matched(replacing, "abab"), "abab");
    EXPECT_EQ(savedPlaces(replacing), (std::vector<long>{5}));
}

TEST(RegularExp, countedGroupEndedBySavingGoesOnAfterItsCounts) {
    EXPECT_EQ(matched(std::string("\x20\x30\x02\x40\x2E\x02\x03\x14"
                                  "z") +
                          END,
                      "abcz"),
              "abcz");
}

// ---- growth

TEST(RegularExp, firstSizesAreSmall) {
    std::thread([] {
        const std::string program = str(
            matchProgram::program(groupZeroOrMore(capture(0, ANY)), text("b"), zeroOrMore(ANY)));
        EXPECT_EQ(matched(program, "abc"), "abc");
        EXPECT_EQ(matched("\x2E", "abc"), NO_MATCH);
        const MatchState *state = initSptr();
        EXPECT_EQ(state->frames.capacity, 5U);
        EXPECT_EQ(state->reached.capacity, 50U);
        EXPECT_EQ(state->choices.capacity, 50U);
        EXPECT_EQ(state->places.capacity, 10U);
        EXPECT_EQ(state->records.capacity, 10U);
    }).join();
}

TEST(RegularExp, everyStackGrowsPastItsFirstSizes) {
    std::thread([] {
        // 24 groups, one in the other
        std::string nested = "\x40";
        for (int depth = 0; depth < 24; ++depth)
            nested = group(nested);
        EXPECT_EQ(matched(ANCHOR + nested + END, "abc"), "abc");
        EXPECT_GE(initSptr()->frames.capacity, 24U);
        // 400 repetitions, given back to the first
        const std::string tail(400, 'a');
        EXPECT_EQ(matched(ANCHOR + group("\x40") +
                              "\x14"
                              "b" +
                              END,
                          ("ab" + tail).c_str()),
                  "ab");
        EXPECT_GE(initSptr()->reached.capacity, 400U);
        // 200 items in a row that can all give back, the last of them all but one
        std::string row;
        for (int i = 0; i < 200; ++i)
            row += str(times(ANY, 1, 2));
        EXPECT_EQ(matched(ANCHOR + row + "\x1C" + END, tail.c_str()), tail);
        EXPECT_GE(initSptr()->choices.capacity, 200U);
        // 100 saved places
        EXPECT_EQ(matched(ANCHOR + "\x38\x02\x40\x2E" + END, tail.substr(0, 100).c_str()).size(),
                  100U);
        EXPECT_GE(initSptr()->places.capacity, 100U);
    }).join();
}

TEST(RegularExp, recordTableGrowsWithSlotsAndAutomaticRecords) {
    EXPECT_EQ(captured(std::string("\x20\x3C\x7F\x40\x0C\x7F\x03") + END, "ab"), "3=a");
    const std::string subject(300, 'a');
    CaptureBlock *block = nullptr;
    const std::string program = ANCHOR + group(OPEN_AUTO + "\x40" + CLOSE_AUTO) + END;
    ASSERT_NE(regularExp(program.c_str(), subject.c_str(), &block), nullptr);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->count, 310);
    for (int i = 0; i < 310; ++i)
        EXPECT_STREQ(block->group[i], i < 10 ? nullptr : "a") << i;
    free(block);
}

#ifndef __SANITIZE_ADDRESS__ // which reserves its address space beforehand: no limit can be set
long addressSpacePages() {
    long pages = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    EXPECT_EQ(fscanf(file, "%ld", &pages), 1);
    fclose(file);
    return pages;
}

TEST(RegularExp, exhaustedMemoryIsNoMatch) {
    SKIP_UNDER_THREAD_SANITIZER("its own memory would count against the limit");
    expectChildPasses([] {
        const std::string subject(5U << 20, 'a');
        const std::string program = ANCHOR + group(SLOT_0 + "\x40" + CLOSE_0) + END;
        // Room for small things, not for five million saved repetitions.
        rlimit limit;
        limit.rlim_cur = limit.rlim_max =
            static_cast<rlim_t>(addressSpacePages()) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) +
            (64U << 20);
        ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
        CaptureBlock *block = reinterpret_cast<CaptureBlock *>(8);
        EXPECT_EQ(regularExp(program.c_str(), subject.c_str(), &block), nullptr);
        EXPECT_EQ(block, nullptr);
        EXPECT_EQ(startPatMatch(), nullptr);
        EXPECT_EQ(captured(program, "ab"), "0=b");
    });
}
#endif

// ---- long subjects

// Runs the body in a thread of 128 KiB of stack.
void onSmallStack(void (*body)()) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 128 << 10), 0);
    pthread_t thread;
    const auto start = [](void *argument) -> void * {
        reinterpret_cast<void (*)()>(argument)();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, start, reinterpret_cast<void *>(body)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

constexpr size_t MILLION = 1000000;

TEST(RegularExp, aMillionCharactersCostNoStack) {
    onSmallStack([] {
        const std::string subject = std::string(MILLION, 'a') + "b";
        EXPECT_EQ(matched(str(program(ANCHORED, zeroOrMore(ANY), AT_END)), subject.c_str()).size(),
                  MILLION + 1);
        EXPECT_EQ(
            matched(str(program(ANCHORED, zeroOrMore(ANY), text("ab"), AT_END)), subject.c_str())
                .size(),
            MILLION + 1);
        // Given back to the very first
        const std::string other = "b" + std::string(MILLION, 'a');
        EXPECT_EQ(matched(str(program(ANCHORED, zeroOrMore(ANY), text("b"))), other.c_str()), "b");
    });
}

TEST(RegularExp, aMillionRepetitionsOfAGroupCostNoStack) {
    onSmallStack([] {
        const std::string subject = "b" + std::string(MILLION, 'a');
        EXPECT_EQ(captured(str(program(ANCHORED, groupZeroOrMore(capture(0, ANY)), AT_END)),
                           subject.c_str()),
                  "0=a");
        EXPECT_EQ(matched(str(program(ANCHORED, groupZeroOrMore(ANY), text("b"))), subject.c_str()),
                  "b");
    });
}

TEST(RegularExp, searchThatFailsEverywhereInALongSubjectIsNotQuadratic) {
    const std::string subject(MILLION, 'a');
    EXPECT_EQ(matched(str(program(zeroOrMore(ANY), text("b"))), subject.c_str()), NO_MATCH);
    EXPECT_EQ(matched(str(program(groupZeroOrMore(ANY), text("b"))), subject.c_str()), NO_MATCH);
    EXPECT_EQ(matched(str(program(oneOrMore(in(range('a', 'z'))), in(range('0', '9')))),
                      (subject + "-a1").c_str()),
              "a1");
    EXPECT_EQ(
        matched(str(program(ANCHORED, zeroOrMore(ANY), zeroOrMore(in(range('a', 'z'))), text("b"))),
                ("b" + subject).c_str()),
        "b");
}

// ---- hostile programs

TEST(RegularExp, repetitionsInARowAreNotAPowerOfTheSubject) {
    const std::string subject(3000, 'a');
    std::string row, groups;
    for (int i = 0; i < 12; ++i) {
        row += str(zeroOrMore(character('a')));
        groups += group("\x40");
    }
    EXPECT_EQ(matched(ANCHOR + row +
                          "\x14"
                          "b" +
                          END,
                      subject.c_str()),
              NO_MATCH);
    EXPECT_EQ(matched(ANCHOR + groups +
                          "\x14"
                          "b" +
                          END,
                      subject.c_str()),
              NO_MATCH);
}

TEST(RegularExp, groupsOfNothingEnd) {
    std::string nested;
    for (int depth = 0; depth < 30; ++depth)
        nested = group(nested);
    EXPECT_EQ(matched(ANCHOR + nested + END, "a"), "");
    // Five levels of 255 mandatory repetitions of nothing
    std::string counted = "\x15"
                          "z";
    for (int depth = 0; depth < 5; ++depth)
        counted = std::string{MATCH_GROUP_COUNTED, static_cast<char>(counted.size() + 1)} +
                  counted + "\x2F\xFF\xFF";
    EXPECT_EQ(matched(ANCHOR + counted + END, "a"), "");
    // In a row: each has two places to go on from, and they are one
    std::string row;
    for (int i = 0; i < 60; ++i)
        row += group("");
    EXPECT_EQ(matched(ANCHOR + row +
                          "\x14"
                          "b" +
                          END,
                      "a"),
              NO_MATCH);
}

TEST(RegularExp, nestedCountedGroupsAreNotAPowerOfTheirCounts) {
    std::string nested = str(join(times(ANY, 0, 254), character('b')));
    for (int depth = 0; depth < 8; ++depth)
        nested = str(times(ANY, 0, 254)) +
                 std::string{MATCH_GROUP_COUNTED, static_cast<char>(nested.size() + 1)} + nested +
                 std::string("\x2F\0\xFE", 3) + "\x40";
    EXPECT_EQ(matched(ANCHOR + nested +
                          "\x14"
                          "b" +
                          END,
                      std::string(2000, 'a').c_str()),
              NO_MATCH);
}

// As many attempts as told, each over the whole subject and in vain, and then a match.
std::string attemptsInVain(int count) {
    const std::string attempt = str(groupTimes(0, 1, zeroOrMore(ANY), character('b')));
    std::string program = ANCHOR;
    for (; count > 0; --count)
        program += attempt;
    return program +
           "\x14"
           "a" +
           END;
}

TEST(RegularExp, searchEndsAtTheStepLimitAsNoMatch) {
    const std::string subject(MILLION, 'a');
    EXPECT_EQ(matched(attemptsInVain(4), subject.c_str()), "a");
    // Two million steps each
    EXPECT_EQ(matched(attemptsInVain(140), subject.c_str()), NO_MATCH);
    EXPECT_EQ(matched(attemptsInVain(140), subject.c_str() + MILLION - 5), "a");
}

// What a search takes is held from below: nearly all steps allowed are used up in vain, cheaply,
// and those left are just enough for the tail. An attempt takes three for each character and five
// more.
std::string justWithinTheLimit(int attempts, const std::string &tail) {
    const std::string attempt = str(groupTimes(0, 1, zeroOrMore(ANY), character('Z')));
    std::string program = ANCHOR;
    for (; attempts > 0; --attempts)
        program += attempt;
    return program + tail + END;
}

TEST(RegularExp, itemThatTakesNothingIsOneStep) {
    std::string items = "\x40";
    for (int i = 0; i < 20; ++i)
        items += str(zeroOrMore(character('x')));
    const std::string subject(100000, 'a');
    EXPECT_NE(matched(justWithinTheLimit(887, group(items)), subject.c_str()), NO_MATCH);
}

TEST(RegularExp, shortRunsAreNotTakenAgainByEachTryOfALongSearch) {
    std::string subject;
    for (int i = 0; i < 6000; ++i)
        subject += "xxxxxxxxxxxxxxxx-";
    const std::string tail =
        str(groupTimes(0, 1, zeroOrMore(ANY), zeroOrMore(character('x')), character('Q')));
    EXPECT_NE(matched(justWithinTheLimit(875, tail), subject.c_str()), NO_MATCH);
}

TEST(RegularExp, placeNotedAsAFailureIsOneStep) {
    const std::string subject(20000, 'a');
    const std::string longClass = "\x18\xFB" + std::string(250, 'b');
    const std::string sub =
        str(join(zeroOrMore(ANY), times(character('a'), 0, 254))) + longClass + "\x2F";
    const std::string tail = std::string{static_cast<char>(MATCH_GROUP_COUNTED + sub.size() / 256),
                                         static_cast<char>(sub.size() % 256)} +
                             sub + std::string("\0\x01", 2);
    EXPECT_NE(matched(justWithinTheLimit(4282, tail), subject.c_str()), NO_MATCH);
}

// The longest run that must be matched, of the longest class, its members compared in vain but for
// the last: 65025 comparisons at each place.
std::string classAttemptsInVain(int count) {
    const std::string sub = "\x41\x1B\xFF" + std::string(253, 'b') + "a\xFF\xFF\x14Z\x2F";
    const std::string attempt =
        std::string{static_cast<char>(MATCH_GROUP_COUNTED + sub.size() / 256),
                    static_cast<char>(sub.size() % 256)} +
        sub + std::string("\0\x01", 2);
    std::string program = ANCHOR;
    for (; count > 0; --count)
        program += attempt;
    return program + "\x14" + "a" + END;
}

TEST(RegularExp, comparisonsWithAClassCountAsSteps) {
    const std::string subject(3000, 'a');
    EXPECT_EQ(matched(classAttemptsInVain(1), subject.c_str()), "a");
    EXPECT_EQ(matched(classAttemptsInVain(7), subject.c_str()), NO_MATCH);
}

// The padding ends with its page; nothing behind it can be read.
TEST(RegularExp, paddingHoldsWhatTheLastBytesOfAProgramClaim) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char *memory = static_cast<char *>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(mprotect(memory + page, page, PROT_NONE), 0);
    char *program = memory + page - 1026 - 2;
    int matches = 0;
    for (int first = 0; first < 256; ++first)
        for (int second = 0; second < 256; ++second) {
            program[0] = static_cast<char>(first);
            program[1] = static_cast<char>(second);
            matches += regularExp(program, "aa", nullptr) != nullptr;
        }
    EXPECT_EQ(MATCH_PADDING, 1026);
    // MATCH_END and any byte; MATCH_ANCHOR and it; any character, some, or the subject's end and
    // one of the four ends. Whatever goes on into the padding fails.
    EXPECT_EQ(matches, 256 + 1 + 4 * 4);
    munmap(memory, 2 * page);
}

// Each program stands at the end of a page with nothing readable behind it.
TEST(RegularExp, programsAreReadOnlyAsFarAsTheyReach) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char *memory = static_cast<char *>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(mprotect(memory + page, page, PROT_NONE), 0);
    const std::string programs[] = {
        "\x34",
        "\x20\x34",
        "\x01",
        "\x20\x01",
        "\x20\x1C",
        "\x2F",
        "\x20\x14"
        "b",
        "\x20\x18\x02"
        "b",
        "\x20\x44\x03\x14"
        "b\x2F",
        "\x20\x44\x02\x18\x05",
        "\x20\x44\x01\x38",
        "\x20\x44\x01\x3C",
        "\x20\x44\x02\x0C\x00",
        "\x20\x44\x01\x18",
        "\x20\x44\x01\x14",
        "\x20\x44\x03\x38\x05\x40",
        "\x20\x44\x02\x43\x01",
        "\x20\x44\x03\x30\x01\x2F",
        "\x20\x44\x01\x28",
        "\x20\x44\x03\x18\x03\x10",
        "\x20\x41\x14"
        "b",
        "\x20\x14"
        "b\x14",
        "\x20\x14"
        "b\x18",
        "\x20\x14"
        "b\x0C",
        "\x20\x14"
        "b\x18\xF0",
        // Cut behind the member that every character of the subject is in
        "\x08\x0B\x10\x61\xC0\x62",
        "\x20\x08\x0B\x10\x61\xC0\x62",
        "\x0A\x0B\x10\x61\xC0\x62",
        "\x20\x0A\x0B\x10\x61\xC0\x62",
        "\x41\x08\x0B\x10\x61\xC0\x62",
    };
    for (const std::string &program : programs) {
        char *placed = memory + page - program.size();
        memcpy(placed, program.data(), program.size());
        for (const std::string &subject : {std::string("a"), std::string(100, 'a')}) {
            const char *end = regularExp(placed, subject.c_str(), nullptr);
            EXPECT_EQ(end != nullptr, program.back() == '\x34') << program;
        }
    }
    // The terminator asks for no operand
    for (const std::string &program :
         {std::string("\x16"), std::string("\x1A\x0B"), std::string("\x20\x0A\x0B")}) {
        char *placed = memory + page - program.size();
        memcpy(placed, program.data(), program.size());
        EXPECT_EQ(regularExp(placed, "", nullptr), nullptr) << program;
    }
    const std::string behindOne = "\x20\x14\x61\x1A\x0B";
    char *placed = memory + page - behindOne.size();
    memcpy(placed, behindOne.data(), behindOne.size());
    EXPECT_EQ(regularExp(placed, "a", nullptr), nullptr);
    munmap(memory, 2 * page);
}

// ---- threads

TEST(RegularExp, threadsMatchIndependently) {
    const std::string program =
        str(matchProgram::program(capture(0, oneOrMore(in(range('0', '9'))))));
    std::atomic<int> wrong{0};
    std::thread threads[4];
    for (int t = 0; t < 4; ++t)
        threads[t] = std::thread([&, t] {
            const std::string number = std::to_string(1000 + t), subject = "no. " + number;
            char text[16];
            for (int round = 0; round < 2000; ++round)
                wrong += regEx(program.c_str(), subject.c_str(), text) == nullptr ||
                         number != text || startPatMatch() != subject.c_str() + 4;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(RegularExp, stateBelongsToTheThread) {
    MatchState *state = initSptr();
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(initSptr(), state);
    std::thread([state] {
        MatchState *own = initSptr();
        EXPECT_NE(own, state);
        const MatchState empty = {};
        EXPECT_EQ(memcmp(own, &empty, sizeof empty), 0);
        EXPECT_EQ(startPatMatch(), nullptr);
    }).join();
}

long residentBytes() {
    long size = 0, resident = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    EXPECT_EQ(fscanf(file, "%ld %ld", &size, &resident), 2);
    fclose(file);
    return resident * sysconf(_SC_PAGESIZE);
}

TEST(RegularExp, endingThreadsGiveTheirStacksBack) {
    static const std::string subject(200000, 'a');
    const long before = residentBytes();
    for (int round = 0; round < 60; ++round)
        std::thread([] {
            EXPECT_EQ(
                matched(str(program(groupZeroOrMore(capture(0, ANY)))), subject.c_str()).size(),
                subject.size());
        }).join();
    // About 30 MB each; a sanitizer's quarantine keeps 256.
    EXPECT_LT(residentBytes() - before, 700L << 20);
}

// In a thread of its own each time: what a call made of the stacks stays for the next.
std::string capturedWith(int successes, const std::string &program, const std::string &subject) {
    std::string text;
    std::thread([&] {
        CaptureBlock *block = reinterpret_cast<CaptureBlock *>(8);
        const char *end, *start;
        {
            const FailingAlloc failing(successes);
            end = regularExp(program.c_str(), subject.c_str(), &block);
            start = startPatMatch();
        }
        if (end == nullptr) {
            EXPECT_EQ(block, nullptr);
            EXPECT_EQ(start, nullptr);
            text = NO_MATCH;
            return;
        }
        text = block == nullptr ? "null" : block->group[0];
        free(block);
    }).join();
    return text;
}

TEST(RegularExp, everyAllocationMayFail) {
    const std::string subject = std::string(60, 'x') + "ab";
    const struct {
        std::string program, found;
    } cases[] = {
        // A group of captures, given back to the very start: choices, records and their undoing
        {str(matchProgram::program(groupZeroOrMore(capture(0, ANY)), zeroOrMore(ANY), text("b"))),
         "a"},
        {CLOSE_0 + "\x40" + END, "null"}, // closed only
        {std::string("\x20\x38\x03\x14"
                     "x\x2E\x1C") +
             END,
         NO_MATCH}, // places saved to no avail
        {ANCHOR +
             "\x38\x03\x14"
             "x\x2E" +
             SLOT_0 + "\x40" + CLOSE_0 + END,
         "a"}, // and to some
    };
    for (const auto &[program, found] : cases) {
        int failures = 0;
        for (int successes = 0; successes < 40; ++successes) {
            const std::string got = capturedWith(successes, program, subject);
            failures += got != found ? 1 : 0;
            EXPECT_TRUE(got == NO_MATCH || got == found) << successes << ": " << got;
        }
        EXPECT_EQ(capturedWith(40, program, subject), found);
        EXPECT_LT(failures, 40);
        if (found != NO_MATCH) {
            EXPECT_GE(failures, 2);
        }
    }
}

TEST(RegularExp, threadWithoutMemoryForItsStateMatchesNothing) {
    std::thread([] {
        const char *end, *start;
        {
            const FailingAlloc none;
            end = regEx(END.c_str(), "");
            start = startPatMatch();
        }
        EXPECT_EQ(end, nullptr);
        EXPECT_EQ(start, nullptr);
        EXPECT_STREQ(regEx(END.c_str(), ""), "");
    }).join();
}

TEST(RegularExp, withoutMemoryForTheNotesOfFailuresTheResultIsTheSame) {
    // Some thousand retries: failures would be noted, were there memory.
    const std::string program = str(
        matchProgram::program(ANCHORED, capture(0, zeroOrMore(ANY)), zeroOrMore(ANY), text("b")));
    const std::string subject(2000, 'x'); // too long to be looked through for the letter first
    int matches = 0;
    for (int successes = 0; successes < 12; ++successes) {
        EXPECT_EQ(capturedWith(successes, program, subject), NO_MATCH);
        matches += capturedWith(successes, program, subject + "b") != NO_MATCH ? 1 : 0;
    }
    EXPECT_GT(matches, 0);
}

TEST(RegularExp, groupOfMoreThan255BytesIsSkippedWhole) {
    std::string sub, subject;
    for (int i = 0; i < 150; ++i) {
        sub += std::string("\x14") + static_cast<char>('a' + i % 26);
        subject += static_cast<char>('a' + i % 26);
    }
    const std::string tail = "\x14"
                             "!" +
                             END;
    EXPECT_EQ(matched(ANCHOR + group(sub) + tail, (subject + subject + "!").c_str()),
              subject + subject + "!");
    EXPECT_EQ(matched(ANCHOR + group(sub) + tail, "!"), "!");
    EXPECT_EQ(matched(ANCHOR + group(sub) + tail, (subject.substr(1) + "!").c_str()), NO_MATCH);
}

} // namespace

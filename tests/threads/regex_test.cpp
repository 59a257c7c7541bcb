/* One program matched by several threads at once, each with captures of its own. */
#include "regex/match.h"
#include "regex/regularExp.h"

#include "together.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>

namespace {

using namespace matchProgram;

constexpr auto WORD_AND_NUMBER = program(capture(0, oneOrMore(in(range('a', 'z')))), character('='),
                                         capture(1, oneOrMore(in(range('0', '9')))));

TEST(Threads, sharedProgramGivesEachThreadItsOwnCaptures) {
    std::atomic<int> wrong{0};
    together([&](int number) {
        const std::string word(static_cast<size_t>(number) * 90 + 1,
                               static_cast<char>('a' + number));
        for (int round = 0; round < 10000; ++round) {
            const std::string digits = std::to_string(number * 1000 + round);
            const std::string subject = "-- " + word + "=" + digits + " --";
            CaptureBlock *block = nullptr;
            const char *end = regularExp(WORD_AND_NUMBER.bytes, subject.c_str(), &block);
            wrong += end != nullptr && startPatMatch() == subject.c_str() + 3 &&
                             block->group[0] == word && block->group[1] == digits
                         ? 0
                         : 1;
            free(block);
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, statesAreTheThreadsOwn) {
    MatchState *states[THREADS];
    together([&](int number) {
        states[number] = initSptr();
        regularExp(WORD_AND_NUMBER.bytes, "a=1", nullptr);
        if (initSptr() != states[number])
            states[number] = nullptr;
    });
    for (const MatchState *state : states)
        EXPECT_NE(state, nullptr);
}

} // namespace

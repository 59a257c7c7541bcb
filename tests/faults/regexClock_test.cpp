// The matcher and the clock, without memory, and the clock's dump where nothing can be written.
#include "clock/clock.h"
#include "regex/match.h"
#include "regex/regularExp.h"

#include "faults/sweep.h"

#include <cstring>
#include <signal.h>

namespace {

using matchProgram::ANY;
using matchProgram::capture;
using matchProgram::groupZeroOrMore;
using matchProgram::zeroOrMore;

// Takes every stack of the state: groups that repeat, records, choices to go back to.
constexpr auto PATTERN = matchProgram::program(
    groupZeroOrMore(capture(0, zeroOrMore(ANY)), capture(1, matchProgram::text("=")),
                    capture(2, zeroOrMore(ANY)), matchProgram::text(";")),
    matchProgram::text("end"));
constexpr const char *SUBJECT = "name=value;other=x;end and more";

void matches(Attempt &attempt) {
    CaptureBlock *block = nullptr;
    const char *end = attempt.under([&] { return regularExp(PATTERN.bytes, SUBJECT, &block); });
    EXPECT_EQ(shown(end), attempt.faulted() ? "(null)" : " and more");
    EXPECT_EQ(block == nullptr, attempt.faulted()) << "a block without a match";
    EXPECT_EQ(startPatMatch(), attempt.faulted() ? nullptr : SUBJECT);
    free(block);
    EXPECT_EQ(shown(regularExp(PATTERN.bytes, SUBJECT, &block)), " and more");
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->count, 3);
    EXPECT_STREQ(block->group[1], "=");
    free(block);
}

// As above, but for a key that could not be made: the store that follows makes it.
void matchesIntoBuffers(Attempt &attempt) {
    char first[64] = "untouched", second[64] = "", third[64] = "";
    const char *end =
        attempt.under([&] { return regEx(PATTERN.bytes, SUBJECT, first, second, third); });
    const bool failed = attempt.faulted() && end == nullptr;
    EXPECT_TRUE(failed || shown(end) == " and more") << shown(end);
    EXPECT_STREQ(second, failed ? "" : "=");
    if (failed) {
        EXPECT_STREQ(first, "untouched");
    }
    EXPECT_EQ(shown(regEx(PATTERN.bytes, SUBJECT, first, second, third)), " and more");
    EXPECT_STREQ(second, "=");
}

// More than a stack's first size of every kind.
void matchesDeep(Attempt &attempt) {
    constexpr auto deep = matchProgram::program(
        groupZeroOrMore(capture(0, ANY),
                        capture(1, zeroOrMore(matchProgram::in(matchProgram::one('y'))))),
        matchProgram::text("z"));
    const std::string subject = std::string(120, 'x') + "z";
    const char *end =
        attempt.under([&] { return regularExp(deep.bytes, subject.c_str(), nullptr); });
    EXPECT_EQ(shown(end), attempt.faulted() ? "(null)" : "");
    EXPECT_EQ(shown(regularExp(deep.bytes, subject.c_str(), nullptr)), "");
}

void makesState(Attempt &attempt) {
    const MatchState *state = attempt.under([] { return initSptr(); });
    EXPECT_TRUE(state != nullptr || attempt.faulted());
    EXPECT_TRUE(state == nullptr || !attempt.at("calloc"));
    EXPECT_NE(initSptr(), nullptr);
    EXPECT_EQ(startPatMatch(), nullptr);
}

void tellsStart(Attempt &attempt) {
    EXPECT_EQ(attempt.under([] { return startPatMatch(); }), nullptr);
    EXPECT_EQ(shown(regularExp(PATTERN.bytes, SUBJECT, nullptr)), " and more");
    EXPECT_EQ(startPatMatch(), SUBJECT);
}

// ---- the clock

bool alarmIsBlocked() {
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, SIGALRM) == 1;
}

// No table, SIGALRM blocked for good, every later call refused.
void expectUnusable() {
    EXPECT_EQ(callouts, nullptr);
    EXPECT_EQ(clkinit(50), -1);
    EXPECT_EQ(clkTimeout(CLK_NO_FUNCTION, 0, 60), UINT32_MAX);
    EXPECT_EQ(clkUntimeout(0), -1);
    EXPECT_EQ(clkKillTimeout(CLK_NO_FUNCTION, 7), -1);
    int32_t flag = 0;
    EXPECT_EQ(deepSleep(60, &flag), 60U);
    EXPECT_EQ(clkSleep(60), 60U);
    EXPECT_EQ(suspendTimeouts(), -1);
    EXPECT_EQ(unsuspendTimeouts(), -1);
    EXPECT_EQ(clkPause(), -1);
    EXPECT_EQ(clkHold(), 0);
    holdInfo.startTime -= 5; // as if it had lasted
    EXPECT_EQ(clkCatchup(3), 0);
    clkRelease();
    dumpClockCallOuts("unusable", __FILE__, __LINE__);
    EXPECT_TRUE(alarmIsBlocked());
}

// Without a first table the next operation tries again.
void expectQueues() {
    const uint32_t id = clkTimeout(CLK_NO_FUNCTION, 7, 60);
    EXPECT_NE(id, UINT32_MAX);
    EXPECT_FALSE(alarmIsBlocked());
    EXPECT_EQ(clkUntimeout(id), 60);
}

void makesClock(Attempt &attempt) {
    const int32_t result = attempt.under([] { return clkinit(5); });
    EXPECT_EQ(result, attempt.faulted() ? -1 : 0);
    EXPECT_EQ(callouts == nullptr, attempt.faulted());
    expectQueues();
}

void queuesFirst(Attempt &attempt) {
    const uint32_t id = attempt.under([] { return clkTimeout(CLK_NO_FUNCTION, 7, 60); });
    EXPECT_EQ(id, attempt.faulted() ? UINT32_MAX : 0U);
    EXPECT_EQ(callouts == nullptr, attempt.faulted());
    expectQueues();
}

void growsClock(Attempt &attempt) {
    ASSERT_EQ(clkinit(5), 0);
    ASSERT_EQ(clkTimeout(CLK_NO_FUNCTION, 7, 60), 0U);
    const int32_t result = attempt.under([] { return clkinit(50); });
    EXPECT_EQ(result, attempt.faulted() ? -1 : 0);
    if (attempt.faulted())
        return expectUnusable();
    EXPECT_EQ(maxcallouts, 50);
    EXPECT_EQ(clkKillTimeout(CLK_NO_FUNCTION, 7), 60);
}

// Whatever sleeps or suspends first makes the table first.
void sleepsWithoutClock(Attempt &attempt) {
    const uint32_t left = attempt.under([] { return deepSleep(1, nullptr); });
    EXPECT_EQ(left, attempt.faulted() ? 1U : 0U);
}

// Kept: SIGALRM stays blocked afterwards.
void sleepsForASignal(Attempt &attempt) {
    const uint32_t left = attempt.under([] { return clkSleep(1); });
    EXPECT_EQ(left, attempt.faulted() ? 1U : 0U);
    expectQueues();
}

void holdsFirst(Attempt &attempt) {
    EXPECT_EQ(attempt.under([] { return clkHold(); }), 0);
    clkRelease();
    expectQueues();
}

void suspendsFirst(Attempt &attempt) {
    EXPECT_EQ(attempt.under([] { return suspendTimeouts(); }), 0);
    EXPECT_EQ(unsuspendTimeouts(), 0);
    expectQueues();
}

std::string printed;

void notePrinted(const char *text) {
    if (text != nullptr)
        printed += text;
}

std::string dumped() {
    printed.clear();
    dumpClockCallOuts("message", "name", 12);
    return printed;
}

// A line that cannot be formatted is missing, and no other text stands in its place.
void dumps(Attempt &attempt) {
    setClockPrintFunc(notePrinted);
    ASSERT_EQ(clkinit(5), 0);
    ASSERT_NE(clkTimeout(CLK_NO_FUNCTION, 7, 60), UINT32_MAX);
    const std::string whole = dumped();
    const std::string text = attempt.under([] { return dumped(); });
    EXPECT_TRUE(attempt.faulted() ? text.size() < whole.size() : text == whole) << text;
    for (size_t at = 0, line; (line = text.find('\n', at)) != std::string::npos; at = line + 1)
        EXPECT_NE(whole.find(text.substr(at, line - at)), std::string::npos) << text;
    EXPECT_EQ(dumped(), whole);
}

// A standard error that takes nothing is passed over.
void dumpsByDefault(Attempt &attempt) {
    ASSERT_EQ(clkinit(5), 0);
    attempt.under([] {
        dumpClockCallOuts("message", "name", 12);
        return 0;
    });
    expectQueues();
}

const std::vector<Rows> rows = {
    {"regularExp",
     Fresh::IN_THREAD,
     matches,
     {Kind{"memoryOnce", "malloc,calloc,realloc", ENOMEM, 0}, MEMORY_GONE}},
    {"regularExp_deep",
     Fresh::IN_THREAD,
     matchesDeep,
     {Kind{"memoryOnce", "malloc,calloc,realloc", ENOMEM, 0}, MEMORY_GONE}},
    {"regEx", Fresh::IN_THREAD, matchesIntoBuffers, MEMORY},
    {"initSptr", Fresh::IN_THREAD, makesState, MEMORY},
    {"startPatMatch", Fresh::IN_THREAD, tellsStart, MEMORY},
    {"clkinit", Fresh::IN_CHILD, makesClock, MEMORY},
    {"clkinit_growing", Fresh::IN_CHILD, growsClock, MEMORY},
    {"clkTimeout", Fresh::IN_CHILD, queuesFirst, MEMORY},
    {"deepSleep", Fresh::IN_CHILD, sleepsWithoutClock, {MEMORY_GONE}},
    {"clkSleep", Fresh::IN_CHILD, sleepsForASignal, {MEMORY_GONE}},
    {"clkHold", Fresh::IN_CHILD, holdsFirst, MEMORY},
    {"suspendTimeouts", Fresh::IN_CHILD, suspendsFirst, MEMORY},
    {"dumpClockCallOuts", Fresh::IN_CHILD, dumps, MEMORY},
    {"dumpClockCallOuts_toStandardError",
     Fresh::IN_CHILD,
     dumpsByDefault,
     {INTERRUPTED, NO_SPACE, IO_ERROR, IO_GONE}},
};

QN_SWEEPS(rows);

} // namespace

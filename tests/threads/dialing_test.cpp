/* Calls of several threads at once, each on a channel of its own, over the stand-in. */
#include "dialer/dialer.h"

#include "platform/lineScript.h"
#include "support/tempDir.h"
#include "together.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>

namespace {

constexpr int CALLS = 25;

// Dial tone for the first timer of a call, nothing for the second, an answer for each dialling.
std::string manyCalls() {
    std::string script;
    for (int call = 0; call < THREADS * CALLS; ++call)
        script += "dial\n 0 event 65 sub 32\n 1 event 11\n";
    return script;
}

int callRepeatedly(int number, std::ofstream &trace) {
    chan_info *channel = vxOpenChannel();
    int wrong = 0;
    for (int call = 0; call < CALLS; ++call) {
        int32_t seconds = 0;
        const std::string digits = std::to_string(5550000 + number);
        wrong += QN_wait4dialtone(channel, 0, trace, 1) == DIALER_NO_TONE ? 0 : 1;
        wrong += QN_dial(channel, digits.c_str(), trace, 1) == DIALER_REACHED ? 0 : 1;
        wrong += QN_delay(channel, seconds, trace, 1) == DIALER_REACHED ? 0 : 1;
    }
    vxCloseChannel(channel);
    return wrong;
}

size_t countOf(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(Threads, callsOnChannelsOfTheirOwnDoNotMix) {
    const TempDir folder;
    ASSERT_EQ(vxSetLineScript("script", manyCalls().c_str()), 1);
    std::atomic<int> wrong{0};
    together([&](int number) {
        std::ofstream trace(folder.file(std::to_string(number)));
        wrong += callRepeatedly(number, trace);
    });
    EXPECT_EQ(wrong, 0);
    for (int number = 0; number < THREADS; ++number) {
        const std::string trace = folder.read(std::to_string(number));
        EXPECT_EQ(countOf(trace, "\n"), 100U); // four events a call
        EXPECT_EQ(countOf(trace, "dial " + std::to_string(5550000 + number) + ": event 11"), 25U);
    }
}

TEST(Threads, copiesOfOneNumberKeepTheirCount) {
    using stdComponents::String;
    const String number("5551234");
    std::atomic<int> wrong{0};
    together([&](int) {
        for (int round = 0; round < 200000; ++round) {
            const String copy(number);
            wrong += copy.rep == number.rep && copy.length() == 7 ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(number.rep->owners, 1U);
}

// Events are posted by three threads while the fourth takes them.
TEST(Threads, postedEventsAllArriveOnce) {
    constexpr int POSTS = 2000;
    chan_info *channel = vxOpenChannel();
    int next[THREADS] = {}, wrong = 0;
    together([&](int number) {
        for (int round = 0; number > 0 && round < POSTS; ++round)
            while (vxPostEvent(channel, number, round) != 1)
                std::this_thread::yield();
        for (int taken = 0; number == 0 && taken < (THREADS - 1) * POSTS; ++taken) {
            vx_event event;
            vxWCheck(&event);
            wrong += event.code > 0 && event.code < THREADS && event.subcode == next[event.code]++
                         ? 0
                         : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
    vxCloseChannel(channel);
}

} // namespace

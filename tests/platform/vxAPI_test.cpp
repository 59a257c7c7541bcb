/* The stand-in as an application meets it: scripts, timers, posted events, threads, traces. Times
 * are real but a few milliseconds; only lower bounds and orders are checked, never upper bounds.
 * Each case starts the line anew with a script of its own. */
#include "platform/lineScript.h"

#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

class VxAPI : public testing::Test {
  protected:
    void SetUp() override {
        script("");
        channel = vxOpenChannel();
    }
    void TearDown() override { vxCloseChannel(channel); }

    static void script(const char *text) { ASSERT_EQ(vxSetLineScript("script", text), 1); }

    // The next event as "code/sub-code".
    static std::string next() {
        vx_event event;
        EXPECT_EQ(vxWCheck(&event), 1);
        return std::to_string(event.code) + "/" + std::to_string(event.subcode);
    }

    chan_info *channel = nullptr;
};

double millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

TEST_F(VxAPI, startsAreAcceptedWithoutAScript) {
    EXPECT_EQ(vxDial(channel, 0, "123"), 1);
    EXPECT_EQ(vxStartTimer(channel, 1, 0, 0), 1);
}

TEST_F(VxAPI, timerYieldsEvent7NotBeforeItsTime) {
    const auto start = std::chrono::steady_clock::now();
    vxStartTimer(channel, 20, 0, 0);
    EXPECT_EQ(next(), "7/0");
    EXPECT_GE(millisecondsSince(start), 20.0);
}

TEST_F(VxAPI, timerOfZeroOrLessRunsOutAtOnce) {
    for (const int32_t milliseconds : {0, -1, INT32_MIN}) {
        vxStartTimer(channel, milliseconds, 0, 0);
        EXPECT_EQ(next(), "7/0");
    }
}

TEST_F(VxAPI, cancelledTimerYieldsNothing) {
    vxStartTimer(channel, 1, 0, 0);
    EXPECT_EQ(vxCancelTimer(channel, 0), 1);
    vxPostEvent(channel, 99, 1);
    EXPECT_EQ(next(), "99/1");
    usleep(3000);
    vxPostEvent(channel, 99, 2);
    EXPECT_EQ(next(), "99/2");
}

TEST_F(VxAPI, timerThatRanOutUnfetchedCanStillBeCancelled) {
    vxStartTimer(channel, 0, 0, 0);
    EXPECT_EQ(vxCancelTimer(channel, 0), 1);
    EXPECT_EQ(vxCancelTimer(channel, 0), 0);
    vxPostEvent(channel, 99, 0);
    EXPECT_EQ(next(), "99/0");
}

TEST_F(VxAPI, cancellingLeavesScriptedEventsAndOtherChannelsAlone) {
    script("timer\n 0 event 7 sub 5\n");
    chan_info *other = vxOpenChannel();
    vxStartTimer(channel, 0, 0, 0);
    vxStartTimer(other, 1, 0, 0);
    vxCancelTimer(channel, 0);
    EXPECT_EQ(next(), "7/5");
    EXPECT_EQ(next(), "7/0");
    EXPECT_EQ(vxCancelTimer(other, 0), 0);
    vxCloseChannel(other);
}

TEST_F(VxAPI, startingTheTimerAnewReplacesIt) {
    vxStartTimer(channel, 0, 0, 0);
    vxStartTimer(channel, 2, 0, 0);
    EXPECT_EQ(next(), "7/0");
    EXPECT_EQ(vxCancelTimer(channel, 0), 0) << "a second event 7 was to come";
}

TEST_F(VxAPI, blocksOfOneKindAreUsedInOrderOnePerStart) {
    script("dial\n 0 event 1\ntimer\n 0 event 2\ndial\n 0 event 3\n");
    vxDial(channel, 0, "1");
    EXPECT_EQ(next(), "1/0");
    vxDial(channel, 0, "1");
    EXPECT_EQ(next(), "3/0");
    vxStartTimer(channel, 1000000, 0, 0);
    EXPECT_EQ(next(), "2/0");
    EXPECT_EQ(vxDial(channel, 0, "1"), 1);
    vxPostEvent(channel, 99, 0);
    EXPECT_EQ(next(), "99/0");
}

TEST_F(VxAPI, eventsComeByTimeAndAtOneTimeInScriptOrder) {
    script("dial\n 4 event 3\n 0 event 1\n 4 event 4 sub -9\n 2 event 2\n");
    const auto start = std::chrono::steady_clock::now();
    vxDial(channel, 0, "1");
    EXPECT_EQ(next(), "1/0");
    EXPECT_EQ(next(), "2/0");
    EXPECT_EQ(next(), "3/0");
    EXPECT_EQ(next(), "4/-9");
    EXPECT_GE(millisecondsSince(start), 4.0);
}

TEST_F(VxAPI, openBlockCountsFromLoading) {
    script("open\n 3 event 38\n");
    EXPECT_EQ(next(), "38/0");
}

TEST_F(VxAPI, refusedStartReturnsItsResultAndSendsNothing) {
    script("timer refused\ntimer refused -7\ntimer\ndial refused 2\n");
    EXPECT_EQ(vxStartTimer(channel, 0, 0, 0), 0);
    EXPECT_EQ(vxStartTimer(channel, 0, 0, 0), -7);
    EXPECT_EQ(vxDial(channel, 0, "1"), 2);
    vxPostEvent(channel, 99, 0);
    EXPECT_EQ(next(), "99/0");
    EXPECT_EQ(vxStartTimer(channel, 0, 0, 0), 1);
    EXPECT_EQ(next(), "7/0");
}

TEST_F(VxAPI, nullNumberIsRefused) {
    EXPECT_EQ(vxDial(channel, 0, nullptr), 0);
}

TEST_F(VxAPI, nullRecordDoesNotBlock) {
    EXPECT_EQ(vxWCheck(nullptr), 0);
}

TEST_F(VxAPI, recordIsFilledWhole) {
    vx_event event;
    memset(&event, 0x55, sizeof event);
    vxDial(channel, 0, "5551234");
    vxPostEvent(channel, INT32_MIN, INT32_MAX);
    vxWCheck(&event);
    EXPECT_GT(event.word0, 0);
    EXPECT_EQ(event.code, INT32_MIN);
    EXPECT_EQ(event.subcode, INT32_MAX);
    EXPECT_STREQ(reinterpret_cast<char *>(event.reserved), "dial 5551234");
    EXPECT_EQ(event.reserved[59], 0);
    const int32_t sequence = event.word2;
    vxPostEvent(channel, 1, 0);
    vxWCheck(&event);
    EXPECT_EQ(event.word2, sequence + 1);
}

TEST_F(VxAPI, channelsAreNumberedAndAnyAddressWillDo) {
    chan_info *second = vxOpenChannel();
    int own[2] = {};
    chan_info *foreign = reinterpret_cast<chan_info *>(own);
    int32_t numbers[3];
    chan_info *const all[] = {channel, second, foreign};
    for (size_t index = 0; index < 3; ++index) {
        vx_event event;
        EXPECT_EQ(vxStartTimer(all[index], 0, 0, 0), 1);
        vxWCheck(&event);
        numbers[index] = event.word0;
    }
    EXPECT_EQ(numbers[1], numbers[0] + 1);
    EXPECT_EQ(numbers[2], numbers[1] + 1);
    EXPECT_EQ(own[0], 0);
    vxCloseChannel(second);
    vxCloseChannel(nullptr);
}

TEST_F(VxAPI, closedChannelTakesItsEventsAlong) {
    chan_info *second = vxOpenChannel();
    vxStartTimer(second, 0, 0, 0);
    vxPostEvent(second, 12, 0);
    vxCloseChannel(second);
    vxPostEvent(channel, 99, 0);
    EXPECT_EQ(next(), "99/0");
}

TEST_F(VxAPI, newScriptDropsWhatWasToCome) {
    vxStartTimer(channel, 0, 0, 0);
    vxPostEvent(channel, 12, 0);
    script("open\n 0 event 99\n");
    EXPECT_EQ(next(), "99/0");
}

TEST_F(VxAPI, postedEventsKeepTheirOrder) {
    for (int32_t code = 0; code < 1000; ++code)
        ASSERT_EQ(vxPostEvent(channel, code, -code), 1);
    for (int32_t code = 0; code < 1000; ++code)
        ASSERT_EQ(next(), std::to_string(code) + "/" + std::to_string(-code));
}

TEST_F(VxAPI, postBeyondTheInboxIsRefusedNotLostSilently) {
    for (int count = 0; count < 1024; ++count)
        ASSERT_EQ(vxPostEvent(channel, count, 0), 1);
    EXPECT_EQ(vxPostEvent(channel, 5000, 0), 0);
    for (int count = 0; count < 1024; ++count)
        ASSERT_EQ(next(), std::to_string(count) + "/0");
    EXPECT_EQ(vxPostEvent(channel, 99, 0), 1);
    EXPECT_EQ(next(), "99/0");
}

TEST_F(VxAPI, postFromAnotherThreadWakesTheWaiter) {
    std::thread poster([this] {
        usleep(5000);
        vxPostEvent(channel, 38, 6);
    });
    EXPECT_EQ(next(), "38/6");
    poster.join();
}

TEST_F(VxAPI, nobodysEventCountsForTheChannelOfWhoTakesIt) {
    vxDial(channel, 0, "42");
    vxPostEvent(nullptr, 38, 0);
    vx_event event;
    vxWCheck(&event);
    EXPECT_GT(event.word0, 0);
    EXPECT_STREQ(reinterpret_cast<char *>(event.reserved), "dial 42");
}

TEST_F(VxAPI, postsOfManyThreadsAllArrive) {
    constexpr int THREADS = 4, POSTS = 200;
    std::vector<std::thread> threads;
    for (int number = 0; number < THREADS; ++number)
        threads.emplace_back([this, number] {
            for (int count = 0; count < POSTS; ++count)
                vxPostEvent(channel, number, count);
        });
    int32_t expected[THREADS] = {};
    for (int count = 0; count < THREADS * POSTS; ++count) {
        vx_event event;
        vxWCheck(&event);
        ASSERT_TRUE(event.code >= 0 && event.code < THREADS);
        EXPECT_EQ(event.subcode, expected[event.code]++);
    }
    for (std::thread &thread : threads)
        thread.join();
}

// Two threads, each with a call of its own on a channel of its own.
TEST_F(VxAPI, eventsOfAnotherThreadsCallAreLeftToThatThread) {
    chan_info *other = vxOpenChannel();
    vxDial(channel, 0, "1");
    vxPostEvent(channel, 11, 1);
    std::thread second([other] {
        vxDial(other, 0, "2");
        vxPostEvent(other, 11, 2);
        EXPECT_EQ(next(), "11/2");
    });
    second.join();
    EXPECT_EQ(next(), "11/1");
    vxCloseChannel(other);
}

TEST_F(VxAPI, postWakesTheThreadItIsForAmongSeveralThatWait) {
    chan_info *channels[] = {vxOpenChannel(), vxOpenChannel(), vxOpenChannel()};
    std::vector<std::thread> threads;
    for (chan_info *mine : channels)
        threads.emplace_back([mine] {
            vxDial(mine, 0, "1");
            EXPECT_EQ(next(), "11/0");
        });
    usleep(20000); // asleep by then, first come first woken
    for (size_t index = 3; index-- > 0;) {
        vxPostEvent(channels[index], 11, 0);
        threads[index].join();
        vxCloseChannel(channels[index]);
    }
}

TEST_F(VxAPI, noWakingIsLostHoweverPostAndWaitMeet) {
    constexpr int32_t ROUNDS = 20000;
    chan_info *other = vxOpenChannel();
    vxDial(channel, 0, "1");
    std::thread answerer([this, other] {
        vxDial(other, 0, "2");
        for (int32_t round = 0; round < ROUNDS; ++round) {
            vxPostEvent(channel, 1, round);
            ASSERT_EQ(next(), "2/" + std::to_string(round));
        }
    });
    for (int32_t round = 0; round < ROUNDS; ++round) {
        ASSERT_EQ(next(), "1/" + std::to_string(round));
        vxPostEvent(other, 2, round);
    }
    answerer.join();
    vxCloseChannel(other);
}

TEST_F(VxAPI, threadThatStartedNothingGetsAnyEvent) {
    vxDial(channel, 0, "1");
    vxPostEvent(channel, 11, 0);
    std::thread listener([] { EXPECT_EQ(next(), "11/0"); });
    listener.join();
}

chan_info *signalled;
volatile int errnoAfterPost = 0;

void postFromHandler(int) {
    const int kept = errno;
    errno = ERANGE;
    vxPostEvent(signalled, 38, 0);
    errnoAfterPost = errno;
    errno = kept;
}

TEST_F(VxAPI, postFromASignalHandlerEndsTheWaitOfItsOwnThread) {
    signalled = channel;
    expectChildPasses([] {
        struct sigaction action = {};
        action.sa_handler = postFromHandler;
        sigaction(SIGALRM, &action, nullptr);
        itimerval soon = {};
        soon.it_value.tv_usec = 5000;
        setitimer(ITIMER_REAL, &soon, nullptr);
        EXPECT_EQ(next(), "38/0");
        EXPECT_EQ(errnoAfterPost, ERANGE);
    });
}

TEST_F(VxAPI, signalThatPostsNothingDoesNotEndTheWait) {
    expectChildPasses([this] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        itimerval soon = {};
        soon.it_value.tv_usec = 2000;
        setitimer(ITIMER_REAL, &soon, nullptr);
        vxStartTimer(channel, 10, 0, 0);
        EXPECT_EQ(next(), "7/0");
    });
}

// What event_trace writes for the event.
std::string traced(vx_event &event, int32_t level) {
    const TempDir dir;
    {
        std::ofstream trace(dir.file("trace"));
        event_trace(&event, trace, level);
    }
    return dir.read("trace");
}

TEST_F(VxAPI, traceIsOneLineOfTimeChannelActionCodeAndSubCode) {
    vxDial(channel, 0, "5551234");
    vxPostEvent(channel, 65, -32);
    vx_event event;
    vxWCheck(&event);
    EXPECT_TRUE(std::regex_match(traced(event, 1),
                                 std::regex("[0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{3} "
                                            "channel [1-9][0-9]*, dial 5551234: event 65, "
                                            "sub-code -32\n")))
        << traced(event, 1);
    event = {};
    EXPECT_EQ(traced(event, INT32_MAX).substr(12), " channel 0, no action: event 0, sub-code 0\n");
}

TEST_F(VxAPI, traceShowsTheLastActionAtTheTimeOfTheEvent) {
    vx_event event;
    vxStartTimer(channel, 0, 0, 0);
    vxWCheck(&event);
    EXPECT_NE(traced(event, 1).find(", start timer 0 ms: event 7,"), std::string::npos);
    vxCancelTimer(channel, 0);
    vxPostEvent(channel, 1, 0);
    vxWCheck(&event);
    EXPECT_NE(traced(event, 1).find(", cancel timer: event 1,"), std::string::npos);
}

TEST_F(VxAPI, traceIsEmptyAtLevelZeroAndBelow) {
    vx_event event = {};
    EXPECT_EQ(traced(event, 0), "");
    EXPECT_EQ(traced(event, -1), "");
    EXPECT_EQ(traced(event, INT32_MIN), "");
}

TEST_F(VxAPI, traceStaysOneLineWhateverWasDialled) {
    vxDial(channel, 0, ("1\n2\xFF" + std::string(1000, '9')).c_str());
    vxPostEvent(channel, 1, 0);
    vx_event event;
    vxWCheck(&event);
    const std::string line = traced(event, 1);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_NE(line.find("dial 1?2?" + std::string(230, '9') + ": event 1"), std::string::npos)
        << line;
    memset(event.reserved, 'x', sizeof event.reserved);
    EXPECT_NE(traced(event, 1).find(", " + std::string(240, 'x') + ":"), std::string::npos);
}

TEST_F(VxAPI, badScriptIsReportedAndRefusesStartsUntilAGoodOneComes) {
    const ChildResult result = runInChild([this] {
        EXPECT_EQ(vxSetLineScript("busy", "dial\n 5 event fast\n"), 0);
        EXPECT_EQ(vxDial(channel, 0, "1"), 0);
        EXPECT_EQ(vxStartTimer(channel, 0, 0, 0), 0);
        EXPECT_EQ(vxLoadLineScript("/nonexistent/script"), 0);
        EXPECT_EQ(vxLoadLineScript(nullptr), 0);
        EXPECT_EQ(vxDial(channel, 0, "1"), 0);
        EXPECT_EQ(vxSetLineScript("good", ""), 1);
        EXPECT_EQ(vxDial(channel, 0, "1"), 1);
    });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "libvxAPI: busy:2: \"fast\" is no 32-bit code\n"
                          "libvxAPI: /nonexistent/script: No such file or directory\n"
                          "libvxAPI: no file named\n");
}

// What a fresh process that dials once says: the environment is read at the first operation.
ChildResult runFresh(const std::string &script) {
    return runInChild([&] {
        setenv("VX_LINE_SCRIPT", script.c_str(), 1);
        execl(DIAL_ONCE, DIAL_ONCE, static_cast<char *>(nullptr));
        _exit(127);
    });
}

TEST(Environment, namesTheScriptOfEachProcess) {
    const TempDir dir;
    const std::string answered = dir.write("answered", "dial\n 0 event 11\n");
    const std::string busy = dir.write("busy", "dial\n 0 event 65 sub 5\n");
    const std::string refused = dir.write("refused", "dial refused\n");
    EXPECT_EQ(runFresh(answered).out, "started 1 event 11\n");
    EXPECT_EQ(runFresh(busy).out, "started 1 event 65\n");
    EXPECT_EQ(runFresh(refused).out, "started 0 event 0\n");
}

TEST(Environment, unsetOrEmptyMeansNoScript) {
    const ChildResult result = runFresh("");
    EXPECT_EQ(result.out, "started 1 event 38\n");
    EXPECT_EQ(result.err, "");
}

TEST(Environment, badScriptIsReportedOnceAndRefusesStarts) {
    const TempDir dir;
    const std::string bad = dir.write("bad", "\n\ndial refused 1\n");
    const ChildResult result = runFresh(bad);
    EXPECT_EQ(result.out, "started 0 event 0\n");
    EXPECT_EQ(result.err, "libvxAPI: " + bad + ":3: result 1 would be an accepted start\n");
    const ChildResult missing = runFresh(dir.file("none"));
    EXPECT_EQ(missing.out, "started 0 event 0\n");
    EXPECT_EQ(missing.err, "libvxAPI: " + dir.file("none") + ": No such file or directory\n");
}

} // namespace

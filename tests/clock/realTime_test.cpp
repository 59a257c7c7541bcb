/* A few cases on the real alarm and the real clock, where the system's own behaviour is the point:
   each lasts a few seconds. */
#include "clock/clock.h"

#include "support/childProcess.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <thread>
#include <unistd.h>

namespace {

volatile sig_atomic_t callCount;
volatile sig_atomic_t foreignCalls;

void *countCall(intptr_t, uint32_t) {
    callCount = callCount + 1;
    return nullptr;
}

void foreignHandler(int) {
    foreignCalls = foreignCalls + 1;
}

double secondsNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

bool signalIsBlocked() {
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGALRM) == 1;
}

void (*disposition())(int) {
    struct sigaction action;
    sigaction(SIGALRM, nullptr, &action);
    return action.sa_handler;
}

void waitFor(const volatile sig_atomic_t &count) {
    const double limit = secondsNow() + 30;
    while (count == 0 && secondsNow() < limit)
        usleep(1000);
}

TEST(RealTime, blockingCallIsInterruptedByATimeout) {
    expectChildPasses([] {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const double start = secondsNow();
        clkTimeout(countCall, 0, 1);
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), -1);
        EXPECT_EQ(errno, EINTR);
        EXPECT_EQ(callCount, 1);
        EXPECT_GE(secondsNow() - start, 0.9);
        EXPECT_EQ(disposition(), SIG_DFL);
        EXPECT_FALSE(signalIsBlocked());
    });
}

TEST(RealTime, applicationsHandlerAndAlarmComeBack) {
    expectChildPasses([] {
        signal(SIGALRM, foreignHandler);
        alarm(4); // the clock counts whole seconds: 2 or 3 are left
        clkTimeout(countCall, 0, 1);
        waitFor(callCount);
        EXPECT_EQ(disposition(), foreignHandler);
        EXPECT_EQ(foreignCalls, 0);
        waitFor(foreignCalls);
        EXPECT_EQ(foreignCalls, 1);
    });
}

TEST(RealTime, overdueApplicationsAlarmWithoutAHandlerEndsTheProcess) {
    const ChildResult result = runInChild([] {
        alarm(1);
        clkTimeout(countCall, 0, 2);
        for (;;)
            pause();
    });
    EXPECT_EQ(result.signal, SIGALRM);
}

TEST(RealTime, cancelPutsTheApplicationsAlarmBack) {
    expectChildPasses([] {
        signal(SIGALRM, foreignHandler);
        alarm(100);
        const uint32_t id = clkTimeout(countCall, 0, 50);
        EXPECT_GE(clkUntimeout(id), 49);
        EXPECT_EQ(disposition(), foreignHandler);
        EXPECT_GE(alarm(0), 99U);
    });
}

TEST(RealTime, holdPutsOffWhatExpiresUntilTheRelease) {
    expectChildPasses([] {
        clkTimeout(countCall, 0, 2);
        EXPECT_EQ(clkHold(), 0);
        EXPECT_TRUE(signalIsBlocked());
        sleep(3);
        EXPECT_EQ(callCount, 0);
        clkRelease();
        EXPECT_EQ(callCount, 1);
        EXPECT_FALSE(signalIsBlocked());
    });
}

TEST(RealTime, pauseWaitsForTheAlarmAndLeavesItBlocked) {
    expectChildPasses([] {
        clkTimeout(countCall, 0, 3); // some left even where a second ends between hold and pause
        clkHold();
        EXPECT_GE(clkPause(), 0);
        EXPECT_EQ(callCount, 1);
        EXPECT_TRUE(signalIsBlocked());
    });
}

TEST(RealTime, sleepReturnsAfterItsTimeAndLeavesTheSignalBlocked) {
    expectChildPasses([] {
        const double start = secondsNow();
        EXPECT_EQ(clkSleep(1), 0U);
        EXPECT_GE(secondsNow() - start, 0.9);
        EXPECT_TRUE(signalIsBlocked());
    });
}

TEST(RealTime, deepSleepOutlastsOtherSignals) {
    expectChildPasses([] {
        struct sigaction action = {};
        action.sa_handler = foreignHandler;
        sigaction(SIGCHLD, &action, nullptr);
        if (fork() == 0)
            _exit(0);
        const double start = secondsNow();
        EXPECT_EQ(deepSleep(1, nullptr), 0U);
        EXPECT_GE(secondsNow() - start, 0.9);
        EXPECT_EQ(foreignCalls, 1);
        EXPECT_FALSE(signalIsBlocked());
    });
}

TEST(RealTime, suspendedTimeoutRunsWhenItComesBack) {
    expectChildPasses([] {
        clkTimeout(countCall, 0, 2);
        EXPECT_EQ(suspendTimeouts(), 1);
        sleep(3);
        EXPECT_EQ(callCount, 0);
        EXPECT_EQ(unsuspendTimeouts(), 1);
        EXPECT_EQ(callCount, 1);
    });
}

TEST(RealTime, releaseAfterPartOfAHoldWaitsForTheRest) {
    expectChildPasses([] {
        const double start = secondsNow();
        clkTimeout(countCall, 0, 3);
        clkHold();
        sleep(1);
        clkRelease();
        EXPECT_EQ(callCount, 0);
        waitFor(callCount);
        EXPECT_GE(secondsNow() - start, 1.9);
        EXPECT_LT(secondsNow() - start, 4.5);
    });
}

// A child that interrupts its parent after a second.
void interruptAfterASecond() {
    struct sigaction action = {};
    action.sa_handler = foreignHandler;
    sigaction(SIGUSR1, &action, nullptr);
    if (fork() == 0) {
        usleep(1100000);
        kill(getppid(), SIGUSR1);
        _exit(0);
    }
}

TEST(RealTime, sleepInterruptedTellsTheRestAndLeavesItsCallout) {
    expectChildPasses([] {
        interruptAfterASecond();
        const uint32_t rest = clkSleep(30);
        EXPECT_GE(rest, 26U);
        EXPECT_LE(rest, 29U);
        EXPECT_EQ(foreignCalls, 1);
        EXPECT_EQ(activeCallouts.count, 1);
        EXPECT_TRUE(signalIsBlocked());
    });
}

TEST(RealTime, deepSleepEndsWhenACalloutSetsItsFlag) {
    expectChildPasses([] {
        static int32_t flag;
        clkTimeout([](intptr_t word,
                      uint32_t) -> void * { return setflag(reinterpret_cast<int32_t *>(word)); },
                   reinterpret_cast<intptr_t>(&flag), 1);
        const uint32_t rest = deepSleep(30, &flag);
        EXPECT_GE(rest, 26U);
        EXPECT_LE(rest, 29U);
        EXPECT_EQ(activeCallouts.count, 0);
    });
}

TEST(RealTime, threadThatWaitsForTheLockLeavesTheSignalToTheSleeper) {
    expectChildPasses([] {
        const double start = secondsNow();
        std::thread sleeper([] { EXPECT_EQ(deepSleep(2, nullptr), 0U); });
        usleep(300000);
        const uint32_t id = clkTimeout(countCall, 0, 50);
        EXPECT_NE(id, UINT32_MAX);
        EXPECT_FALSE(signalIsBlocked());
        sleeper.join();
        EXPECT_GE(secondsNow() - start, 1.5);
        EXPECT_GE(clkUntimeout(id), 48);
    });
}

TEST(RealTime, threadOutsideTheClockPassesTheSignalOnToTheSleeper) {
    expectChildPasses([] {
        std::thread sleeper([] { EXPECT_EQ(deepSleep(1, nullptr), 0U); });
        sleeper.join(); // with SIGALRM unblocked here, where the kernel delivers it first
    });
}

TEST(RealTime, threadThatWaitedForTheLockHasTheSignalUnblockedAgain) {
    expectChildPasses([] {
        clkTimeout(countCall, 0, 30);
        pthread_mutex_lock(&clkAccessLock);
        bool blockedAfter = true;
        std::thread waiting([&] {
            setflag(nullptr); // has to wait, and touches no signal itself
            blockedAfter = signalIsBlocked();
        });
        usleep(200000);
        pthread_mutex_unlock(&clkAccessLock);
        waiting.join();
        EXPECT_FALSE(blockedAfter);
    });
}

} // namespace

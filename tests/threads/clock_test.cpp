/* One table of callouts used by several threads at once, with alarms on the real system. Each case
   runs in a child, where the table begins. */
#include "clock/clock.h"

#include "support/childProcess.h"
#include "support/threadSanitizer.h"
#include "tests/clock/clockCases.h"
#include "together.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <pthread.h>
#include <set>
#include <unistd.h>

#pragma GCC diagnostic ignored "-Wdeprecated-declarations" // sigset, as the clock itself

namespace {

constexpr int ROUNDS = 2000;
constexpr int CALLOUTS = THREADS * ROUNDS;

std::atomic<int> runs[CALLOUTS]; // by the callout's argument

void *countRun(intptr_t argument, uint32_t) {
    ++runs[argument];
    return nullptr;
}

double secondsNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void blockAlarm(int how) {
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(how, &alarmOnly, nullptr);
}

// The table, under the lock and with the signal blocked.
void expectSoundTable() {
    sigset_t alarmOnly, mask;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarmOnly, &mask);
    pthread_mutex_lock(&clkAccessLock);
    tableIsSound();
    pthread_mutex_unlock(&clkAccessLock);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

TEST(Threads, everyCalloutIsFoundOnceAndHasAnIdOfItsOwn) {
    expectChildPasses([] {
        std::atomic<int> wrong{0};
        std::mutex guard;
        std::set<uint32_t> ids;
        together([&](int number) {
            for (int round = 0; round < ROUNDS; ++round) {
                const intptr_t argument = number * ROUNDS + round;
                const uint32_t id = clkTimeout(countRun, argument, 100);
                const int32_t left =
                    round % 2 == 0 ? clkUntimeout(id) : clkKillTimeout(countRun, argument);
                wrong += left >= 98 && left <= 100 ? 0 : 1;
                const std::lock_guard<std::mutex> lock(guard);
                ids.insert(id);
            }
        });
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(ids.size(), 8000U);
        EXPECT_EQ(activeCallouts.count, 0);
        expectSoundTable();
    });
}

// What a thread queued has either run or been cancelled when it is done, and not both. Alarms are
// raised all the while; the application's own handler takes those that meet an empty table.
int queueAmongAlarms(int number) {
    int wrong = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        const intptr_t argument = number * ROUNDS + round;
        const uint32_t id = clkTimeout(countRun, argument, 100);
        if (id == UINT32_MAX) {
            ++wrong;
            continue;
        }
        if (round % 3 == 0)
            kill(getpid(), SIGALRM);
        const bool cancelled = clkUntimeout(id) >= 0;
        // One that was found due may still be about to run in another thread.
        for (int wait = 0; !cancelled && runs[argument] == 0 && wait < 10000; ++wait)
            usleep(1000);
        wrong += runs[argument] == (cancelled ? 0 : 1) ? 0 : 1;
    }
    return wrong;
}

TEST(Threads, calloutRunsOrIsCancelledWhileAlarmsCome) {
    SKIP_UNDER_THREAD_SANITIZER(
        "sigset hides the handler from it, which may so interrupt it anywhere");
    expectChildPasses(
        [] {
            sigset(SIGALRM, [](int) {});
            // Threads that begin or end take none: they neither queue nor cancel.
            blockAlarm(SIG_BLOCK);
            std::atomic<int> wrong{0};
            together([&](int number) {
                blockAlarm(SIG_UNBLOCK);
                wrong += queueAmongAlarms(number);
                blockAlarm(SIG_BLOCK);
            });
            blockAlarm(SIG_UNBLOCK);
            EXPECT_EQ(wrong, 0);
            int total = 0;
            for (const std::atomic<int> &count : runs)
                total += count;
            EXPECT_GT(total, 0) << "no alarm came between";
            expectSoundTable();
        },
        120);
}

TEST(Threads, holdsAndSuspensionsOfAllThreadsLeaveASoundTable) {
    expectChildPasses(
        [] {
            std::atomic<int> suspended{0}, ended{0};
            together([&](int number) {
                for (int round = 0; round < ROUNDS; ++round) {
                    clkTimeout(CLK_NO_FUNCTION, number, 50);
                    if (round % 3 == number % 3)
                        clkHold();
                    suspended += suspendTimeouts() >= 0 ? 1 : 0;
                    ended += unsuspendTimeouts() >= 0 ? 1 : 0;
                    clkRelease();
                    clkKillTimeout(CLK_NO_FUNCTION, number);
                }
            });
            while (unsuspendTimeouts() >= 0)
                ++ended;
            clkRelease();
            EXPECT_EQ(suspended, ended);
            EXPECT_EQ(holdInfo.startTime, 0U);
            EXPECT_EQ(clksptr, suspensions);
            expectSoundTable();
        },
        120);
}

TEST(Threads, sleepersTakeTurns) {
    expectChildPasses([] {
        const double start = secondsNow();
        std::atomic<int> wrong{0};
        together([&](int number) {
            int32_t flag = 7;
            wrong += deepSleep(1, number % 2 == 0 ? &flag : nullptr) == 0 ? 0 : 1;
            wrong += number % 2 == 0 && flag != 1 ? 1 : 0;
        });
        EXPECT_EQ(wrong, 0);
        EXPECT_GE(secondsNow() - start, 2.0); // a second of alarm() is half of one at least
        EXPECT_EQ(activeCallouts.count, 0);
    });
}

// Three threads store to the flag of the fourth, each with a signal for it.
TEST(Threads, flagOfASleepMayBeStoredToFromOtherThreads) {
    expectChildPasses([] {
        signal(SIGUSR1, [](int) {});
        int32_t flag = 0;
        uint32_t rest = 0;
        std::atomic<bool> started{false}, done{false};
        pthread_t sleeper;
        together([&](int number) {
            if (number == 0) {
                sleeper = pthread_self();
                started = true;
                rest = deepSleep(30, &flag);
                done = true;
            }
            while (!done) {
                __atomic_store_n(&flag, 1, __ATOMIC_RELEASE);
                if (started)
                    pthread_kill(sleeper, SIGUSR1);
                usleep(1000);
            }
        });
        EXPECT_GE(rest, 25U);
        EXPECT_EQ(activeCallouts.count, 0);
    });
}

template<int NUMBER>
void printed(const char *) {
    static std::atomic<int> calls; // no two of these functions are one
    calls = NUMBER;
}

TEST(Threads, exchangedPrintFunctionsAreNotLost) {
    const auto value = [](int number) {
        static constexpr ClkPrintFunc FUNCTIONS[] = {printed<0>, printed<1>, printed<2>,
                                                     printed<3>};
        return number < 0 ? ClkPrintFunc{nullptr} : FUNCTIONS[number];
    };
    EXPECT_TRUE(exchangesLoseNothing(setClockPrintFunc, value, 20000));
}

} // namespace

/* Queueing and cancelling a timeout, against the system calls that its documented steps make. Both
   run in the same state: a table of 64, 20 callouts pending, SIGALRM the clock's. */
#include "support/bench.h"

#include "clock/clock.h"

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <unistd.h>

namespace {

constexpr int32_t TABLE = 64;
constexpr int PENDING = 20;
constexpr uint32_t FIRST = 1000; // seconds: nothing expires while this runs

void *nothing(intptr_t, uint32_t) {
    return nullptr;
}

void makePending() {
    if (maxcallouts != 0)
        return;
    clkinit(TABLE);
    for (uint32_t i = 0; i < PENDING; ++i)
        clkTimeout(nothing, 0, FIRST + i);
}

void queueAndCancel(benchmark::State &state) {
    makePending();
    for (auto _ : state) {
        const uint32_t id = clkTimeout(nothing, 1, FIRST + PENDING);
        benchmark::DoNotOptimize(clkUntimeout(id));
    }
    if (maxcallouts != TABLE || activeCallouts.count != PENDING)
        state.SkipWithError("the callouts are not as they were");
}
QN_BENCHMARK("clkTimeout/library", queueAndCancel);

void setMask(int how) {
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    sigprocmask(how, &alarmOnly, nullptr);
}

// Each line is one system call, or what the named operation makes of it.
void callTheSystem(benchmark::State &state) {
    makePending();
    struct sigaction clocks, replaced;
    sigaction(SIGALRM, nullptr, &clocks);
    for (auto _ : state) {
        // clkTimeout: setAlarmHdlr
        alarm(0);
        setMask(SIG_UNBLOCK); // sigrelse
        sigaction(SIGALRM, &clocks, &replaced);
        setMask(SIG_UNBLOCK); // sigset, these two
        // and queueing, with SIGALRM held
        setMask(SIG_BLOCK); // sighold
        alarm(FIRST);
        setMask(SIG_UNBLOCK); // sigrelse
        // clkUntimeout
        setMask(SIG_BLOCK); // sighold
        alarm(0);
        alarm(FIRST);
        setMask(SIG_UNBLOCK); // sigrelse
    }
}
QN_BENCHMARK("clkTimeout/systemCalls", callTheSystem);

} // namespace

BENCHMARK_MAIN();

/* Random operations on the simulated system, where time passes inside the system's calls: alarms
   expire in the midst of operations. When they are is left open, so no deadlines are compared: the
   table must stay sound, every callout must run once, be cancelled or be dropped by the end of its
   suspension, exactly one of the three, and SIGALRM must never meet its default action.

   The seed is printed; the environment variable QN_SEED repeats a run. */
#include "clockCases.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>

namespace {

constexpr int ROUNDS = 200;
constexpr int STEPS_A_ROUND = 1000;

std::mt19937 generator;

uint32_t below(uint32_t limit) {
    return static_cast<uint32_t>(generator() % limit);
}

bool oneIn(uint32_t count) {
    return below(count) == 0;
}

enum class Fate { waiting, ran, cancelled, dropped };

struct Queued {
    Fate fate;
    ptrdiff_t suspensionDepth;
};

std::vector<Queued> queued; // by the callout's argument
std::set<size_t> busy;      // those that an interrupted operation is about
SimulatedSystem *os;
bool timeIsPassing;
int signalsRaised;
int handlerDepth;

ptrdiff_t suspensionDepth() {
    return clksptr - suspensions;
}

void foreignHandler(int) {}

bool isForeign(SignalHandler handler) {
    return handler == SIG_DFL || handler == SIG_IGN || handler == foreignHandler;
}

void letTimePass() {
    if (timeIsPassing || !oneIn(6))
        return;
    timeIsPassing = true;
    os->advance(below(1500));
    timeIsPassing = false;
}

void *run(intptr_t argument, uint32_t id);

void queueOne() {
    const intptr_t argument = static_cast<intptr_t>(queued.size());
    queued.push_back({Fate::waiting, suspensionDepth()});
    busy.insert(static_cast<size_t>(argument));
    if (clkTimeout(run, argument, below(12)) == UINT32_MAX)
        queued[static_cast<size_t>(argument)].fate = Fate::cancelled;
    busy.erase(static_cast<size_t>(argument));
}

void cancelOne() {
    if (queued.empty())
        return;
    const size_t recent = std::min<size_t>(queued.size(), 30);
    const size_t chosen = queued.size() - 1 - below(static_cast<uint32_t>(recent));
    if (!busy.insert(chosen).second)
        return;
    const int32_t result = clkKillTimeout(run, static_cast<intptr_t>(chosen));
    busy.erase(chosen);
    Queued &callout = queued[chosen];
    if (result >= 0) {
        EXPECT_EQ(callout.fate, Fate::waiting) << "cancelled what was not pending";
        callout.fate = Fate::cancelled;
    } else if (callout.suspensionDepth == suspensionDepth() && handlerDepth == 0) {
        // (in a handler it may be one that the interrupted handler is about to call)
        EXPECT_NE(callout.fate, Fate::waiting) << "did not find what is pending";
    }
}

void *run(intptr_t argument, uint32_t) {
    Queued &callout = queued[static_cast<size_t>(argument)];
    EXPECT_EQ(callout.fate, Fate::waiting) << "ran what was not pending";
    callout.fate = Fate::ran;
    if (oneIn(5))
        queueOne();
    if (oneIn(8))
        cancelOne();
    return nullptr;
}

void endSuspension() {
    const ptrdiff_t depth = suspensionDepth();
    if (unsuspendTimeouts() < 0)
        return;
    for (Queued &callout : queued)
        if (callout.suspensionDepth == depth && callout.fate == Fate::waiting)
            callout.fate = Fate::dropped;
}

void sleepDeeply() {
    deepSleep(below(6), nullptr);
}

void sleepLightly() {
    os->interruptAt = oneIn(2) ? os->now + below(5000) : 0;
    clkSleep(below(6));
    os->interruptAt = 0;
}

void raiseSignal() {
    if (!isForeign(os->disposition)) {
        ++signalsRaised;
        os->signalArrives();
    }
}

void takeForApplication() {
    if (isForeign(os->disposition) && !os->pending) {
        os->disposition = oneIn(2) ? SIG_DFL : foreignHandler;
        os->alarmAt = os->disposition == SIG_DFL ? 0 : os->now + below(20000);
    }
}

void step() {
    switch (below(20)) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
        return queueOne();
    case 5:
    case 6:
    case 7:
        return cancelOne();
    case 8:
        clkHold();
        return;
    case 9:
    case 10:
        return clkRelease();
    case 11:
        clkPause();
        return;
    case 12:
        return sleepLightly();
    case 13:
        return sleepDeeply();
    case 14:
        suspendTimeouts();
        return;
    case 15:
        return endSuspension();
    case 16:
        return raiseSignal();
    case 17:
        return takeForApplication();
    default:
        os->advance(below(6000));
    }
}

// Ends holds and suspensions and lets everything run that is still to run.
void settle() {
    while (suspensionDepth() > 0)
        endSuspension();
    clkRelease();
    for (int i = 0; i < 100 && activeCallouts.count > 0; ++i) {
        clkUntimeout(UINT32_MAX); // unblocks the signal and arms the alarm
        os->advanceSeconds(100);
        if (activeCallouts.count > 0)
            raiseSignal(); // for those of 0 seconds, which nothing arms an alarm for
    }
    EXPECT_EQ(activeCallouts.count, 0);
    for (const Queued &callout : queued)
        EXPECT_NE(callout.fate, Fate::waiting) << "a callout was lost";
    queued.clear();
}

void runRounds() {
    const char *given = getenv("QN_SEED");
    const unsigned long seed =
        given != nullptr ? strtoul(given, nullptr, 10) : std::random_device()();
    printf("QN_SEED=%lu\n", seed);
    fflush(stdout);
    generator.seed(static_cast<std::mt19937::result_type>(seed));
    os = &beginSimulation();
    os->onCall = [](const std::string &) { letTimePass(); };
    os->onHandler = [](bool entering) { handlerDepth += entering ? 1 : -1; };
    for (int round = 0; round < ROUNDS && !testing::Test::HasFailure(); ++round) {
        for (int i = 0; i < STEPS_A_ROUND && !testing::Test::HasFailure(); ++i) {
            step();
            tableIsSound();
            EXPECT_EQ(os->deaths, 0) << "round " << round << " step " << i;
        }
        settle();
        tableIsSound();
        clkinit(20 + round / 10); // now and then the table grows
    }
    EXPECT_GT(signalsRaised, 0);
    os->onCall = nullptr;
    os->onHandler = nullptr;
    simulated = nullptr;
}

TEST(Races, noCalloutIsLostOrRunTwiceAndTheProcessLives) {
    expectChildPasses(runRounds, 300);
}

} // namespace

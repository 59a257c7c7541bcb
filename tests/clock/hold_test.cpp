/* Holding, pausing, sleeping and suspending, on the simulated system: every time is exact. */
#include "clockCases.h"

#include <csignal>
#include <unistd.h>

namespace {

int foreignCalls;

void foreignHandler(int) {
    ++foreignCalls;
}

constexpr int32_t START = static_cast<int32_t>(SIMULATED_START_SECONDS);

// --- Hold and release ---

SIMULATED(Hold, blocksTheSignalAndKeepsWhatTheAlarmHadLeft) {
    clkTimeout(note, 1, 10);
    system.advanceSeconds(3);
    EXPECT_EQ(clkHold(), 0);
    EXPECT_TRUE(system.blocked);
    EXPECT_EQ(system.alarmAt, 0);
    EXPECT_EQ(holdInfo.secondsLeft, 7U);
    EXPECT_EQ(holdInfo.startTime, system.seconds());
}

SIMULATED(Hold, heldAlreadyTellsItsStartAndChangesNothing) {
    clkTimeout(note, 1, 10);
    EXPECT_EQ(clkHold(), 0);
    system.advanceSeconds(2);
    EXPECT_EQ(clkHold(), START);
    EXPECT_EQ(holdInfo.secondsLeft, 10U);
    EXPECT_EQ(holdInfo.startTime, static_cast<uint32_t>(START));
}

SIMULATED(Hold, makesATableOfTwentyWhereThereIsNone) {
    system.alarmAt = system.now + 9000;
    system.disposition = foreignHandler;
    EXPECT_EQ(clkHold(), 0);
    EXPECT_EQ(maxcallouts, 20);
    EXPECT_EQ(holdInfo.secondsLeft, 9U);
    EXPECT_NE(system.disposition, foreignHandler);
}

SIMULATED(Hold, takesTheApplicationsAlarmOverAndDeliversItAfterTheRelease) {
    clkinit(5);
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 9000;
    clkHold();
    EXPECT_EQ(holdInfo.secondsLeft, 9U);
    EXPECT_NE(system.disposition, foreignHandler);
    system.advanceSeconds(4);
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 5U);
    EXPECT_EQ(foreignCalls, 0);
    system.advanceSeconds(5);
    EXPECT_EQ(foreignCalls, 1);
    EXPECT_EQ(system.disposition, foreignHandler);
}

SIMULATED(Hold, behindABlockedSignalKeepsWhatWasRecordedBefore) {
    system.disposition = foreignHandler;
    EXPECT_EQ(clkSleep(2), 0U); // leaves SIGALRM blocked, and the application's again
    system.alarmAt = system.now + 9000;
    system.disposition = SIG_IGN; // taken for the clock's own blocking: not looked at
    std::string order;
    system.onCall = [&](const std::string &name) { order += name + " "; };
    clkHold();
    system.onCall = nullptr;
    EXPECT_EQ(order, "alarm sigset alarm sigrelse alarm sigset sighold ");
    EXPECT_EQ(holdInfo.secondsLeft, 9U);
    system.advanceSeconds(10);
    clkRelease();
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(Hold, takesOverInTheOrderTold) {
    clkinit(5);
    system.disposition = foreignHandler;
    std::string order;
    system.onCall = [&](const std::string &name) { order += name + " "; };
    clkHold();
    EXPECT_EQ(order, "alarm sigset sighold ");
    clkRelease();
    clkTimeout(note, 1, 5);
    order.clear();
    clkHold();
    system.onCall = nullptr;
    EXPECT_EQ(order, "alarm sighold ");
}

SIMULATED(Release, armsForTheRest) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.advanceSeconds(4);
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 6U);
    EXPECT_FALSE(system.blocked);
    EXPECT_EQ(holdInfo.startTime, 0U);
    system.advanceSeconds(6);
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Release, runsAllThatExpiredAtOnceInListOrder) {
    clkTimeout(note, 3, 4);
    clkTimeout(note, 1, 2);
    clkTimeout(note, 4, 9);
    clkTimeout(note, 2, 3);
    clkHold();
    system.advanceSeconds(6);
    clkRelease();
    EXPECT_EQ(system.raised, 1);
    EXPECT_EQ(calls, (Arguments{1, 2, 3}));
    EXPECT_EQ(system.alarmSeconds(), 3U);
}

SIMULATED(Release, chargesTheFirstAgainstWhatItsAlarmHadLeft) {
    clkTimeout(note, 1, 10);
    clkTimeout(note, 2, 12);
    clkTimeout(note, 3, 14);
    system.advanceSeconds(9);
    clkHold();
    system.advanceSeconds(6);
    clkRelease();
    EXPECT_EQ(calls, (Arguments{1, 2, 3}));
}

SIMULATED(Release, inTheSameSecondChargesNothing) {
    clkTimeout(note, 1, 10);
    clkHold();
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 10U);
    EXPECT_EQ(activeIncrements(), (Increments{10}));
}

SIMULATED(Release, stopsAnAlarmThatWasArmedMeanwhile) {
    clkHold();
    system.alarmAt = system.now + 3000;
    clkRelease();
    EXPECT_EQ(system.alarmAt, 0);
}

SIMULATED(Release, whenNotHeldDoesNothing) {
    clkRelease();
    EXPECT_EQ(maxcallouts, 0);
    clkTimeout(note, 1, 10);
    system.blocked = true;
    clkRelease();
    EXPECT_TRUE(system.blocked);
    EXPECT_EQ(system.alarmSeconds(), 10U);
}

SIMULATED(Release, afterTheSystemsClockWasSetBackChargesNothing) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.now -= 5000;
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 10U);
}

SIMULATED(Release, thatExpiredExactlyRaisesTheSignal) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.advanceSeconds(10);
    clkRelease();
    EXPECT_EQ(system.raised, 1);
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Held, queueingWorksOnTheSecondsLeftAndStartsTheReckoningAnew) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.advanceSeconds(4);
    clkTimeout(note, 2, 3);
    EXPECT_TRUE(system.blocked);
    EXPECT_EQ(system.alarmAt, 0);
    EXPECT_EQ(holdInfo.secondsLeft, 3U);
    EXPECT_EQ(holdInfo.startTime, system.seconds());
    EXPECT_EQ(activeIncrements(), (Increments{3, 7}));
    system.advanceSeconds(1);
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 2U);
}

SIMULATED(Held, queueingAndCancellingMakeNoSignalCall) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.onCall = [](const std::string &name) { EXPECT_EQ(name, ""); };
    const uint32_t id = clkTimeout(note, 2, 3);
    clkUntimeout(id);
    clkKillTimeout(note, 1);
    clkUntimeout(99);
    system.onCall = nullptr;
}

SIMULATED(Held, cancelOfTheFirstAddsTheSuccessorsOwnSecondsOnly) {
    const uint32_t first = clkTimeout(note, 1, 10);
    clkTimeout(note, 2, 15);
    clkTimeout(note, 3, 40);
    clkHold();
    clkUntimeout(first);
    EXPECT_EQ(holdInfo.secondsLeft, 15U);
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 15U);
}

SIMULATED(Held, cancelOfTheOnlyOneLeavesNothingToWaitFor) {
    const uint32_t id = clkTimeout(note, 1, 10);
    clkHold();
    clkUntimeout(id);
    EXPECT_EQ(holdInfo.secondsLeft, 0U);
    EXPECT_TRUE(system.blocked);
    clkRelease();
    EXPECT_EQ(system.alarmAt, 0);
    EXPECT_EQ(system.raised, 0);
}

SIMULATED(Held, alarmThatComesThroughKeepsTheNextOnesTimeForTheRelease) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 12);
    system.blocked = true; // as a sleep leaves it
    system.advanceSeconds(5);
    clkHold();
    EXPECT_EQ(holdInfo.secondsLeft, 0U);
    suspendTimeouts(); // lets the pending alarm through
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(system.alarmAt, 0);
    unsuspendTimeouts();
    EXPECT_EQ(holdInfo.secondsLeft, 7U);
    system.advanceSeconds(3);
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 4U);
    system.advanceSeconds(4);
    EXPECT_EQ(calls, (Arguments{1, 2}));
}

SIMULATED(Held, holdInACalloutKeepsTheHandlerForWhatIsQueuedInIt) {
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            clkHold();
            return nullptr;
        },
        0, 3);
    system.advanceSeconds(3);
    clkTimeout(note, 1, 5);
    clkRelease();
    system.advanceSeconds(5);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(system.deaths, 0);
}

// --- Pause ---

SIMULATED(Pause, waitsForTheNextAlarmAndLeavesTheSignalBlocked) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.advanceSeconds(4);
    EXPECT_EQ(clkPause(), 6);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_TRUE(system.blocked);
    EXPECT_EQ(holdInfo.startTime, 0U);
    EXPECT_FALSE(system.pending);
}

SIMULATED(Pause, endsWithAnyOtherSignalToo) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.interruptAt = system.now + 2000;
    EXPECT_EQ(clkPause(), 2);
    EXPECT_EQ(calls, (Arguments{}));
    EXPECT_EQ(system.alarmSeconds(), 8U);
}

SIMULATED(Pause, whenNotHeldIsRefused) {
    clkTimeout(note, 1, 10);
    EXPECT_EQ(clkPause(), -1);
    EXPECT_FALSE(system.blocked);
}

SIMULATED(Pause, afterTheAlarmsTimeExchangesTheKillsArgumentsAndReturns) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.advanceSeconds(10);
    EXPECT_EQ(clkPause(), 0);
    ASSERT_EQ(system.strayKills.size(), 1U);
    EXPECT_EQ(system.strayKills[0].first, 14);
    EXPECT_EQ(system.strayKills[0].second, getpid());
    EXPECT_EQ(system.raised, 0);
    EXPECT_EQ(calls, (Arguments{}));
    EXPECT_TRUE(system.blocked);
}

SIMULATED(Pause, withNothingPendingReturnsAtOnce) {
    clkHold();
    EXPECT_EQ(clkPause(), 0);
    EXPECT_EQ(system.strayKills.size(), 0U);
    EXPECT_TRUE(system.blocked);
}

// --- The sleeps ---

SIMULATED(Sleep, wholeTimeLeavesNothing) {
    EXPECT_EQ(clkSleep(5), 0U);
    EXPECT_EQ(system.seconds(), static_cast<uint32_t>(START) + 5);
    EXPECT_EQ(activeCallouts.count, 0);
}

SIMULATED(Sleep, cutShortTellsTheRestAndLeavesItsCalloutAndTheSignalBlocked) {
    system.interruptAt = system.now + 2000;
    EXPECT_EQ(clkSleep(5), 3U);
    EXPECT_EQ(activeCallouts.count, 1);
    EXPECT_EQ(recordsOf(activeCallouts, "active")[0]->function, CLK_NO_FUNCTION);
    EXPECT_EQ(recordsOf(activeCallouts, "active")[0]->increment, 5U);
    EXPECT_TRUE(system.blocked);
    system.advanceSeconds(3);
    EXPECT_TRUE(system.pending);
    clkTimeout(note, 1, 2); // unblocks it: the callout expires without a call
    EXPECT_EQ(activeIncrements(), (Increments{2}));
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(Sleep, endsWithAnotherCallout) {
    clkTimeout(note, 1, 2);
    EXPECT_EQ(clkSleep(5), 3U);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(activeIncrements(), (Increments{3}));
}

SIMULATED(Sleep, isRefusedWhileHeldOrForNothing) {
    EXPECT_EQ(clkSleep(0), 0U);
    EXPECT_EQ(deepSleep(0, nullptr), 0U);
    EXPECT_EQ(maxcallouts, 0);
    clkHold();
    int32_t flag = 7;
    EXPECT_EQ(clkSleep(5), 5U);
    EXPECT_EQ(deepSleep(5, &flag), 5U);
    EXPECT_EQ(flag, 7);
}

SIMULATED(Sleep, withoutAFreeRecordReturnsAllAtOnce) {
    clkinit(1);
    clkTimeout(note, 1, 50);
    EXPECT_EQ(clkSleep(5), 5U);
    EXPECT_FALSE(system.blocked);
    EXPECT_EQ(deepSleep(5, nullptr), 5U);
    EXPECT_FALSE(system.blocked);
    EXPECT_EQ(system.alarmSeconds(), 50U);
}

SIMULATED(Sleep, longestTimeDoesNotOverflow) {
    system.interruptAt = system.now + 2000;
    EXPECT_EQ(clkSleep(UINT32_MAX), UINT32_MAX - 2);
}

SIMULATED(Sleep, setBackClockSlipsNothing) {
    system.onCall = [&](const std::string &name) {
        if (name == "sigpause")
            system.now -= 100000;
    };
    system.interruptAt = system.now + 2000;
    EXPECT_EQ(clkSleep(5), 5U);
    system.onCall = nullptr;
}

SIMULATED(DeepSleep, wholeTimeLeavesNothingAndTheSignalUnblocked) {
    int32_t flag = 7;
    EXPECT_EQ(deepSleep(5, &flag), 0U);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(activeCallouts.count, 0);
    EXPECT_FALSE(system.blocked);
    EXPECT_EQ(deepSleep(5, nullptr), 0U);
    EXPECT_EQ(system.seconds(), static_cast<uint32_t>(START) + 10);
}

SIMULATED(DeepSleep, goesOnAfterOtherSignalsAndCallouts) {
    clkTimeout(note, 1, 2);
    system.interruptAt = system.now + 1000;
    int32_t flag = 0;
    EXPECT_EQ(deepSleep(5, &flag), 0U);
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(DeepSleep, flagSetByACalloutEndsItAndItsOwnIsCancelled) {
    static int32_t flag;
    clkTimeout([](intptr_t word,
                  uint32_t) -> void * { return setflag(reinterpret_cast<int32_t *>(word)); },
               reinterpret_cast<intptr_t>(&flag), 3);
    EXPECT_EQ(deepSleep(10, &flag), 7U);
    EXPECT_EQ(activeCallouts.count, 0);
    // Nothing writes to the word any more: it may have been on a stack that is gone.
    flag = 0;
    system.advanceSeconds(20);
    EXPECT_EQ(flag, 0);
}

SIMULATED(DeepSleep, clearsTheFlagFirst) {
    int32_t flag = 1;
    system.interruptAt = system.now + 1000;
    EXPECT_EQ(deepSleep(3, &flag), 0U);
    EXPECT_EQ(system.seconds(), static_cast<uint32_t>(START) + 3);
}

SIMULATED(DeepSleep, givesTheApplicationsAlarmBack) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    EXPECT_EQ(deepSleep(4, nullptr), 0U);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 6U);
}

SIMULATED(SetFlag, storesOneAndReturnsTheWord) {
    int32_t word = 0;
    EXPECT_EQ(setflag(&word), &word);
    EXPECT_EQ(word, 1);
}

// --- Suspension ---

SIMULATED(Suspension, setsAllAsideAndBringsThemBackCharged) {
    for (uint32_t i = 1; i <= 4; ++i)
        clkTimeout(note, static_cast<intptr_t>(i), 10 * i);
    EXPECT_EQ(suspendTimeouts(), 4);
    EXPECT_EQ(activeCallouts.count, 0);
    EXPECT_EQ(activeCallouts.head, nullptr);
    EXPECT_EQ(freeCallouts.count, 16);
    EXPECT_EQ(system.alarmAt, 0);
    EXPECT_FALSE(system.blocked);
    system.advanceSeconds(4);
    EXPECT_EQ(unsuspendTimeouts(), 4);
    EXPECT_EQ(activeIncrements(), (Increments{6, 10, 10, 10}));
    EXPECT_EQ(system.alarmSeconds(), 6U);
    EXPECT_FALSE(system.blocked);
}

SIMULATED(Suspension, dropsWhatWasQueuedMeanwhile) {
    clkTimeout(note, 1, 10);
    suspendTimeouts();
    clkTimeout(note, 2, 5);
    clkTimeout(note, 3, 0);
    EXPECT_EQ(unsuspendTimeouts(), 1);
    system.advanceSeconds(30);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(freeCallouts.count, 20);
}

SIMULATED(Suspension, whatExpiredMeanwhileRunsOnTheSignalItsEndRaises) {
    clkTimeout(note, 1, 10);
    clkTimeout(note, 2, 12);
    clkTimeout(note, 3, 30);
    system.advanceSeconds(9);
    suspendTimeouts();
    system.advanceSeconds(5);
    EXPECT_EQ(calls, (Arguments{}));
    EXPECT_EQ(unsuspendTimeouts(), 3);
    EXPECT_EQ(system.raised, 1);
    EXPECT_EQ(calls, (Arguments{1, 2}));
    EXPECT_EQ(system.alarmSeconds(), 16U);
}

SIMULATED(Suspension, nestsFiveDeepAndNoDeeper) {
    for (int depth = 0; depth < 5; ++depth) {
        clkTimeout(note, depth, 10);
        EXPECT_EQ(suspendTimeouts(), 1);
    }
    clkTimeout(note, 5, 10);
    EXPECT_EQ(suspendTimeouts(), -1);
    EXPECT_EQ(activeCallouts.count, 1);
    EXPECT_EQ(system.alarmSeconds(), 10U);
    EXPECT_EQ(clksptr, suspensions + 5);
    for (int depth = 0; depth < 5; ++depth)
        EXPECT_EQ(unsuspendTimeouts(), 1);
    EXPECT_EQ(unsuspendTimeouts(), -1);
    system.advanceSeconds(10);
    EXPECT_EQ(calls, (Arguments{0}));
}

SIMULATED(Suspension, withNoneInForceItsEndChangesNothing) {
    clkTimeout(note, 1, 10);
    EXPECT_EQ(unsuspendTimeouts(), -1);
    EXPECT_EQ(system.alarmSeconds(), 10U);
    EXPECT_FALSE(system.blocked);
}

SIMULATED(Suspension, makesATableAndBringsTheApplicationsAlarmBack) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    EXPECT_EQ(suspendTimeouts(), 0);
    EXPECT_EQ(maxcallouts, 20);
    EXPECT_NE(system.disposition, foreignHandler);
    system.advanceSeconds(4);
    EXPECT_EQ(unsuspendTimeouts(), 0);
    EXPECT_EQ(system.alarmSeconds(), 6U);
    system.advanceSeconds(6);
    EXPECT_EQ(foreignCalls, 1);
    EXPECT_EQ(system.disposition, foreignHandler);
}

SIMULATED(Suspension, frameKeepsWhatWasThere) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 50000;
    clkTimeout(note, 1, 10);
    system.advanceSeconds(3);
    suspendTimeouts();
    const Suspension &frame = suspensions[0];
    EXPECT_EQ(frame.active.head, reinterpret_cast<ListItem *>(&callouts[0]));
    EXPECT_EQ(frame.active.tail, frame.active.head);
    EXPECT_EQ(frame.active.count, 1);
    EXPECT_EQ(frame.disposition, clockHandler());
    EXPECT_EQ(frame.secondsLeft, 7U);
    EXPECT_EQ(frame.startTime, static_cast<uint32_t>(START) + 3);
    EXPECT_EQ(frame.foreignHandler, foreignHandler);
    EXPECT_EQ(frame.foreignSecondsLeft, 50U);
    EXPECT_EQ(frame.foreignTime, static_cast<uint32_t>(START));
    EXPECT_EQ(frame.hold.startTime, 0U);
    EXPECT_EQ(frame.handlerInstalled, 1U);
}

SIMULATED(Suspension, frameKeepsTheHandlerFlagAsItWasBefore) {
    clkinit(5);
    system.disposition = foreignHandler;
    suspendTimeouts();
    EXPECT_EQ(suspensions[0].handlerInstalled, 0U);
    EXPECT_EQ(suspensions[0].disposition, foreignHandler);
    unsuspendTimeouts();
    EXPECT_EQ(system.disposition, foreignHandler);
    system.alarmAt = system.now + 9000;
    clkHold(); // takes the handler over again: it is known not to be the clock's
    clkRelease();
    system.advanceSeconds(9);
    EXPECT_EQ(foreignCalls, 1);
}

SIMULATED(Suspension, givesTheForeignAlarmBackOnlyToItsOwnCallouts) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 50000;
    clkTimeout(note, 1, 10);
    suspendTimeouts();
    clkTimeout(note, 2, 1);
    system.advanceSeconds(1);
    EXPECT_EQ(calls, (Arguments{2}));
    EXPECT_NE(system.disposition, foreignHandler);
    unsuspendTimeouts();
    system.advanceSeconds(9);
    EXPECT_EQ(calls, (Arguments{2, 1}));
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 40U);
}

SIMULATED(Suspension, holdStaysInForceAndItsEndLeavesTheSignalBlocked) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.advanceSeconds(2);
    suspendTimeouts();
    EXPECT_FALSE(system.blocked);
    EXPECT_EQ(holdInfo.startTime, static_cast<uint32_t>(START));
    EXPECT_EQ(clkHold(), START);
    clkTimeout(note, 2, 3);
    EXPECT_EQ(system.alarmAt, 0);
    EXPECT_EQ(unsuspendTimeouts(), 1);
    EXPECT_TRUE(system.blocked);
    EXPECT_EQ(holdInfo.startTime, static_cast<uint32_t>(START));
    EXPECT_EQ(holdInfo.secondsLeft, 10U);
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 8U);
}

SIMULATED(Suspension, alarmPendingForDroppedCalloutsTouchesNoneThatComeBack) {
    clkTimeout(note, 1, 100);
    suspendTimeouts();
    clkTimeout(note, 2, 1);
    system.blocked = true;
    system.advanceSeconds(1);
    EXPECT_TRUE(system.pending);
    unsuspendTimeouts();
    EXPECT_EQ(calls, (Arguments{}));
    EXPECT_EQ(system.alarmSeconds(), 99U);
}

SIMULATED(Suspension, alarmPendingForDroppedCalloutsDoesNotEndTheProcess) {
    clkinit(5);
    suspendTimeouts(); // SIGALRM at its default action
    clkTimeout(note, 2, 1);
    system.blocked = true;
    system.advanceSeconds(1);
    EXPECT_EQ(unsuspendTimeouts(), 0);
    EXPECT_EQ(system.disposition, SIG_DFL);
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(Suspension, whatIsDueAlreadyRunsBeforeTheOthersAreSetAside) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 20);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_EQ(suspendTimeouts(), 1);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(system.alarmAt, 0);
    system.advanceSeconds(5);
    unsuspendTimeouts();
    EXPECT_EQ(system.alarmSeconds(), 10U);
}

SIMULATED(Suspension, lastFrameMayBeTakenByWhatRunsFirst) {
    for (int depth = 0; depth < 4; ++depth)
        suspendTimeouts();
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            EXPECT_EQ(suspendTimeouts(), 0);
            return nullptr;
        },
        0, 5);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_EQ(suspendTimeouts(), -1);
    EXPECT_EQ(clksptr, suspensions + 5);
}

SIMULATED(Suspension, inACalloutSetsTheOtherDueOnesAsideToo) {
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            EXPECT_EQ(suspendTimeouts(), 2);
            return nullptr;
        },
        0, 3);
    clkTimeout(note, 1, 3);
    clkTimeout(note, 2, 9);
    system.advanceSeconds(3);
    EXPECT_EQ(calls, (Arguments{}));
    EXPECT_EQ(unsuspendTimeouts(), 2);
    system.advanceSeconds(6);
    EXPECT_EQ(calls, (Arguments{1, 2}));
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(SetFlag, leavesNullAlone) {
    EXPECT_EQ(setflag(nullptr), nullptr);
}

SIMULATED(DeepSleep, findsItsOwnAfterACalloutGrewTheTable) {
    static int32_t flag;
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            EXPECT_EQ(clkinit(40), 0);
            flag = 1;
            return nullptr;
        },
        0, 3);
    clkTimeout(note, 7, 5); // has ID 0 too after the growth
    EXPECT_EQ(deepSleep(10, &flag), 7U);
    EXPECT_EQ(activeCallouts.count, 1);
    flag = 0;
    system.advanceSeconds(20);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(calls, (Arguments{7}));
}

SIMULATED(DeepSleep, leavesNothingToWriteToItsFlagInASuspension) {
    static int32_t flag;
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            suspendTimeouts();
            flag = 1;
            return nullptr;
        },
        0, 3);
    EXPECT_EQ(deepSleep(10, &flag), 7U);
    flag = 0;
    unsuspendTimeouts();
    system.advanceSeconds(20);
    EXPECT_EQ(flag, 0);
}

SIMULATED(Suspension, behindABlockedSignalKeepsTheClocksHandlerInTheFrame) {
    clkinit(5);
    system.disposition = foreignHandler;
    system.blocked = true;
    system.pending = true;
    std::string order;
    system.onCall = [&](const std::string &name) { order += name + " "; };
    EXPECT_EQ(suspendTimeouts(), 0);
    system.onCall = nullptr;
    EXPECT_EQ(order, "alarm sigset sighold sigrelse ");
    EXPECT_EQ(foreignCalls, 0); // the clock's handler took it
    EXPECT_EQ(suspensions[0].disposition, clockHandler());
    EXPECT_NE(suspensions[0].disposition, foreignHandler);
    EXPECT_EQ(suspensions[0].handlerInstalled, 0U);
}

SIMULATED(Suspension, alarmJustBeforeItsOwnMaySuspendToo) {
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            EXPECT_EQ(suspendTimeouts(), 1);
            clkTimeout(note, 2, 8);
            return nullptr;
        },
        0, 5);
    clkTimeout(note, 1, 20);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_EQ(suspendTimeouts(), 1);
    EXPECT_EQ(clksptr, suspensions + 2);
    EXPECT_EQ(suspensions[0].active.head, reinterpret_cast<ListItem *>(&callouts[1]));
    EXPECT_EQ(suspensions[1].secondsLeft, 8U);
    EXPECT_EQ(unsuspendTimeouts(), 1);
    EXPECT_EQ(unsuspendTimeouts(), 1);
    EXPECT_EQ(system.alarmSeconds(), 15U);
}

SIMULATED(Suspension, applicationsPendingAlarmMeetsItsOwnHandlerAtTheEnd) {
    clkinit(5);
    system.disposition = foreignHandler;
    suspendTimeouts();
    clkTimeout(note, 1, 1);
    system.advanceSeconds(1); // run dry: SIGALRM is at its default action
    EXPECT_EQ(system.disposition, SIG_DFL);
    system.blocked = true;
    system.pending = true;
    EXPECT_EQ(unsuspendTimeouts(), 0);
    EXPECT_EQ(system.deaths, 0);
    EXPECT_EQ(foreignCalls, 1);
    EXPECT_EQ(system.disposition, foreignHandler);
}

SIMULATED(Suspension, nestedCalloutsThatRunDryLeaveThoseSetAside) {
    clkTimeout(note, 1, 10);
    suspendTimeouts();
    clkTimeout(note, 2, 1);
    clkTimeout(note, 3, 2);
    system.advanceSeconds(4);
    EXPECT_EQ(calls, (Arguments{2, 3}));
    EXPECT_EQ(unsuspendTimeouts(), 1);
    EXPECT_EQ(system.alarmSeconds(), 6U);
    system.advanceSeconds(6);
    EXPECT_EQ(calls, (Arguments{2, 3, 1}));
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(Suspension, holdInForceAcrossItIsChargedOnce) {
    clkTimeout(note, 1, 10);
    clkHold();
    system.advanceSeconds(1);
    suspendTimeouts();
    system.advanceSeconds(3);
    EXPECT_EQ(unsuspendTimeouts(), 1);
    EXPECT_TRUE(system.blocked);
    EXPECT_EQ(holdInfo.startTime, static_cast<uint32_t>(START));
    EXPECT_EQ(calls, (Arguments{}));
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 6U);
    system.advanceSeconds(6);
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Suspension, inAHoldChargesThoseBehindTheFirstOnce) {
    clkTimeout(note, 1, 10);
    clkTimeout(note, 2, 15);
    clkHold();
    suspendTimeouts();
    system.advanceSeconds(8);
    EXPECT_EQ(unsuspendTimeouts(), 2);
    system.advanceSeconds(4);
    clkRelease();
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(system.alarmSeconds(), 3U);
}

SIMULATED(Suspension, alarmThatItLetsInDuringAHoldLeavesTheHoldTheNextOnes) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 9);
    system.blocked = true;
    system.advanceSeconds(5);
    clkHold(); // with the first one's alarm pending
    EXPECT_EQ(suspendTimeouts(), 1);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(unsuspendTimeouts(), 1);
    clkRelease();
    EXPECT_EQ(system.alarmSeconds(), 4U);
    system.advanceSeconds(4);
    EXPECT_EQ(calls, (Arguments{1, 2}));
}

SIMULATED(DeepSleep, leavesAnothersFlagInASuspension) {
    static int32_t own, other;
    const auto setOther = reinterpret_cast<ClkFunction>(reinterpret_cast<void (*)()>(setflag));
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            suspendTimeouts();
            own = 1;
            return nullptr;
        },
        0, 3);
    clkTimeout(setOther, reinterpret_cast<intptr_t>(&other), 9);
    EXPECT_EQ(deepSleep(10, &own), 7U);
    own = 0;
    unsuspendTimeouts();
    system.advanceSeconds(20);
    EXPECT_EQ(own, 0);
    EXPECT_EQ(other, 1);
}

SIMULATED(Suspension, lastOneMayBeEndedByACalloutThatComesFirst) {
    suspendTimeouts();
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            EXPECT_EQ(unsuspendTimeouts(), 0);
            return nullptr;
        },
        0, 5);
    bool arrived = false;
    system.onCall = [&](const std::string &name) {
        if (name != "sighold" || arrived)
            return;
        arrived = true;
        system.blocked = false; // just before the signal was blocked
        system.advanceSeconds(5);
        system.blocked = true;
    };
    EXPECT_EQ(unsuspendTimeouts(), -1);
    system.onCall = nullptr;
    EXPECT_TRUE(arrived);
    EXPECT_EQ(clksptr, suspensions);
    EXPECT_FALSE(system.blocked);
}

} // namespace

/* Queueing, cancelling, expiry, growth of the table and the sharing of SIGALRM, on the simulated
   system: every time is exact. */
#include "clockCases.h"
#include "support/failingAlloc.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <thread>

namespace {

constexpr uint32_t NONE = UINT32_MAX;

int foreignCalls;

void foreignHandler(int) {
    ++foreignCalls;
}

// --- Queueing and expiry ---

SIMULATED(Timeouts, equalDelaysRunInTheOrderOfQueueing) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 5);
    clkTimeout(note, 3, 4);
    clkTimeout(note, 4, 5);
    EXPECT_EQ(activeIncrements(), (Increments{4, 1, 0, 0}));
    system.advanceSeconds(4);
    EXPECT_EQ(calls, (Arguments{3}));
    system.advanceSeconds(1);
    EXPECT_EQ(calls, (Arguments{3, 1, 2, 4}));
}

SIMULATED(Timeouts, eachRunsAtItsSecondAndNotBefore) {
    clkTimeout(note, 10, 10);
    clkTimeout(note, 3, 3);
    system.advanceSeconds(2);
    clkTimeout(note, 7, 5);
    system.advance(999);
    EXPECT_EQ(calls, (Arguments{}));
    system.advance(1);
    EXPECT_EQ(calls, (Arguments{3}));
    system.advanceSeconds(4);
    EXPECT_EQ(calls, (Arguments{3, 7}));
    system.advanceSeconds(3);
    EXPECT_EQ(calls, (Arguments{3, 7, 10}));
    EXPECT_EQ(system.alarmAt, 0);
}

SIMULATED(Timeouts, calloutGetsItsArgumentAndItsId) {
    static uint32_t seen;
    clkTimeout(note, 0, 1);
    const uint32_t id = clkTimeout(
        [](intptr_t argument, uint32_t own) -> void * {
            seen = own;
            return note(argument, own);
        },
        INTPTR_MIN, 1);
    system.advanceSeconds(1);
    EXPECT_EQ(id, 1U);
    EXPECT_EQ(seen, 1U);
    EXPECT_EQ(calls, (Arguments{0, INTPTR_MIN}));
}

SIMULATED(Timeouts, zeroDelayAloneArmsNothing) {
    EXPECT_EQ(clkTimeout(note, 1, 0), 0U);
    EXPECT_EQ(activeIncrements(), (Increments{0}));
    EXPECT_EQ(system.alarmAt, 0);
    EXPECT_EQ(system.raised, 0);
    system.advanceSeconds(100);
    EXPECT_EQ(calls, (Arguments{}));
    system.signalArrives();
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Timeouts, zeroDelayRunsBehindThoseDueWithTheNextAlarm) {
    clkTimeout(note, 1, 3);
    clkTimeout(note, 2, 0);
    clkTimeout(note, 3, 0);
    EXPECT_EQ(activeIncrements(), (Increments{0, 0, 3}));
    EXPECT_EQ(calls, (Arguments{}));
    system.advanceSeconds(3);
    EXPECT_EQ(calls, (Arguments{2, 3, 1}));
}

SIMULATED(Timeouts, newcomerTakesWhatTheAlarmHadLeftForTheFirst) {
    clkTimeout(note, 1, 10);
    system.advanceSeconds(4);
    clkTimeout(note, 2, 20);
    EXPECT_EQ(activeIncrements(), (Increments{6, 14}));
    EXPECT_EQ(system.alarmSeconds(), 6U);
}

SIMULATED(Timeouts, secondsLeftAreNeverRaisedByRounding) {
    clkTimeout(note, 1, 10);
    system.advance(400); // the system says 10
    clkTimeout(note, 2, 10);
    EXPECT_EQ(activeIncrements(), (Increments{10, 0}));
    system.alarmAt += 5000; // more than the first record waits for
    clkTimeout(note, 3, 20);
    EXPECT_EQ(activeIncrements(), (Increments{10, 0, 10}));
}

SIMULATED(Timeouts, alarmThatWasStoppedMakesTheFirstDueAtOnceAndTheNextWithIt) {
    clkTimeout(note, 1, 5);
    system.alarmAt = 0;
    clkTimeout(note, 2, 9);
    EXPECT_EQ(system.raised, 1);
    EXPECT_EQ(calls, (Arguments{1, 2}));
}

SIMULATED(Timeouts, fullTableRefusesAndArmsAgain) {
    for (uint32_t i = 0; i < 20; ++i)
        EXPECT_EQ(clkTimeout(note, 0, 10 + i), i);
    system.advanceSeconds(3);
    EXPECT_EQ(clkTimeout(note, 0, 1), NONE);
    EXPECT_EQ(activeCallouts.count, 20);
    EXPECT_EQ(system.alarmSeconds(), 10U); // the first record's own seconds, started anew
    EXPECT_FALSE(system.blocked);
    system.advanceSeconds(10);
    EXPECT_EQ(calls.size(), 1U);
    EXPECT_EQ(clkTimeout(note, 0, 1), 20U);
}

SIMULATED(Timeouts, longestDelaysDoNotOverflow) {
    const uint32_t last = clkTimeout(note, 1, UINT32_MAX);
    clkTimeout(note, 2, UINT32_MAX - 1);
    EXPECT_EQ(activeIncrements(), (Increments{UINT32_MAX - 1, 1}));
    EXPECT_EQ(clkUntimeout(last), INT32_MAX);
    EXPECT_EQ(clkKillTimeout(note, 2), INT32_MAX);
}

SIMULATED(Timeouts, queueingDuringABlockedExpiryDeliversItFirst) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 60);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_TRUE(system.pending);
    clkTimeout(note, 3, 10);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(activeIncrements(), (Increments{10, 45}));
}

SIMULATED(Timeouts, calloutMayQueueAndCancel) {
    static uint32_t doomed;
    doomed = clkTimeout(note, 9, 8);
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            clkTimeout(note, 1, 2);
            EXPECT_EQ(clkUntimeout(doomed), 5);
            return nullptr;
        },
        0, 3);
    system.advanceSeconds(3);
    EXPECT_EQ(activeIncrements(), (Increments{2}));
    system.advanceSeconds(20);
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Timeouts, calloutQueuedForNowByACalloutRunsInTheSameExpiry) {
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            clkTimeout(note, 1, 0);
            return nullptr;
        },
        0, 3);
    system.advanceSeconds(3);
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Timeouts, nextAlarmMayInterruptACallout) {
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            simulated->advanceSeconds(2);
            return note(1, 0);
        },
        0, 3);
    clkTimeout(note, 2, 4);
    system.advanceSeconds(3);
    EXPECT_EQ(calls, (Arguments{2, 1}));
}

SIMULATED(Timeouts, functionOfAllOnesExpiresWithoutACall) {
    clkTimeout(CLK_NO_FUNCTION, 0, 1);
    clkTimeout(nullptr, 0, 1);
    clkTimeout(note, 1, 2);
    system.advanceSeconds(2);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(activeCallouts.count, 0);
}

SIMULATED(Timeouts, recordThatRanIsAllZeroButForItsLink) {
    clkTimeout(note, 7, 1);
    const Callout *record = &callouts[0];
    system.advanceSeconds(1);
    EXPECT_EQ(freeCallouts.tail, reinterpret_cast<const ListItem *>(record));
    EXPECT_EQ(record->next, LIST_END);
    EXPECT_EQ(record->increment, 0U);
    EXPECT_EQ(record->ID, 0U);
    EXPECT_EQ(record->argument, 0);
    EXPECT_EQ(record->function, nullptr);
}

SIMULATED(Timeouts, alarmThatIsStillArmedInTheHandlerIsPutBack) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 60);
    system.advanceSeconds(2);
    system.signalArrives(); // raised by the application, the alarm still armed for 3
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(system.alarmSeconds(), 3U);
}

SIMULATED(Timeouts, alarmOfOneThatRanEarlyIsStopped) {
    clkTimeout(note, 1, 5);
    system.signalArrives(); // raised from outside
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(system.alarmAt, 0);
    system.advanceSeconds(5);
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(Timeouts, handlerCalledForAnotherSignalMakesNothingDue) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 0);
    clockHandler()(SIGUSR1);
    EXPECT_EQ(calls, (Arguments{2}));
    EXPECT_EQ(activeIncrements(), (Increments{5}));
}

SIMULATED(Timeouts, handlerKeepsErrno) {
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            errno = EIO;
            return nullptr;
        },
        0, 1);
    errno = ENOENT;
    system.advanceSeconds(1);
    EXPECT_EQ(errno, ENOENT);
}

SIMULATED(Timeouts, lockIsRecursiveBeforeTheFirstUse) {
    EXPECT_EQ(pthread_mutex_lock(&clkAccessLock), 0);
    EXPECT_EQ(pthread_mutex_lock(&clkAccessLock), 0);
    EXPECT_EQ(clkTimeout(note, 1, 1), 0U);
    EXPECT_EQ(pthread_mutex_unlock(&clkAccessLock), 0);
    EXPECT_EQ(pthread_mutex_unlock(&clkAccessLock), 0);
}

bool anotherThreadGetsTheLock() {
    int result = -1;
    std::thread([&] {
        result = pthread_mutex_trylock(&clkAccessLock);
        if (result == 0)
            pthread_mutex_unlock(&clkAccessLock);
    }).join();
    return result == 0;
}

SIMULATED(Timeouts, everyOperationGivesTheLockBack) {
    clkTimeout(note, 1, 1);
    clkTimeout(note, 1, 2);
    system.advanceSeconds(1);
    clkUntimeout(1);
    clkUntimeout(99);
    clkKillTimeout(note, 1);
    clkHold();
    clkCatchup(1);
    clkRelease();
    clkinit(30);
    clkinit(10);
    suspendTimeouts();
    unsuspendTimeouts();
    setClockPrintFunc([](const char *) {});
    dumpClockCallOuts("", "", 0);
    EXPECT_TRUE(anotherThreadGetsTheLock());
}

// --- Cancelling ---

SIMULATED(Cancel, givesTheSecondsThatWereStillToRun) {
    const uint32_t first = clkTimeout(note, 1, 3);
    const uint32_t second = clkTimeout(note, 2, 8);
    EXPECT_EQ(clkUntimeout(second), 8);
    clkTimeout(note, 2, 8);
    EXPECT_EQ(clkUntimeout(first), 3);
    EXPECT_EQ(activeIncrements(), (Increments{8}));
    EXPECT_EQ(system.alarmSeconds(), 8U);
    system.advanceSeconds(8);
    EXPECT_EQ(calls, (Arguments{2}));
}

SIMULATED(Cancel, countsFromWhatTheAlarmHasLeft) {
    clkTimeout(note, 1, 10);
    const uint32_t second = clkTimeout(note, 2, 15);
    const uint32_t third = clkTimeout(note, 3, 16);
    system.advanceSeconds(4);
    EXPECT_EQ(clkUntimeout(second), 11);
    EXPECT_EQ(activeIncrements(), (Increments{6, 6}));
    EXPECT_EQ(clkUntimeout(third), 12);
    EXPECT_EQ(recordsOf(activeCallouts, "active").size(), 1U);
    system.advanceSeconds(6);
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Cancel, ofTheUnknownLeavesTheTableButForTheFirstsSeconds) {
    clkTimeout(note, 1, 10);
    clkTimeout(note, 2, 15);
    system.advanceSeconds(4);
    EXPECT_EQ(clkUntimeout(77), -1);
    EXPECT_EQ(clkKillTimeout(note, 77), -1);
    EXPECT_EQ(activeIncrements(), (Increments{6, 5}));
    EXPECT_EQ(system.alarmSeconds(), 6U);
    EXPECT_FALSE(system.blocked);
}

SIMULATED(Cancel, takesTheAlarmsRoundingAsItIs) {
    clkTimeout(note, 1, 10);
    system.alarmAt += 700; // what remains exceeds what was armed
    EXPECT_EQ(clkUntimeout(77), -1);
    EXPECT_EQ(activeIncrements(), (Increments{11}));
}

SIMULATED(Cancel, byCallTakesTheFirstThatMatchesBoth) {
    clkTimeout(note, 2, 4);
    clkTimeout(CLK_NO_FUNCTION, 1, 5);
    clkTimeout(note, 1, 6);
    clkTimeout(note, 1, 7);
    EXPECT_EQ(clkKillTimeout(note, 1), 6);
    EXPECT_EQ(activeIds(), (std::vector<uint32_t>{0, 1, 3}));
    EXPECT_EQ(clkKillTimeout(CLK_NO_FUNCTION, 1), 5);
}

SIMULATED(Cancel, ofTheLastMovesTheTail) {
    clkTimeout(note, 1, 4);
    const uint32_t last = clkTimeout(note, 2, 9);
    clkUntimeout(last);
    tableIsSound();
    clkTimeout(note, 3, 9);
    EXPECT_EQ(activeIncrements(), (Increments{4, 5}));
}

SIMULATED(Cancel, leavesTheRecordItsWordsButForTheLink) {
    const uint32_t id = clkTimeout(note, 7, 9);
    clkUntimeout(id);
    EXPECT_EQ(callouts[0].increment, 9U);
    EXPECT_EQ(callouts[0].argument, 7);
    EXPECT_EQ(freeCallouts.tail, reinterpret_cast<const ListItem *>(&callouts[0]));
}

SIMULATED(Cancel, whileTheFirstExpiredBlockedRaisesItsAlarm) {
    clkTimeout(note, 1, 5);
    const uint32_t other = clkTimeout(note, 2, 60);
    clkTimeout(note, 3, 70);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_EQ(clkUntimeout(other), 55);
    // Kept: the signal raised for the first takes the next one along.
    EXPECT_EQ(calls, (Arguments{1, 3}));
    EXPECT_FALSE(system.blocked);
}

SIMULATED(Cancel, ofTheFirstThatExpiredBlockedDoesNotRunIt) {
    const uint32_t first = clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 0);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_EQ(clkUntimeout(first), 0);
    EXPECT_EQ(calls, (Arguments{2})); // by the alarm that was pending
}

SIMULATED(Cancel, ofTheFirstWhoseAlarmWasStoppedRaisesNothing) {
    const uint32_t first = clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 9);
    system.alarmAt = 0;
    EXPECT_EQ(clkUntimeout(first), 0);
    EXPECT_EQ(system.raised, 0);
    EXPECT_EQ(system.alarmSeconds(), 4U);
}

SIMULATED(Cancel, withOnlyDueOnesLeftKeepsTheHandler) {
    system.disposition = foreignHandler;
    const uint32_t timed = clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 0);
    EXPECT_EQ(clkUntimeout(timed), 5);
    EXPECT_NE(system.disposition, foreignHandler);
    EXPECT_FALSE(system.blocked);
    system.signalArrives();
    EXPECT_EQ(calls, (Arguments{2}));
    EXPECT_EQ(system.disposition, foreignHandler);
}

SIMULATED(Cancel, onAnEmptyListLeavesTheApplicationsAlarmAndHandler) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 7000;
    EXPECT_EQ(clkUntimeout(0), -1);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 7U);
    EXPECT_FALSE(system.blocked);
    EXPECT_EQ(maxcallouts, 0);
    clkTimeout(note, 1, 2);
    system.advanceSeconds(2);
    EXPECT_EQ(clkKillTimeout(note, 1), -1);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 5U);
}

SIMULATED(Cancel, ofTheLastOneJustAsItExpiresDoesNotEndTheProcess) {
    const uint32_t id = clkTimeout(note, 1, 5);
    system.onCall = [&](const std::string &name) {
        if (name != "sighold")
            return;
        system.onCall = nullptr;
        system.advanceSeconds(5); // expires between the blocking and the stopping of the alarm
    };
    EXPECT_EQ(clkUntimeout(id), 0);
    EXPECT_EQ(system.deaths, 0);
    EXPECT_EQ(system.disposition, SIG_DFL);
    EXPECT_EQ(calls, (Arguments{}));
}

SIMULATED(Cancel, duringAHoldTakesOffWhatTheHoldLasted) {
    clkTimeout(note, 1, 5);
    const uint32_t second = clkTimeout(note, 2, 9);
    clkHold();
    system.advanceSeconds(3);
    EXPECT_EQ(clkUntimeout(second), 6);
    system.advanceSeconds(4);
    EXPECT_EQ(clkKillTimeout(note, 1), 0); // 7 of 5 seconds have passed
    EXPECT_EQ(holdInfo.secondsLeft, 0U);
}

SIMULATED(Cancel, ofTheFirstDuringAHoldLeavesTheHoldTheSuccessors) {
    const uint32_t first = clkTimeout(note, 1, 10);
    clkTimeout(note, 2, 15);
    clkHold();
    EXPECT_EQ(clkUntimeout(first), 10);
    EXPECT_EQ(holdInfo.secondsLeft, 15U);
    EXPECT_EQ(activeIncrements(), (Increments{15}));
    EXPECT_TRUE(system.blocked);
    EXPECT_EQ(system.alarmAt, 0);
}

// --- Sharing SIGALRM ---

SIMULATED(Foreign, handlerAndTheRestOfItsAlarmComeBack) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    clkTimeout(note, 1, 3);
    clkTimeout(note, 2, 4);
    EXPECT_NE(system.disposition, foreignHandler);
    system.advanceSeconds(4);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 6U);
    system.advanceSeconds(6);
    EXPECT_EQ(foreignCalls, 1);
}

SIMULATED(Foreign, cancelOfTheLastGivesItBackToo) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    const uint32_t id = clkTimeout(note, 1, 30);
    system.advanceSeconds(4);
    EXPECT_EQ(clkUntimeout(id), 26);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 6U);
    EXPECT_FALSE(system.blocked);
}

SIMULATED(Foreign, overdueHandlerIsCalledAtOnce) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 3000;
    clkTimeout(note, 1, 4);
    system.advanceSeconds(4);
    EXPECT_EQ(foreignCalls, 1);
    EXPECT_EQ(system.alarmAt, 0);
    EXPECT_EQ(system.raised, 0);
}

SIMULATED(Foreign, overdueDefaultActionIsRaised) {
    system.alarmAt = system.now + 3000;
    clkTimeout(note, 1, 4);
    system.advanceSeconds(4);
    EXPECT_EQ(system.raised, 1);
    EXPECT_EQ(system.deaths, 1);
}

SIMULATED(Foreign, overdueIgnoredAlarmIsNothing) {
    system.disposition = SIG_IGN;
    system.alarmAt = system.now + 3000;
    clkTimeout(note, 1, 4);
    system.advanceSeconds(4);
    EXPECT_EQ(system.raised, 0);
    EXPECT_EQ(system.disposition, SIG_IGN);
}

SIMULATED(Foreign, isGivenBackOnceWhenACalloutEmptiesTheList) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    static uint32_t other;
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            clkUntimeout(other);
            return nullptr;
        },
        0, 3);
    other = clkTimeout(note, 1, 30);
    system.advanceSeconds(3);
    EXPECT_EQ(system.disposition, foreignHandler);
    system.advanceSeconds(7);
    EXPECT_EQ(foreignCalls, 1);
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(Foreign, handlerThatCameBackWithItsAlarmIsForgotten) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    clkTimeout(note, 1, 3);
    system.advanceSeconds(3);
    clkTimeout(note, 1, 3);
    suspendTimeouts();
    EXPECT_EQ(suspensions[0].foreignHandler, foreignHandler);
    EXPECT_EQ(suspensions[0].foreignSecondsLeft, 7U);
    unsuspendTimeouts();
    system.advanceSeconds(3);
    suspendTimeouts();
    EXPECT_EQ(suspensions[0].disposition, foreignHandler);
    EXPECT_EQ(suspensions[0].foreignHandler, nullptr);
    EXPECT_EQ(suspensions[0].foreignSecondsLeft, 0U);
    EXPECT_EQ(suspensions[0].foreignTime, 0U);
    EXPECT_EQ(suspensions[0].secondsLeft, 4U);
}

SIMULATED(Foreign, isTakenOverAnewEachTime) {
    system.disposition = foreignHandler;
    clkTimeout(note, 1, 1);
    system.advanceSeconds(1);
    system.disposition = SIG_IGN;
    clkTimeout(note, 1, 1);
    system.advanceSeconds(1);
    EXPECT_EQ(system.disposition, SIG_IGN);
}

SIMULATED(Foreign, handlerMayUseTheClockWhenItIsCalledOverdue) {
    system.disposition = [](int) { clkTimeout(note, 2, 5); };
    system.alarmAt = system.now + 3000;
    clkTimeout(note, 1, 4);
    system.advanceSeconds(4);
    EXPECT_EQ(activeIncrements(), (Increments{5}));
    EXPECT_NE(system.disposition, SIG_DFL);
    system.advanceSeconds(5);
    EXPECT_EQ(calls, (Arguments{1, 2}));
}

SIMULATED(Foreign, clockSetBackChargesNothing) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    const uint32_t id = clkTimeout(note, 1, 30);
    const int64_t shift = 3600 * 1000;
    system.now -= shift;
    system.alarmAt -= shift;
    clkUntimeout(id);
    EXPECT_EQ(system.alarmSeconds(), 10U);
}

SIMULATED(Foreign, alarmSurvivesATimeoutThatFoundNoRecord) {
    clkinit(1);
    clkTimeout(note, 1, 50);
    suspendTimeouts();
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    EXPECT_EQ(clkTimeout(note, 2, 5), NONE);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 10U);
    EXPECT_FALSE(system.blocked);
}

// --- The table ---

SIMULATED(Table, isOfTwentyUnlessToldOtherwise) {
    EXPECT_EQ(clkinit(0), 0);
    EXPECT_EQ(maxcallouts, 20);
    EXPECT_EQ(freeCallouts.count, 20);
    EXPECT_EQ(freeCallouts.head, reinterpret_cast<ListItem *>(callouts));
    EXPECT_EQ(freeCallouts.tail, reinterpret_cast<ListItem *>(callouts + 19));
    EXPECT_FALSE(system.blocked);
    EXPECT_EQ(system.disposition, SIG_DFL);
}

SIMULATED(Table, neverShrinks) {
    EXPECT_EQ(clkinit(21), 0);
    EXPECT_EQ(clkinit(21), 0);
    EXPECT_EQ(clkinit(20), -1);
    EXPECT_EQ(clkinit(-5), -1); // asks for 20
    EXPECT_EQ(maxcallouts, 21);
}

SIMULATED(Table, holdsNoMoreThanTheCountCan) {
    EXPECT_EQ(clkinit(32768), -1);
    EXPECT_EQ(clkinit(INT_MAX), -1);
    EXPECT_EQ(maxcallouts, 0);
    EXPECT_EQ(callouts, nullptr);
    EXPECT_EQ(clkinit(32767), 0);
    EXPECT_EQ(freeCallouts.count, 32767);
}

SIMULATED(Table, growthKeepsTheTimesAndClearsTheIds) {
    clkTimeout(note, 0, 1);
    clkTimeout(note, 1, 10);
    clkTimeout(note, 2, 15);
    system.advanceSeconds(4);
    EXPECT_EQ(clkinit(40), 0);
    EXPECT_EQ(maxcallouts, 40);
    EXPECT_EQ(freeCallouts.count, 38);
    EXPECT_EQ(activeIds(), (std::vector<uint32_t>{0, 0}));
    EXPECT_EQ(system.alarmSeconds(), 6U);
    system.advanceSeconds(6);
    EXPECT_EQ(calls, (Arguments{0, 1}));
    system.advanceSeconds(5);
    EXPECT_EQ(calls, (Arguments{0, 1, 2}));
    EXPECT_EQ(clkTimeout(note, 3, 1), 3U);
}

SIMULATED(Table, growthWithoutCalloutsGivesTheForeignAlarmBack) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    clkinit(10);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 10U);
    system.advanceSeconds(4);
    clkinit(30);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 6U);
}

SIMULATED(Table, growthBehindABlockedSignalKeepsTheForeignHandler) {
    system.disposition = foreignHandler;
    system.alarmAt = system.now + 10000;
    clkTimeout(note, 1, 2);
    system.advanceSeconds(2);
    system.blocked = true; // as a sleep leaves it
    clkinit(30);
    EXPECT_EQ(system.disposition, foreignHandler);
    EXPECT_EQ(system.alarmSeconds(), 8U);
}

SIMULATED(Table, growthDuringAHoldLeavesTheHold) {
    clkHold();
    EXPECT_EQ(clkinit(30), 0);
    EXPECT_TRUE(system.blocked);
    clkTimeout(note, 1, 5);
    clkRelease();
    EXPECT_FALSE(system.blocked);
    system.advanceSeconds(5);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(Table, growthIsRefusedWhileTimeoutsAreSuspended) {
    clkTimeout(note, 1, 5);
    suspendTimeouts();
    const Callout *table = callouts;
    EXPECT_EQ(clkinit(30), -1);
    EXPECT_EQ(clkinit(20), 0);
    EXPECT_EQ(callouts, table);
    EXPECT_EQ(maxcallouts, 20);
    unsuspendTimeouts();
    EXPECT_EQ(clkinit(30), 0);
    system.advanceSeconds(5);
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Table, mayGrowInACallout) {
    clkTimeout(
        [](intptr_t, uint32_t) -> void * {
            EXPECT_EQ(clkinit(50), 0);
            return nullptr;
        },
        0, 1);
    clkTimeout(note, 1, 1);
    clkTimeout(note, 2, 9);
    system.advanceSeconds(9);
    EXPECT_EQ(calls, (Arguments{1, 2}));
    EXPECT_EQ(maxcallouts, 50);
}

SIMULATED(Table, growthOfABrokenListMovesWhatItReaches) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 6);
    callouts[1].next = reinterpret_cast<ListItem *>(0x1234);
    EXPECT_EQ(clkinit(30), -1);
    EXPECT_EQ(activeIncrements(), (Increments{5, 1}));
    callouts[1].next = reinterpret_cast<ListItem *>(callouts); // a ring
    EXPECT_EQ(clkinit(40), -1);
    EXPECT_EQ(activeCallouts.count, 40);
}

template<typename Operation>
auto withoutMemory(Operation operation) {
    FailingAlloc exhausted;
    return operation();
}

SIMULATED(Table, withoutMemoryTheClockStaysUnusable) {
    system.disposition = foreignHandler;
    clkTimeout(note, 1, 5);
    const int32_t result = withoutMemory([] { return clkinit(30); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(callouts, nullptr);
    EXPECT_EQ(maxcallouts, 20);
    EXPECT_EQ(system.alarmAt, 0);
    EXPECT_TRUE(system.blocked);
    EXPECT_TRUE(anotherThreadGetsTheLock());
    EXPECT_EQ(clkinit(40), -1); // its callouts are lost: no table comes back
    EXPECT_EQ(clkinit(20), -1);
    EXPECT_EQ(callouts, nullptr);
    // A SIGALRM now leaves the lock taken.
    system.blocked = false;
    system.signalArrives();
    EXPECT_EQ(calls, (Arguments{}));
    EXPECT_FALSE(anotherThreadGetsTheLock());
    exit(testing::Test::HasFailure() ? CHILD_ASSERTION_FAILED : 0); // no table to check any more
}

SIMULATED(Table, withoutMemoryForTheFirstTableNothingCanBeQueued) {
    const uint32_t id = withoutMemory([] { return clkTimeout(note, 1, 5); });
    EXPECT_EQ(id, NONE);
    EXPECT_EQ(maxcallouts, 0);
}

// --- Catching up ---

SIMULATED(Catchup, isRefusedWhenNotHeldOrForNothing) {
    clkTimeout(note, 1, 5);
    EXPECT_EQ(clkCatchup(3), 0);
    clkHold();
    EXPECT_EQ(clkCatchup(0), 0);
    EXPECT_EQ(clkCatchup(-1), 0);
    EXPECT_EQ(activeIncrements(), (Increments{5}));
}

SIMULATED(Catchup, chargesTheFirstPartly) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 8);
    clkHold();
    EXPECT_EQ(clkCatchup(4), 1);
    EXPECT_EQ(activeIncrements(), (Increments{1, 3}));
}

SIMULATED(Catchup, leavesTheFirstItsSecondsAndMakesThoseBehindItDue) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 8);
    clkTimeout(note, 3, 10);
    clkTimeout(note, 4, 20);
    clkHold();
    EXPECT_EQ(clkCatchup(12), 1);
    EXPECT_EQ(activeIncrements(), (Increments{5, 0, 0, 8}));
}

SIMULATED(Catchup, firstIsTheFirstThatIsNotDue) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 8);
    clkTimeout(note, 3, 0);
    clkHold();
    EXPECT_EQ(clkCatchup(6), 1);
    EXPECT_EQ(activeIncrements(), (Increments{0, 5, 2}));
}

SIMULATED(Catchup, ofAnEmptyOrWhollyPassedListIsDone) {
    clkHold();
    EXPECT_EQ(clkCatchup(INT_MAX), 1);
    clkTimeout(note, 1, 5);
    EXPECT_EQ(clkCatchup(INT_MAX), 1);
    EXPECT_EQ(activeIncrements(), (Increments{5}));
}

// --- What runs while an operation begins ---

void *growTo40(intptr_t argument, uint32_t) {
    EXPECT_EQ(clkinit(40), 0);
    return note(argument, 0);
}

void *suspendAll(intptr_t argument, uint32_t) {
    suspendTimeouts();
    return note(argument, 0);
}

SIMULATED(Table, growthIsCheckedAgainAfterWhatWasPendingGrewIt) {
    clkTimeout(growTo40, 1, 5);
    clkTimeout(note, 2, 9);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_EQ(clkinit(30), -1);
    EXPECT_EQ(maxcallouts, 40);
    EXPECT_FALSE(system.blocked);
    system.advanceSeconds(4);
    EXPECT_EQ(calls, (Arguments{1, 2}));
}

SIMULATED(Table, growthIsCheckedAgainAfterWhatWasPendingSuspended) {
    clkTimeout(suspendAll, 1, 5);
    clkTimeout(note, 2, 9);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_EQ(clkinit(30), -1);
    EXPECT_EQ(maxcallouts, 20);
    EXPECT_FALSE(system.blocked);
    EXPECT_EQ(unsuspendTimeouts(), 1);
    system.advanceSeconds(4);
    EXPECT_EQ(calls, (Arguments{1, 2}));
    EXPECT_EQ(system.deaths, 0);
}

SIMULATED(Table, growthDuringAHoldRunsNothingPending) {
    clkTimeout(note, 1, 5);
    clkHold();
    system.signalArrives();
    EXPECT_EQ(clkinit(30), 0);
    EXPECT_EQ(calls, (Arguments{}));
    EXPECT_TRUE(system.pending);
    clkRelease();
    EXPECT_EQ(calls, (Arguments{1}));
}

SIMULATED(Held, queueingWithNothingLeftRaisesTheSignalAtOnce) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 20);
    system.blocked = true;
    system.advanceSeconds(5);
    clkHold(); // the alarm has expired: no seconds are left
    EXPECT_EQ(holdInfo.secondsLeft, 0U);
    clkTimeout(note, 3, 30);
    EXPECT_EQ(system.raised, 1);
    EXPECT_EQ(calls, (Arguments{}));
    clkRelease();
    // Kept: the signal raised for the first takes the next one along.
    EXPECT_EQ(calls, (Arguments{1, 2}));
    EXPECT_EQ(system.alarmSeconds(), 15U);
}

SIMULATED(Held, cancelOfTheFirstTimedBehindDueOnesLeavesTheSuccessors) {
    const uint32_t timed = clkTimeout(note, 1, 10);
    clkTimeout(note, 2, 0);
    clkTimeout(note, 3, 15);
    clkHold();
    EXPECT_EQ(clkUntimeout(timed), 10);
    EXPECT_EQ(holdInfo.secondsLeft, 15U);
    EXPECT_EQ(activeIncrements(), (Increments{0, 15}));
}

SIMULATED(Table, growthThatWhatWasPendingMadeNeedlessIsDone) {
    clkTimeout(growTo40, 1, 5);
    clkTimeout(note, 2, 9);
    system.blocked = true;
    system.advanceSeconds(5);
    EXPECT_EQ(clkinit(40), 0);
    EXPECT_EQ(maxcallouts, 40);
    EXPECT_FALSE(system.blocked);
    system.advanceSeconds(4);
    EXPECT_EQ(calls, (Arguments{1, 2}));
}

std::string dumped;

SIMULATED(Table, lostTableIsDumpedAsNone) {
    clkTimeout(note, 1, 5);
    withoutMemory([] { return clkinit(30); });
    setClockPrintFunc([](const char *text) { dumped += text == nullptr ? "" : text; });
    dumpClockCallOuts("why", "who", 3);
    EXPECT_EQ(dumped, "why\nwho - Line: 3\nmaxcallouts: 20   callouts: 0x0\n");
    exit(testing::Test::HasFailure() ? CHILD_ASSERTION_FAILED : 0); // no table to check any more
}

SIMULATED(Foreign, mixingWithoutMemoryForItsReportEndsTheProcessAllTheSame) {
    clkTimeout(note, 1, 5);
    const ChildResult result = runInChild([&] {
        system.disposition = foreignHandler;
        withoutMemory([] { return clkTimeout(note, 2, 5); });
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.err.rfind("setAlarmHdlr - Line: 625\n", 0), 0U) << result.err;
}

} // namespace

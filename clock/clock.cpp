#include "clock.h"

#include "../buffers/charBuffer.h"
#include "../buffers/fmtCharBuf.h"
#include "clockState.h"

#include <errno.h>
#include <sched.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static_assert(offsetof(Callout, next) == 0, "a record is an item of both lists");
static_assert(sizeof(void *) != 4 ||
              (offsetof(Callout, increment) == 4 && offsetof(Callout, ID) == 8 &&
               offsetof(Callout, argument) == 12 && offsetof(Callout, function) == 16 &&
               sizeof(Callout) == 20));

Callout *callouts;
int32_t maxcallouts;
ListHeader activeCallouts, freeCallouts;
HoldInfo holdInfo;
pthread_mutex_t clkAccessLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

ForeignAlarm foreignAlarm;
uint32_t clkHandlerInstalled;
volatile sig_atomic_t alarmsServed;

static uint32_t nextCalloutId;

static constexpr char LOOP[] = "Loop In Clock CallOut List!!";
static constexpr char MANGLED[] = "Clock CallOut List Mangled!!";

// Where a walk along the active list reports what it finds broken. The names and lines are kept:
// they are how a dump in the field tells which walk it was.
struct WalkSite {
    const char *name;
    int32_t loopLine;
    int32_t mangledLine;
};

static constexpr WalkSite HANDLER_FIRST = {"clk", 246, 251};
static constexpr WalkSite HANDLER_NEXT = {"clk", 273, 279};
static constexpr WalkSite QUEUE_FIRST = {"queueTimeout", 756, 768};
static constexpr WalkSite QUEUE_PLACE = {"queueTimeout", 797, 807};
static constexpr int32_t REMOVE_LOOP_LINE = 1077;
static constexpr int32_t REMOVE_MANGLED_LINE = 1083;
static constexpr WalkSite CATCHUP = {"clkCatchup", 1327, 1327};

// --- The lock ---

/* The mutex lets its owner in again, but while a thread is inside the mutex's own code, becoming
   the owner or ceasing to be, an entry from the signal handler would wait for that same thread. An
   alarm that arrives just then is put off until the thread is through, and then given back to the
   process: whichever thread gets it, the handler sees to it that the lock's owner serves it. */
struct LockTransit {
    volatile sig_atomic_t underWay;
    volatile sig_atomic_t alarmPutOff;
};
static thread_local LockTransit transit __attribute__((tls_model("initial-exec")));

/* An alarm on its way back to the process: threads that are about to send it, and whether one is
   sent and not served yet. Whoever takes SIGALRM away from the clock lets the first come to their
   end and discards the second, which would meet another handler, or the default action. */
static uint32_t alarmSenders;
static uint32_t alarmSent;

static sigset_t blockAlarm() {
    sigset_t alarmOnly, mask;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarmOnly, &mask);
    return mask;
}

static void sendAlarmBack() {
    // Blocked: served here, between the two counts, it could wait for this very thread.
    const sigset_t mask = blockAlarm();
    __atomic_add_fetch(&alarmSenders, 1, __ATOMIC_SEQ_CST);
    if (__atomic_load_n(&clkHandlerInstalled, __ATOMIC_SEQ_CST) == 1) {
        __atomic_store_n(&alarmSent, 1, __ATOMIC_SEQ_CST);
        kill(getpid(), SIGALRM);
    }
    __atomic_sub_fetch(&alarmSenders, 1, __ATOMIC_SEQ_CST);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

void releaseHandler() {
    __atomic_store_n(&clkHandlerInstalled, 0, __ATOMIC_SEQ_CST);
    while (__atomic_load_n(&alarmSenders, __ATOMIC_SEQ_CST) != 0)
        sched_yield();
    if (__atomic_exchange_n(&alarmSent, 0, __ATOMIC_SEQ_CST) != 0)
        signal(SIGALRM, SIG_IGN); // discards what is pending
}

static void endTransit() {
    transit.underWay = 0;
    if (transit.alarmPutOff != 0) {
        transit.alarmPutOff = 0;
        sendAlarmBack();
    }
}

static bool tryLockClock() {
    transit.underWay = 1;
    const bool taken = pthread_mutex_trylock(&clkAccessLock) == 0;
    endTransit();
    return taken;
}

/* Another thread has the lock, and may be asleep with it until SIGALRM comes. The kernel gives the
   signal to any thread that has it unblocked, so a thread that waits for the lock must not. */
static void waitForLock() {
    const sigset_t mask = blockAlarm();
    pthread_mutex_lock(&clkAccessLock);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

void lockClock() {
    if (!tryLockClock())
        waitForLock();
}

void unlockClock() {
    transit.underWay = 1;
    pthread_mutex_unlock(&clkAccessLock);
    endTransit();
}

// --- Walking the active list ---

static Callout *asCallout(ListItem *link) {
    return reinterpret_cast<Callout *>(link);
}

static ListItem *asItem(Callout *callout) {
    return reinterpret_cast<ListItem *>(callout);
}

static ListItem *firstActive() {
    return activeCallouts.head == nullptr ? LIST_END : activeCallouts.head;
}

// Where the records of a table lie. Taken once for a walk: nothing changes it meanwhile.
struct Extent {
    uintptr_t start;
    uintptr_t size; // in bytes; 0: there is no table

    bool holds(const ListItem *link) const {
        // An address below the start wraps round to one far beyond the end.
        const uintptr_t offset = reinterpret_cast<uintptr_t>(link) - start;
        return offset < size && offset % sizeof(Callout) == 0;
    }
};

static Extent extentOf(const Callout *table, int32_t count) {
    return {reinterpret_cast<uintptr_t>(table),
            table == nullptr ? 0 : static_cast<uintptr_t>(count) * sizeof(Callout)};
}

static Extent tableExtent() {
    return extentOf(callouts, maxcallouts);
}

bool isInTable(const ListItem *link) {
    return tableExtent().holds(link);
}

static Callout *recordAt(const Extent &table, ListItem *link, const WalkSite &site) {
    if (!table.holds(link))
        clkPanic(MANGLED, site.name, site.mangledLine);
    return asCallout(link);
}

// The first record from the link on that is not due; null if there is none.
static Callout *firstTimed(ListItem *link, const WalkSite &site) {
    const Extent table = tableExtent();
    for (int32_t left = activeCallouts.count; link != LIST_END; link = asCallout(link)->next) {
        Callout *callout = recordAt(table, link, site);
        if (callout->increment != 0)
            return callout;
        if (--left < 0)
            clkPanic(LOOP, site.name, site.loopLine);
    }
    return nullptr;
}

void resynchroniseFirst(uint32_t secondsLeft) {
    Callout *timed = firstTimed(firstActive(), CATCHUP);
    if (timed != nullptr && timed->increment > secondsLeft)
        timed->increment = secondsLeft;
}

// --- Sharing SIGALRM with the application ---

static void deliverOverdue(SignalHandler handler) {
    if (handler == SIG_DFL)
        kill(getpid(), SIGALRM);
    else if (handler != SIG_IGN)
        handler(SIGALRM);
}

static void restoreForeignAlarm() {
    const ForeignAlarm foreign = foreignAlarm;
    if (foreign.handler != clkAlarmHandler)
        releaseHandler();
    sigset(SIGALRM, foreign.handler);
    if (foreign.secondsLeft == 0)
        return;
    foreignAlarm = {};
    const uint32_t secondsLeft =
        subtractToZero(foreign.secondsLeft, secondsSince(foreign.captureTime));
    if (secondsLeft != 0)
        alarm(secondsLeft);
    else
        deliverOverdue(foreign.handler);
}

// For an active list that has run empty. A hold keeps SIGALRM the clock's: callouts may be queued
// during it without taking the signal over, and would be lost to whoever had it. Nor is SIGALRM
// given back twice, after a callout that emptied the list itself, or before the clock has recorded
// what it takes over: what is kept of the application's is gone then, or not there yet, and the
// default action in its place would end the process and every callout with it.
static void giveBackSigalrm() {
    if (!clockIsHeld() && clkHandlerInstalled == 1)
        restoreForeignAlarm();
}

[[noreturn]] static void reportMixing(SignalHandler replaced) {
    CharBuffer *message = mkCharBuffer(0);
    fmtCharBuffer(message,
                  "Application is mixing alarm()/sig*(SIGALRM...) calls with\n"
                  "sleep()/clkTimeout()/clkKillTimeout() calls in an incompatible fashion.  At\n"
                  "least one callout remained in the callout table when the application\n"
                  "took SIGALRM away from clk().  See \"clock(3x)\" manual page.\n"
                  "Improper SIGALRM handler: 0x%lx\n",
                  reinterpret_cast<unsigned long>(replaced));
    clkPanic(message == nullptr ? nullptr : message->text, "setAlarmHdlr", 625);
}

// As setAlarmHdlr; *served counts the signals up to where the alarm is stopped.
static uint32_t takeAlarm(sig_atomic_t *served) {
    if (maxcallouts < 1)
        clkinit(DEFAULT_CALLOUTS);
    // Unblocked first: a signal that was pending reaches the handler it was meant for, which may
    // arm the alarm anew, and sigset tells the disposition, which it hides while it is blocked.
    sigrelse(SIGALRM);
    *served = alarmsServed;
    const uint32_t secondsLeft = alarm(0);
    const SignalHandler replaced = sigset(SIGALRM, clkAlarmHandler);
    if (replaced != clkAlarmHandler && replaced != SIG_HOLD) {
        if (activeCallouts.head != nullptr)
            reportMixing(replaced);
        foreignAlarm = {replaced, secondsLeft, timeNow()};
    }
    // Last: a signal that comes before finds nothing to give back, and what is kept of an earlier
    // handler is not given back in place of this one.
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
    clkHandlerInstalled = 1;
    return secondsLeft;
}

uint32_t setAlarmHdlr() {
    sig_atomic_t served;
    return takeAlarm(&served);
}

uint32_t holdAlarm() {
    for (;;) {
        sig_atomic_t served;
        const uint32_t secondsLeft = takeAlarm(&served);
        sighold(SIGALRM);
        if (alarmsServed == served)
            return secondsLeft;
    }
}

// --- The table ---

// Puts every record of the cleared table on the free list, in table order.
static void freeWholeTable() {
    // The spare record beyond the last may be read by a dump.
    memset(callouts, 0, (static_cast<size_t>(maxcallouts) + 1) * sizeof(Callout));
    activeCallouts = {};
    freeCallouts = {};
    for (int32_t i = 0; i < maxcallouts; ++i)
        freeItem(&freeCallouts, asItem(&callouts[i]));
}

// Copies the list of the old table into the new one. False if not all of it could be.
static bool moveCallouts(const Extent &oldTable, ListItem *link) {
    if (link == nullptr)
        return true;
    for (; link != LIST_END; link = asCallout(link)->next) {
        ListItem *item = oldTable.holds(link) ? getItem(&freeCallouts) : nullptr;
        if (item == nullptr)
            return false;
        // Kept: the ID is not copied. Who grows the table cancels by function and argument.
        asCallout(item)->increment = asCallout(link)->increment;
        asCallout(item)->argument = asCallout(link)->argument;
        asCallout(item)->function = asCallout(link)->function;
        freeItem(&activeCallouts, item);
    }
    return true;
}

// What growth found when it stopped the alarm.
struct Stopped {
    uint32_t secondsLeft;   // on the alarm
    SignalHandler replaced; // SIG_HOLD: SIGALRM was blocked, as during a hold
};

// Stops the alarm and blocks SIGALRM for the growth. Unblocked first, as in setAlarmHdlr: what is
// pending runs callouts, which may do anything.
static Stopped stopForGrowth() {
    if (!clockIsHeld())
        sigrelse(SIGALRM);
    const uint32_t secondsLeft = alarm(0);
    const SignalHandler replaced = sigset(SIGALRM, SIG_HOLD);
    if (replaced != clkAlarmHandler && replaced != SIG_HOLD)
        foreignAlarm = {replaced, secondsLeft, timeNow()};
    return {secondsLeft, replaced};
}

static void resumeWithClock(uint32_t secondsLeft) {
    alarm(secondsLeft);
    // SIG_HOLD has left the disposition as it was, and sigset would let callouts run in the hold.
    if (clockIsHeld())
        return;
    sigset(SIGALRM, clkAlarmHandler);
    clkHandlerInstalled = 1;
}

static void resumeAfterGrowth(const Stopped &stopped) {
    if (activeCallouts.head == nullptr && !clockIsHeld())
        restoreForeignAlarm();
    else
        resumeWithClock(stopped.secondsLeft);
}

// A suspension may have left SIGALRM the clock's with an empty list: that stays so.
static void resumeAfterRefusal(const Stopped &stopped) {
    if (stopped.replaced == clkAlarmHandler)
        resumeWithClock(stopped.secondsLeft);
    else
        resumeAfterGrowth(stopped);
}

enum class Growth { needless, refused, possible };

static Growth checkGrowth(int32_t count) {
    if (clockIsLost())
        return Growth::refused;
    if (count == maxcallouts)
        return Growth::needless;
    // Suspensions point into the table that growth would release.
    if (count < maxcallouts || count > INT16_MAX || clksptr != suspensions)
        return Growth::refused;
    return Growth::possible;
}

// With the alarm stopped and SIGALRM blocked. False: no memory, or a broken list.
static bool growTable(int32_t count) {
    Callout *oldTable = callouts;
    const Extent oldExtent = tableExtent();
    ListItem *oldActive = activeCallouts.head;
    callouts = static_cast<Callout *>(malloc((static_cast<size_t>(count) + 1) * sizeof(Callout)));
    if (callouts == nullptr)
        return false;
    maxcallouts = count;
    freeWholeTable();
    const bool moved = moveCallouts(oldExtent, oldActive);
    free(oldTable);
    return moved;
}

int32_t clkinit(int32_t wanted) {
    ClockLock lock;
    const int32_t count = wanted < 1 ? DEFAULT_CALLOUTS : wanted;
    Growth growth = checkGrowth(count);
    if (growth != Growth::possible)
        return growth == Growth::needless ? 0 : -1;
    const Stopped stopped = stopForGrowth();
    // Callouts that ran until the block was in force may have suspended, or grown the table.
    growth = checkGrowth(count);
    if (growth != Growth::possible) {
        resumeAfterRefusal(stopped);
        return growth == Growth::needless ? 0 : -1;
    }
    const bool whole = growTable(count);
    if (callouts == nullptr)
        return -1; // kept: a clock without memory stays unusable, its old table is not released
    resumeAfterGrowth(stopped);
    return whole ? 0 : -1;
}

// --- Queueing ---

static void rearmTimeout() {
    ListItem *link = firstActive();
    for (int32_t steps = 0; steps < maxcallouts && isInTable(link); ++steps) {
        const uint32_t increment = asCallout(link)->increment;
        if (increment == 0) {
            link = asCallout(link)->next;
            continue;
        }
        if (clockIsHeld())
            holdInfo = {increment, timeNow()}; // kept: the hold's reckoning starts again
        else
            alarm(increment);
        return;
    }
}

// A position in the active list, and the seconds that remain when it is reached.
struct Place {
    Callout *previous; // null at the head
    Callout *next;     // null at the end
    uint32_t delay;
};

// Behind every record that expires at the same second or earlier.
static Place findPlace(uint32_t delay) {
    if (activeCallouts.count < 0)
        clkPanic(LOOP, QUEUE_PLACE.name, QUEUE_PLACE.loopLine);
    const Extent table = tableExtent();
    Callout *previous = nullptr;
    int32_t left = activeCallouts.count;
    for (ListItem *link = firstActive(); link != LIST_END; link = previous->next) {
        Callout *callout = recordAt(table, link, QUEUE_PLACE);
        if (callout->increment > delay)
            return {previous, callout, delay};
        if (--left < 0)
            clkPanic(LOOP, QUEUE_PLACE.name, QUEUE_PLACE.loopLine);
        delay -= callout->increment;
        previous = callout;
    }
    return {previous, nullptr, delay};
}

static void linkAt(const Place &place, Callout *callout) {
    callout->increment = place.delay;
    if (place.next != nullptr)
        place.next->increment -= place.delay;
    else
        activeCallouts.tail = asItem(callout);
    callout->next = place.next != nullptr ? asItem(place.next) : LIST_END;
    if (place.previous != nullptr)
        place.previous->next = asItem(callout);
    else
        activeCallouts.head = asItem(callout);
    ++activeCallouts.count;
}

static uint32_t takeId() {
    const uint32_t id = nextCalloutId;
    nextCalloutId = id == NO_CALLOUT - 1 ? 0 : id + 1;
    return id;
}

uint32_t queueTimeout(ClkFunction function, intptr_t argument, uint32_t delay, uint32_t remaining) {
    ListItem *item = getItem(&freeCallouts);
    if (item == nullptr) {
        rearmTimeout();
        // Where suspensions hold every record, the alarm to re-arm is the application's.
        if (activeCallouts.head == nullptr && callouts != nullptr)
            giveBackSigalrm();
        return NO_CALLOUT;
    }
    Callout *timed = firstTimed(firstActive(), QUEUE_FIRST);
    if (timed != nullptr && timed->increment > remaining)
        timed->increment = remaining;
    const bool raiseNow = timed != nullptr && remaining == 0;

    Callout *callout = asCallout(item);
    linkAt(findPlace(delay), callout);
    callout->ID = takeId();
    callout->argument = argument;
    callout->function = function;
    const uint32_t id = callout->ID; // the record may be another's once the signal is raised
    if (raiseNow)
        kill(getpid(), SIGALRM);
    else
        rearmTimeout();
    return id;
}

uint32_t clkTimeout(ClkFunction function, intptr_t argument, uint32_t seconds) {
    ClockLock lock;
    if (clockIsLost())
        return NO_CALLOUT;
    if (clockIsHeld())
        return queueTimeout(function, argument, seconds, holdInfo.secondsLeft);
    const uint32_t remaining = holdAlarm();
    const uint32_t id = queueTimeout(function, argument, seconds, remaining);
    sigrelse(SIGALRM);
    return id;
}

// --- Cancelling ---

struct Match {
    Callout *previous;    // null at the head
    Callout *callout;     // null: none matched
    uint64_t secondsLeft; // to its expiry, from when the alarm was last armed
};

template<typename Test>
static Match findMatch(const Test &matches, const WalkSite &site) {
    const Extent table = tableExtent();
    Callout *previous = nullptr;
    uint64_t secondsLeft = 0;
    int32_t left = activeCallouts.count;
    for (ListItem *link = firstActive(); link != LIST_END; link = previous->next) {
        Callout *callout = recordAt(table, link, site);
        secondsLeft += callout->increment;
        if (matches(*callout))
            return {previous, callout, secondsLeft};
        if (--left < 0)
            clkPanic(LOOP, site.name, site.loopLine);
        previous = callout;
    }
    return {previous, nullptr, secondsLeft};
}

static int32_t resultOf(const Match &match) {
    uint64_t seconds = match.secondsLeft;
    if (clockIsHeld()) {
        const uint32_t elapsed = secondsSince(holdInfo.startTime);
        seconds = seconds > elapsed ? seconds - elapsed : 0;
    }
    return seconds > INT32_MAX ? INT32_MAX : static_cast<int32_t>(seconds);
}

// The seconds that a hold has left are those of the first record that is not due.
static void adjustHold(bool matchWasFirstTimed, const Callout *successor) {
    if (activeCallouts.head == nullptr)
        holdInfo.secondsLeft = 0;
    else if (matchWasFirstTimed && successor != nullptr && holdInfo.secondsLeft != 0)
        holdInfo.secondsLeft += successor->increment;
}

static void unlinkMatch(const Match &match, const Callout *firstTimedRecord, const WalkSite &site) {
    Callout *callout = match.callout;
    Callout *successor =
        callout->next == LIST_END ? nullptr : recordAt(tableExtent(), callout->next, site);
    if (successor == nullptr)
        activeCallouts.tail = asItem(match.previous);
    if (match.previous != nullptr)
        match.previous->next = callout->next;
    else
        activeCallouts.head = successor == nullptr ? nullptr : callout->next;
    --activeCallouts.count;
    if (clockIsHeld())
        adjustHold(callout == firstTimedRecord, successor);
    if (successor != nullptr)
        successor->increment += callout->increment;
    callout->next = nullptr;
    freeItem(&freeCallouts, asItem(callout));
}

// Runs the clock on after a cancel; another record was found due, or the first timed is next.
static void resumeAfterRemoval(bool otherIsDue, const WalkSite &site) {
    const Callout *timed = otherIsDue ? nullptr : firstTimed(firstActive(), site);
    if (otherIsDue)
        kill(getpid(), SIGALRM);
    else if (timed != nullptr)
        alarm(timed->increment);
    // Not left to the sigset of giving the signal back: an alarm that expired since it was blocked
    // is for the clock's handler; the default action would end the process for it.
    sigrelse(SIGALRM);
    if (!otherIsDue && activeCallouts.head == nullptr)
        giveBackSigalrm();
}

template<typename Test>
static int32_t removeTimeout(const Test &matches, const WalkSite &site) {
    ClockLock lock;
    if (clockIsLost())
        return -1;
    const bool held = clockIsHeld();
    if (!held)
        sighold(SIGALRM);
    const uint32_t secondsLeft = held ? holdInfo.secondsLeft : alarm(0);
    if (activeCallouts.head == nullptr) {
        if (!held) {
            alarm(secondsLeft); // the application's own: the clock has none to wait for
            sigrelse(SIGALRM);
        }
        return -1;
    }
    Callout *timed = firstTimed(firstActive(), site);
    if (timed != nullptr)
        timed->increment = secondsLeft;
    const Match match = findMatch(matches, site);
    int32_t result = -1;
    if (match.callout != nullptr) {
        result = resultOf(match);
        unlinkMatch(match, timed, site);
    }
    if (!held)
        resumeAfterRemoval(timed != nullptr && timed != match.callout && secondsLeft == 0, site);
    return result;
}

int32_t clkUntimeout(uint32_t id) {
    const auto hasId = [id](const Callout &callout) { return callout.ID == id; };
    return removeTimeout(hasId, {"clkUntimeout", REMOVE_LOOP_LINE, REMOVE_MANGLED_LINE});
}

int32_t clkKillTimeout(ClkFunction function, intptr_t argument) {
    const auto isCall = [function, argument](const Callout &callout) {
        return callout.function == function && callout.argument == argument;
    };
    return removeTimeout(isCall, {"clkKillTimeout", REMOVE_LOOP_LINE, REMOVE_MANGLED_LINE});
}

// --- Expiry ---

// Arms the alarm for the first record that is not due.
static void armForNext(const Callout *next) {
    if (next == nullptr) {
        // A SIGALRM that somebody raised may have come early. The alarm that is still armed must
        // not meet what the signal is given back to, which may be the default action.
        alarm(0);
        return;
    }
    // A suspension or a callout lets SIGALRM through in a hold: the end of the hold, which stops
    // the alarm, must know what the next one waits for, or nothing would ever run it.
    if (clockIsHeld()) {
        holdInfo = {next->increment, timeNow()};
        return;
    }
    const uint32_t pending = alarm(next->increment);
    if (pending != 0)
        alarm(pending);
}

static void callWithSignal(const Callout &due) {
    if (due.function == CLK_NO_FUNCTION || due.function == nullptr)
        return;
    sigrelse(SIGALRM);
    due.function(due.argument, due.ID);
    sighold(SIGALRM);
}

static void runDue() {
    while (activeCallouts.head != nullptr &&
           recordAt(tableExtent(), activeCallouts.head, HANDLER_FIRST)->increment == 0) {
        Callout *callout = asCallout(getItem(&activeCallouts));
        const Callout due = *callout;
        *callout = {};
        freeItem(&freeCallouts, asItem(callout));
        callWithSignal(due); // may change everything, the table itself included
    }
}

static void serveAlarm(int signalNumber) {
    if (activeCallouts.head == nullptr && (clockIsHeld() || clkHandlerInstalled != 1))
        return; // nothing to run or to give back
    alarmsServed = alarmsServed + 1;
    Callout *timed = firstTimed(firstActive(), HANDLER_FIRST);
    // Kept: a SIGALRM makes the first timed record due whoever raised it.
    if (timed != nullptr && signalNumber == SIGALRM)
        timed->increment = 0;
    armForNext(timed == nullptr ? nullptr : firstTimed(asItem(timed), HANDLER_NEXT));
    runDue();
    if (activeCallouts.head == nullptr)
        giveBackSigalrm();
}

// The thread that was interrupted waits for an owner that may sleep until this very signal. Blocked
// here, it goes to that one, or stays pending until this handler returns; so it is served once.
static void passAlarmOn() {
    sendAlarmBack();
    waitForLock();
    unlockClock();
}

void clkAlarmHandler(int signalNumber) {
    if (transit.underWay != 0) {
        transit.alarmPutOff = 1;
        return;
    }
    const int savedErrno = errno;
    if (!tryLockClock()) {
        passAlarmOn();
        errno = savedErrno;
        return;
    }
    __atomic_store_n(&alarmSent, 0, __ATOMIC_SEQ_CST);
    // Kept: without a table the lock is not given back; a clock that lost its table is unusable.
    if (callouts != nullptr) {
        serveAlarm(signalNumber);
        unlockClock();
    }
    errno = savedErrno;
}

int32_t clkCatchup(int32_t elapsed) {
    ClockLock lock;
    if (elapsed < 1 || !clockIsHeld() || clockIsLost())
        return 0;
    if (activeCallouts.count < 0)
        clkPanic(LOOP, CATCHUP.name, CATCHUP.loopLine);
    uint32_t left = static_cast<uint32_t>(elapsed);
    bool firstPassed = false;
    int32_t steps = 0;
    for (ListItem *link = firstActive(); left != 0 && link != LIST_END;
         link = asCallout(link)->next) {
        // A stray link is reported as a loop: callers know no other report of this walk.
        if (!isInTable(link) || ++steps > activeCallouts.count)
            clkPanic(LOOP, CATCHUP.name, CATCHUP.loopLine);
        Callout *callout = asCallout(link);
        if (callout->increment > left) {
            callout->increment -= left;
            break;
        }
        left -= callout->increment;
        // The first timed record keeps its seconds: the handler makes it due, on its own alarm.
        if (firstPassed)
            callout->increment = 0;
        firstPassed = firstPassed || callout->increment != 0;
    }
    return 1;
}

// Holding the clock, waiting with it, and suspending all of its timeouts.
#include "clockState.h"

#include <stddef.h>
#include <unistd.h>

static constexpr ptrdiff_t MAX_SUSPENSIONS = 5;

static_assert(sizeof(void *) != 4 ||
              (offsetof(Suspension, disposition) == 12 && offsetof(Suspension, secondsLeft) == 16 &&
               offsetof(Suspension, startTime) == 20 &&
               offsetof(Suspension, foreignHandler) == 24 &&
               offsetof(Suspension, foreignSecondsLeft) == 28 && offsetof(Suspension, hold) == 32 &&
               offsetof(Suspension, foreignTime) == 40 &&
               offsetof(Suspension, handlerInstalled) == 44 && sizeof(Suspension) == 48));
static_assert(sizeof(HoldInfo) == 8);

Suspension suspensions[MAX_SUSPENSIONS];
Suspension *clksptr = suspensions;

// Charges the pending callouts with the time since the alarm, which had those seconds left, was
// stopped. The first record still holds what it was armed with: only the alarm knows what of that
// was left. The clock must be marked held.
static void chargeCallouts(uint32_t elapsed, uint32_t secondsLeft) {
    if (elapsed == 0 || clockIsLost())
        return;
    if (secondsLeft != 0)
        resynchroniseFirst(secondsLeft);
    clkCatchup(static_cast<int32_t>(elapsed));
}

static uint32_t takeForHold() {
    if (maxcallouts < 1)
        return setAlarmHdlr();
    const uint32_t secondsLeft = alarm(0);
    if (clkHandlerInstalled == 1)
        return secondsLeft;
    const SignalHandler replaced = sigset(SIGALRM, clkAlarmHandler);
    if (replaced == SIG_HOLD) {
        // The clock's own blocking, as a sleep leaves it: what was recorded before stays.
        alarm(secondsLeft);
        return setAlarmHdlr();
    }
    foreignAlarm = {replaced, secondsLeft, timeNow()};
    clkHandlerInstalled = 1;
    return secondsLeft;
}

int32_t clkHold() {
    ClockLock lock;
    if (clockIsHeld())
        return static_cast<int32_t>(holdInfo.startTime);
    holdInfo.secondsLeft = takeForHold();
    sighold(SIGALRM);
    holdInfo.startTime = timeNow();
    return 0;
}

// Ends the hold; returns the seconds that the alarm had left at its start.
static uint32_t endHold() {
    const uint32_t elapsed = secondsSince(holdInfo.startTime);
    const uint32_t secondsLeft = holdInfo.secondsLeft;
    chargeCallouts(elapsed, secondsLeft);
    holdInfo = {subtractToZero(secondsLeft, elapsed), 0};
    return secondsLeft;
}

void clkRelease() {
    ClockLock lock;
    if (!clockIsHeld())
        return;
    const uint32_t secondsAtStart = endHold();
    alarm(0);
    if (holdInfo.secondsLeft != 0)
        alarm(holdInfo.secondsLeft);
    else if (secondsAtStart != 0)
        kill(getpid(), SIGALRM);
    if (!clockIsLost())
        sigrelse(SIGALRM);
}

int32_t clkPause() {
    ClockLock lock;
    if (!clockIsHeld())
        return -1;
    const uint32_t entry = timeNow();
    const uint32_t secondsAtStart = endHold();
    const uint32_t secondsLeft = holdInfo.secondsLeft;
    if (secondsLeft != 0) {
        alarm(secondsLeft);
        sigpause(SIGALRM);
    } else if (secondsAtStart != 0) {
        // Kept: the arguments are exchanged. Callers rely on coming back at once, without a signal.
        kill(SIGALRM, getpid());
    }
    return static_cast<int32_t>(secondsSince(entry));
}

// --- The sleeps ---

// What setflag is to the callout table. The word travels as the argument; the ID is ignored.
static ClkFunction setflagAsCallout() {
    return reinterpret_cast<ClkFunction>(reinterpret_cast<void (*)()>(setflag));
}

int32_t *setflag(int32_t *word) {
    ClockLock lock;
    if (word != nullptr)
        __atomic_store_n(word, 1, __ATOMIC_RELEASE);
    return word;
}

// Cancels the sleep's own callout after an early end: it must not write to a word that may be gone.
// A callout that grew the table has taken its ID, which may be another's by now; one that suspended
// has set it aside, out of reach of any cancel.
static void cancelSetflag(uint32_t id, int32_t *word, int32_t tableSize) {
    const intptr_t argument = reinterpret_cast<intptr_t>(word);
    if (maxcallouts == tableSize)
        clkUntimeout(id);
    else
        clkKillTimeout(setflagAsCallout(), argument);
    for (const Suspension *frame = suspensions; frame < clksptr; ++frame)
        for (ListItem *link = frame->active.head; isInTable(link);) {
            Callout *callout = reinterpret_cast<Callout *>(link);
            if (callout->function == setflagAsCallout() && callout->argument == argument)
                callout->function = CLK_NO_FUNCTION;
            link = callout->next;
        }
}

uint32_t deepSleep(uint32_t seconds, int32_t *flag) {
    ClockLock lock;
    if (clockIsHeld() || clockIsLost() || seconds == 0)
        return seconds;
    const uint32_t start = timeNow();
    const uint32_t remaining = holdAlarm();
    int32_t ownWord = 0;
    int32_t *word = flag != nullptr ? flag : &ownWord;
    // Written by handlers, which may run in other threads, so read anew and whole each time.
    __atomic_store_n(word, 0, __ATOMIC_RELEASE);
    const uint32_t id =
        queueTimeout(setflagAsCallout(), reinterpret_cast<intptr_t>(word), seconds, remaining);
    if (id == NO_CALLOUT) {
        sigrelse(SIGALRM);
        return seconds;
    }
    const int32_t tableSize = maxcallouts;
    do {
        sigpause(SIGALRM);
        sighold(SIGALRM);
    } while (__atomic_load_n(word, __ATOMIC_ACQUIRE) == 0);
    sigrelse(SIGALRM);
    cancelSetflag(id, word, tableSize);
    return subtractToZero(seconds, secondsSince(start));
}

uint32_t clkSleep(uint32_t seconds) {
    ClockLock lock;
    if (clockIsHeld() || clockIsLost() || seconds == 0)
        return seconds;
    const uint32_t start = timeNow();
    const uint32_t remaining = holdAlarm();
    // The address only tells sleeps apart: nothing reads through it, now or when it is gone.
    const intptr_t argument = reinterpret_cast<intptr_t>(&start);
    if (queueTimeout(CLK_NO_FUNCTION, argument, seconds, remaining) == NO_CALLOUT) {
        sigrelse(SIGALRM);
        return seconds;
    }
    // Kept: SIGALRM stays blocked afterwards, and after an early end the callout stays queued.
    sigpause(SIGALRM);
    return subtractToZero(seconds, secondsSince(start));
}

// --- Suspension ---

static bool frameIsFree() {
    return clksptr < suspensions + MAX_SUSPENSIONS;
}

// What a suspension took SIGALRM from.
struct Takeover {
    uint32_t secondsLeft;
    uint32_t handlerInstalled;
    SignalHandler replaced; // SIG_HOLD: it was blocked
};

// Stops the alarm and installs the handler; SIGALRM is blocked at the end, so that nothing can come
// between. A signal that was pending behind a block meets the clock's handler in sigset: that may
// have armed the alarm anew or given SIGALRM back, so everything is taken again.
static Takeover takeForSuspension() {
    for (;;) {
        // Before the alarm is stopped: one that comes in between may arm it anew.
        const sig_atomic_t served = alarmsServed;
        Takeover taken = {maxcallouts < 1 ? setAlarmHdlr() : alarm(0), 0, nullptr};
        taken.handlerInstalled = clkHandlerInstalled;
        taken.replaced = sigset(SIGALRM, clkAlarmHandler);
        sighold(SIGALRM);
        if (alarmsServed == served)
            return taken;
        sigrelse(SIGALRM);
    }
}

// A callout that ran until SIGALRM was blocked took the last frame.
static int32_t refuseSuspension(const Takeover &taken) {
    alarm(taken.secondsLeft);
    if (taken.replaced != SIG_HOLD)
        sigset(SIGALRM, taken.replaced);
    return -1;
}

int32_t suspendTimeouts() {
    ClockLock lock;
    if (!frameIsFree() || clockIsLost())
        return -1;
    const Takeover taken = takeForSuspension();
    if (!frameIsFree())
        return refuseSuspension(taken);
    Suspension *frame = clksptr;
    frame->secondsLeft = taken.secondsLeft;
    frame->startTime = timeNow();
    frame->handlerInstalled = taken.handlerInstalled;
    frame->disposition = taken.replaced == SIG_HOLD ? clkAlarmHandler : taken.replaced;
    clkHandlerInstalled = 1;
    frame->active = activeCallouts;
    activeCallouts = {};
    frame->foreignHandler = foreignAlarm.handler;
    frame->foreignSecondsLeft = foreignAlarm.secondsLeft;
    frame->foreignTime = foreignAlarm.captureTime;
    foreignAlarm = {};
    frame->hold = holdInfo;
    ++clksptr;
    const int32_t count = frame->active.count;
    sigrelse(SIGALRM);
    return count;
}

// Drops what was queued since the suspension.
static void freeActive() {
    while (isInTable(activeCallouts.head))
        freeItem(&freeCallouts, getItem(&activeCallouts));
    activeCallouts = {};
}

// Before the callouts come back: the clock's handler takes a SIGALRM that is pending here, where it
// finds none to run early and, the clock being marked held, does nothing.
static void restoreDisposition(SignalHandler disposition) {
    holdInfo.startTime = 1;
    // While SIGALRM is the clock's, what is pending was for callouts that are gone: it must not
    // meet an application's handler that comes back, nor its default action. Else it is for a
    // handler that the application has now, if what comes back is the default action.
    if (clkHandlerInstalled == 1)
        sigset(SIGALRM, clkAlarmHandler);
    else if (disposition == SIG_DFL)
        sigrelse(SIGALRM);
    if (disposition != clkAlarmHandler)
        releaseHandler();
    sigset(SIGALRM, disposition);
    sighold(SIGALRM);
}

int32_t unsuspendTimeouts() {
    ClockLock lock;
    if (clksptr <= suspensions)
        return -1;
    sighold(SIGALRM);
    if (clksptr <= suspensions) { // a callout came first: SIGALRM was not blocked
        sigrelse(SIGALRM);
        return -1;
    }
    alarm(0);
    freeActive();
    const Suspension frame = *--clksptr;
    restoreDisposition(frame.disposition);
    activeCallouts = frame.active;
    clkHandlerInstalled = frame.handlerInstalled;
    const uint32_t elapsed = secondsSince(frame.startTime);
    // A hold that was in force charges them at its own end with all of its time: twice would run
    // those behind the first early.
    if (frame.hold.startTime == 0)
        chargeCallouts(elapsed, frame.secondsLeft);
    holdInfo = frame.hold;
    foreignAlarm = {frame.foreignHandler, frame.foreignSecondsLeft, frame.foreignTime};
    const uint32_t secondsLeft = subtractToZero(frame.secondsLeft, elapsed);
    if (secondsLeft != 0)
        alarm(secondsLeft);
    else if (frame.secondsLeft != 0)
        kill(getpid(), SIGALRM);
    if (!clockIsHeld())
        sigrelse(SIGALRM);
    return frame.active.count;
}

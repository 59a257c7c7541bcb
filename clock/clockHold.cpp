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
    if (elapsed == 0)
        return;
    if (secondsLeft != 0)
        resynchroniseFirst(secondsLeft);
    clkCatchup(static_cast<int32_t>(elapsed));
}

int32_t clkHold() {
    ClockLock lock;
    if (clockIsHeld())
        return static_cast<int32_t>(holdInfo.startTime);
    holdInfo.secondsLeft = maxcallouts < 1 || clkHandlerInstalled != 1 ? setAlarmHdlr() : alarm(0);
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
    *static_cast<volatile int32_t *>(word) = 1;
    return word;
}

uint32_t deepSleep(uint32_t seconds, int32_t *flag) {
    ClockLock lock;
    if (clockIsHeld() || seconds == 0)
        return seconds;
    const uint32_t start = timeNow();
    const uint32_t remaining = setAlarmHdlr();
    sighold(SIGALRM);
    int32_t ownWord = 0;
    int32_t *word = flag != nullptr ? flag : &ownWord;
    // Written by handlers, so read anew each time.
    volatile int32_t *awake = word;
    *awake = 0;
    const uint32_t id =
        queueTimeout(setflagAsCallout(), reinterpret_cast<intptr_t>(word), seconds, remaining);
    if (id == NO_CALLOUT) {
        sigrelse(SIGALRM);
        return seconds;
    }
    do {
        sigpause(SIGALRM);
        sighold(SIGALRM);
    } while (*awake == 0);
    sigrelse(SIGALRM);
    clkUntimeout(id); // after an early end: the callout must not write to a word that may be gone
    return subtractToZero(seconds, secondsSince(start));
}

uint32_t clkSleep(uint32_t seconds) {
    ClockLock lock;
    if (clockIsHeld() || seconds == 0)
        return seconds;
    const uint32_t start = timeNow();
    const uint32_t remaining = setAlarmHdlr();
    sighold(SIGALRM);
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

int32_t suspendTimeouts() {
    ClockLock lock;
    if (!frameIsFree())
        return -1;
    // Unblocked first, as in setAlarmHdlr: what has come due runs before the others are set aside,
    // and may itself take the last frame.
    sigrelse(SIGALRM);
    if (!frameIsFree())
        return -1;
    Suspension *frame = clksptr;
    frame->secondsLeft = maxcallouts < 1 ? setAlarmHdlr() : alarm(0);
    frame->startTime = timeNow();
    frame->handlerInstalled = clkHandlerInstalled;
    const SignalHandler replaced = sigset(SIGALRM, clkAlarmHandler);
    frame->disposition = replaced == SIG_HOLD ? clkAlarmHandler : replaced;
    clkHandlerInstalled = 1;
    frame->active = activeCallouts;
    activeCallouts = {};
    frame->foreignHandler = foreignAlarm.handler;
    frame->foreignSecondsLeft = foreignAlarm.secondsLeft;
    frame->foreignTime = foreignAlarm.captureTime;
    foreignAlarm = {};
    frame->hold = holdInfo;
    ++clksptr;
    return frame->active.count;
}

// Drops what was queued since the suspension.
static void freeActive() {
    while (isInTable(activeCallouts.head))
        freeItem(&freeCallouts, getItem(&activeCallouts));
    activeCallouts = {};
}

static void restoreDisposition(SignalHandler disposition) {
    // A pending SIGALRM was for callouts that are gone. The handler takes it here, where it finds
    // none and, the clock being marked held, does nothing; it must not meet what comes back.
    holdInfo.startTime = 1;
    sigrelse(SIGALRM);
    sigset(SIGALRM, disposition);
    sighold(SIGALRM);
}

int32_t unsuspendTimeouts() {
    ClockLock lock;
    if (clksptr <= suspensions)
        return -1;
    sighold(SIGALRM);
    alarm(0);
    freeActive();
    const Suspension frame = *--clksptr;
    restoreDisposition(frame.disposition);
    activeCallouts = frame.active;
    clkHandlerInstalled = frame.handlerInstalled;
    const uint32_t elapsed = secondsSince(frame.startTime);
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

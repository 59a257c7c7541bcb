/* What the clock's units share. Everything here is guarded by clkAccessLock; the functions are to
   be called with the lock held, and with SIGALRM blocked or a list that the handler may see. */
#ifndef QUARNEL_CLOCK_CLOCKSTATE_H
#define QUARNEL_CLOCK_CLOCKSTATE_H

#include "clock.h"

#ifdef __cplusplus

#include <signal.h>
#include <time.h>

// The X/Open signal operations that libc calls deprecated: the clock shares SIGALRM with
// applications that use the same ones, and relies on what they return and block.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

using SignalHandler = void (*)(int);

// What the clock took SIGALRM over from.
struct ForeignAlarm {
    SignalHandler handler;
    uint32_t secondsLeft; // what its alarm still had; 0: none was pending
    uint32_t captureTime; // time() when it was taken over
};

extern ForeignAlarm foreignAlarm;
extern uint32_t clkHandlerInstalled; // 1 while SIGALRM is the clock's

// Counts the signals on which the handler changed anything: an operation that unblocks SIGALRM
// tells by it whether it must look at everything anew.
extern volatile sig_atomic_t alarmsServed;

constexpr uint32_t NO_CALLOUT = UINT32_MAX;
constexpr int32_t DEFAULT_CALLOUTS = 20;

void lockClock();
void unlockClock();

struct ClockLock {
    ClockLock() { lockClock(); }
    ~ClockLock() { unlockClock(); }
    ClockLock(const ClockLock &) = delete;
    ClockLock &operator=(const ClockLock &) = delete;
};

inline bool clockIsHeld() {
    return holdInfo.startTime != 0;
}

// Its callouts were lost when memory was: it stays unusable, with SIGALRM blocked, since the
// handler does not give the lock back without a table. The lists lead to the records of the old one
// still.
inline bool clockIsLost() {
    return callouts == nullptr && maxcallouts > 0;
}

inline uint32_t timeNow() {
    return static_cast<uint32_t>(time(nullptr));
}

// Never negative: a system clock that was set back charges nothing.
inline uint32_t secondsSince(uint32_t start) {
    const int32_t elapsed = static_cast<int32_t>(timeNow() - start);
    return elapsed < 0 ? 0 : static_cast<uint32_t>(elapsed);
}

inline uint32_t subtractToZero(uint32_t from, uint32_t amount) {
    return from > amount ? from - amount : 0;
}

// Whether the address is that of a record of the table: a link is read through only then.
bool isInTable(const ListItem *link);

void clkAlarmHandler(int signalNumber);
uint32_t setAlarmHdlr();

// SIGALRM is about to be another's: ends the clock's claim to it, waits for threads that are
// sending an alarm back, and discards what they sent.
void releaseHandler();

// setAlarmHdlr, and SIGALRM blocked. A signal that comes in between may find nothing to run and
// give SIGALRM back, or run callouts and arm the alarm anew: everything is taken again then.
uint32_t holdAlarm();

uint32_t queueTimeout(ClkFunction function, intptr_t argument, uint32_t delay, uint32_t remaining);

// Sets the first record that is not due to the seconds that its alarm had left, if it has more.
void resynchroniseFirst(uint32_t secondsLeft);

[[noreturn]] void clkPanic(const char *message, const char *name, int32_t line);

#endif

#endif

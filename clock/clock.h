/* The clock: many timeouts on the process's one alarm.

   A caller asks for a function to be called in so many seconds (clkTimeout) and may cancel that
   again. Pending timeouts are callouts: records of a fixed table, linked in the order in which they
   expire, each holding the seconds to wait after the one before it. The alarm is armed for the
   first that is not due; the clock's SIGALRM handler calls every callout that is. Time is whole
   seconds throughout. alarm() rounds to them, so a callout may run up to half a second early.

   What always holds: every record of the table is on exactly one of activeCallouts and
   freeCallouts, or belongs to a suspension; the active list is in expiry order, records of equal
   expiry in the order of queueing; an increment of 0 means due, waiting for the next SIGALRM. A
   walk that meets a ring or a stray link prints the table and aborts the process. Nothing is
   allocated after clkinit.

   SIGALRM and alarm() are the clock's from the first queued timeout until the last one has run or
   been cancelled. An application's own handler and the alarm it had pending are kept meanwhile and
   given back then; an alarm that is overdue by then is delivered at once. Taking SIGALRM away while
   timeouts are pending ends the process with a message that says so. The handler is installed
   without restart of system calls: what blocks fails with EINTR when a callout has run.

   Callouts run inside the signal handler. A callout may queue and cancel timeouts, hold, release
   and suspend; of everything else it may do only what is safe in a signal handler: set a flag,
   write(), _exit(). No stdio, no heap, no lock that the interrupted code may hold, and so no
   operation of this library that uses them, clkinit that grows the table and clkTimeout as the
   process's first use of the clock included. SIGALRM is let through while a callout runs, so the
   next one may interrupt it. errno is kept around the handler.

   Threads: every operation takes clkAccessLock, which is recursive, and the handler takes it too.
   The sleeps and clkPause keep it while they wait: callouts still run, but another thread's call
   waits until they return. A SIGALRM that the kernel gives to a thread without the lock is passed
   on to its owner, so a sleeper is always woken. One alarm serves the whole process while signal
   masks belong to threads: callouts run in any thread that has SIGALRM unblocked, a hold blocks it
   in the calling thread only (the alarm is stopped for all), and clkRelease unblocks it in its own:
   the thread that holds also releases. No operation is safe in another signal's handler. */
#ifndef QUARNEL_CLOCK_CLOCK_H
#define QUARNEL_CLOCK_CLOCK_H

#include <pthread.h>
#include <stdint.h>

#include "../core/export.h"
#include "../core/list.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What a callout calls, with the argument and the ID of its timeout; the result is ignored. */
typedef void *(*ClkFunction)(intptr_t argument, uint32_t id);

/* A callout of this function expires without calling anything. */
#define CLK_NO_FUNCTION ((ClkFunction)(intptr_t)-1)

/* Receives one formatted text of a dump at a time; null means flush. Called with the lock held: it
   must not wait for a thread that may use the clock. */
typedef void (*ClkPrintFunc)(const char *text);

typedef struct Callout {
    ListItem *next;       /* null: on no list; LIST_END: last of its list; else the next record */
    uint32_t increment;   /* seconds after the expiry of the record before; 0: due */
    uint32_t ID;          /* what clkTimeout returned; 0 once the table has grown */
    intptr_t argument;    /* handed to the function */
    ClkFunction function; /* what is called, or CLK_NO_FUNCTION */
} Callout;

typedef struct HoldInfo {
    uint32_t secondsLeft; /* what the alarm still had when the hold began, or was last re-armed */
    uint32_t startTime;   /* time() at which the hold began or was re-armed; 0: not held */
} HoldInfo;

/* What one suspendTimeouts set aside; twelve words on i386. */
typedef struct Suspension {
    ListHeader active;           /* the callouts, on no other list meanwhile */
    void (*disposition)(int);    /* SIGALRM's at the suspension */
    uint32_t secondsLeft;        /* what the alarm still had; 0: it was not armed */
    uint32_t startTime;          /* time() of the suspension */
    void (*foreignHandler)(int); /* the application's handler that the clock had taken over, */
    uint32_t foreignSecondsLeft; /* the seconds its alarm had left at that time (0: none) */
    HoldInfo hold;               /* the hold in force, if any */
    uint32_t foreignTime;        /* and the time() at which it was taken over */
    uint32_t handlerInstalled;   /* 1 if the clock's handler was installed already */
} Suspension;

/* The clock's state, to be looked at under clkAccessLock and with SIGALRM blocked, and changed by
   the clock alone. */
QN_API extern Callout *callouts;             /* the table; null before there is one */
QN_API extern int32_t maxcallouts;           /* records in the table; 0 before there is one */
QN_API extern ListHeader activeCallouts;     /* pending callouts in the order of expiry */
QN_API extern ListHeader freeCallouts;       /* records not in use */
QN_API extern HoldInfo holdInfo;             /* the hold in force */
QN_API extern Suspension suspensions[5];     /* the suspensions in force, oldest first */
QN_API extern Suspension *clksptr;           /* the first of them that is free */
QN_API extern pthread_mutex_t clkAccessLock; /* recursive from the start */

/* Makes the table, or lets it grow, to so many records (below 1: 20; at most 32767). Any other
   operation that needs a table makes one of 20, so calling this is only about the size. Pending
   callouts keep their time, but their IDs become 0: cancel them by function and argument. Returns 0
   when the table has that size now, else -1: with nothing changed for less than there is, for more
   than 32767, and for growth while timeouts are suspended; where the list of pending callouts was
   broken, with what could be reached of it moved. When memory is exhausted -1 too, the alarm
   stopped and SIGALRM blocked. A clock that was to grow is unusable from then on: no table, its
   callouts lost, SIGALRM blocked for good, every later call refused. One that had no table yet has
   none still, and the next operation that needs one tries again. */
QN_API int32_t clkinit(int32_t wanted);

/* Has the function called in so many seconds. Returns the timeout's ID, counting up from 0, never
   all ones; all ones (-1) when no record is free. 0 seconds means with the next SIGALRM that the
   clock gets: nothing arms an alarm for it. While the clock is held the time starts to run again
   from this call: what the hold lasted before is charged to no callout. Costs a walk along the
   callouts that expire earlier. */
QN_API uint32_t clkTimeout(ClkFunction function, intptr_t argument, uint32_t seconds);

/* Cancels the timeout of that ID, or the first whose function and argument both match. Returns the
   seconds that were still to run (those beyond INT32_MAX count as that), or -1 when there is no
   such timeout, which is no error: it has run already. Where SIGALRM was blocked and the first
   timeout expired meanwhile, the signal raised for it makes the next one due with it. Kept: it is
   one with every SIGALRM. */
QN_API int32_t clkUntimeout(uint32_t id);
QN_API int32_t clkKillTimeout(ClkFunction function, intptr_t argument);

/* Charges the pending callouts of a held clock with that many seconds: those whose time has passed
   become due, save the first, which the next SIGALRM makes due. Returns 1; 0, with nothing changed,
   when the clock is not held or the seconds are below 1. The operations that end a hold call it. */
QN_API int32_t clkCatchup(int32_t elapsed);

/* Chooses who receives the text of dumps (null: nobody, until the next dump installs one that
   writes to standard error). Returns the one before; null where none was set. */
QN_API ClkPrintFunc setClockPrintFunc(ClkPrintFunc function);

/* Prints the message (unless empty or null), the name (at most 40 bytes of it) with the line, and
   the table's state with one row for each pending callout; then flushes. A text longer than 1023
   bytes is cut. */
QN_API void dumpClockCallOuts(const char *message, const char *name, int32_t line);

/* Freezes the clock: blocks SIGALRM and stops the alarm, keeping what it had left. Returns 0; the
   time() at which it began when a hold is in force already, which stays as it is. */
QN_API int32_t clkHold(void);

/* Ends a hold: charges the callouts with the time that it lasted, lets the handler run at once what
   came due, unblocks SIGALRM. Does nothing when the clock is not held. */
QN_API void clkRelease(void);

/* Ends a hold and waits for the next signal, if the alarm still has time to run. Returns the
   seconds spent, or -1 when the clock was not held. SIGALRM stays blocked afterwards, until another
   operation of the clock unblocks it.

   Kept: when the hold lasted to the end of the alarm's time, nothing is raised and nothing waits.
   The call that should raise SIGALRM has its arguments exchanged: kill(SIGALRM, getpid()). In a
   process whose ID is a valid signal number it sends that signal to process 14. */
QN_API int32_t clkPause(void);

/* Waits for so many seconds or the next signal of any kind that is caught. Returns the seconds not
   slept; all of them at once when the clock is held or no record is free. Kept: SIGALRM stays
   blocked afterwards, and after an early end the sleep's callout, which calls nothing, stays
   pending until its time. */
QN_API uint32_t clkSleep(uint32_t seconds);

/* Waits for so many seconds, or until the flag is not 0, which is looked at after every signal. The
   flag, which may be null, is set to 0 first, and to 1 by a callout of the sleep's own at its end;
   that one is gone when the call returns. Whoever ends the sleep early stores to the flag from a
   handler or a callout, atomically where that may run in another thread; there it must also see to
   a signal for the sleeper, which wakes for nothing else. Returns the seconds not slept; all of
   them at once when the clock is held or no record is free. */
QN_API uint32_t deepSleep(uint32_t seconds, int32_t *flag);

/* Stores 1 in the word and returns it; null is only returned. A callout function through a cast;
   the word must exist until it has run or been cancelled. */
QN_API int32_t *setflag(int32_t *word);

/* Sets all pending callouts aside and starts over with none, the alarm stopped and SIGALRM
   unblocked. A hold stays in force. Returns how many were set aside, or -1 when five suspensions
   are in force already. Their records are not free meanwhile. */
QN_API int32_t suspendTimeouts(void);

/* Undoes the last suspension: drops the callouts queued since, brings back those set aside, charged
   with the time that has passed, and has the handler run at once what came due. A hold that was in
   force at the suspension is in force again, SIGALRM blocked. Returns how many came back, or -1
   when nothing is suspended. */
QN_API int32_t unsuspendTimeouts(void);

#ifdef __cplusplus
}
#endif

#endif

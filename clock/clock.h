#ifndef QUARNEL_CLOCK_CLOCK_H
#define QUARNEL_CLOCK_CLOCK_H

#include <pthread.h>
#include <stdint.h>
#include "../core/list.h"
#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void *(*ClkFunction)(intptr_t argument, uint32_t id);
#define CLK_NO_FUNCTION ((ClkFunction)(intptr_t)-1)
typedef void (*ClkPrintFunc)(const char *text);
typedef struct Callout {
    ListItem *next;
    uint32_t increment;
    uint32_t ID;
    intptr_t argument;
    ClkFunction function;
} Callout;
typedef struct HoldInfo {
    uint32_t secondsLeft;
    uint32_t startTime;
} HoldInfo;
typedef struct Suspension {
    ListHeader active;
    void (*disposition)(int);
    uint32_t secondsLeft;
    uint32_t startTime;
    void (*foreignHandler)(int);
    uint32_t foreignSecondsLeft;
    HoldInfo hold;
    uint32_t foreignTime;
    uint32_t handlerInstalled;
} Suspension; /* twelve words on i386 */
QN_API extern Callout *callouts;
QN_API extern int32_t maxcallouts;
QN_API extern ListHeader activeCallouts, freeCallouts;
QN_API extern HoldInfo holdInfo;
QN_API extern Suspension suspensions[5];
QN_API extern Suspension *clksptr;
QN_API extern pthread_mutex_t clkAccessLock;
QN_API int32_t clkinit(int32_t wanted);
QN_API uint32_t clkTimeout(ClkFunction function, intptr_t argument, uint32_t seconds);
QN_API int32_t clkUntimeout(uint32_t id);
QN_API int32_t clkKillTimeout(ClkFunction function, intptr_t argument);
QN_API int32_t clkCatchup(int32_t elapsed);
QN_API ClkPrintFunc setClockPrintFunc(ClkPrintFunc function);
QN_API void dumpClockCallOuts(const char *message, const char *name, int32_t line);
QN_API int32_t clkHold(void);
QN_API void clkRelease(void);
QN_API int32_t clkPause(void);
QN_API uint32_t clkSleep(uint32_t seconds);
QN_API uint32_t deepSleep(uint32_t seconds, int32_t *flag);
QN_API int32_t *setflag(int32_t *word); /* queued as a callout function through a cast */
QN_API int32_t suspendTimeouts(void);
QN_API int32_t unsuspendTimeouts(void);

#ifdef __cplusplus
}
#endif

#endif

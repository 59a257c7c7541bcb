/* The broken-down local time, as localtime gives it, without its one buffer for all threads.
   Internal, C++ only; safe from any thread, not from a signal handler. */
#ifndef QUARNEL_LOG_LOCALTIME_H
#define QUARNEL_LOG_LOCALTIME_H

#include <stdint.h>
#include <time.h>

#ifdef __cplusplus

// False, *out as it was, for a year that no struct tm holds.
static inline bool readLocalTime(int32_t seconds, struct tm *out) {
    const time_t time = seconds; // the record's 32 bits are signed
    struct tm local;
    tzset(); // a zone changed meanwhile is to be seen, and localtime_r alone does not look
    if (localtime_r(&time, &local) == nullptr)
        return false;
    *out = local;
    return true;
}

#endif

#endif

/* The broken-down local time, as localtime gives it, without its one buffer for all threads. The
   last minute is kept: records come one after the other. A change of the environment's "TZ" counts
   at once; a zone's file replaced under a running process counts from another minute on. tzname and
   its like are those of the last time that was not a kept one.
   Internal; safe from any thread, not from a signal handler. */
#ifndef QUARNEL_LOG_LOCALTIME_H
#define QUARNEL_LOG_LOCALTIME_H

#include <stdbool.h>
#include <stdint.h>
#include <time.h>

/* False, *out as it was, for a year that no struct tm holds. */
bool readLocalTime(int32_t seconds, struct tm *out);

#endif

/* English names of months and weekdays, whatever the locale. Each table ends with a null pointer;
   the index is that of struct tm (January 0, Sunday 0). Constant: safe everywhere. */
#ifndef QUARNEL_LOG_TIMEDEFS_H
#define QUARNEL_LOG_TIMEDEFS_H

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

QN_API extern const char *const fullMonthNames[];    /* "January" ... */
QN_API extern const char *const abbrvMonthNames[];   /* "Jan" ... */
QN_API extern const char *const fullWeekdayNames[];  /* "Sunday" ... */
QN_API extern const char *const abbrvWeekdayNames[]; /* "Sun" ... */

#ifdef __cplusplus
}
#endif

#endif

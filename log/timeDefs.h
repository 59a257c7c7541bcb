#ifndef QUARNEL_LOG_TIMEDEFS_H
#define QUARNEL_LOG_TIMEDEFS_H

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

QN_API extern const char *const fullMonthNames[],
    *const abbrvMonthNames[], *const fullWeekdayNames[], *const abbrvWeekdayNames[];

#ifdef __cplusplus
}
#endif

#endif

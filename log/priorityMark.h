/* The mark that a priority shows as. Internal, C++ only. */
#ifndef QUARNEL_LOG_PRIORITYMARK_H
#define QUARNEL_LOG_PRIORITYMARK_H

#include "log.h"

#ifdef __cplusplus

/* The parser takes priorities up to 9; those without a mark show as the empty text. */
static inline const char *priorityMark(int32_t priority) {
    constexpr int32_t MARKED_PRIORITIES = 5;
    return priority >= 0 && priority < MARKED_PRIORITIES ? msgPri[priority] : "";
}

#endif

#endif

/* Dialling on a channel of the platform: wait for dial tone, dial, pause while watching the line.

   Each operation starts one action on the channel and then fetches events with vxWCheck, one at a
   time, writing each to the trace stream through event_trace before it looks at it, until an event
   decides the outcome. Events that an operation does not know are traced and ignored. There is no
   time limit but the channel's timer, where one is started: a dial whose deciding event never comes
   waits for ever.

   The result is one of the DIALER_ status values, which mean the same in all three operations.
   Nothing is kept between calls, and no lock is held: any number of threads may have a call each,
   on a channel, a number, seconds and a trace stream of their own. The calling thread blocks; which
   events vxWCheck hands to it is the platform's affair. Not for signal handlers. The trace stream
   and its level pass through to event_trace untouched; nothing else is written anywhere. For C the
   header is empty. */
#ifndef QUARNEL_DIALER_DIALER_H
#define QUARNEL_DIALER_DIALER_H

#include <stdint.h>

#ifdef __cplusplus

#include <iosfwd>

#include "../core/export.h"
#include "../platform/String.h"
#include "../platform/vxAPI.h"

enum {
    DIALER_REACHED = 0,      // the time has passed, the number is dialled, dial tone is heard
    DIALER_REFUSED = -1,     // the platform refused to start; no event was fetched
    DIALER_INTERRUPTED = -2, // event 38; a timer is left running, the platform sees to it
    DIALER_OTHER_TONE = -3,  // QN_wait4dialtone: event 4 with a sub-code other than 8, 32 or 38
    DIALER_NO_TONE = -5,     // QN_wait4dialtone: the time ran out before dial tone
    DIALER_FAILED = -11 // event 12, 34 or 54, or event 65 with a sub-code that tells of failure
};

/* Waits the seconds while watching the line. On success the caller's seconds become 0; on every
   other outcome they stay. Seconds are turned into the timer's milliseconds in 32 bits, without a
   range check: 1000 times the seconds wraps. */
QN_API int32_t QN_delay(chan_info *channel, int32_t &seconds, std::ofstream &trace, int32_t level);

/* Dials the number and waits for the outcome. The string's characters are terminated in place, for
   which its representation may be replaced by a larger one; its visible value stays. So the string
   is this thread's for the time, though its copies need not be. */
QN_API int32_t QN_dial(chan_info *channel, const stdComponents::String &number,
                       std::ofstream &trace, int32_t level);

/* Waits for dial tone, at most the seconds (converted as QN_delay does). */
QN_API int32_t QN_wait4dialtone(chan_info *channel, int32_t seconds, std::ofstream &trace,
                                int32_t level);

#endif

#endif

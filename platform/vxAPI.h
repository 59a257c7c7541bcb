/* The voice platform's call control, as far as the library uses it.

   An application starts an action on a channel (dialling, or the channel's one timer) and then
   fetches events one by one, each a code and, for some codes, a sub-code. A channel record and all
   but two words of an event are the platform's own: nobody else reads them. The library in this
   folder stands in where the platform is absent; what its line does is told by a line script
   (linescript(5), lineScript.h).

   Any thread may call any operation, event_trace each on a stream of its own. None of them may be
   called from a signal handler. */
#ifndef PLATFORM_VXAPI_H
#define PLATFORM_VXAPI_H

#include <stdint.h>

#ifdef __cplusplus

#include <iosfwd>

#define VX_API __attribute__((visibility("default")))

struct chan_info;

struct vx_event {
    int32_t word0;        // channel number, from 1; 0: no channel
    int32_t code;         // what happened
    int32_t word2;        // running number of the event in this process, from 1
    int32_t subcode;      // how, for the codes that have one
    int32_t reserved[60]; // the channel's last action as a terminated text; empty: none yet
};

extern "C" {

/* Starts dialling the zero-terminated number. The mode is ignored. Returns 1 when started, else the
   line refused: 0, or what the line script says. A null number is refused. */
VX_API int vxDial(chan_info *channel, int32_t mode, const char *number);

/* Starts the channel's timer: event 7 comes by itself after this many milliseconds (at once for 0
   and below) unless the timer is cancelled or started anew. Returns as vxDial. */
VX_API int vxStartTimer(chan_info *channel, int32_t milliseconds, int32_t, int32_t);

/* Stops the channel's timer; its event 7 is dropped even when it is due but not fetched yet.
   Returns 1, or 0 when no timer was running. */
VX_API int vxCancelTimer(chan_info *channel, int32_t);

/* Blocks until there is an event for the calling thread and fills the whole record. A signal does
   not end the wait. A thread that has started actions is given the events of the channels where it
   was the last to start one, and events of channels where nobody started any; a thread that never
   started an action is given any event. Returns 1; 0, without waiting, for a null record. */
VX_API int vxWCheck(vx_event *event);
}

/* Writes one line about the event (time of day, channel and its last action, code, sub-code) to the
   stream and flushes it when the level is above 0; otherwise writes nothing. */
VX_API void event_trace(vx_event *event, std::ofstream &trace, int32_t level);

#endif

#endif

/* What the stand-in offers beyond the platform's own operations: channels to work on, the script
   that says what the line does, and events posted by hand.

   The process has one line. It starts with the script that the environment variable VX_LINE_SCRIPT
   names, read at the first operation, or with none when the variable is unset or empty; without a
   script every start is accepted and nothing comes but a timer's event 7. A script that is refused
   is reported on standard error as "libvxAPI: file:line: reason", and all starts are refused (0)
   until a good one is loaded.

   Any thread may call any operation; a channel is closed when no thread uses it any more. */
#ifndef PLATFORM_LINESCRIPT_H
#define PLATFORM_LINESCRIPT_H

#include "vxAPI.h"

#ifdef __cplusplus

#define VX_LINE_SCRIPT_VARIABLE "VX_LINE_SCRIPT"

extern "C" {

/* A new channel, numbered from 1, to be released with vxCloseChannel; null when memory is
   exhausted. */
VX_API chan_info *vxOpenChannel();

/* Releases the channel, its timer and its events that were not fetched; null is ignored. */
VX_API void vxCloseChannel(chan_info *channel);

/* Puts an event on the line as if it came now. With a null channel the next thread that waits gets
   it, as an event of the channel where that thread last started something. Returns 1; 0 when 1024
   posted events are waiting to be looked at.

   Safe from any thread and, alone in this library, from a signal handler: it takes no lock and
   allocates nothing. errno is kept. */
VX_API int vxPostEvent(chan_info *channel, int32_t code, int32_t subcode);

/* Start the line anew with the script in the file, or in the text (which faults call by the name):
   events not fetched yet are dropped, timers are stopped. Return 1, or 0 after reporting why the
   script is refused. */
VX_API int vxLoadLineScript(const char *path);
VX_API int vxSetLineScript(const char *name, const char *text);
}

#endif

#endif

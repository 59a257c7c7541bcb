/* Dials once and says how the start and its first event went. Event 38 is posted behind what the
 * script sends at once, so that a silent line ends too. A refused start is tried a second time. */
#include "platform/lineScript.h"

#include <cstdio>

int main() {
    chan_info *channel = vxOpenChannel();
    const int started = vxDial(channel, 0, "1");
    vx_event event = {};
    if (started == 1) {
        // Behind whatever the script sends at once.
        vxPostEvent(channel, 38, 0);
        vxWCheck(&event);
    } else {
        vxDial(channel, 0, "1");
    }
    printf("started %d event %d\n", started, event.code);
    vxCloseChannel(channel);
    return 0;
}

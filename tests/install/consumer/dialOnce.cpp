/* An application in C++ that calls the platform too, of which the stand-in is installed. The second
 * include is written as inside the tree; both spellings find the same header. */
#include <quarnel/dialer/dialer.h>
#include <quarnel/platform/lineScript.h>
#include "dialer/dialer.h"

#include <fstream>
#include <iostream>

int main() {
    vxSetLineScript("answered", "dial\n 0 event 11\n");
    chan_info *channel = vxOpenChannel();
    std::ofstream trace;
    const int32_t status = QN_dial(channel, stdComponents::String("5551234"), trace, 0);
    vxCloseChannel(channel);
    std::cout << (status == DIALER_REACHED ? "dialled" : "not dialled") << std::endl;
    return 0;
}

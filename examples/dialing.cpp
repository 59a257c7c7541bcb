/* One outgoing call: dial tone, the number, a pause. The line does what its script says. */
#include <quarnel/dialer/dialer.h>
#include <quarnel/platform/lineScript.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

const char *const LINE = "timer\n"
                         "  100 event 4 sub 8\n" // dial tone
                         "dial\n"
                         "  100 event 65 sub 32\n" // ringing goes on
                         "  200 event 11\n"        // dialling complete
                         "timer refused 3\n";

// shown in dialer(3)
void call(chan_info *channel, const char *number, std::ofstream &trace) {
    int32_t status = QN_wait4dialtone(channel, 1, trace, 1);
    if (status != DIALER_REACHED) {
        printf("no dial tone: status %d\n", status);
        return;
    }
    status = QN_dial(channel, number, trace, 1);
    printf("%s: status %d\n", number, status);

    int32_t seconds = 1; // 0 once they have passed
    status = QN_delay(channel, seconds, trace, 1);
    printf("pause: status %d, %d seconds left\n", status, seconds);
}
// end

} // namespace

int main() {
    if (vxSetLineScript("dialing", LINE) == 0)
        return EXIT_FAILURE;
    std::ofstream trace("trace");
    chan_info *channel = vxOpenChannel();
    call(channel, "5551234", trace);
    call(channel, "5551235", trace); // the script says no more: no dial tone, but a timer's end
    vxCloseChannel(channel);
    return EXIT_SUCCESS;
}

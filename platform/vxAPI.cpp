#include "vxAPI.h"

#include "line.h"
#include "lineScript.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <new>

static_assert(offsetof(vx_event, code) == 4 && offsetof(vx_event, subcode) == 12);

// The stand-in tells channels apart by their address; the record itself holds nothing.
struct chan_info {
    char unused = 0;
};

int vxDial(chan_info *channel, int32_t, const char *number) {
    if (number == nullptr)
        return 0;
    return theLine().start(channel, TRIGGER_DIAL, std::string("dial ") + number);
}

int vxStartTimer(chan_info *channel, int32_t milliseconds, int32_t, int32_t) {
    return theLine().startTimer(channel, milliseconds,
                                "start timer " + std::to_string(milliseconds) + " ms");
}

int vxCancelTimer(chan_info *channel, int32_t) {
    return theLine().cancelTimer(channel, "cancel timer") ? 1 : 0;
}

int vxWCheck(vx_event *event) {
    if (event == nullptr)
        return 0;
    theLine().fetch(*event);
    return 1;
}

// A trace is read line by line, whatever was dialled.
static std::string actionOf(const vx_event &event) {
    const char *text = reinterpret_cast<const char *>(event.reserved);
    std::string action(text, strnlen(text, sizeof event.reserved));
    for (char &ch : action)
        if (ch < ' ' || ch > '~')
            ch = '?';
    return action.empty() ? "no action" : action;
}

void event_trace(vx_event *event, std::ofstream &trace, int32_t level) {
    if (level <= 0 || event == nullptr)
        return;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char time[40];
    snprintf(time, sizeof time, "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min, local.tm_sec,
             now.tv_nsec / 1000000);
    trace << time << " channel " << event->word0 << ", " << actionOf(*event) << ": event "
          << event->code << ", sub-code " << event->subcode << '\n'
          << std::flush;
}

chan_info *vxOpenChannel() {
    chan_info *channel = new (std::nothrow) chan_info;
    if (channel != nullptr)
        theLine().open(channel);
    return channel;
}

void vxCloseChannel(chan_info *channel) {
    if (channel == nullptr)
        return;
    theLine().close(channel);
    delete channel;
}

int vxPostEvent(chan_info *channel, int32_t code, int32_t subcode) {
    const int kept = errno;
    const int result = postToLine(channel, code, subcode) ? 1 : 0;
    errno = kept;
    return result;
}

static int installScript(LineScript &script, bool good, const std::string &fault) {
    if (!good)
        fprintf(stderr, "libvxAPI: %s\n", fault.c_str());
    theLine().reset(std::move(script), good);
    return good ? 1 : 0;
}

int vxLoadLineScript(const char *path) {
    LineScript script;
    std::string fault = "no file named";
    const bool good = path != nullptr && readLineScript(path, script, fault);
    return installScript(script, good, fault);
}

int vxSetLineScript(const char *name, const char *text) {
    LineScript script;
    std::string fault;
    const bool good = parseLineScript(name == nullptr ? "script" : name,
                                      text == nullptr ? "" : text, script, fault);
    return installScript(script, good, fault);
}

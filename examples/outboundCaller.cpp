/* The sample application: one outgoing call on one channel of the platform. It waits for dial tone,
   dials, and logs each step with the macros of its message classes, whose headers the catalogue
   compiler writes from catalogue.toml.

   The whole call is guarded by a timeout of the clock. Its callout runs inside the clock's SIGALRM
   handler, with the main thread most likely blocked in the platform's wait, so it may do only what
   any signal handler may: no logging, no streams, no memory, no dialling. It leaves a mark for the
   main thread and posts event 38 with vxPostEvent, which is made for this; the wait returns, the
   operation ends with DIALER_INTERRUPTED, and the main thread does the rest. */
#include "clock/clock.h"
#include "dialer/dialer.h"
#include "log/log.h"
#include "platform/lineScript.h"

#include "logCALL.h"
#include "logLINE.h"
#include "logSYS.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iostream>
#include <unistd.h>

#define HERE "outboundCaller.cpp", __LINE__

namespace {

struct Settings {
    std::string number = "5551234";
    int32_t dialToneWait = 5; // seconds
    uint32_t guard = 60;      // seconds for the whole call; 0: no guard
    int line = 1;             // as the log names it
    std::string name = "outboundCaller";
    std::string logRoot;
    std::string trace; // a file; empty: standard error
    int32_t traceLevel = 1;
};

struct Verdict {
    int32_t status;
    const char *text;
};

constexpr Verdict DIALTONE_VERDICTS[] = {{DIALER_REFUSED, "refused"},
                                         {DIALER_INTERRUPTED, "interrupted"},
                                         {DIALER_OTHER_TONE, "no dial tone"},
                                         {DIALER_NO_TONE, "no dial tone"},
                                         {DIALER_FAILED, "line failed"}};
constexpr Verdict DIAL_VERDICTS[] = {{DIALER_REACHED, "answered"},
                                     {DIALER_REFUSED, "refused"},
                                     {DIALER_INTERRUPTED, "interrupted"},
                                     {DIALER_FAILED, "busy-or-failed"}};

template<size_t COUNT>
const char *textOf(const Verdict (&verdicts)[COUNT], int32_t status) {
    for (const Verdict &verdict : verdicts)
        if (verdict.status == status)
            return verdict.text;
    return "unknown";
}

unsigned recordsSent = 0;

// Logs one message, from this place in the source, and counts it if it went out.
#define NOTE(...) (recordsSent += logMsg(__VA_ARGS__) != nullptr ? 1U : 0U)

volatile sig_atomic_t guardExpired = 0;

// The guard's callout; its argument is the channel. See above for what it may do.
void *giveUp(intptr_t channel, uint32_t) {
    guardExpired = 1;
    vxPostEvent(reinterpret_cast<chan_info *>(channel), 38, 0);
    return nullptr;
}

// Logs why a step did not reach its goal.
void logFailure(const Settings &call, unsigned id, const char *step, int32_t status) {
    if (guardExpired != 0)
        NOTE(CALL_TIMEOUT, HERE, id, call.guard);
    else if (status == DIALER_INTERRUPTED)
        NOTE(CALL_HANGUP, HERE, id, step);
    else if (status == DIALER_REFUSED)
        NOTE(LINE_REFUSED, HERE, step, call.line);
    else
        NOTE(CALL_FAILED, HERE, id, step, status);
}

Verdict placeCall(const Settings &call, unsigned id, chan_info *channel, std::ofstream &trace) {
    NOTE(CALL_WAITING, HERE, id, call.dialToneWait);
    int32_t status = QN_wait4dialtone(channel, call.dialToneWait, trace, call.traceLevel);
    if (status == DIALER_NO_TONE || status == DIALER_OTHER_TONE)
        NOTE(LINE_NO_DIALTONE, HERE, call.line, call.dialToneWait, status);
    else if (status != DIALER_REACHED)
        logFailure(call, id, "waiting for dial tone", status);
    if (status != DIALER_REACHED)
        return {status, textOf(DIALTONE_VERDICTS, status)};
    NOTE(LINE_DIALTONE, HERE, call.line);

    NOTE(CALL_DIALING, HERE, id, call.number.c_str());
    status = QN_dial(channel, call.number.c_str(), trace, call.traceLevel);
    if (status == DIALER_REACHED)
        NOTE(CALL_ANSWERED, HERE, id, call.number.c_str());
    else
        logFailure(call, id, "dialling", status);
    return {status, textOf(DIAL_VERDICTS, status)};
}

// The call from seizing the line to releasing it, under the guard.
Verdict guardedCall(const Settings &call, chan_info *channel, std::ofstream &trace) {
    const unsigned id = static_cast<unsigned>(getpid());
    const time_t start = time(nullptr);
    NOTE(CALL_START, HERE, id, call.line, call.number.c_str());
    NOTE(LINE_SEIZED, HERE, call.line);
    const intptr_t argument = reinterpret_cast<intptr_t>(channel);
    if (call.guard > 0 && clkTimeout(giveUp, argument, call.guard) == UINT32_MAX)
        fprintf(stderr, "outboundCaller: no timeout to be had: calling without a guard\n");
    Verdict verdict = placeCall(call, id, channel, trace);
    if (call.guard > 0)
        clkKillTimeout(giveUp, argument);
    if (verdict.status == DIALER_INTERRUPTED && guardExpired != 0)
        verdict.text = "given up";
    const long seconds = static_cast<long>(time(nullptr) - start);
    NOTE(LINE_RELEASED, HERE, call.line, seconds);
    NOTE(CALL_END, HERE, id, verdict.text, seconds);
    return verdict;
}

int run(const Settings &call) {
    const char *root = call.logRoot.empty() ? nullptr : call.logRoot.c_str();
    if (loginit(call.name.c_str(), 1, 0, root) != 0)
        fprintf(stderr, "outboundCaller: no log daemon answers under %s: calling without a log\n",
                logRoot);
    std::ofstream trace;
    if (call.trace.empty())
        trace.std::ostream::rdbuf(std::cerr.rdbuf());
    else
        trace.open(call.trace, std::ios::app);
    if (!trace)
        fprintf(stderr, "outboundCaller: %s: cannot be written: no trace\n", call.trace.c_str());
    chan_info *channel = vxOpenChannel();
    NOTE(SYS_STARTED, HERE, static_cast<int>(getpid()), "1.0");
    const Verdict verdict = guardedCall(call, channel, trace);
    vxCloseChannel(channel);
    logend();
    printf("verdict: %s, status %d\n", verdict.text, static_cast<int>(verdict.status));
    printf("records sent: %u\n", recordsSent);
    return verdict.status == DIALER_REACHED ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    Settings call;
    CLI::App app("Places one outgoing call, logging each step.", "outboundCaller");
    app.add_option("--number", call.number, "the number to dial")->capture_default_str();
    app.add_option("--dialtone-wait", call.dialToneWait, "seconds to wait for dial tone")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str();
    app.add_option("--guard", call.guard, "seconds for the whole call, 0: any time")
        ->check(CLI::Range(0, 86400))
        ->capture_default_str();
    app.add_option("--line", call.line, "the line's number in the log")->capture_default_str();
    app.add_option("--name", call.name, "the process's name in the log")->capture_default_str();
    app.add_option("--log-root", call.logRoot, "the log root, if not LOGROOT's");
    app.add_option("--trace", call.trace, "the file for the line's events, if not standard error");
    app.add_option("--trace-level", call.traceLevel, "0: no events")->capture_default_str();
    app.footer("The line script that VX_LINE_SCRIPT names tells what the line does.\n"
               "Exit code: 0 answered, 1 not answered, 2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return run(call);
}

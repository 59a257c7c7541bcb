/* The sample application: one outgoing call on one channel of the platform. It waits for dial tone,
   dials, and logs each step with the macros of its message classes, whose headers the catalogue
   compiler writes from catalogue.toml.

   The whole call is guarded by a timeout of the clock. Its callout runs inside the clock's SIGALRM
   handler, with the main thread most likely blocked in the platform's wait, so it may do only what
   any signal handler may: no logging, no streams, no memory, no dialling. It leaves a mark for the
   main thread and posts event 38 with vxPostEvent, which is made for this; the wait returns, the
   operation ends with DIALER_INTERRUPTED, and the main thread does the rest.

   Settings come from an options file (--options, else the one in /etc/default), and the command
   line overrides them. Callers that share a clipboard count their calls in it; the clock is held
   meanwhile, so that the guard cannot run in the middle of it. */
#include "clipboard/clipboard.h"
#include "clock/clock.h"
#include "dialer/dialer.h"
#include "log/log.h"
#include "options/options.h"
#include "platform/lineScript.h"

#include "logCALL.h"
#include "logLINE.h"
#include "logSYS.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <unistd.h>

#define HERE "outboundCaller.cpp", __LINE__

namespace {

struct Settings {
    std::string number;
    int32_t dialToneWait = 0; // seconds
    uint32_t guard = 0;       // seconds for the whole call; 0: no guard
    int32_t line = 0;         // as the log names it
    int32_t traceLevel = 0;
    std::string counter; // the shared clipboard; empty: none
    std::string name = "outboundCaller";
    std::string logRoot;
    std::string trace; // a file; empty: standard error
};

// What the command line gives, which counts before the options file.
struct CommandLine {
    std::optional<std::string> options, number;
    std::optional<int32_t> dialToneWait, guard, line, traceLevel;
    bool showSettings = false;
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

// One call more, in the clipboard that the callers share. The clock is held: a guard that ran here
// would do so in the middle of the file's change.
void countCall(const Settings &call) {
    if (call.counter.empty())
        return;
    clkHold();
    Clipboard *clipboard = modifyClipboard(call.counter.c_str());
    getClipboard(clipboard);
    const char *calls = findClipEntryValue(clipboard, "calls");
    const std::string next = std::to_string((calls == nullptr ? 0 : atoi(calls)) + 1);
    addClipEntry(clipboard, nullptr, "calls", next.c_str(), nullptr);
    if (closeClipboard(clipboard) < 1)
        fprintf(stderr, "outboundCaller: %s: cannot be written: not counted\n",
                call.counter.c_str());
    clkRelease();
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
    countCall(call);
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

// A handler of the application's own: optStr would leave the default's copy behind.
void storeText(OptionEntry *entry, char *, char *value) {
    *static_cast<std::string *>(entry->destination) =
        value == nullptr ? entry->defaultValue : value;
}

// The options file's settings, the command line's over them.
void settle(Settings &call, const CommandLine &given, const char *program) {
    char NUMBER[] = "NUMBER", WAIT[] = "DIALTONE_WAIT", GUARD[] = "GUARD", LINE[] = "LINE",
         LEVEL[] = "TRACE_LEVEL", COUNTER[] = "COUNTER";
    char number[] = "5551234", wait[] = "5", guardTime[] = "60", one[] = "1", none[] = "";
    int32_t guard = 0;
    OptionEntry table[] = {
        {NUMBER, number, storeText, &call.number},
        {WAIT, wait, optInteger, &call.dialToneWait},
        {GUARD, guardTime, optInteger, &guard},
        {LINE, one, optInteger, &call.line},
        {LEVEL, one, optInteger, &call.traceLevel},
        {COUNTER, none, storeText, &call.counter},
        {nullptr, nullptr, nullptr, nullptr},
    };
    if (given.options)
        setPrimaryOptionsFile(given.options->c_str());
    processProgramOptions(program, table);
    call.number = given.number.value_or(call.number);
    call.dialToneWait = given.dialToneWait.value_or(call.dialToneWait);
    call.guard = static_cast<uint32_t>(std::max(given.guard.value_or(guard), 0));
    call.line = given.line.value_or(call.line);
    call.traceLevel = given.traceLevel.value_or(call.traceLevel);
    if (given.showSettings)
        printf("settings: number %s, dial tone %d s, guard %u s, line %d, counter %s\n",
               call.number.c_str(), call.dialToneWait, call.guard, call.line,
               call.counter.empty() ? "none" : call.counter.c_str());
}

} // namespace

int main(int argc, char **argv) {
    Settings call;
    CommandLine given;
    CLI::App app("Places one outgoing call, logging each step.", "outboundCaller");
    app.add_option("--options", given.options, "the options file, if not /etc/default's");
    app.add_option("--number", given.number, "NUMBER: the number to dial (5551234)");
    app.add_option("--dialtone-wait", given.dialToneWait, "DIALTONE_WAIT: seconds to wait (5)")
        ->check(CLI::Range(0, 3600));
    app.add_option("--guard", given.guard, "GUARD: seconds for the whole call, 0: any time (60)")
        ->check(CLI::Range(0, 86400));
    app.add_option("--line", given.line, "LINE: the line's number in the log (1)");
    app.add_option("--trace-level", given.traceLevel, "TRACE_LEVEL: 0: no events (1)");
    app.add_option("--name", call.name, "the process's name in the log")->capture_default_str();
    app.add_option("--log-root", call.logRoot, "the log root, if not LOGROOT's");
    app.add_option("--trace", call.trace, "the file for the line's events, if not standard error");
    app.add_flag("--show-settings", given.showSettings, "print the settings in force");
    app.footer(
        "Names in capitals are those of the options file, which may also name a COUNTER: the\n"
        "clipboard that counts the calls. The line script that VX_LINE_SCRIPT names tells what\n"
        "the line does. Exit code: 0 answered, 1 not answered, 2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    settle(call, given, argv[0]);
    return run(call);
}

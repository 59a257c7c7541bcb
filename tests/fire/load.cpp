#include "scenarios.h"

#include "daemonRun.h"
#include "fireText.h"
#include "writer.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Run {
    Run(const Settings &settings, const char *name, uint32_t records)
        : checks(name), root(settings.folder + "/" + name), ledger(records / WRITERS),
          random(settings.seed) {
        makeLogRoot(root);
        work.root = root;
        work.seed = settings.seed;
        work.records = records / WRITERS;
    }
    std::string pipe() const { return root + "/logpipe"; }
    std::string file() const { return root + "/logfile"; }

    // Each daemon must end well and have nothing to tell.
    void endDaemon() {
        daemon->signal(SIGTERM);
        const int code = daemon->awaitEnd();
        checks.hold(code == 0, "the daemon ended with " + std::to_string(code) + " on SIGTERM");
        checks.hold(daemon->reports().empty(), "the daemon reports: " + daemon->reports());
    }
    void startDaemon() {
        daemon = std::make_unique<DaemonRun>(root);
        checks.hold(daemon->awaitReady(), "the daemon did not start: " + daemon->reports());
    }
    // One millisecond: the daemon is stopped until the pipe is full and a while longer, and then
    // runs for a moment.
    void step() {
        pauseMilliseconds(1);
        const bool full = fullness.look(pipe());
        if (ticksLeft > 0 && (!stopped || full)) {
            ticksLeft--;
        } else if (ticksLeft == 0) {
            daemon->signal(stopped ? SIGCONT : SIGSTOP);
            stopped = !stopped;
            stops += stopped ? 1 : 0;
            ticksLeft = stopped ? random.between(4, 12) : random.between(1, 3);
            ticksStopped = 0;
        }
        if (stopped && ++ticksStopped > 200) // the writers may have nothing more to send
            ticksLeft = 0;
    }
    void carryOn() {
        daemon->signal(SIGCONT);
        stopped = false;
        ticksLeft = 1;
    }
    // Another daemon: every second time on a pipe that was removed, and made anew by it or here.
    void restart() {
        carryOn();
        endDaemon();
        const uint32_t kind = random.below(4);
        if (kind >= 2) {
            unlink(pipe().c_str());
            removals++;
        }
        pauseMilliseconds(random.below(10));
        if (kind == 3)
            mkfifo(pipe().c_str(), 0600);
        startDaemon();
        restarts++;
    }

    Checks checks;
    std::string root;
    Ledger ledger;
    Random random;
    Work work;
    std::unique_ptr<DaemonRun> daemon;
    Fullness fullness;
    bool stopped = false;
    uint32_t ticksLeft = 1;
    uint32_t ticksStopped = 0;
    uint32_t stops = 0;
    uint32_t restarts = 0;
    uint32_t removals = 0;
};

int load(const Settings &settings, const char *name, bool restarts) {
    constexpr uint32_t RUN_RECORDS = 80000; // between two ends of the daemon, about
    Run run(settings, name, settings.records);
    run.startDaemon();
    std::vector<pid_t> writers = startWriters(run.work, run.ledger);
    uint32_t endedBadly = 0;
    uint32_t nextEnd = std::min(RUN_RECORDS, settings.records / 4);
    while (!writers.empty()) {
        run.step();
        if (restarts && run.ledger.sum(&WriterCounts::sent) >= nextEnd) {
            run.restart();
            nextEnd += run.random.between(1, 2 * std::min(RUN_RECORDS, settings.records / 4));
        }
        reapWriters(writers, endedBadly);
    }
    run.carryOn();
    run.endDaemon();
    const Verdict verdict = verify(run.file(), run.ledger);
    tellFigures(name, run.ledger, verdict);
    printf(
        "%s: pipe full at %u %% of %u looks; daemon stopped %u times, ended %u times, pipe removed "
        "%u times\n",
        name, run.fullness.percent(), run.fullness.looks, run.stops, run.restarts + 1,
        run.removals);
    checkWriters(run.checks, run.ledger, endedBadly);
    checkSound(run.checks, verdict);
    checkNothingLost(run.checks, verdict);
    run.checks.hold(verdict.read == run.work.records * WRITERS, "not every record was read");
    // A short run on a busy machine may hardly have filled it.
    const bool longRun = settings.records >= 400000;
    run.checks.hold(restarts || !longRun || run.fullness.percent() > 50,
                    "the pipe was not full most of the time");
    run.checks.hold(!restarts || run.restarts > 1, "the daemon was hardly started again");
    unlink(run.file().c_str());
    return run.checks.broken();
}

// Nobody reads, the pipe is full, and every writer still gets to the end of its calls.
int nobodyReads(const Settings &settings) {
    const char *name = "stopped";
    Run run(settings, name, std::max(8000U, settings.records / 10)); // more than the pipe holds
    run.startDaemon();
    run.daemon->signal(SIGSTOP);
    run.work.retry = false;
    std::vector<pid_t> writers = startWriters(run.work, run.ledger);
    uint32_t endedBadly = 0;
    for (uint32_t waited = 0; !writers.empty() && waited < 60000; waited++) {
        pauseMilliseconds(1);
        reapWriters(writers, endedBadly);
    }
    run.checks.hold(writers.empty(), std::to_string(writers.size()) + " writers are blocked");
    for (const pid_t each : writers)
        kill(each, SIGKILL);
    run.daemon->signal(SIGCONT);
    run.endDaemon();
    const Verdict verdict = verify(run.file(), run.ledger);
    tellFigures(name, run.ledger, verdict);
    checkWriters(run.checks, run.ledger, endedBadly);
    checkSound(run.checks, verdict);
    checkNothingLost(run.checks, verdict);
    run.checks.hold(run.ledger.sum(&WriterCounts::calls) == run.work.records * WRITERS,
                    "a writer left out calls");
    run.checks.hold(run.ledger.sum(&Refusals::full) > 0, "the pipe was never full");
    unlink(run.file().c_str());
    return run.checks.broken();
}

} // namespace

int underLoad(const Settings &settings) {
    return load(settings, "pipe", false) + nobodyReads(settings);
}

int restarted(const Settings &settings) {
    return load(settings, "restart", true);
}

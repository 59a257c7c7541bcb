#include "scenarios.h"

#include "daemonRun.h"
#include "fireText.h"
#include "writer.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

constexpr uint32_t SIZES[] = {4096, 4097, 5000, 8192, 20000, 65536, 200000, 1100000};

struct Outcome {
    Verdict verdict;
    uint32_t cut = 0;     // sends of which the pipe took a part; those that tell
    uint32_t refused = 0; // of all writers
    uint32_t reports = 0; // lines that the daemon wrote
    uint32_t longTried = 0;
    uint32_t longSent = 0;
    uint32_t neighboursSent = 0;
    uint32_t neighboursLost = 0;
};

// One writer sends long records, the others short ones, in a pipe that is full or has room.
Outcome runWith(const Settings &settings, uint32_t frame, bool full, Checks &checks) {
    const uint32_t mostLongBytes = 5 * settings.records;
    constexpr uint32_t MOST_NEIGHBOURS = 50000; // of each writer: they go on while that one does
    const uint32_t records = std::clamp(settings.records / 2000, 20U, 2500U);
    const std::string root =
        settings.folder + "/long" + std::to_string(frame) + (full ? "full" : "free");
    const Ledger ledger(MOST_NEIGHBOURS);
    Work work;
    work.root = root;
    work.seed = settings.seed;
    work.records = MOST_NEIGHBOURS;
    work.longFrame = frame;
    work.longRecords = std::clamp(mostLongBytes / frame, 2U, records);
    work.pauseMicros = full ? 0 : 100;
    makeLogRoot(root);
    DaemonRun daemon(root);
    Random random(settings.seed);
    checks.hold(daemon.awaitReady(), "the daemon did not start: " + daemon.reports());
    std::vector<pid_t> writers = startWriters(work, ledger);
    const pid_t longWriter = writers[0];
    uint32_t endedBadly = 0;
    Fullness fullness;
    while (!writers.empty()) {
        if (full) {
            daemon.signal(SIGSTOP);
            for (int waited = 0; waited < 20 && !fullness.look(root + "/logpipe"); waited++)
                pauseMilliseconds(1);
            pauseMilliseconds(random.between(1, 5));
            daemon.signal(SIGCONT);
        }
        pauseMilliseconds(random.between(1, 3));
        reapWriters(writers, endedBadly);
        if (writers.empty() || writers[0] != longWriter)
            ledger.head().stop = 1;
    }
    daemon.signal(SIGTERM);
    checks.hold(daemon.awaitEnd() == 0, "the daemon did not end well");
    const std::string reports = daemon.reports();
    Outcome outcome;
    outcome.verdict = verify(root + "/logfile", ledger);
    outcome.cut = ledger.sum(&Refusals::part);
    outcome.refused = ledger.refused();
    outcome.reports = static_cast<uint32_t>(std::count(reports.begin(), reports.end(), '\n'));
    outcome.longTried = work.longRecords;
    outcome.longSent = ledger.head().writer[0].sent;
    outcome.neighboursSent = outcome.verdict.sent - outcome.longSent;
    outcome.neighboursLost = outcome.verdict.lostRecords() - outcome.verdict.lostOf[0];
    checkWriters(checks, ledger, endedBadly);
    unlink((root + "/logfile").c_str());
    return outcome;
}

} // namespace

/* Up to the atomic size, and beyond it where the pipe had room for all, the promises hold; what a
   cut costs is shown. Nothing is ever doubled. */
int longRecords(const Settings &settings) {
    Checks checks("long");
    printf("%7s %-5s %6s %6s %6s %6s %6s %6s %10s %6s %8s %8s\n", "frame", "pipe", "tried", "sent",
           "lost", "cut", "torn", "double", "neighbours", "lost", "refused", "reports");
    for (const bool full : {false, true}) {
        for (const uint32_t frame : SIZES) {
            const Outcome outcome = runWith(settings, frame, full, checks);
            const Verdict &verdict = outcome.verdict;
            printf("%7u %-5s %6u %6u %6u %6u %6u %6u %10u %6u %8u %8u\n", frame,
                   full ? "full" : "free", outcome.longTried, outcome.longSent, verdict.lostOf[0],
                   outcome.cut, verdict.cut + verdict.strange, verdict.doubled,
                   outcome.neighboursSent, outcome.neighboursLost, outcome.refused,
                   outcome.reports);
            fflush(stdout);
            checks.hold(verdict.doubled == 0, "records doubled");
            checks.hold(verdict.neverSent == 0, "records read that were not sent");
            if (frame <= 4096 || outcome.refused == 0) {
                checkSound(checks, verdict);
                checkNothingLost(checks, verdict);
            }
        }
    }
    return checks.broken();
}

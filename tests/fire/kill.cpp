#include "scenarios.h"

#include "daemonRun.h"
#include "fireText.h"
#include "writer.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdio>
#include <memory>
#include <numeric>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uint32_t BATCH_BYTES = 128 << 10; // that the daemon reads before it writes them
constexpr uint32_t BLOCK_BYTES = 64 << 10;  // and one read more, and the rest of the frame before
constexpr uint64_t HANDS = BATCH_BYTES + BLOCK_BYTES + PIPE_BUF;
constexpr uint32_t PIPE_CAPACITY = 1 << 20;

// What is known of one daemon's end.
struct Kill {
    bool ready = false;     // it had taken over what the pipe held at its start
    bool held = false;      // the pipe's bytes were there for the next daemon
    uint32_t pipeBytes = 0; // that the pipe held
};

// Of all lanes, in memory that they share.
struct Totals {
    std::atomic<uint32_t> kills, sent, read, lost, atStart, held;
    std::atomic<uint32_t> mostLost;      // by one kill
    std::atomic<uint32_t> mostPipeBytes; // at one kill
    std::atomic<uint32_t> mostInHands;   // bytes lost though those in the pipe were kept
    std::atomic<uint32_t> cutFrames;     // whose rest the next daemon found
    std::atomic<uint32_t> tailsTakenBack;
    std::atomic<uint32_t> broken;
};

void raise(std::atomic<uint32_t> &most, uint32_t value) {
    for (uint32_t before = most; value > before && !most.compare_exchange_weak(before, value);) {
    }
}

class Lane {
  public:
    Lane(const Settings &settings, uint32_t index, uint32_t kills, Totals &totals)
        : name_("kill " + std::to_string(index)), checks_(name_), totals_(totals),
          random_(settings.seed + index), ledger_(1000000), kills_(kills) {
        work_.root = settings.folder + "/kill" + std::to_string(index);
        work_.seed = settings.seed + index;
        work_.records = ledger_.records();
        makeLogRoot(work_.root);
    }

    int run() {
        std::vector<pid_t> writers = startWriters(work_, ledger_);
        uint32_t endedBadly = 0;
        for (uint32_t each = 0; each < kills_; each++)
            startAndKill();
        endWell(writers, endedBadly);
        const Verdict verdict = verify(work_.root + "/logfile", ledger_);
        checkWriters(checks_, ledger_, endedBadly);
        checkSound(checks_, verdict);
        checkBounds(verdict);
        tellFigures(name_.c_str(), ledger_, verdict);
        totals_.sent += verdict.sent;
        totals_.read += verdict.read;
        totals_.lost += verdict.lostRecords();
        unlink((work_.root + "/logfile").c_str());
        return checks_.broken();
    }

  private:
    std::string pipe() const { return work_.root + "/logpipe"; }

    void closeHold() {
        if (hold_ >= 0)
            close(hold_);
        hold_ = -1;
    }

    // The moment: mostly at work, sometimes while it starts.
    bool awaitMoment(DaemonRun &daemon) {
        if (random_.below(8) == 0) {
            const bool fifoIsThere = access(pipe().c_str(), F_OK) == 0;
            return daemon.awaitReady(random_.between(0, fifoIsThere ? 4100 : 10));
        }
        const bool ready = daemon.awaitReady();
        checks_.hold(ready, "the daemon did not start: " + daemon.reports());
        pauseMilliseconds(random_.between(0, 40));
        return ready;
    }

    void startAndKill() {
        Kill kill;
        DaemonRun daemon(work_.root);
        kill.ready = awaitMoment(daemon);
        // While nobody reads, nothing is written: what the pipe holds then is what it held.
        const int end = openWriting(pipe());
        daemon.signal(SIGKILL);
        daemon.awaitEnd();
        closeHold();
        kill.pipeBytes = bytesIn(end);
        readReports(daemon.reports());
        const bool remove = random_.below(2) == 0;
        kill.held = !remove && end >= 0 && random_.below(3) != 0;
        if (kill.held)
            hold_ = end; // as a client that logs nothing at the moment
        else if (end >= 0)
            close(end);
        ledger_.head().epoch++;
        pauseMilliseconds(random_.below(4));
        if (remove)
            unlink(pipe().c_str());
        ends_.push_back(kill);
        totals_.kills++;
        totals_.atStart += kill.ready ? 0U : 1U;
        totals_.held += kill.held ? 1U : 0U;
        raise(totals_.mostPipeBytes, kill.pipeBytes);
    }

    void endWell(std::vector<pid_t> &writers, uint32_t &endedBadly) {
        DaemonRun daemon(work_.root);
        checks_.hold(daemon.awaitReady(), "the daemon did not start: " + daemon.reports());
        ledger_.head().stop = 1;
        for (uint32_t waited = 0; !writers.empty() && waited < 60000; waited++) {
            pauseMilliseconds(1);
            reapWriters(writers, endedBadly);
        }
        checks_.hold(writers.empty(), "a writer did not end");
        daemon.signal(SIGTERM);
        checks_.hold(daemon.awaitEnd() == 0, "the last daemon did not end well");
        readReports(daemon.reports());
        closeHold();
        Kill last;
        last.ready = true;
        ends_.push_back(last);
    }

    // A daemon may tell of one frame that its predecessor was reading, and of the file's end:
    // anything else means that it was out of step.
    void readReports(const std::string &reports) {
        std::istringstream lines(reports);
        for (std::string line; std::getline(lines, line);) {
            unsigned long bytes = 0;
            const size_t start = line.find(": at the start ");
            if (line.find(": part of a record at its end is taken back, ") != std::string::npos)
                totals_.tailsTakenBack++;
            else if (start != std::string::npos &&
                     sscanf(line.c_str() + start, ": at the start %lu bytes were no record",
                            &bytes) == 1 &&
                     bytes <= PIPE_BUF)
                totals_.cutFrames++;
            else
                checks_.hold(false, "the daemon was out of step: " + line);
        }
    }

    /* What one kill may cost: the frames in the daemon's hands (all that the pipe had held when it
       was killed at its start), and what the pipe held unless that was kept for the next one. */
    void checkBounds(const Verdict &verdict) {
        for (size_t epoch = 0; epoch < verdict.lost.size(); epoch++) {
            const std::vector<uint32_t> &frames = verdict.lost[epoch];
            const uint64_t bytes = std::accumulate(frames.begin(), frames.end(), uint64_t{0});
            raise(totals_.mostLost, static_cast<uint32_t>(frames.size()));
            const Kill &kill = ends_.at(epoch);
            const bool kept = kill.held && epoch + 1 < ends_.size() && ends_[epoch + 1].ready;
            if (kill.ready && kept)
                raise(totals_.mostInHands, static_cast<uint32_t>(bytes));
            checks_.hold(
                bytes <= HANDS + (kept ? 0 : kill.pipeBytes) + (kill.ready ? 0 : PIPE_CAPACITY),
                "kill " + std::to_string(epoch) + " cost " + std::to_string(frames.size()) +
                    " records of " + std::to_string(bytes) + " bytes, the pipe held " +
                    std::to_string(kill.pipeBytes) + (kept ? ", which were kept" : ""));
        }
        const uint32_t last = verdict.lost.size() < ends_.size()
                                  ? 0
                                  : static_cast<uint32_t>(verdict.lost.back().size());
        checks_.hold(last == 0, "records are lost that no kill can have cost");
        checks_.hold(verdict.lostAmbiguous <= WRITERS * kills_, "too many between two daemons");
    }

    std::string name_;
    Checks checks_;
    Totals &totals_;
    Random random_;
    Ledger ledger_;
    uint32_t kills_;
    Work work_;
    int hold_ = -1;
    std::vector<Kill> ends_; // by epoch; the last one is the good end
};

Totals &sharedTotals() {
    void *memory =
        mmap(nullptr, sizeof(Totals), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        perror("fire: mmap");
        exit(1);
    }
    return *new (memory) Totals();
}

} // namespace

int killed(const Settings &settings) {
    Checks checks("kill");
    Totals &totals = sharedTotals();
    std::vector<pid_t> lanes;
    const uint32_t count = std::max(1U, std::min(settings.lanes, settings.kills));
    fflush(nullptr);
    for (uint32_t index = 0; index < count; index++) {
        const uint32_t kills = settings.kills / count + (index < settings.kills % count ? 1 : 0);
        const pid_t child = fork();
        if (child == 0) {
            const int broken = Lane(settings, index, kills, totals).run();
            fflush(nullptr);
            _exit(broken == 0 ? 0 : 1);
        }
        lanes.push_back(child);
    }
    uint32_t endedBadly = 0;
    while (!lanes.empty()) {
        pauseMilliseconds(10);
        reapWriters(lanes, endedBadly);
    }
    printf("kill: %u kills (%u while starting, %u with the pipe kept open), sent %u, read %u, lost "
           "%u; "
           "most by one kill %u; the pipe held up to %u bytes; in the daemon's hands up to %u"
           " bytes; "
           "rests of frames %u, of records in the file %u\n",
           totals.kills.load(), totals.atStart.load(), totals.held.load(), totals.sent.load(),
           totals.read.load(), totals.lost.load(), totals.mostLost.load(),
           totals.mostPipeBytes.load(), totals.mostInHands.load(), totals.cutFrames.load(),
           totals.tailsTakenBack.load());
    checks.hold(endedBadly == 0, std::to_string(endedBadly) + " lanes failed");
    checks.hold(totals.kills == settings.kills, "not every kill was made");
    checks.hold(totals.sent == totals.read + totals.lost, "the counts do not add up");
    munmap(&totals, sizeof totals);
    return checks.broken();
}

/* Writes a burst of log records from several processes at once, to see what the log's pipe and
   daemon bear.

   Every process sends its share through logMsg and tries a record that was refused (the pipe was
   full) again until it is taken, so the numbers printed at the end are those of the records that
   the daemon must have received. */
#include "log/log.h"
#include "log/logDstPri.h"
#include "logSYS.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

// What the writers tell the parent; it lies in memory shared by all of them.
struct Progress {
    uint32_t sent;    // records taken by the pipe
    uint32_t reports; // reports of a missing destination table, sent by the client itself
    uint32_t retries; // refusals that were tried again
    uint32_t started; // writers that are past their first record
};

struct Share {
    int32_t writer; // from 0
    uint32_t records;
};

struct Burst {
    std::string root;
    uint32_t records = 100000;
    uint32_t processes = 4;
    bool showProgress = false;
};

void add(uint32_t &counter, uint32_t amount) {
    __atomic_fetch_add(&counter, amount, __ATOMIC_RELAXED);
}

uint32_t load(const uint32_t &counter) {
    return __atomic_load_n(&counter, __ATOMIC_RELAXED);
}

void pauseMicroseconds(long microseconds) {
    const timespec pause = {0, microseconds * 1000};
    nanosleep(&pause, nullptr);
}

// Sends a record, trying again while the pipe is full; false after a minute without a reader.
bool sendRecord(const Share &share, uint32_t record, Progress &progress) {
    constexpr uint32_t MAX_REFUSALS = 600000;
    for (uint32_t refusals = 0; refusals < MAX_REFUSALS; ++refusals) {
        if (logMsg(SYS_BURST, "burst.cpp", __LINE__, record, share.records, share.writer) !=
            nullptr) {
            add(progress.sent, 1);
            return true;
        }
        add(progress.retries, 1);
        pauseMicroseconds(100);
    }
    return false;
}

// With its first record a process reports that there is no destination table, in a record of the
// client's own. Every writer sends its first one before any of them fills the pipe, so that no
// report can be refused unseen.
bool startTogether(const Share &share, Progress &progress, uint32_t writers) {
    const bool sent = sendRecord(share, 1, progress);
    if (sent && getLogMsgDstPri(SYS_BURST) == nullptr)
        add(progress.reports, 1);
    add(progress.started, 1);
    while (load(progress.started) < writers)
        pauseMicroseconds(100);
    return sent;
}

int writeShare(const Burst &burst, const Share &share, Progress &progress) {
    const std::string name = "burst" + std::to_string(share.writer);
    if (share.records == 0 || loginit(name.c_str(), 1, 0, burst.root.c_str()) != 0) {
        add(progress.started, 1);
        return share.records == 0 ? 0 : 1;
    }
    bool sent = startTogether(share, progress, burst.processes);
    for (uint32_t record = 2; sent && record <= share.records; ++record)
        sent = sendRecord(share, record, progress);
    logend();
    return sent ? 0 : 1;
}

void waitForWriters(const Burst &burst, const Progress &progress) {
    uint32_t ended = 0;
    while (ended < burst.processes) {
        if (waitpid(-1, nullptr, WNOHANG) > 0) {
            ++ended;
            continue;
        }
        if (burst.showProgress)
            fprintf(stderr, "\r%u of %u records sent", load(progress.sent), burst.records);
        pauseMicroseconds(50000);
    }
    if (burst.showProgress)
        fprintf(stderr, "\r%u of %u records sent\n", load(progress.sent), burst.records);
}

int run(const Burst &burst) {
    void *shared =
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        perror("burst: mmap");
        return 1;
    }
    Progress &progress = *static_cast<Progress *>(shared);
    fflush(nullptr);
    for (uint32_t writer = 0; writer < burst.processes; ++writer) {
        const uint32_t extra = writer < burst.records % burst.processes ? 1 : 0;
        const Share share = {static_cast<int32_t>(writer), burst.records / burst.processes + extra};
        const pid_t child = fork();
        if (child == 0)
            _exit(writeShare(burst, share, progress));
        if (child < 0) {
            perror("burst: fork");
            return 1;
        }
    }
    waitForWriters(burst, progress);
    printf("sent %u records and %u reports, tried again %u times\n", progress.sent,
           progress.reports, progress.retries);
    return progress.sent == burst.records ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    Burst burst;
    CLI::App app{"Write a burst of log records from several processes at once."};
    app.add_option("--log-root", burst.root, "the log root")->required();
    app.add_option("--records", burst.records, "records in all")->capture_default_str();
    app.add_option("--processes", burst.processes, "writers")
        ->capture_default_str()
        ->check(CLI::Range(1, 64));
    app.add_flag("--progress", burst.showProgress, "show progress on standard error");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return run(burst);
}

#include "scenarios.h"

#include "daemonRun.h"
#include "fireText.h"
#include "writer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uint32_t KEEP = 262144; // bytes that the daemon may keep
constexpr uint32_t BLOCK =
    64 << 10; // one read of the pipe may pass that, and the frame that it ends in
constexpr uint32_t LONGEST = 4096;
constexpr uint32_t MOST_CYCLES = 8;
constexpr uint32_t CYCLE_RECORDS = 6000; // more than pipe and daemon hold together
constexpr const char *NAME = "full";

void writeText(const char *path, const std::string &text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd >= 0) {
        if (write(fd, text.data(), text.size()) < 0)
            perror(path);
        close(fd);
    }
}

// A file system of its own, in a mount namespace of this process's own.
bool mountSmallDisk(const std::string &folder, uint32_t megabytes) {
    const unsigned uid = getuid();
    const unsigned gid = getgid();
    mkdir(folder.c_str(), 0700);
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return false;
        writeText("/proc/self/setgroups", "deny");
        writeText("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
        writeText("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
    }
    const std::string size = "size=" + std::to_string(megabytes) + "m";
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
}

// How room is taken away and given back.
class Disk {
  public:
    Disk(const std::string &root, const std::string &means, uint32_t megabytes)
        : folder_(root + "/disk") {
        mounted_ = means != "limit" && mountSmallDisk(folder_, megabytes);
        mkdir(folder_.c_str(), 0700);
    }
    ~Disk() {
        if (mounted_)
            umount2(folder_.c_str(), MNT_DETACH);
    }
    Disk(const Disk &) = delete;
    Disk &operator=(const Disk &) = delete;
    bool mounted() const { return mounted_; }
    std::string file() const { return folder_ + "/logfile"; }

    void fill(pid_t daemon) const {
        if (!mounted_) {
            struct stat status = {};
            stat(file().c_str(), &status);
            // The daemon's reports go to a file, too, and need some room.
            const rlim_t size = std::max<rlim_t>(65536, static_cast<rlim_t>(status.st_size));
            const rlimit limit = {size, RLIM_INFINITY};
            prlimit(daemon, RLIMIT_FSIZE, &limit, nullptr);
            return;
        }
        const std::string block(65536, 'x');
        const int fd = open(filler().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        while (write(fd, block.data(), block.size()) > 0) {
        }
        close(fd);
    }
    void release(pid_t daemon) const {
        const rlimit limit = {RLIM_INFINITY, RLIM_INFINITY};
        if (mounted_)
            unlink(filler().c_str());
        else
            prlimit(daemon, RLIMIT_FSIZE, &limit, nullptr);
    }

  private:
    std::string filler() const { return folder_ + "/filler"; }
    std::string folder_;
    bool mounted_ = false;
};

class FullRun {
  public:
    explicit FullRun(const Settings &settings)
        : checks_(NAME), root_(settings.folder + "/full"),
          records_(settings.records / 10 / WRITERS), ledger_(records_) {
        makeLogRoot(root_);
        work_.root = root_;
        work_.seed = settings.seed;
        work_.records = records_;
        disk_ = std::make_unique<Disk>(root_, settings.means, records_ * WRITERS / 1000 + 8);
        if (settings.means == "tmpfs" && !disk_->mounted())
            checks_.hold(false, std::string("no tmpfs can be mounted here: ") + strerror(errno));
    }

    int run() {
        printf("%s: the disk is %s\n", NAME,
               disk_->mounted()
                   ? "a small tmpfs, filled up by another file"
                   : "a limit on the file's size (RLIMIT_FSIZE): no tmpfs, or not wanted");
        DaemonRun daemon(root_, {"--keep", std::to_string(KEEP), "--file", disk_->file()});
        checks_.hold(daemon.awaitReady(), "the daemon did not start: " + daemon.reports());
        std::vector<pid_t> writers = startWriters(work_, ledger_);
        awaitSent(1000);
        while (cycles_ < MOST_CYCLES && sent() + CYCLE_RECORDS < records_ * WRITERS) {
            cycles_++;
            daemon.signal(SIGSTOP); // else all may be written before the disk is full
            disk_->fill(daemon.pid());
            daemon.signal(SIGCONT);
            awaitStandstill();
            checkBound();
            const uint32_t before = sent();
            disk_->release(daemon.pid());
            awaitSent(before + 1000);
        }
        uint32_t endedBadly = 0;
        for (uint32_t waited = 0; !writers.empty() && waited < 120000; waited++) {
            pauseMilliseconds(1);
            reapWriters(writers, endedBadly);
        }
        checks_.hold(writers.empty(), "a writer did not end");
        daemon.signal(SIGTERM);
        checks_.hold(daemon.awaitEnd() == 0, "the daemon did not end well");
        return finish(daemon.reports(), endedBadly);
    }

  private:
    uint32_t sent() const { return ledger_.sum(&WriterCounts::sent); }

    void awaitSent(uint32_t count) const {
        for (int waited = 0; waited < 60000 && sent() < count; waited++)
            pauseMilliseconds(1);
    }

    // Nothing was taken for half a second: the bound and the pipe are full, or all is sent.
    void awaitStandstill() const {
        uint32_t before = sent() + 1;
        for (int waited = 0; waited < 120 && before != sent(); waited++) {
            before = sent();
            pauseMilliseconds(500);
        }
    }

    // All counts stand still: what is sent, and neither in the file nor in the pipe, is kept.
    void checkBound() {
        const Verdict now = verify(disk_->file(), ledger_);
        const int end = openWriting(root_ + "/logpipe");
        const uint64_t kept = now.sentFrameBytes - now.readFrameBytes - bytesIn(end);
        close(end);
        mostKept_ = std::max(mostKept_, kept);
        checks_.hold(now.sent < records_ * WRITERS, "all was sent before the disk was full");
        checks_.hold(kept >= KEEP / 2, "the daemon keeps but " + std::to_string(kept) + " bytes");
        checkSound(checks_, now);
    }

    int finish(const std::string &reports, uint32_t endedBadly) {
        const Verdict verdict = verify(disk_->file(), ledger_);
        tellFigures(NAME, ledger_, verdict);
        size_t failures = 0;
        size_t recoveries = 0;
        for (size_t at = 0;
             (at = reports.find("trying again each second", at)) != std::string::npos; at++)
            failures++;
        for (size_t at = 0; (at = reports.find("writing again", at)) != std::string::npos; at++)
            recoveries++;
        printf("%s: disk full %u times, told %zu times, over again told %zu times; kept at most "
               "%llu bytes "
               "as frames, bound %u and one read of the pipe\n",
               NAME, cycles_, failures, recoveries, static_cast<unsigned long long>(mostKept_),
               KEEP);
        // A record costs 10 bytes or more on the pipe that are not kept, and is 109 there at least.
        checks_.hold(mostKept_ <= uint64_t{KEEP + BLOCK + LONGEST} * 120 / 110,
                     "the bound was passed");
        checks_.hold(cycles_ > 0 && failures > 0 && failures == recoveries,
                     "the daemon reports: " + reports);
        checkWriters(checks_, ledger_, endedBadly);
        checkSound(checks_, verdict);
        checkNothingLost(checks_, verdict);
        checks_.hold(verdict.read == records_ * WRITERS, "not every record was read");
        return checks_.broken();
    }

    Checks checks_;
    std::string root_;
    uint32_t records_;
    Ledger ledger_;
    Work work_;
    std::unique_ptr<Disk> disk_;
    uint64_t mostKept_ = 0;
    uint32_t cycles_ = 0;
};

} // namespace

// In a process of its own, which alone sees the small disk.
int diskFull(const Settings &settings) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int broken = FullRun(settings).run();
        fflush(nullptr);
        _exit(broken == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}

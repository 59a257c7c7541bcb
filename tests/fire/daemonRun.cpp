#include "daemonRun.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static std::string readFrom(int fd) {
    std::string text;
    char block[65536];
    ssize_t count;
    while ((count = pread(fd, block, sizeof block, static_cast<off_t>(text.size()))) > 0)
        text.append(block, static_cast<size_t>(count));
    return text;
}

void pauseMilliseconds(uint32_t milliseconds) {
    const timespec pause = {static_cast<time_t>(milliseconds / 1000),
                            static_cast<long>(milliseconds % 1000) * 1000000};
    nanosleep(&pause, nullptr);
}

DaemonRun::DaemonRun(const std::string &root, const std::vector<std::string> &arguments)
    : out_(memfd_create("out", MFD_CLOEXEC)), err_(memfd_create("err", MFD_CLOEXEC)) {
    std::vector<std::string> words = {DAEMON_PROGRAM, "--log-root", root};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string &each : words)
        pointers.push_back(each.data());
    pointers.push_back(nullptr);
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // nothing outlives a run that is broken off
        dup2(out_, STDOUT_FILENO);
        dup2(err_, STDERR_FILENO);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
    if (pid_ < 0 || out_ < 0 || err_ < 0) {
        perror("fire: the daemon cannot be started");
        exit(1);
    }
}

DaemonRun::~DaemonRun() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(out_);
    close(err_);
}

bool DaemonRun::awaitReady(uint32_t milliseconds) {
    for (uint32_t waited = 0;; waited++) {
        if (readFrom(out_).find("reading ") == 0)
            return true;
        siginfo_t ended = {};
        waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
        if (waited >= milliseconds || ended.si_pid != 0)
            return false;
        pauseMilliseconds(1);
    }
}

void DaemonRun::signal(int number) const {
    kill(pid_, number);
}

int DaemonRun::awaitEnd() {
    constexpr int LIMIT_SECONDS = 60;
    for (int waited = 0; waited < LIMIT_SECONDS * 1000; waited++) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        pauseMilliseconds(1);
    }
    return -1;
}

std::string DaemonRun::reports() const {
    return readFrom(err_);
}

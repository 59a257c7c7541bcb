#include "pager.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

static pid_t pager = -1;

// Safe in a signal handler.
static void awaitPager() {
    close(STDOUT_FILENO); // the end of what it shows
    close(STDERR_FILENO);
    while (waitpid(pager, nullptr, 0) < 0 && errno == EINTR)
        ;
}

static void endAfterPager() {
    fflush(nullptr);
    awaitPager();
}

static void endBySignal(int number) {
    awaitPager();
    signal(number, SIG_DFL);
    raise(number);
}

static bool isInPath(const std::string &program) {
    const char *path = getenv("PATH");
    const std::string folders = path == nullptr ? "/bin:/usr/bin" : path;
    for (size_t at = 0; at <= folders.size();) {
        const size_t end = std::min(folders.find(':', at), folders.size());
        if (access((folders.substr(at, end - at) + "/" + program).c_str(), X_OK) == 0)
            return true;
        at = end + 1;
    }
    return false;
}

// The command, for the shell; empty where there is none.
static std::string pagerCommand() {
    const char *wanted = getenv("PAGER");
    if (wanted != nullptr)
        return std::string(wanted) == "cat" ? "" : wanted;
    return isInPath("less") ? "less" : "";
}

[[noreturn]] static void runPager(const std::string &command, int from) {
    dup2(from, STDIN_FILENO);
    setenv("LESS", "FRX", 0); // a short text is left on the screen, colours are shown
    setenv("LV", "-c", 0);
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
    _exit(127);
}

static void putInPlace(int to) {
    dup2(to, STDOUT_FILENO);
    if (isatty(STDERR_FILENO) == 1)
        dup2(to, STDERR_FILENO);
    atexit(endAfterPager);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE})
        signal(number, endBySignal);
}

void startPager() {
    int ends[2];
    const std::string command = isatty(STDOUT_FILENO) == 1 ? pagerCommand() : "";
    if (command.empty() || pipe2(ends, O_CLOEXEC) != 0)
        return;
    fflush(nullptr);
    pager = fork();
    if (pager == 0)
        runPager(command, ends[0]);
    if (pager > 0)
        putInPlace(ends[1]);
    close(ends[0]);
    close(ends[1]);
}

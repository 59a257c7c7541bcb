#include "toolRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static int unnamedFile() {
    const int fd = memfd_create("stream", MFD_CLOEXEC);
    EXPECT_GE(fd, 0);
    return fd;
}

static std::string readFrom(int fd) {
    std::string text;
    char block[65536];
    ssize_t count;
    while ((count = pread(fd, block, sizeof block, static_cast<off_t>(text.size()))) > 0)
        text.append(block, static_cast<size_t>(count));
    return text;
}

static void setVariables(const std::vector<std::string> &variables) {
    for (const char *name : {"LOGROOT", "LOGFORMAT", "LOGCOLUMN", "LOGCONTPREFIX", "TEXTLOGFMT",
                             "NO_COLOR", "MAXMSGSIZE", "COLUMNS"})
        unsetenv(name);
    setenv("TZ", "UTC", 1);
    for (const std::string &each : variables) {
        const size_t equals = each.find('=');
        if (equals == std::string::npos)
            unsetenv(each.c_str());
        else
            setenv(each.substr(0, equals).c_str(), each.c_str() + equals + 1, 1);
    }
}

static std::vector<char *> wordsOf(const std::string &program,
                                   const std::vector<std::string> &arguments) {
    std::vector<char *> words = {const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);
    return words;
}

ToolProcess::ToolProcess(const std::string &program, const std::vector<std::string> &arguments,
                         const std::string &input, const std::vector<std::string> &variables)
    : out_(unnamedFile()), err_(unnamedFile()) {
    const int in = unnamedFile();
    EXPECT_EQ(static_cast<ssize_t>(input.size()), write(in, input.data(), input.size()));
    lseek(in, 0, SEEK_SET);
    std::vector<char *> words = wordsOf(program, arguments);
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(in, STDIN_FILENO);
        dup2(out_, STDOUT_FILENO);
        dup2(err_, STDERR_FILENO);
        setVariables(variables);
        execv(program.c_str(), words.data());
        _exit(127);
    }
    close(in);
    EXPECT_GT(pid_, 0) << "fork failed";
}

ToolProcess::~ToolProcess() {
    if (running()) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(out_);
    close(err_);
}

bool ToolProcess::running() {
    if (!reaped_ && pid_ > 0)
        reaped_ = waitpid(pid_, &status_, WNOHANG) == pid_;
    return !reaped_ && pid_ > 0;
}

std::string ToolProcess::out() const {
    return readFrom(out_);
}

std::string ToolProcess::err() const {
    return readFrom(err_);
}

bool ToolProcess::awaitOut(const std::string &text, int timeLimitSeconds) {
    return await([&] { return out().find(text) != std::string::npos; }, timeLimitSeconds);
}

bool ToolProcess::awaitErr(const std::string &text, int timeLimitSeconds) {
    return await([&] { return err().find(text) != std::string::npos; }, timeLimitSeconds);
}

ToolResult ToolProcess::finish(int timeLimitSeconds) {
    ToolResult result;
    if (await([&] { return !running(); }, timeLimitSeconds) && WIFEXITED(status_))
        result.exitCode = WEXITSTATUS(status_);
    result.out = out();
    result.err = err();
    return result;
}

std::string runOnTerminal(const std::string &program, const std::vector<std::string> &arguments,
                          unsigned short columns, const std::vector<std::string> &variables) {
    int terminal = -1;
    winsize size = {24, columns, 0, 0};
    fflush(nullptr);
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        setenv("TERM", "xterm", 1);
        setenv("PAGER", "cat", 1);
        setVariables(variables);
        std::vector<char *> words = wordsOf(program, arguments);
        execv(program.c_str(), words.data());
        _exit(127);
    }
    std::string shown;
    char block[4096];
    for (ssize_t count; (count = read(terminal, block, sizeof block)) > 0;)
        shown.append(block, static_cast<size_t>(count));
    close(terminal);
    waitpid(child, nullptr, 0);
    shown.erase(std::remove(shown.begin(), shown.end(), '\r'), shown.end());
    return shown;
}

ToolResult runTool(const std::string &program, const std::vector<std::string> &arguments,
                   const std::string &input, const std::vector<std::string> &variables) {
    return ToolProcess(program, arguments, input, variables).finish();
}

void shortPause() {
    const timespec pause = {0, 5'000'000};
    nanosleep(&pause, nullptr);
}

#include "support/childProcess.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static std::string readWhole(FILE *file) {
    std::string text;
    char block[4096];
    rewind(file);
    for (size_t count; (count = fread(block, 1, sizeof block, file)) > 0;)
        text.append(block, count);
    return text;
}

[[noreturn]] static void runBody(const std::function<void()> &body, FILE *out, FILE *err) {
    dup2(fileno(out), STDOUT_FILENO);
    dup2(fileno(err), STDERR_FILENO);
    body();
    exit(testing::Test::HasFailure() ? CHILD_ASSERTION_FAILED : 0);
}

static double secondsNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Polls, since a time limit through SIGALRM would be the very thing that some cases test.
static void await(pid_t child, int timeLimitSeconds, ChildResult &result) {
    const double deadline = secondsNow() + timeLimitSeconds;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (secondsNow() > deadline) {
            result.timedOut = true;
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            break;
        }
        const timespec pause = {0, 1000000};
        nanosleep(&pause, nullptr);
    }
    result.exited = WIFEXITED(status);
    result.exitCode = result.exited ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

ChildResult runInChild(const std::function<void()> &body, int timeLimitSeconds) {
    ChildResult result;
    FILE *out = tmpfile();
    FILE *err = tmpfile();
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        runBody(body, out, err);
    if (child < 0)
        ADD_FAILURE() << "fork failed";
    else
        await(child, timeLimitSeconds, result);
    result.out = readWhole(out);
    result.err = readWhole(err);
    fclose(out);
    fclose(err);
    return result;
}

void expectChildPasses(const std::function<void()> &body, int timeLimitSeconds) {
    const ChildResult result = runInChild(body, timeLimitSeconds);
    EXPECT_TRUE(result.exited && result.exitCode == 0)
        << (result.timedOut ? "timed out" : "ended badly") << ": exit code " << result.exitCode
        << ", signal " << result.signal << "\nstandard output:\n"
        << result.out << "\nstandard error:\n"
        << result.err;
}

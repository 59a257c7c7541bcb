/* A case that changes the state of its process (environment, signals, tables that are never freed,
   a panic) runs in a child, so that no other case sees what it left. */
#ifndef TESTS_SUPPORT_CHILDPROCESS_H
#define TESTS_SUPPORT_CHILDPROCESS_H

#include <functional>
#include <string>

struct ChildResult {
    bool exited = false;   // ended by exit; exitCode tells how
    int exitCode = -1;     // meaningful when exited
    int signal = 0;        // the signal that ended it, 0 when exited
    bool timedOut = false; // killed here after the time limit
    std::string out;       // what it wrote to standard output
    std::string err;       // what it wrote to standard error
};

// Runs the body in a forked child with both standard streams captured. A failed EXPECT_ in the
// child makes its exit code CHILD_ASSERTION_FAILED and is told on its standard output. The child
// leaves through exit(), so that leaks in it are found.
constexpr int CHILD_ASSERTION_FAILED = 99;
ChildResult runInChild(const std::function<void()> &body, int timeLimitSeconds = 60);

// Fails the calling test, showing the child's output, unless the child ran to its end with every
// assertion met.
void expectChildPasses(const std::function<void()> &body, int timeLimitSeconds = 60);

#endif

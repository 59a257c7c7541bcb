/* qnlogd as a process of its own. */
#ifndef TESTS_FIRE_DAEMONRUN_H
#define TESTS_FIRE_DAEMONRUN_H

#include <string>
#include <sys/types.h>
#include <vector>

class DaemonRun {
  public:
    /* Ends the process where it cannot be started. */
    DaemonRun(const std::string &root, const std::vector<std::string> &arguments = {});
    ~DaemonRun();
    DaemonRun(const DaemonRun &) = delete;
    DaemonRun &operator=(const DaemonRun &) = delete;
    pid_t pid() const { return pid_; }
    /* Whether it has said that it reads; waits for that, up to so many milliseconds. */
    bool awaitReady(uint32_t milliseconds = 60000);
    void signal(int number) const;
    /* Waits for its end: its exit code, or -1 when a signal ended it or it did not end. */
    int awaitEnd();
    std::string reports() const; // its standard error

  private:
    pid_t pid_;
    int out_;
    int err_;
};

void pauseMilliseconds(uint32_t milliseconds);

#endif

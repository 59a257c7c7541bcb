/* Runs the built programs as a person or a service would: as processes, with their own streams. */
#ifndef TESTS_TOOLS_TOOLRUN_H
#define TESTS_TOOLS_TOOLRUN_H

#include <initializer_list>
#include <string>
#include <sys/types.h>
#include <vector>

struct ToolResult {
    int exitCode = -1; // -1: ended by a signal or killed here after the time limit
    std::string out;
    std::string err;
};

/* A running tool. Variables are "NAME=value", or "NAME" to take one away; what the tool would read
   from the surroundings of the test (LOGROOT and its kin) is always taken away first. */
class ToolProcess {
  public:
    ToolProcess(const std::string &program, const std::vector<std::string> &arguments,
                const std::string &input = "", const std::vector<std::string> &variables = {});
    ~ToolProcess();
    ToolProcess(const ToolProcess &) = delete;
    ToolProcess &operator=(const ToolProcess &) = delete;
    pid_t pid() const { return pid_; }
    bool running();
    // What it has written so far.
    std::string out() const;
    std::string err() const;
    // Waits until the tool wrote the text to that stream; false after the time limit.
    bool awaitOut(const std::string &text, int timeLimitSeconds = 30);
    bool awaitErr(const std::string &text, int timeLimitSeconds = 30);
    ToolResult finish(int timeLimitSeconds = 60);

  private:
    pid_t pid_ = -1;
    int status_ = 0;
    bool reaped_ = false;
    int out_ = -1; // unnamed files: nothing blocks a tool that writes much
    int err_ = -1;
};

ToolResult runTool(const std::string &program, const std::vector<std::string> &arguments,
                   const std::string &input = "", const std::vector<std::string> &variables = {});

/* Runs the tool to its end on a terminal of so many columns, for both streams, without a pager
   unless the variables name one; answers what the
   terminal was sent, with the line ends that the terminal makes taken back. */
std::string runOnTerminal(const std::string &program, const std::vector<std::string> &arguments,
                          unsigned short columns, const std::vector<std::string> &variables = {});

/* Waits, in small steps, until the condition holds; false after the time limit. */
template<typename Condition>
bool await(Condition condition, int timeLimitSeconds = 30);

void shortPause();

template<typename Condition>
bool await(Condition condition, int timeLimitSeconds) {
    for (int step = 0; step < timeLimitSeconds * 200; step++) {
        if (condition())
            return true;
        shortPause();
    }
    return condition();
}

#endif

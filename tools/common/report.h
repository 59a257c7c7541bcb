/* How every tool speaks: what goes wrong is one line on standard error, `tool: file:line: what`,
 * and the exit code tells whether the work or the command line was at fault. */
#ifndef TOOLS_COMMON_REPORT_H
#define TOOLS_COMMON_REPORT_H

#include <cstddef>
#include <stdexcept>
#include <string>

enum ExitCode : int {
    EXIT_FINE = 0,
    EXIT_FAILED = 1, // the work failed, wholly or in part
    EXIT_USAGE = 2,  // the command line is wrong: nothing was done
};

/* The name before every line that reportError writes; main sets it first. */
void setToolName(const char *name);

/* Writes "tool: file:line: what". The line is left out when it is 0, the file when it is empty. */
void reportError(const std::string &file, size_t line, const std::string &what);
void reportError(const std::string &what);

/* Ends the work from any depth; runTool reports its text and answers EXIT_FAILED. */
struct WorkFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/* "what: the reason errno gives", for a system call on a path. */
WorkFailed systemFailure(const std::string &what, int errorNumber);

/* --log-root's default: LOGROOT where it is set, else the place of old. */
std::string defaultLogRoot();

#endif

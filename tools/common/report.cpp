#include "report.h"

#include "terminal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

static const char *toolName = "tool";
static bool forTerminal = true; // asked for at the start: a pager may take the terminal's place

void setToolName(const char *name) {
    toolName = name;
    forTerminal = isatty(STDERR_FILENO) == 1;
}

void reportError(const std::string &file, size_t line, const std::string &what) {
    std::string where;
    if (!file.empty())
        where = line == 0 ? file + ": " : file + ":" + std::to_string(line) + ": ";
    const std::string report = std::string(toolName) + ": " + where + what + "\n";
    // In one call, so that the lines of several processes on one terminal do not mix.
    fputs(forTerminal ? withoutControls(report).c_str() : report.c_str(), stderr);
}

void reportError(const std::string &what) {
    reportError("", 0, what);
}

WorkFailed systemFailure(const std::string &what, int errorNumber) {
    return WorkFailed(what + ": " + strerror(errorNumber));
}

std::string defaultLogRoot() {
    const char *root = getenv("LOGROOT");
    return root != nullptr ? root : "/usr/spool/log";
}

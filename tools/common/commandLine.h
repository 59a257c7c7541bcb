/* The command line of a tool: CLI11 under this project's manners (--help and --version on standard
 * output with exit code 0, a misuse as one line on standard error with exit code 2). */
#ifndef TOOLS_COMMON_COMMANDLINE_H
#define TOOLS_COMMON_COMMANDLINE_H

#include <CLI/CLI.hpp>

#include <functional>

/* Names the tool, adds --version, and sets what --help shows below the options. */
void describeTool(CLI::App &app, const char *name, const char *uses);

/* Reads the arguments (or answers "--completion bash" and "--completion zsh" with the script) and
   then does the work, whose answer is the exit code. WorkFailed and other exceptions that leave the
   work are reported and answer EXIT_FAILED. */
int runTool(CLI::App &app, int argc, char **argv, const std::function<int()> &work);

#endif

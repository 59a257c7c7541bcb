/* What a shell needs to complete a tool's words, made from the options that the tool declares. The
 * name of an option's type tells what may follow it: FILE, DIR, TIME, "a|b|c", or SYMBOL and CLASS
 * of the catalogue that --log-root or LOGROOT tells. */
#ifndef TOOLS_COMMON_COMPLETION_H
#define TOOLS_COMMON_COMPLETION_H

#include <CLI/CLI.hpp>

#include <string>

/* The script for "bash" or "zsh"; empty for any other shell. */
std::string completionFor(const CLI::App &app, const std::string &shell);

#endif

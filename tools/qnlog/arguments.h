/* The command line of qnlog. */
#ifndef TOOLS_QNLOG_ARGUMENTS_H
#define TOOLS_QNLOG_ARGUMENTS_H

#include "mergedLogs.h"
#include "selection.h"

#include "../common/commandLine.h"
#include "../common/report.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/* A filter as it was given, of which there are many, in the order of the command line. */
struct FilterWord {
    std::string option; // "--priority"
    std::string value;
    bool negated = false;
};

struct Arguments {
    std::vector<std::string> files;
    std::string root = defaultLogRoot();
    std::optional<std::string> format;
    std::optional<int> width;
    std::string colour = "auto";
    bool follow = false;
    bool visible = false;
    bool raw = false;
    bool onlyRecords = false;
    bool noPager = false;
    size_t last = 0;
    std::string fields; // --template
    bool json = false, csv = false, statistics = false;
    std::vector<FilterWord> filters;
};

/* Ends the work before it begins: what is wrong with the command line. */
struct UsageMistake : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void declareOptions(CLI::App &app, Arguments &arguments);

/* The filters in their order, once the command line is read. Throws UsageMistake. */
void collectFilters(const CLI::App &app, Arguments &arguments);

/* What the filters ask for. Throw UsageMistake. */
Selection selectionOf(const std::vector<FilterWord> &filters);
TimeRange rangeOf(const std::vector<FilterWord> &filters, int64_t now);

#endif

#include "commandLine.h"

#include "report.h"

#include <exception>
#include <iostream>

void describeTool(CLI::App &app, const char *name, const char *uses) {
    setToolName(name);
    app.name(name);
    app.footer(uses);
    app.get_formatter()->column_width(28);
    app.set_version_flag("--version", std::string(name) + " " QN_VERSION);
}

// CLI11 answers its own codes; here a shown text is 0 and any misuse 2.
static int answerParse(const CLI::App &app, const CLI::ParseError &error) {
    if (error.get_exit_code() == 0)
        return app.exit(error, std::cout, std::cerr);
    reportError(std::string(error.what()) + " (--help tells how it is used)");
    return EXIT_USAGE;
}

int runTool(CLI::App &app, int argc, char **argv, const std::function<int()> &work) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return answerParse(app, error);
    }
    try {
        return work();
    } catch (const std::exception &error) {
        reportError(error.what());
        return EXIT_FAILED;
    }
}

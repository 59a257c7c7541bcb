#include "commandLine.h"

#include "completion.h"
#include "report.h"

#include <exception>
#include <iostream>

namespace {

// Beside an option the kind of its value alone: what excludes what is told when it is done.
class ToolHelp : public CLI::Formatter {
  public:
    ToolHelp() { column_width(28); }
    std::string make_option_opts(const CLI::Option *option) const override {
        const bool several = option->get_items_expected_max() > 1;
        return option->get_type_size() == 0
                   ? ""
                   : " " + option->get_type_name() + (several ? " ..." : "");
    }
    // A command of a tool stands behind the tool's own words.
    std::string make_usage(const CLI::App *app, std::string name) const override {
        if (const CLI::App *tool = app->get_parent()) {
            name = tool->get_name();
            for (const CLI::Option *option : tool->get_options())
                if (option->get_positional())
                    name += " " + option->get_name(true);
            name += " " + app->get_name();
        }
        return CLI::Formatter::make_usage(app, name);
    }
};

} // namespace

void describeTool(CLI::App &app, const char *name, const char *uses) {
    setToolName(name);
    app.name(name);
    app.footer(uses);
    app.formatter(std::make_shared<ToolHelp>());
    app.set_version_flag("--version", std::string(name) + " " QN_VERSION);
}

// CLI11 answers its own codes; here a shown text is 0 and any misuse 2.
static int answerParse(const CLI::App &app, const CLI::ParseError &error) {
    if (error.get_exit_code() == 0)
        return app.exit(error, std::cout, std::cerr);
    reportError(std::string(error.what()) + " (--help tells how it is used)");
    return EXIT_USAGE;
}

// Asked for by packages, not by people: no option, and needs no other.
static bool answerCompletion(const CLI::App &app, int argc, char **argv) {
    if (argc != 3 || std::string(argv[1]) != "--completion")
        return false;
    const std::string script = completionFor(app, argv[2]);
    std::cout << script;
    return !script.empty();
}

int runTool(CLI::App &app, int argc, char **argv, const std::function<int()> &work) {
    if (answerCompletion(app, argc, argv))
        return EXIT_FINE;
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

/* qnlog: shows log files as text. */
#include "../common/input.h"
#include "selection.h"
#include "view.h"

#include "../common/commandLine.h"
#include "../common/report.h"
#include "../common/terminal.h"

#include "log/expandLog.h"
#include "log/synLogFlds.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>
#include <unistd.h>

namespace {

constexpr const char *USES = R"(Uses:
  qnlog --since 15m --priority 2- /var/log/voice/logfile
      what was worth a look in the last quarter of an hour
  qnlog --follow --last 20 --format '%T(%H:%M:%S) @symbol@ %M' /var/log/voice/logfile
      the last records, and new ones as they come, one line each)";

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
    size_t last = 0;
    std::optional<std::string> priority, number, since, until;
    std::optional<std::string> message;
    std::string fields; // --template
    std::vector<std::string> producers, symbols, classes, fieldValues;
};

volatile std::sig_atomic_t endAsked = 0;

void askEnd(int) {
    endAsked = 1;
}

struct UsageMistake : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A condition from an option's text, or the option's name before what is wrong with it.
template<typename Make>
void require(Selection &selection, const char *option, const std::optional<std::string> &text,
             Make make) {
    if (!text)
        return;
    try {
        selection.require(make(*text));
    } catch (const std::invalid_argument &error) {
        throw UsageMistake(std::string(option) + ": " + error.what());
    }
}

Selection selectionOf(const Arguments &arguments) {
    Selection selection;
    const time_t now = time(nullptr);
    require(selection, "--priority", arguments.priority, priorityIn);
    require(selection, "--number", arguments.number, numberIn);
    require(selection, "--since", arguments.since,
            [now](const std::string &text) { return notBefore(parseMoment(text, now)); });
    require(selection, "--until", arguments.until,
            [now](const std::string &text) { return notAfter(parseMoment(text, now)); });
    const auto requireAny = [&selection](const std::vector<std::string> &patterns, auto make) {
        if (!patterns.empty())
            selection.require(make(patterns));
    };
    requireAny(arguments.producers, producerLike);
    requireAny(arguments.symbols, symbolLike);
    requireAny(arguments.classes, classLike);
    for (const std::string &value : arguments.fieldValues)
        require(selection, "--field", value, fieldLike);
    require(selection, "--message", arguments.message, messageHolding);
    return selection;
}

int widthOf(const Arguments &arguments) {
    const char *column = getenv("LOGCOLUMN");
    if (arguments.width)
        return *arguments.width;
    return column != nullptr ? atoi(column) : terminalColumns(STDOUT_FILENO);
}

ViewSettings settingsOf(const Arguments &arguments) {
    ViewSettings settings;
    settings.selection = selectionOf(arguments);
    settings.width = widthOf(arguments);
    settings.visible = arguments.visible;
    settings.raw = arguments.raw && !isatty(STDOUT_FILENO);
    settings.onlyRecords = arguments.onlyRecords || !arguments.fields.empty();
    settings.fields = arguments.fields;
    settings.colour = arguments.colour == "always" ||
                      (arguments.colour == "auto" && terminalTakesColour(STDOUT_FILENO));
    return settings;
}

void setUpExpansion(const Arguments &arguments) {
    setenv("LOGROOT", arguments.root.c_str(), 1); // where the library looks for its files
    chgExpansionCutoff(0);                        // the view wraps
    if (const char *prefix = getenv("LOGCONTPREFIX"))
        chgContinuationPrefix(prefix);
    char *mistake = nullptr;
    if (!arguments.fields.empty() && vfySynFields(-1, arguments.fields.c_str(), &mistake, 0) == 0)
        throw UsageMistake("--template: " +
                           std::string(mistake == nullptr ? "not a template" : mistake));
    if (!arguments.format)
        return;
    chgExpansionFmt(arguments.format->c_str()); // tells on standard error what it does not take
    if (getExpansionFmt() == nullptr)
        throw UsageMistake("--format: not a layout");
}

// Standard output, through the last entries alone while the past is read.
class Output {
  public:
    explicit Output(size_t last) : last_(last) {}
    void write(const std::string &text) {
        if (text.empty())
            return;
        if (last_ == 0) {
            fwrite(text.data(), 1, text.size(), stdout);
            return;
        }
        held_.push_back(text);
        if (held_.size() > last_)
            held_.pop_front();
    }
    // The past is read: what is held goes out, and all that comes.
    void release() {
        last_ = 0;
        for (const std::string &text : held_)
            write(text);
        held_.clear();
    }

  private:
    size_t last_; // 0: nothing is held
    std::deque<std::string> held_;
};

class Reader {
  public:
    explicit Reader(const Arguments &arguments)
        : arguments_(arguments), view_(settingsOf(arguments)), output_(arguments.last) {
        for (const std::string &file : arguments.files)
            inputs_.emplace_back(file);
        if (inputs_.empty())
            inputs_.emplace_back("-");
    }

    int run() {
        for (Input &input : inputs_)
            readPast(input);
        output_.release();
        if (arguments_.follow)
            followAll();
        for (Input &input : inputs_) {
            if (input.isOpen())
                readOn(input, false); // what came before the signal did
            input.finish(consumer_);
        }
        tellSummary();
        if (fflush(stdout) != 0 || ferror(stdout))
            throw systemFailure("standard output", errno);
        return failed_ || !view_.allExpanded() ? EXIT_FAILED : EXIT_FINE;
    }

  private:
    void readPast(Input &input) {
        if (!input.open()) {
            reportError(input.path(), 0,
                        std::string(strerror(errno)) +
                            (arguments_.follow ? ": waiting for it" : ""));
            failed_ = failed_ || !arguments_.follow;
            return;
        }
        readOn(input, !arguments_.follow);
        if (!arguments_.follow)
            input.finish(consumer_);
    }

    bool readOn(Input &input, bool mayWait) {
        try {
            return input.read(consumer_, mayWait);
        } catch (const WorkFailed &error) {
            reportError(error.what());
            failed_ = true;
            input.close();
            return false;
        }
    }

    bool allEnded() const {
        for (const Input &input : inputs_)
            if (!input.ended())
                return false;
        return true;
    }

    void followOne(Input &input) {
        if (!input.isOpen() && !input.open())
            return;
        readOn(input, false);
        if (input.isOpen() && input.replaced()) {
            readOn(input, false); // what came before the name was taken
            input.finish(consumer_);
            input.close();
        }
    }

    void followAll() {
        constexpr timespec PAUSE = {0, 100'000'000};
        struct sigaction action = {};
        action.sa_handler = askEnd;
        sigaction(SIGINT, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
        fflush(stdout);
        while (!endAsked && !allEnded()) {
            nanosleep(&PAUSE, nullptr);
            for (Input &input : inputs_)
                followOne(input);
            fflush(stdout);
        }
    }

    void tellSummary() const {
        const std::string summary = view_.summary();
        fflush(stdout);
        if (!summary.empty())
            reportError(summary);
        if (!view_.allExpanded() && getenv("TEXTLOGFMT") == nullptr) {
            const std::string texts = arguments_.root + "/textLogFmt";
            if (access(texts.c_str(), R_OK) != 0)
                reportError(texts, 0, strerror(errno));
        }
    }

    const Arguments &arguments_;
    View view_;
    Output output_;
    std::vector<Input> inputs_;
    bool failed_ = false;
    Input::Consumer consumer_ = [this](const LogEntry &entry) { output_.write(view_.show(entry)); };
};

int show(const Arguments &arguments) {
    try {
        setUpExpansion(arguments);
        Reader reader(arguments);
        return reader.run();
    } catch (const UsageMistake &mistake) {
        reportError(mistake.what());
        return EXIT_USAGE;
    }
}

void declareOptions(CLI::App &app, Arguments &arguments) {
    app.add_option("files", arguments.files, "Log files; \"-\" or none: standard input")
        ->type_name("FILE");
    app.add_option("--log-root", arguments.root, "Where the catalogue is (LOGROOT)")
        ->type_name("DIR");
    app.add_option("--format", arguments.format, "Layout of a record (LOGFORMAT)")
        ->type_name("TEXT");
    app.add_option("--width", arguments.width, "Columns to wrap at, 0 for none")
        ->type_name("N")
        ->check(CLI::Validator(CLI::NonNegativeNumber).description(""));
    app.add_option("--color,--colour", arguments.colour, "By priority: auto, always, never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    app.add_option("--last", arguments.last, "Only the last N entries there are")->type_name("N");
    app.add_flag("-f,--follow", arguments.follow, "Go on as the files grow or are replaced");
    app.add_flag("--visible", arguments.visible, "Show line feeds and tabs as \\n and \\t too");
    app.add_flag("--raw", arguments.raw, "Control characters as they are, to no terminal");
    app.add_flag("--only-records", arguments.onlyRecords, "Leave out lines that are no records");
    app.add_option("--priority", arguments.priority, "Such as 3, 2-, 0,2-3")->type_name("LIST");
    app.add_option("--number", arguments.number, "Message numbers")->type_name("LIST");
    const auto repeatable = [&app](const char *name, std::vector<std::string> &values,
                                   const char *type, const char *help) {
        app.add_option(name, values, help)->type_name(type)->allow_extra_args(false);
    };
    repeatable("--producer", arguments.producers, "NAME", "Process names, * and ? allowed");
    repeatable("--symbol", arguments.symbols, "NAME", "Message symbols, likewise");
    repeatable("--class", arguments.classes, "NAME", "Message classes, likewise");
    repeatable("--field", arguments.fieldValues, "NAME=VALUE", "A named field's value, likewise");
    app.add_option("--message", arguments.message, "Messages that hold the text")
        ->type_name("TEXT");
    app.add_option("--template", arguments.fields, "A line with synthetic fields for each record")
        ->type_name("TEXT");
    app.add_option("--since", arguments.since, "2026-03-01[ 12:30], 12:30, @seconds, 15m (ago)")
        ->type_name("TIME");
    app.add_option("--until", arguments.until, "Likewise")->type_name("TIME");
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app(
        "Shows log files as text. What cannot be read is shown marked, and counted at the end.");
    Arguments arguments;
    describeTool(app, "qnlog", USES);
    declareOptions(app, arguments);
    return runTool(app, argc, argv, [&] { return show(arguments); });
}

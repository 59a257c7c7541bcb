/* qnlog: shows log files. */
#include "arguments.h"
#include "form.h"
#include "help.h"

#include "../common/output.h"
#include "../common/pager.h"
#include "../common/progress.h"
#include "../common/terminal.h"

#include "log/expandLog.h"
#include "log/synLogFlds.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t endAsked = 0;

void askEnd(int) {
    endAsked = 1;
}

bool toTerminal() {
    static const bool terminal = isatty(STDOUT_FILENO) == 1; // before a pager takes its place
    return terminal;
}

bool colourWanted(const Arguments &arguments) {
    return arguments.colour == "always" ||
           (arguments.colour == "auto" && terminalTakesColour(STDOUT_FILENO));
}

int widthOf(const Arguments &arguments) {
    const char *column = getenv("LOGCOLUMN");
    if (arguments.width)
        return *arguments.width;
    return column != nullptr ? atoi(column) : terminalColumns(STDOUT_FILENO);
}

std::unique_ptr<Form> statistics(const Arguments &arguments, Account &account) {
    constexpr int NARROWEST = 40;
    StatisticsStyle style;
    const int width = widthOf(arguments);
    style.width = width == 0 ? style.width : std::max(width, NARROWEST);
    style.colour = colourWanted(arguments);
    style.blocks = localeIsUtf8();
    return statisticsForm(account, style);
}

std::unique_ptr<Form> formOf(const Arguments &arguments, Account &account) {
    const bool raw = arguments.raw && !toTerminal();
    if (arguments.json)
        return jsonForm(account);
    if (arguments.csv)
        return csvForm(account, toTerminal());
    if (arguments.statistics)
        return statistics(arguments, account);
    if (!arguments.fields.empty())
        return templateForm(account, arguments.fields, raw);
    TextStyle style;
    style.width = widthOf(arguments);
    style.visible = arguments.visible;
    style.raw = raw;
    style.onlyRecords = arguments.onlyRecords;
    style.colour = colourWanted(arguments);
    return textForm(account, style);
}

// The layout of a record: what was asked for, or for programs the message alone.
void setLayout(const Arguments &arguments) {
    if (arguments.format)
        chgExpansionFmt(arguments.format->c_str()); // tells on standard error what it does not take
    else if (arguments.json || arguments.csv)
        chgExpansionFmt("%M");
    else
        expandLog(nullptr); // takes it from the environment, or the default
    if (getExpansionFmt() == nullptr)
        throw UsageMistake("--format: not a layout");
}

void setUpExpansion(const Arguments &arguments) {
    setenv("LOGROOT", arguments.root.c_str(), 1); // where the library looks for its files
    chgExpansionCutoff(0);                        // the form wraps
    if (const char *prefix = getenv("LOGCONTPREFIX"))
        chgContinuationPrefix(prefix);
    char *mistake = nullptr;
    if (!arguments.fields.empty() && vfySynFields(-1, arguments.fields.c_str(), &mistake, 0) == 0)
        throw UsageMistake("--template: " +
                           std::string(mistake == nullptr ? "not a template" : mistake));
    setLayout(arguments);
}

std::vector<std::string> filesOf(const Arguments &arguments) {
    return arguments.files.empty() ? std::vector<std::string>{"-"} : arguments.files;
}

class Reader {
  public:
    explicit Reader(const Arguments &arguments)
        : arguments_(arguments), selection_(selectionOf(arguments.filters)),
          form_(formOf(arguments, account_)), progress_(filesOf(arguments)),
          output_([this] { beforeOutput(); }),
          logs_(filesOf(arguments), arguments.follow ? Input::Mode::FOLLOWED : Input::Mode::TO_END,
                rangeOf(arguments.filters, time(nullptr)), &progress_) {}

    int run() {
        form_->begin(output_.text());
        showPast();
        if (arguments_.follow)
            followAll();
        form_->end(output_.text());
        progress_.stop();
        output_.flush();
        tellSummary();
        return logs_.anyFailed() || !account_.allExpanded() ? EXIT_FAILED : EXIT_FINE;
    }

  private:
    void beforeOutput() {
        if (!toTerminal())
            return;
        progress_.stop();
        if (!arguments_.noPager && !arguments_.follow)
            startPager();
    }

    void show(Record &record, std::string &text) {
        if (record.kind() != Record::Kind::RECORD)
            form_->showOther(record, text);
        else if (selection_.accepts(record))
            form_->showRecord(record, text);
    }

    void showPast() {
        std::deque<std::string> held; // of the last entries, where they alone are wanted
        while (Record *record = logs_.next()) {
            if (arguments_.last == 0) {
                show(*record, output_.text());
                output_.pass();
                continue;
            }
            std::string text;
            show(*record, text);
            if (!text.empty())
                held.push_back(std::move(text));
            if (held.size() > arguments_.last)
                held.pop_front();
        }
        for (const std::string &text : held)
            output_.text() += text;
    }

    void drain(TimedInput &log) {
        while (log.advance())
            show(log.record, output_.text());
    }

    void followOne(TimedInput &log) {
        if (!log.input.isOpen() && !log.open())
            return;
        drain(log);
        if (!log.input.replaced())
            return;
        drain(log); // what came before the name was taken
        log.input.finish();
        drain(log);
        log.input.close();
    }

    bool allEnded() const {
        return std::all_of(logs_.inputs.begin(), logs_.inputs.end(),
                           [](const auto &log) { return log->input.ended(); });
    }

    void followAll() {
        constexpr timespec PAUSE = {0, 100'000'000};
        struct sigaction action = {};
        action.sa_handler = askEnd;
        sigaction(SIGINT, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
        progress_.stop();
        output_.flush();
        while (!endAsked && !allEnded()) {
            nanosleep(&PAUSE, nullptr);
            for (const auto &log : logs_.inputs)
                followOne(*log);
            output_.flush();
        }
        for (const auto &log : logs_.inputs) {
            drain(*log); // what came before the signal did
            log->input.finish();
            drain(*log);
        }
    }

    void tellSummary() const {
        const std::string summary = account_.summary();
        if (!summary.empty())
            reportError(summary);
        if (!account_.allExpanded() && getenv("TEXTLOGFMT") == nullptr) {
            const std::string texts = arguments_.root + "/textLogFmt";
            if (access(texts.c_str(), R_OK) != 0)
                reportError(texts, 0, strerror(errno));
        }
    }

    const Arguments &arguments_;
    Account account_;
    Selection selection_;
    std::unique_ptr<Form> form_;
    Progress progress_;
    Output output_;
    MergedLogs logs_;
};

int show(const CLI::App &app, Arguments &arguments) {
    try {
        collectFilters(app, arguments);
        setUpExpansion(arguments);
        return Reader(arguments).run();
    } catch (const UsageMistake &mistake) {
        reportError(mistake.what());
        return EXIT_USAGE;
    }
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Shows log files");
    Arguments arguments;
    describeTool(app, "qnlog", "");
    app.formatter_fn([](const CLI::App *, std::string, CLI::AppFormatMode) { return HELP; });
    declareOptions(app, arguments);
    return runTool(app, argc, argv, [&] { return show(app, arguments); });
}

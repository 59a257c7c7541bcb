/* qnlogedit: rewrites the records of a log. What it cannot parse passes through unchanged. */
#include "../common/commandLine.h"
#include "../common/input.h"
#include "../common/output.h"
#include "../common/progress.h"
#include "../common/report.h"
#include "../common/terminal.h"

#include "log/logMsg.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char *USES = R"(Uses:
  qnlogedit --shift=-3600 logfile.1 > logfile.corrected
      the clock was an hour ahead
  qnlogedit --producer replay --priority 0 logfile | qnlog
      show records as a replay of them would look)";

constexpr uint32_t PLAIN_FLAGS = 0x100; // the plain entry points' word

struct Arguments {
    std::vector<std::string> files;
    std::optional<int32_t> priority;
    std::optional<int64_t> shift; // seconds
    std::optional<std::string> producer;
};

class Editor {
  public:
    explicit Editor(const Arguments &arguments) : arguments_(arguments) {}

    int run() {
        for (const std::string &file : arguments_.files)
            edit(file);
        if (arguments_.files.empty())
            edit("-");
        progress_.stop();
        output_.flush();
        if (unshifted_ > 0)
            reportError(std::to_string(unshifted_) +
                        " records keep their time: it would leave 32 bits");
        return failed_ || unshifted_ > 0 ? EXIT_FAILED : EXIT_FINE;
    }

  private:
    void edit(const std::string &file) {
        Input input(file, Input::Mode::TO_END, &progress_);
        if (!input.open()) {
            reportError(file, 0, strerror(errno));
            failed_ = true;
            return;
        }
        while (const std::optional<LogEntry> entry = input.next())
            write(*entry);
    }

    void write(const LogEntry &entry) {
        const std::string bytes(entry.bytes);
        const std::string edited = entry.cut ? bytes : editedRecord(bytes);
        if (toTerminal_) {
            progress_.stop();
            appendWithoutControls(output_.text(), edited);
        } else {
            output_.text() += edited;
        }
        if (entry.hasLineFeed)
            output_.text() += '\n';
        output_.pass();
    }

    std::string editedRecord(const std::string &bytes) {
        if (bytes.find('\0') != std::string::npos)
            return bytes;
        std::string text = bytes;
        LogMsg *msg = parseCmpLogEnhanced(text.data(), 0, PLAIN_FLAGS);
        if (msg == nullptr)
            return bytes;
        change(*msg);
        const std::string edited = msg->record;
        freeLogMsg(msg);
        return edited;
    }

    void change(LogMsg &msg) {
        if (arguments_.priority)
            chgPriorityLogMsg(&msg, *arguments_.priority);
        if (arguments_.shift)
            shift(msg);
        if (arguments_.producer && chgProducerLogMsg(&msg, arguments_.producer->c_str()) == nullptr)
            throw WorkFailed("a record could not be rewritten: no memory");
    }

    void shift(LogMsg &msg) {
        const int64_t time = msg.time + *arguments_.shift;
        if (time < INT32_MIN || time > INT32_MAX)
            ++unshifted_;
        else
            chgTimeLogMsg(&msg, static_cast<int32_t>(time));
    }

    const Arguments &arguments_;
    Progress progress_{arguments_.files};
    Output output_;
    const bool toTerminal_ = isatty(STDOUT_FILENO) == 1;
    size_t unshifted_ = 0;
    bool failed_ = false;
};

// Other names would end where a reader looks for the file.
std::string checkProducer(const std::string &name) {
    for (const char ch : name)
        if (ch <= ' ' || ch > '~')
            return "a process name holds graphic characters only";
    return "";
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Rewrites the records of log files, and writes them to standard output.");
    Arguments arguments;
    describeTool(app, "qnlogedit", USES);
    app.add_option("files", arguments.files, "Log files; \"-\" or none: standard input")
        ->type_name("FILE");
    app.add_option("--priority", arguments.priority, "The new priority, 0 to 4")
        ->type_name("N")
        ->check(CLI::Validator(CLI::Range(0, 4)).description(""));
    app.add_option("--shift", arguments.shift, "Seconds to add to each time (--shift=-60)")
        ->type_name("SECONDS")
        ->check(CLI::Validator(CLI::Range(-4294967296LL, 4294967296LL)).description(""));
    app.add_option("--producer", arguments.producer, "The new process name")
        ->type_name("NAME")
        ->check(CLI::Validator(checkProducer, ""));
    return runTool(app, argc, argv, [&] { return Editor(arguments).run(); });
}

/* qnlogd: the log daemon. It reads the records that clients send through the log root's pipe and
 * appends them to the log file. One thread, which waits in one place; signals arrive only there. */
#include "logFile.h"
#include "logPipe.h"
#include "recordFrames.h"

#include "../common/commandLine.h"
#include "../common/report.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <poll.h>

namespace {

constexpr const char *USES = R"(Uses:
  qnlogd --log-root /var/log/voice
      read logpipe there, append to logfile, until SIGTERM
  mv logfile logfile.1 && kill -HUP PID
      rotate: records go to a new logfile from then on

It stays in the foreground. SIGTERM ends it once all that was sent is written.
While the disk is full it keeps records up to --keep bytes; then it stops
reading, so that clients see their records refused.)";

constexpr size_t DEFAULT_KEEP = 16 << 20;
constexpr size_t BATCH_BYTES = 128 << 10; // between two looks at the signals

struct Arguments {
    std::string root = defaultLogRoot();
    std::string file = "logfile";
    std::string pipeMode = "0620";
    size_t keep = DEFAULT_KEEP;
    bool quiet = false;
};

volatile std::sig_atomic_t endAsked = 0;
volatile std::sig_atomic_t reopenAsked = 0;

void askEnd(int) {
    endAsked = 1;
}

void askReopen(int) {
    reopenAsked = 1;
}

/* Blocks the signals, for good but while waiting; answers the mask for that. */
sigset_t takeSignals() {
    sigset_t ours;
    sigset_t before;
    sigemptyset(&ours);
    for (const int each : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction action = {};
        action.sa_handler = each == SIGHUP ? askReopen : askEnd;
        sigaction(each, &action, nullptr);
        sigaddset(&ours, each);
    }
    sigprocmask(SIG_BLOCK, &ours, &before);
    for (const int each : {SIGTERM, SIGINT, SIGHUP})
        sigdelset(&before, each);
    signal(SIGXFSZ, SIG_IGN); // a file at its size limit is a full disk
    signal(SIGPIPE, SIG_IGN); // reports that nobody reads are no reason to stop logging
    return before;
}

/* A poll that finds bytes at once lets no signal in: a pipe that is never empty would keep them out
   for good. */
void letSignalsIn(const sigset_t &whileWaiting) {
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, &whileWaiting, &blocked);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
}

class Daemon {
  public:
    explicit Daemon(const Arguments &arguments)
        : arguments_(arguments), pipe_(arguments.root + "/logpipe"),
          file_(arguments.file[0] == '/' ? arguments.file : arguments.root + "/" + arguments.file,
                arguments.keep) {}

    int run() {
        // The file first: a daemon that cannot write must not take records out of the pipe.
        file_.open();
        pipe_.open(static_cast<mode_t>(std::stoul(arguments_.pipeMode, nullptr, 8)));
        const sigset_t whileWaiting = takeSignals();
        pipe_.recover(consumer_);
        file_.flush();
        tell("reading " + arguments_.root + "/logpipe");
        while (!endAsked) {
            wait(whileWaiting);
            if (reopenAsked) {
                reopenAsked = 0;
                file_.reopen();
            }
            receiveBatch();
            file_.flush();
        }
        return end();
    }

  private:
    void tell(const std::string &what) const {
        if (arguments_.quiet)
            return;
        printf("%s\n", what.c_str());
        fflush(stdout);
    }

    // Until there is something to read, a signal, or time to try the file again. Not at all where
    // the end of the pipe has not been seen: a frame may wait for it.
    void wait(const sigset_t &whileWaiting) const {
        constexpr timespec RETRY = {1, 0};
        constexpr timespec NO_TIME = {0, 0};
        const timespec *limit = file_.failing() ? &RETRY : nullptr;
        if (!file_.full() && !pipe_.isDrained())
            limit = &NO_TIME;
        pollfd each = {file_.full() ? -1 : pipe_.fd(), POLLIN, 0};
        const int count = ppoll(&each, 1, limit, &whileWaiting);
        if (count < 0 && errno != EINTR)
            throw systemFailure("ppoll", errno);
        if (count > 0)
            letSignalsIn(whileWaiting);
    }

    void take(std::string_view body) {
        std::string_view record = body.substr(DESTINATION_BYTES);
        if (record.back() == '\n') // of a body that was sent as a line
            record.remove_suffix(1);
        file_.add(record);
    }

    // Answers the bytes that came; 0 when the pipe is empty or the file takes no more.
    size_t receiveBatch() {
        size_t bytes = 0;
        while (bytes < BATCH_BYTES && !file_.full()) {
            const size_t count = pipe_.receive(consumer_);
            if (count == 0)
                break;
            bytes += count;
        }
        return bytes;
    }

    /* Everything that clients were told is sent is still taken, but those that go on writing must
       not keep the daemon alive: what the pipe holds now comes first, and then it is closed until
       nothing was written in the meantime. */
    int end() {
        constexpr int CLOSINGS = 10000; // one in two or so finds nothing, however busy the clients
        for (size_t left = pipe_.waiting() + 1, count = 1; left > 0 && count > 0;) {
            count = receiveBatch();
            left -= std::min(left, count);
            if (!file_.flush())
                break;
        }
        for (int left = CLOSINGS; left > 0 && file_.flush() && !pipe_.close(consumer_); left--) {
        }
        const size_t lost = file_.end();
        if (lost > 0)
            reportError(std::to_string(lost) + " records could not be written and are lost");
        if (pipe_.waiting() > 0)
            reportError(std::to_string(pipe_.waiting()) + " bytes stay in the pipe");
        tell(std::to_string(file_.recordsWritten()) + " records written");
        return lost > 0 ? EXIT_FAILED : EXIT_FINE;
    }

    const Arguments &arguments_;
    LogPipe pipe_;
    LogFile file_;
    LogPipe::Consumer consumer_ = [this](std::string_view body) { take(body); };
};

std::string notOctalMode(const std::string &text) {
    const bool octal = !text.empty() && text.size() <= 4 &&
                       text.find_first_not_of("01234567") == std::string::npos;
    return octal && std::stoul(text, nullptr, 8) != 0 ? "" : "must be an octal mode such as 0620";
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Appends what clients send through the log root's pipe to a log file.");
    Arguments arguments;
    describeTool(app, "qnlogd", USES);
    app.add_option("--log-root", arguments.root, "Where pipe and file are (LOGROOT)")
        ->type_name("DIR");
    app.add_option("--file", arguments.file, "The log file, under the log root (logfile)")
        ->type_name("NAME")
        ->check(
            [](const std::string &name) { return std::string(name.empty() ? "is empty" : ""); });
    app.add_option("--pipe-mode", arguments.pipeMode, "Mode of a pipe that it makes (0620)")
        ->type_name("OCTAL")
        ->check(notOctalMode);
    app.add_option("--keep", arguments.keep, "Bytes kept while the disk is full (16777216)")
        ->type_name("BYTES")
        ->check(CLI::Validator(CLI::PositiveNumber).description(""));
    app.add_flag("-q,--quiet", arguments.quiet, "No word when it is ready, nor at the end");
    return runTool(app, argc, argv, [&] { return Daemon(arguments).run(); });
}

/* qnlog as a whole process on a file of QUARNEL_BENCH_RECORDS records (2,000,000), against what
   shows and searches any file. One record in a hundred has priority 4. All write to a file. */
#include "support/bench.h"
#include "support/logRoot.h"

#include "log/log.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char *TEXT = "no answer from the far end within the time set";
constexpr unsigned SECONDS = 45;
constexpr long RECORDS_A_SECOND = 20;
constexpr size_t DESTINATION_DIGITS = 8; // on the pipe only

using Words = std::vector<std::string>;

void run(const Words &words, const std::string &output) {
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t child = -1;
    int status = -1;
    if (posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) != 0 ||
        waitpid(child, &status, 0) != child || status != 0) {
        fprintf(stderr, "benchmark: %s failed\n", arguments[0]);
        exit(1);
    }
    posix_spawn_file_actions_destroy(&actions);
}

// A log root with the log, and its text as qnlog shows it.
class LargeLog {
  public:
    LargeLog() {
        setenv("LOGROOT", root_.path(), 1);
        setenv("LC_ALL", "C", 1); // grep's fastest
        const int reader = open(root_.pipe(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (loginit("callFlow", 1, 0, root_.path()) != 0) {
            fprintf(stderr, "benchmark: logging cannot begin\n");
            exit(1);
        }
        write();
        close(reader);
        logend();
        run({QNLOG_PROGRAM, log()}, text());
    }
    std::string log() const { return root_.file("log"); }
    std::string text() const { return root_.file("text"); }
    std::string output() const { return root_.file("output"); }

  private:
    void write() const {
        const char *wanted = getenv("QUARNEL_BENCH_RECORDS");
        const long count = wanted == nullptr ? 2'000'000 : atol(wanted);
        std::ofstream stream(log(), std::ios::binary);
        for (long i = 0; i < count; i++) {
            const char *record =
                fmtEvent(BenchRoot::NUMBER, 1, i % 100 == 7 ? 4 : 0, "callFlow.cpp", 217,
                         static_cast<int>(i % 90), TEXT, SECONDS);
            std::string line = record + DESTINATION_DIGITS;
            char time[16];
            snprintf(time, sizeof time, "%.8lX", 0x65920080 + i / RECORDS_A_SECOND);
            line.replace(line.find('\x1C') + 2, 8, time);
            stream << line << '\n';
        }
    }
    BenchRoot root_;
};

const LargeLog &log() {
    static const LargeLog made;
    return made;
}

void measure(benchmark::State &state, const Words &words) {
    for (auto _ : state)
        run(words, log().output());
}

void showAll(benchmark::State &state) {
    measure(state, {QNLOG_PROGRAM, log().log()});
}
QN_BENCHMARK_WHOLE("qnlogAll/library", showAll);

void showText(benchmark::State &state) {
    measure(state, {"cat", "-v", log().text()});
}
QN_BENCHMARK_WHOLE("qnlogAll/cat", showText);

void showOnePercent(benchmark::State &state) {
    measure(state, {QNLOG_PROGRAM, "--priority", "4", log().log()});
}
QN_BENCHMARK_WHOLE("qnlogFiltered/library", showOnePercent);

void searchOnePercent(benchmark::State &state) {
    measure(state, {"grep", "-F", " \x1C\x34", log().log()});
}
QN_BENCHMARK_WHOLE("qnlogFiltered/grep", searchOnePercent);

} // namespace

BENCHMARK_MAIN();

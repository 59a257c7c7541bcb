/* What the benchmarks of the log client share: a client with a table of destinations, a pipe that
   always has room, and the floor of one write(2) of the same bytes. To be included once in a
   program. */
#ifndef BENCH_SUPPORT_PIPELOG_H
#define BENCH_SUPPORT_PIPELOG_H

#include "support/bench.h"
#include "support/logRoot.h"

#include "log/log.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

// Three arguments and some 120 bytes on the wire.
constexpr int LINE = 217;
constexpr const char *SOURCE = "callFlow.cpp";
constexpr const char *TEXT = "no answer from the far end within the time set";
constexpr unsigned SECONDS = 45;

const BenchRoot &root() {
    static const BenchRoot made;
    return made;
}

// The reader's end of a pipe that always has room: emptied between measured stretches.
class DrainedPipe {
  public:
    explicit DrainedPipe(const std::string &path) : fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK)) {
        fcntl(fd_, F_SETPIPE_SZ, 1 << 20);
    }
    void drainSometimes(benchmark::State &state) {
        if (++written_ % 1000 != 0)
            return;
        state.PauseTiming();
        char block[65536];
        while (read(fd_, block, sizeof block) > 0) {
        }
        state.ResumeTiming();
    }

  private:
    int fd_;
    unsigned written_ = 0;
};

DrainedPipe &logPipe() {
    static DrainedPipe pipe(root().pipe());
    return pipe;
}

void startLogging() {
    static const bool started = [] {
        logPipe();
        root().makeTable();
        return loginit("callFlow", 1, 0, root().path()) == 0;
    }();
    if (!started)
        abort();
}

char *sendOne() {
    return logMsg(BenchRoot::NUMBER, SOURCE, LINE, 7, TEXT, SECONDS);
}

void logMsgIntoPipe(benchmark::State &state) {
    startLogging();
    for (auto _ : state) {
        if (sendOne() == nullptr)
            state.SkipWithError("a record was refused");
        logPipe().drainSometimes(state);
    }
}

void writeSameBytes(benchmark::State &state) {
    startLogging();
    static const int fd = open(root().pipe(), O_WRONLY | O_NONBLOCK);
    char *body = sendOne();
    char frame[512];
    const int size = snprintf(frame, sizeof frame, "%.3zu%.8X%s", strlen(body) + 8, 1U, body);
    for (auto _ : state) {
        if (write(fd, frame, static_cast<size_t>(size)) != size)
            state.SkipWithError("the pipe is full");
        logPipe().drainSometimes(state);
    }
}

} // namespace

#endif

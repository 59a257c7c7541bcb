/* Frames through a pipe, against the reads that they cannot do without. */
#include "support/bench.h"

#include "core/ipcComm.h"

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

constexpr int HEADER = 3;
constexpr int BODY = 120; // a log record's usual length
constexpr int FRAMES = 4000;

// A pipe that always holds a frame: filled between measured stretches.
class FilledPipe {
  public:
    FilledPipe() {
        for (int frame = 0; frame < FRAMES; ++frame)
            frames_ += std::to_string(BODY) + std::string(BODY, 'r');
        if (pipe(ends_) != 0 || fcntl(ends_[0], F_SETPIPE_SZ, 1 << 20) < 0)
            abort();
    }
    int reader() const { return ends_[0]; }
    void fillWhereEmpty(benchmark::State &state) {
        if (left_-- > 0)
            return;
        state.PauseTiming();
        if (write(ends_[1], frames_.data(), frames_.size()) != static_cast<ssize_t>(frames_.size()))
            abort();
        left_ = FRAMES - 1;
        state.ResumeTiming();
    }

  private:
    int ends_[2];
    int left_ = 0;
    std::string frames_;
};

void receive(benchmark::State &state) {
    static FilledPipe pipe;
    static IpcChannel channel = {pipe.reader(), 0, 0, 0, nullptr};
    for (auto _ : state) {
        pipe.fillWhereEmpty(state);
        if (ipcRecv(&channel) != BODY)
            state.SkipWithError("a frame was lost");
    }
}
QN_BENCHMARK("ipcRecv/library", receive);

void readTwice(benchmark::State &state) {
    static FilledPipe pipe;
    char header[HEADER], body[BODY];
    for (auto _ : state) {
        pipe.fillWhereEmpty(state);
        if (read(pipe.reader(), header, HEADER) != HEADER ||
            read(pipe.reader(), body, BODY) != BODY)
            state.SkipWithError("a frame was lost");
    }
}
QN_BENCHMARK("ipcRecv/read", readTwice);

} // namespace

BENCHMARK_MAIN();

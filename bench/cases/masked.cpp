/* The logging client on a kernel that cannot leave the SIGPIPE out of a write: the library's call
   is refused here, so that it falls back to the signal mask. */
#include "support/pipeLog.h"

#include <cerrno>
#include <csignal>
#include <sys/uio.h>

static ssize_t refuse() {
    errno = EOPNOTSUPP;
    return -1;
}

// By both names, the second being that of large files on i386.
extern "C" ssize_t pwritev2(int, const iovec *, int, off_t, int) {
    return refuse();
}
extern "C" ssize_t pwritev64v2(int, const iovec *, int, off64_t, int) {
    return refuse();
}

namespace {

QN_BENCHMARK("logMsgMasked/library", logMsgIntoPipe);
QN_BENCHMARK("logMsgMasked/write", writeSameBytes);

// What the documented steps cannot do without: the signal blocked, the write, the mask given back.
void systemCallsAlone(benchmark::State &state) {
    startLogging();
    static const int fd = open(root().pipe(), O_WRONLY | O_NONBLOCK);
    const std::string frame(strlen(sendOne()) + 11, 'f');
    sigset_t sigpipe, before;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    for (auto _ : state) {
        pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
        if (write(fd, frame.data(), frame.size()) < 0)
            state.SkipWithError("the pipe is full");
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        logPipe().drainSometimes(state);
    }
}
QN_BENCHMARK("logMsgMasked/calls", systemCallsAlone);

} // namespace

BENCHMARK_MAIN();

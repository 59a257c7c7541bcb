/* The logging client on a kernel that cannot leave the SIGPIPE out of a write: the library's call
   is refused here, so that it falls back to the signal mask. */
#include "support/pipeLog.h"

#include <cerrno>
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

} // namespace

BENCHMARK_MAIN();

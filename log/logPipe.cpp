#include "logPipe.h"

#include "../core/ipcFrame.h"
#include "../core/mkcopy.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

static int32_t pipeEnd = -1; // the descriptor; -1: closed
static char *pipePath;       // owned; null before the first opening

[[gnu::cold]] static bool reopen() {
    if (pipeEnd >= 0)
        close(pipeEnd);
    pipeEnd = -1;
    if (pipePath == nullptr)
        errno = ENOENT; // as a missing path does
    else
        pipeEnd = open(pipePath, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    return pipeEnd >= 0;
}

static bool sigpipeIsPending() {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

// Takes back the SIGPIPE that a failed write left pending for this thread. Where one was pending
// before, both merged, and the application gets its own again; but if that one was sent to the
// process it did not merge, and is pending still. Keeps errno.
[[gnu::cold]] static void takeSigpipe(const sigset_t *sigpipe, bool wasPending) {
    const int error = errno;
    const timespec noWait = {0, 0};
    while (sigtimedwait(sigpipe, nullptr, &noWait) == -1 && errno == EINTR) {
    }
    if (wasPending && !sigpipeIsPending())
        pthread_kill(pthread_self(), SIGPIPE);
    errno = error;
}

static const sigset_t *sigpipeAlone() {
    static sigset_t alone;
    static bool isMade;
    if (!isMade) {
        sigemptyset(&alone);
        sigaddset(&alone, SIGPIPE);
        isMade = true;
    }
    return &alone;
}

// Writes with SIGPIPE blocked in this thread. A thread that had it unblocked can have had none
// pending, so only one that had it blocked is asked.
static ssize_t writeMasked(int fd, const void *bytes, size_t count) {
    const sigset_t *const sigpipe = sigpipeAlone();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, sigpipe, &before);
    const bool wasBlocked = sigismember(&before, SIGPIPE) == 1;
    const bool wasPending = wasBlocked && sigpipeIsPending();
    const ssize_t written = write(fd, bytes, count);
    if (written == -1 && errno == EPIPE)
        takeSigpipe(sigpipe, wasPending);
    if (!wasBlocked)
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return written;
}

#ifndef RWF_NOSIGNAL
static constexpr int RWF_NOSIGNAL = 0x100; // of Linux 6.18
#endif

// How a kernel, or a filter of calls, says that it knows no such write; anything else is the
// write's own failure.
static bool isRefusal(int error) {
    return error == EOPNOTSUPP || error == ENOSYS || error == EINVAL || error == EPERM ||
           error == EACCES;
}

// Writes without a SIGPIPE: the kernel leaves it out where it can, at the cost of the write alone.
static ssize_t writeQuietly(int fd, const void *bytes, size_t count) {
    static bool isRefused;
    if (!__atomic_load_n(&isRefused, __ATOMIC_RELAXED)) {
        const iovec part = {const_cast<void *>(bytes), count};
        const ssize_t written = pwritev2(fd, &part, 1, -1, RWF_NOSIGNAL);
        if (written >= 0 || !isRefusal(errno))
            return written;
        __atomic_store_n(&isRefused, true, __ATOMIC_RELAXED);
    }
    return writeMasked(fd, bytes, count);
}

// Kept: the first record settles the granule of the process's channels, too.
static void settleGranule() {
    static bool isSettled;
    if (!isSettled)
        ipcSettleGranule();
    isSettled = true;
}

static bool writeFrame(char *record, size_t length) {
    settleGranule();
    const char *const frame = ipcPutHeader(record, length);
    if (frame == nullptr)
        return false;
    const ssize_t size = record + length - frame;
    const ssize_t written = writeQuietly(pipeEnd, frame, static_cast<size_t>(size));
    if (written >= 0 && written != size)
        errno = 0; // part of it is in the pipe, and no call failed
    return written == size;
}

bool openLogPipe(char *path) {
    freecopy(pipePath);
    pipePath = path;
    return reopen();
}

bool sendLogRecord(char *record, size_t length) {
    bool isFresh = pipeEnd < 0;
    while (!isFresh || reopen()) {
        if (writeFrame(record, length))
            return true;
        if (isFresh)
            return false;
        isFresh = true;
    }
    return false;
}

int32_t closeLogPipe(void) {
    // Kept: the number stays stored, the next record fails on it and reopens the pipe.
    return pipeEnd < 0 ? pipeEnd : close(pipeEnd);
}

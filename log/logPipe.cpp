#include "logPipe.h"

#include "../core/ipcSendBy.h"
#include "../core/mkcopy.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

static IpcChannel pipeEnd = {-1, 0, 0, 0, nullptr};
static char *pipePath; // owned; null before the first opening

static bool reopen() {
    if (pipeEnd.fd >= 0)
        close(pipeEnd.fd);
    pipeEnd.fd = -1;
    if (pipePath == nullptr)
        errno = ENOENT; // as a missing path does
    else
        pipeEnd.fd = open(pipePath, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    return pipeEnd.fd >= 0;
}

static bool sigpipeIsPending() {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

// Takes back the SIGPIPE that a failed write left pending for this thread. Where one was pending
// before, both merged, and the application gets its own again; but if that one was sent to the
// process it did not merge, and is pending still.
static void takeSigpipe(const sigset_t *sigpipe, bool wasPending) {
    const timespec noWait = {0, 0};
    while (sigtimedwait(sigpipe, nullptr, &noWait) == -1 && errno == EINTR) {
    }
    if (wasPending && !sigpipeIsPending())
        pthread_kill(pthread_self(), SIGPIPE);
}

// Writes with SIGPIPE blocked in this thread. A thread that had it unblocked can have had none
// pending, so only one that had it blocked is asked.
static ssize_t writeBlocking(int fd, const void *bytes, size_t count) {
    sigset_t sigpipe, before;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
    const bool wasBlocked = sigismember(&before, SIGPIPE) == 1;
    const bool wasPending = wasBlocked && sigpipeIsPending();
    const ssize_t written = write(fd, bytes, count);
    const int error = errno;
    if (written == -1 && error == EPIPE)
        takeSigpipe(&sigpipe, wasPending);
    if (!wasBlocked)
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

#ifndef RWF_NOSIGNAL
constexpr int RWF_NOSIGNAL = 0x100; // of Linux 6.18
#endif

// What a write that the kernel accepted can say; anything else is a kernel, or a filter of calls,
// that refuses the flag.
static bool isOfTheWrite(int error) {
    return error == EAGAIN || error == EPIPE || error == EINTR || error == EBADF || error == EIO;
}

// Writes without a SIGPIPE: the kernel leaves it out where it can, at the cost of the write alone.
static ssize_t writeQuietly(int fd, const void *bytes, size_t count) {
    static bool isRefused;
    if (!isRefused) {
        const iovec part = {const_cast<void *>(bytes), count};
        const ssize_t written = pwritev2(fd, &part, 1, -1, RWF_NOSIGNAL);
        if (written >= 0 || isOfTheWrite(errno))
            return written;
        isRefused = true;
    }
    return writeBlocking(fd, bytes, count);
}

static bool sendQuietly(const char *record) {
    char *const block = pipeEnd.buffer;
    const bool sent = ipcSendBy(&pipeEnd, record, writeQuietly) != -1;
    // A growth that failed left the old block to its readers: here there are none.
    if (pipeEnd.buffer == nullptr)
        free(block);
    return sent;
}

bool openLogPipe(char *path) {
    freecopy(pipePath);
    pipePath = path;
    return reopen();
}

bool sendLogRecord(const char *record) {
    if (pipeEnd.fd >= 0 && sendQuietly(record))
        return true;
    return reopen() && sendQuietly(record);
}

int32_t closeLogPipe(void) {
    // Kept: the number stays stored, the next record fails on it and reopens the pipe.
    return pipeEnd.fd < 0 ? pipeEnd.fd : close(pipeEnd.fd);
}

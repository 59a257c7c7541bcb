#include "logPipe.h"

#include "../core/ipcComm.h"
#include "../core/mkcopy.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
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

// Sends with SIGPIPE blocked in this thread. A thread that had it unblocked can have had none
// pending, so only one that had it blocked is asked.
static bool sendQuietly(const char *record) {
    sigset_t sigpipe, before;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
    const bool wasBlocked = sigismember(&before, SIGPIPE) == 1;
    const bool wasPending = wasBlocked && sigpipeIsPending();
    char *const block = pipeEnd.buffer;
    const bool sent = ipcSend(&pipeEnd, record) != -1;
    const int error = errno;
    // A growth that failed left the old block to its readers: here there are none.
    if (pipeEnd.buffer == nullptr)
        free(block);
    if (!sent && error == EPIPE)
        takeSigpipe(&sigpipe, wasPending);
    if (!wasBlocked)
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
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

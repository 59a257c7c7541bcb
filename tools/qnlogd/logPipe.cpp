#include "logPipe.h"

#include "recoverFrames.h"
#include "../common/report.h"
#include "../common/terminal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

constexpr size_t MAX_BUFFER_KEPT = 1 << 20; // of the channel, after a frame of another size
constexpr uint32_t HEADER_READ = 1;         // IpcChannel.flags
constexpr uint32_t LINE_BODY = 2;
constexpr int WANTED_CAPACITY = 1 << 20; // a burst waits here instead of being refused

LogPipe::~LogPipe() {
    if (channel_.fd >= 0)
        ::close(channel_.fd);
    if (writer_ >= 0)
        ::close(writer_);
    free(channel_.buffer);
}

void LogPipe::open(mode_t mode) {
    if (ipcInit(path_.c_str(), mode) != 0)
        throw errno == EBUSY ? WorkFailed(path_ + ": another daemon reads it")
                             : systemFailure(path_, errno);
    // Non-blocking, so that a frame that never comes whole holds up nothing else.
    channel_.fd = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (channel_.fd < 0)
        throw systemFailure(path_, errno);
    writer_ = ::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (writer_ < 0)
        throw systemFailure(path_, errno);
    // Two that started together both found no reader. The lock is the writing end's: the reading
    // one is closed first.
    if (flock(writer_, LOCK_EX | LOCK_NB) != 0)
        throw errno == EWOULDBLOCK ? WorkFailed(path_ + ": another daemon reads it")
                                   : systemFailure(path_, errno);
    fcntl(channel_.fd, F_SETPIPE_SZ, WANTED_CAPACITY); // as it was, where that is not allowed
}

size_t LogPipe::waiting() const {
    int bytes = 0;
    return ioctl(writer_, FIONREAD, &bytes) == 0 && bytes > 0 ? static_cast<size_t>(bytes) : 0;
}

/* Only what is there now: clients write whole frames, so that it ends with one, and what they write
   meanwhile begins with one. */
void LogPipe::takeWaiting(bool inStep, const char *when, const Consumer &consume) const {
    std::string bytes(waiting(), '\0');
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = read(channel_.fd, bytes.data() + done, bytes.size() - done);
        if (count <= 0 && !(count < 0 && errno == EINTR))
            break;
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    bytes.resize(done);
    salvage(bytes, inStep, when, consume);
}

void LogPipe::recover(const Consumer &consume) {
    takeWaiting(false, "at the start", consume);
}

/* While nobody reads, no write succeeds, and the writing end keeps what the pipe holds. By the
   descriptor's name, since another pipe may have the path by now. */
bool LogPipe::close(const Consumer &consume) {
    if (channel_.fd < 0)
        channel_.fd = ::open(("/proc/self/fd/" + std::to_string(writer_)).c_str(),
                             O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (channel_.fd < 0)
        throw systemFailure(path_, errno);
    takeWaiting(channel_.flags == 0, "at the end", consume);
    channel_.flags = 0;
    ::close(channel_.fd);
    channel_.fd = -1;
    return waiting() == 0;
}

// The frames among bytes that are not one themselves; the rest is reported.
void LogPipe::salvage(std::string_view bytes, bool inStep, const char *when,
                      const Consumer &consume) const {
    const Recovered found = recoverFrames(bytes, inStep);
    for (const std::string_view body : found.bodies)
        consume(body);
    if (found.discarded > 0)
        reportError(path_, 0,
                    std::string(when) + " " + std::to_string(found.discarded) +
                        " bytes were no record, the first: " + withoutControls(found.sample));
}

bool LogPipe::reportDiscarded() const {
    const std::string shown = ipcBadData(static_cast<int32_t>(SAMPLE_BYTES));
    if (!shown.empty())
        reportError(path_, 0, "bytes that are no frame were discarded, the first: " + shown);
    return !shown.empty();
}

/* A wrong header can announce more than there is, and the body then holds the frames behind it. */
void LogPipe::takeBody(std::string_view body, const Consumer &consume) {
    const bool whole = body.size() == static_cast<size_t>(channel_.length);
    if (whole && hasDestination(body))
        consume(body);
    else
        salvage(body, false, whole ? "in a frame" : "in a frame that is not whole", consume);
    if (static_cast<size_t>(channel_.capacity) <= MAX_BUFFER_KEPT)
        return;
    free(channel_.buffer);
    channel_.buffer = nullptr;
    channel_.capacity = 0;
}

void LogPipe::reportFailure(int failure) {
    if (failure == EAGAIN && (channel_.flags & (HEADER_READ | LINE_BODY)) == LINE_BODY)
        reportError(path_, 0, "a line without its end was discarded");
    else if (failure == EAGAIN || failure == EIO) // nothing there, or told already
        return;
    else
        reportError(path_, 0,
                    "a frame of " + std::to_string(channel_.length) +
                        " bytes cannot be taken: " + strerror(failure));
    channel_.flags = 0; // what the header announced cannot be had: do not ask for it for ever
}

LogPipe::Received LogPipe::receive(bool readable, const Consumer &consume) {
    const bool headerWasRead = (channel_.flags & HEADER_READ) != 0;
    const int32_t length = ipcRecv(&channel_);
    const int failure = errno;
    const bool told = !headerWasRead && reportDiscarded(); // else it was told when the header came
    if (length > 0)
        takeBody({channel_.buffer, static_cast<size_t>(length)}, consume);
    else if (length == 0) // no end of file: the pipe is open for writing here
        reportError(path_, 0, "an empty frame was discarded");
    else if (failure == EAGAIN && readable && !told && channel_.flags == 0)
        reportError(path_, 0,
                    "bytes that are no frame were discarded"); // a header's, which are not kept
    else
        reportFailure(failure);
    return length >= 0 || failure == EIO ? Received::SOMETHING : Received::NOTHING;
}

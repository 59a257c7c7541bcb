#include "logPipe.h"

#include "recordFrames.h"
#include "../common/report.h"
#include "../common/terminal.h"

#include "core/ipcComm.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

constexpr size_t SAMPLE_BYTES = 43; // of damage, in a report
constexpr size_t BLOCK_BYTES = 64 << 10;
constexpr int WANTED_CAPACITY = 1 << 20; // a burst waits here instead of being refused

LogPipe::~LogPipe() {
    if (fd_ >= 0)
        ::close(fd_);
    if (writer_ >= 0)
        ::close(writer_);
}

void LogPipe::open(mode_t mode) {
    if (ipcInit(path_.c_str(), mode) != 0)
        throw errno == EBUSY ? WorkFailed(path_ + ": another daemon reads it")
                             : systemFailure(path_, errno);
    // Non-blocking, so that a frame that never comes whole holds up nothing else.
    fd_ = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0)
        throw systemFailure(path_, errno);
    writer_ = ::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (writer_ < 0)
        throw systemFailure(path_, errno);
    // Two that started together both found no reader. The lock is the writing end's: the reading
    // one is closed first.
    if (flock(writer_, LOCK_EX | LOCK_NB) != 0)
        throw errno == EWOULDBLOCK ? WorkFailed(path_ + ": another daemon reads it")
                                   : systemFailure(path_, errno);
    fcntl(fd_, F_SETPIPE_SZ, WANTED_CAPACITY); // as it was, where that is not allowed
}

size_t LogPipe::waiting() const {
    int bytes = 0;
    return ioctl(writer_, FIONREAD, &bytes) == 0 && bytes > 0 ? static_cast<size_t>(bytes) : 0;
}

/* Only what is there now: clients write whole frames, so that it ends with one, and what they write
   meanwhile begins with one. */
std::string LogPipe::readWaiting() const {
    std::string bytes(waiting(), '\0');
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = read(fd_, bytes.data() + done, bytes.size() - done);
        if (count <= 0 && !(count < 0 && errno == EINTR))
            break;
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    bytes.resize(done);
    return bytes;
}

void LogPipe::noteDamage(std::string_view bytes) {
    damaged_ += bytes.size();
    sample_ += bytes.substr(0, SAMPLE_BYTES - sample_.size());
}

void LogPipe::recover(const Consumer &consume) {
    const std::string read = readWaiting();
    std::string_view bytes = read;
    const size_t cut = cutFrame(bytes);
    if (cut == std::string_view::npos) {
        frames_.loseStep();
    } else {
        noteDamage(bytes.substr(0, cut));
        bytes.remove_prefix(cut);
    }
    frames_.feed(bytes);
    takePieces(true, consume);
    reportDamage("at the start ");
}

/* While nobody reads, no write succeeds, and the writing end keeps what the pipe holds. By the
   descriptor's name, since another pipe may have the path by now. */
bool LogPipe::close(const Consumer &consume) {
    if (fd_ < 0)
        fd_ = ::open(("/proc/self/fd/" + std::to_string(writer_)).c_str(),
                     O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0)
        throw systemFailure(path_, errno);
    std::string bytes = readWaiting();
    bytes += readWaiting(); // what came while the many were copied
    ::close(fd_);           // before the records are taken: clients write all the while
    fd_ = -1;
    frames_.feed(bytes);
    takePieces(true, consume);
    reportDamage("at the end ");
    return waiting() == 0;
}

void LogPipe::takePieces(bool drained, const Consumer &consume) {
    while (const std::optional<Piece> piece = frames_.next(drained)) {
        if (piece->kind == Piece::EMPTY)
            emptyFrames_++;
        else if (piece->kind == Piece::BODY && hasDestination(piece->bytes))
            consume(piece->bytes);
        else
            noteDamage(piece->bytes);
    }
}

// A report is one line, whatever a writer sent.
static std::string onOneLine(const std::string &bytes) {
    std::string line = withoutControls(bytes);
    for (size_t at = 0; (at = line.find('\n', at)) != std::string::npos; at += 2)
        line.replace(at, 1, "\\n");
    return line;
}

void LogPipe::reportDamage(const char *when) {
    if (damaged_ > 0)
        reportError(path_, 0,
                    when + std::to_string(damaged_) +
                        " bytes were no record, the first: " + onOneLine(sample_));
    if (emptyFrames_ > 0)
        reportError(path_, 0, "frames without a body: " + std::to_string(emptyFrames_));
    damaged_ = 0;
    emptyFrames_ = 0;
    sample_.clear();
}

size_t LogPipe::receive(const Consumer &consume) {
    char block[BLOCK_BYTES];
    const ssize_t count = read(fd_, block, sizeof block);
    if (count > 0)
        frames_.feed({block, static_cast<size_t>(count)});
    isDrained_ = count < 0 && errno == EAGAIN;
    takePieces(isDrained_, consume);
    reportDamage("");
    return count > 0 ? static_cast<size_t>(count) : 0;
}

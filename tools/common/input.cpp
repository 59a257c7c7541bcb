#include "input.h"

#include "report.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

Input::Input(Input &&other) noexcept
    : path_(std::move(other.path_)), fd_(std::exchange(other.fd_, -1)), position_(other.position_),
      entries_(std::move(other.entries_)) {}

Input::~Input() {
    close();
}

bool Input::open() {
    fd_ = isStandardInput() ? dup(STDIN_FILENO) : ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    position_ = 0;
    return fd_ >= 0;
}

void Input::close() {
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

static bool hasBytes(int fd) {
    pollfd each = {fd, POLLIN, 0};
    return poll(&each, 1, 0) > 0;
}

bool Input::read(const Consumer &consume, bool mayWait) {
    bool any = false;
    char block[65536];
    while (mayWait || hasBytes(fd_)) {
        const ssize_t count = ::read(fd_, block, sizeof block);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw systemFailure(path_, errno);
        ended_ = count == 0 && isStandardInput();
        if (count == 0)
            break;
        any = true;
        position_ += count;
        entries_.feed({block, static_cast<size_t>(count)});
        while (const std::optional<LogEntry> entry = entries_.next(false))
            consume(*entry);
    }
    return any;
}

void Input::finish(const Consumer &consume) {
    while (const std::optional<LogEntry> entry = entries_.next(true))
        consume(*entry);
}

bool Input::replaced() const {
    struct stat named = {};
    struct stat ours = {};
    if (isStandardInput() || fstat(fd_, &ours) != 0 || stat(path_.c_str(), &named) != 0)
        return false;
    return named.st_ino != ours.st_ino || named.st_dev != ours.st_dev || ours.st_size < position_;
}

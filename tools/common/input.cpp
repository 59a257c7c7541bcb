#include "input.h"

#include "progress.h"
#include "report.h"
#include "timeSearch.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

constexpr size_t BLOCK_BYTES = 1 << 18;

Input::Input(std::string path, Mode mode, Progress *progress)
    : path_(std::move(path)), mode_(mode) {
    file_.path = path_;
    file_.mayWait = mode == Mode::TO_END;
    file_.progress = progress;
}

Input::~Input() {
    close();
}

bool Input::open() {
    file_.fd = isStandardInput() ? dup(STDIN_FILENO) : ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    file_.position = 0;
    file_.first.clear();
    compression_ = Compression::UNTOLD;
    decompressed_.reset();
    finished_ = false;
    return file_.fd >= 0;
}

void Input::close() {
    if (file_.fd >= 0)
        ::close(file_.fd);
    file_.fd = -1;
}

static bool hasBytes(int fd) {
    pollfd each = {fd, POLLIN, 0};
    return poll(&each, 1, 0) > 0;
}

size_t Input::File::read(char *block, size_t size) {
    if (!first.empty()) {
        const size_t taken = first.copy(block, size);
        first.erase(0, taken);
        return taken;
    }
    if (!mayWait && !hasBytes(fd))
        return 0;
    ssize_t count;
    do
        count = ::read(fd, block, size);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        throw systemFailure(path, errno);
    ended = count == 0 && path == "-";
    position += count;
    if (progress != nullptr)
        progress->advance(static_cast<size_t>(count));
    return static_cast<size_t>(count);
}

// Whether it is known how the bytes are to be read.
bool Input::detect() {
    std::string first = std::exchange(file_.first, "");
    while ((compression_ = compressionOf(first)) == Compression::UNTOLD) {
        char more[COMPRESSION_MARK_BYTES];
        const size_t count = file_.read(more, COMPRESSION_MARK_BYTES - first.size());
        if (count == 0)
            break;
        first.append(more, count);
    }
    file_.first = first;
    // A file that ends this early is none of the compressed ones.
    if (compression_ == Compression::UNTOLD && mode_ == Mode::TO_END)
        compression_ = Compression::NONE;
    if (compression_ != Compression::NONE && compression_ != Compression::UNTOLD)
        decompressed_ = decompressed(compression_, file_, path_);
    return compression_ != Compression::UNTOLD;
}

// Whether there was more to read.
bool Input::fill() {
    if (compression_ == Compression::UNTOLD && !detect())
        return false;
    ByteSource &source = decompressed_ ? *decompressed_ : static_cast<ByteSource &>(file_);
    const size_t count = source.read(entries_.room(BLOCK_BYTES), BLOCK_BYTES);
    entries_.filled(count);
    return count > 0;
}

// The same for next(): a failure is the last word, told once.
bool Input::more() {
    try {
        if (fill())
            return true;
        if (mode_ == Mode::FOLLOWED)
            return false;
        finish();
        if (decompressed_)
            decompressed_->end();
        return true;
    } catch (...) {
        finish();
        throw;
    }
}

std::optional<LogEntry> Input::next() {
    for (;;) {
        if (const std::optional<LogEntry> entry = entries_.next(finished_))
            return entry;
        if (finished_ || !isOpen() || !more())
            return std::nullopt;
    }
}

void Input::skipTo(int64_t moment) {
    struct stat status = {};
    if (fstat(file_.fd, &status) != 0 || !S_ISREG(status.st_mode) || !detect() || decompressed_)
        return;
    // Standard input may be a file that someone has read a part of.
    const off_t here = lseek(file_.fd, 0, SEEK_CUR) - static_cast<off_t>(file_.first.size());
    const off_t found = findMoment(file_.fd, here, status.st_size, moment);
    if (found <= here || lseek(file_.fd, found, SEEK_SET) != found)
        return;
    file_.first.clear();
    file_.position = found;
    if (file_.progress != nullptr)
        file_.progress->advance(static_cast<size_t>(found - here));
}

bool Input::replaced() const {
    struct stat named = {};
    struct stat ours = {};
    if (isStandardInput() || fstat(file_.fd, &ours) != 0 || stat(path_.c_str(), &named) != 0)
        return false;
    return named.st_ino != ours.st_ino || named.st_dev != ours.st_dev ||
           ours.st_size < file_.position;
}

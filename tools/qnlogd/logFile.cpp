#include "logFile.h"

#include "../common/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr mode_t MODE = 0640;

// For reading too: the last byte tells whether a line is torn.
static int openLog(const std::string &path) {
    return open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, MODE);
}

LogFile::~LogFile() {
    if (fd_ < 0)
        return;
    writeKept();
    close(fd_);
}

void LogFile::open() {
    fd_ = openLog(path_);
    if (fd_ < 0)
        throw systemFailure(path_, errno);
    noteTornTail();
}

void LogFile::noteTornTail() {
    struct stat status = {};
    char last = '\n';
    if (fstat(fd_, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0 &&
        pread(fd_, &last, 1, status.st_size - 1) != 1)
        last = '\n';
    tornTail_ = last != '\n';
}

void LogFile::reopen() {
    flush();
    const int fd = openLog(path_);
    if (fd < 0) {
        reportError(path_, 0,
                    std::string(strerror(errno)) + ": going on with the file that was open");
        return;
    }
    close(fd_);
    fd_ = fd;
    noteTornTail(); // what the old file did not take is still kept, and goes to this one
}

void LogFile::add(std::string_view record) {
    kept_ += record;
    kept_ += '\n';
    ends_.push_back(kept_.size());
}

void LogFile::reportFailure(int errorNumber) {
    if (!failing_)
        reportError(path_, 0,
                    std::string(strerror(errorNumber)) +
                        ": trying again each second, keeping up to " + std::to_string(bound_) +
                        " bytes meanwhile");
    failing_ = true;
}

/* The bytes went out up to `done`, which may lie within a record: the file is cut back to the end
   of the last whole one, so that it stays readable and the record can go to another file. Where
   that cannot be done, the rest of the record follows when the file takes it. */
void LogFile::takeBackPart(size_t done) {
    const auto end = std::upper_bound(ends_.begin(), ends_.end(), done);
    const size_t whole = end == ends_.begin() ? 0 : *(end - 1);
    struct stat status = {};
    size_t gone = whole;
    if (done > whole) {
        const auto part = static_cast<off_t>(done - whole);
        const bool cut = fstat(fd_, &status) == 0 && status.st_size >= part &&
                         ftruncate(fd_, status.st_size - part) == 0;
        gone = cut ? whole : done;
    }
    written_ += static_cast<uint64_t>(end - ends_.begin());
    ends_.erase(ends_.begin(), end);
    for (size_t &each : ends_)
        each -= gone;
    kept_.erase(0, gone);
}

bool LogFile::writeKept() {
    if (tornTail_ && write(fd_, "\n", 1) != 1)
        return false;
    tornTail_ = false;
    size_t done = 0;
    int failure = 0;
    while (done < kept_.size() && failure == 0) {
        const ssize_t count = write(fd_, kept_.data() + done, kept_.size() - done);
        if (count > 0)
            done += static_cast<size_t>(count);
        else if (count == 0 || errno != EINTR)
            failure = count == 0 ? EIO : errno;
    }
    takeBackPart(done);
    errno = failure;
    return kept_.empty();
}

bool LogFile::flush() {
    if (kept_.empty())
        return true;
    const size_t waiting = ends_.size();
    if (!writeKept()) {
        reportFailure(errno);
        return false;
    }
    if (failing_)
        reportError(path_, 0,
                    "writing again, " + std::to_string(waiting) + " kept records are written");
    failing_ = false;
    return true;
}

size_t LogFile::end() {
    flush();
    if (fd_ >= 0 && fsync(fd_) != 0 && errno != EINVAL && errno != EROFS)
        reportError(path_, 0, strerror(errno));
    return ends_.size();
}

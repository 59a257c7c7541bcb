#include "logFile.h"

#include "../common/report.h"
#include "log/logMsg.h"

#include <algorithm>
#include <cctype>
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
    mendTail();
}

static bool beginsRecord(const std::string &line) {
    return typeOfCmpLog(line.c_str(), nullptr, nullptr, nullptr, nullptr) >= 0;
}

// Whether the text could become a record's head: digits, a blank, FS, the priority, the time.
static bool mayBecomeRecord(std::string_view text) {
    size_t at = 0;
    while (at < text.size() && isdigit(static_cast<unsigned char>(text[at])) != 0)
        at++;
    for (const char each : {' ', '\x1C'})
        if (at > 0 && at < text.size() && text[at++] != each)
            return false;
    return at > 0 && std::all_of(text.begin() + static_cast<ptrdiff_t>(at), text.end(), [](char c) {
               return isxdigit(static_cast<unsigned char>(c)) != 0;
           });
}

// Bytes at the end that are a record's beginning: an argument may hold line feeds, so that it may
// have begun lines ago.
static size_t partOfRecord(std::string_view tail) {
    constexpr char GS = '\x1D';
    const size_t ended = tail.rfind(GS) + 1; // 0 where there is none
    const size_t last = tail.rfind('\n') + 1;
    for (size_t from = last; from >= ended; from = tail.rfind('\n', from - 2) + 1) {
        if (beginsRecord(std::string(tail.substr(from, tail.find('\n', from) - from))))
            return tail.size() - from;
        if (from < 2)
            break;
    }
    return last >= ended && mayBecomeRecord(tail.substr(last)) ? tail.size() - last : 0;
}

void LogFile::mendTail() {
    constexpr off_t SEEN = 65536;
    struct stat status = {};
    tornTail_ = false;
    if (fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0)
        return;
    const off_t from = std::max<off_t>(0, status.st_size - SEEN);
    std::string tail(static_cast<size_t>(status.st_size - from), '\0');
    if (pread(fd_, tail.data(), tail.size(), from) != static_cast<ssize_t>(tail.size()))
        return;
    const size_t part = partOfRecord(tail);
    const bool cut = part > 0 && ftruncate(fd_, status.st_size - static_cast<off_t>(part)) == 0;
    tornTail_ = !cut && tail.back() != '\n';
    if (cut)
        reportError(path_, 0,
                    "part of a record at its end is taken back, " + std::to_string(part) +
                        " bytes");
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
    mendTail(); // what the old file did not take is still kept, and goes to this one
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

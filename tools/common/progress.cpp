#include "progress.h"

#include <chrono>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

constexpr int64_t FIRST_MILLISECONDS = 1000;
constexpr int64_t STEP_MILLISECONDS = 200;
constexpr uint64_t MEGABYTE = 1'000'000;

static int64_t milliseconds() {
    using namespace std::chrono;
    return duration_cast<std::chrono::milliseconds>(steady_clock::now().time_since_epoch()).count();
}

static uint64_t sizeOf(const std::vector<std::string> &files) {
    uint64_t whole = 0;
    for (const std::string &file : files) {
        struct stat status = {};
        if (file == "-" || stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
            return 0;
        whole += static_cast<uint64_t>(status.st_size);
    }
    return whole;
}

Progress::Progress(const std::vector<std::string> &files)
    : wanted_(isatty(STDERR_FILENO) == 1), whole_(wanted_ ? sizeOf(files) : 0),
      next_(milliseconds() + FIRST_MILLISECONDS) {}

void Progress::advance(size_t bytes) {
    if (!wanted_)
        return;
    done_ += bytes;
    const int64_t now = milliseconds();
    if (now < next_)
        return;
    next_ = now + STEP_MILLISECONDS;
    shown_ = true;
    show();
}

void Progress::show() const {
    const unsigned long long done = done_ / MEGABYTE;
    if (whole_ > 0 && done_ <= whole_)
        fprintf(stderr, "\r\x1B[K%llu of %llu MB (%u %%)", done,
                static_cast<unsigned long long>(whole_ / MEGABYTE),
                static_cast<unsigned>(done_ * 100 / whole_));
    else
        fprintf(stderr, "\r\x1B[K%llu MB", done);
    fflush(stderr);
}

void Progress::stop() {
    if (shown_)
        fputs("\r\x1B[K", stderr);
    wanted_ = shown_ = false;
}

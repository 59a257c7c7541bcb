#include "output.h"

#include "report.h"

#include <cerrno>
#include <unistd.h>
#include <utility>

constexpr size_t ENOUGH_FOR_A_FILE = 1 << 16;
constexpr size_t ENOUGH_FOR_A_TERMINAL = 1 << 12; // a person waits for the first screen

Output::Output(std::function<void()> first)
    : enough_(isatty(STDOUT_FILENO) == 1 ? ENOUGH_FOR_A_TERMINAL : ENOUGH_FOR_A_FILE),
      first_(std::move(first)) {}

void Output::flush() {
    if (text_.empty())
        return;
    if (const std::function<void()> first = std::exchange(first_, nullptr))
        first();
    for (size_t done = 0; done < text_.size();) {
        const ssize_t count = write(STDOUT_FILENO, text_.data() + done, text_.size() - done);
        if (count < 0 && errno != EINTR)
            throw systemFailure("standard output", errno);
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    text_.clear();
}

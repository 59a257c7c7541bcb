#include "scenarios.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

void Checks::hold(bool condition, const std::string &promise) {
    if (condition)
        return;
    broken_++;
    printf("FAILED: %s: %s\n", name_.c_str(), promise.c_str());
    fflush(stdout);
}

void checkWriters(Checks &checks, const Ledger &ledger, uint32_t endedBadly) {
    checks.hold(endedBadly == 0, std::to_string(endedBadly) + " writers ended badly");
    checks.hold(ledger.sum(&WriterCounts::sigpipes) == 0, "a writer was sent SIGPIPE");
    checks.hold(ledger.sum(&WriterCounts::wrongErrno) == 0,
                std::to_string(ledger.sum(&WriterCounts::wrongErrno)) +
                    " calls left errno otherwise than documented");
    checks.hold(ledger.sum(&WriterCounts::gaveUp) == 0, "a writer found no room for a minute");
}

void checkSound(Checks &checks, const Verdict &verdict) {
    checks.hold(verdict.doubled == 0, std::to_string(verdict.doubled) + " records doubled");
    checks.hold(verdict.disordered == 0,
                std::to_string(verdict.disordered) + " records behind later ones of their writer");
    checks.hold(verdict.neverSent == 0,
                std::to_string(verdict.neverSent) + " records read that were not sent");
    checks.hold(verdict.cut + verdict.strange == 0,
                std::to_string(verdict.cut) + " entries cut, " + std::to_string(verdict.strange) +
                    " no record of any writer, the first: " + verdict.example);
}

void checkNothingLost(Checks &checks, const Verdict &verdict) {
    checks.hold(verdict.lostRecords() == 0,
                std::to_string(verdict.lostRecords()) + " records sent and not read");
    checks.hold(verdict.sent > 0, "no record was sent");
}

void tellFigures(const char *name, const Ledger &ledger, const Verdict &verdict) {
    printf(
        "%s: sent %u records (%.1f MB in frames), read %u, lost %u, doubled %u, out of order %u, "
        "torn or strange %u\n",
        name, verdict.sent, static_cast<double>(verdict.sentFrameBytes) / 1e6, verdict.read,
        verdict.lostRecords(), verdict.doubled, verdict.disordered, verdict.cut + verdict.strange);
    printf(
        "%s: %u calls, %u refused (EAGAIN %u, no reader %u, no pipe %u, cut %u, told by the result "
        "alone %u); longest call %.1f ms; SIGPIPE %u; errno wrong %u\n",
        name, ledger.sum(&WriterCounts::calls), ledger.refused(), ledger.sum(&Refusals::full),
        ledger.sum(&Refusals::noReader), ledger.sum(&Refusals::noPipe), ledger.sum(&Refusals::part),
        ledger.sum(&Refusals::unknown),
        [&] {
            uint32_t longest = 0;
            for (const WriterCounts &each : ledger.head().writer)
                longest = std::max<uint32_t>(longest, each.longestMicroseconds);
            return longest / 1000.0;
        }(),
        ledger.sum(&WriterCounts::sigpipes), ledger.sum(&WriterCounts::wrongErrno));
    fflush(stdout);
}

uint32_t bytesIn(int pipe) {
    int bytes = 0;
    return pipe >= 0 && ioctl(pipe, FIONREAD, &bytes) == 0 ? static_cast<uint32_t>(bytes) : 0;
}

int openWriting(const std::string &pipe) {
    return open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
}

/* The pipe counts in pages, whose ends stay unused where a frame did not fit: from three quarters
   on it is as good as full. */
bool Fullness::look(const std::string &pipe) {
    const int end = openWriting(pipe);
    if (end < 0)
        return false;
    const auto capacity = static_cast<uint32_t>(fcntl(end, F_GETPIPE_SZ));
    looks++;
    const bool isFull = bytesIn(end) >= capacity / 4 * 3;
    full += isFull ? 1U : 0U;
    close(end);
    return isFull;
}

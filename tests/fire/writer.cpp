#include "writer.h"

#include "fireText.h"
#include "log/log.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int MESSAGE = 13;
constexpr int FIRST_SYSTEM_ERROR = 1727;
constexpr int MESSAGES = 1900;
constexpr int ERRNO_BEFORE = EDOM; // that no call of the client sets
constexpr const char *FILE_NAME = "fire.cpp";
constexpr int LINE = 1000;

// How a record is sent, in turn.
enum Call { LOG_MSG, V_LOG_MSG, LOG_EVENT, RELOG, LOG_PERROR, LOG_SYS_ERROR, CALLS };

std::string bigEndian(uint32_t value, int bytes) {
    std::string result;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        result += static_cast<char>(value >> shift & 0xFF);
    return result;
}

std::atomic<uint32_t> *sigpipes;

void countSigpipe(int) {
    ++*sigpipes;
}

void pauseMicroseconds(uint32_t microseconds) {
    const timespec pause = {static_cast<time_t>(microseconds / 1000000),
                            static_cast<long>(microseconds % 1000000) * 1000};
    nanosleep(&pause, nullptr);
}

uint64_t microsecondsNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

char *logThroughList(int number, ...) {
    va_list args;
    va_start(args, number);
    char *body = vlogMsg(number, FILE_NAME, LINE, args);
    va_end(args);
    return body;
}

class Writer {
  public:
    Writer(const Work &work, const Ledger &ledger, uint32_t index)
        : work_(work), ledger_(ledger), index_(index), counts_(ledger.head().writer[index]),
          sizes_(work.seed + index) {}

    int run() {
        watchSigpipe();
        start();
        const uint32_t records = isLong() ? work_.longRecords : work_.records;
        for (uint32_t number = 0; number < records && !ledger_.head().stop; number++) {
            makeText(text_, work_.seed, index_, number, textLength());
            if (!send(number))
                return 1;
            if (work_.pauseMicros > 0)
                pauseMicroseconds(work_.pauseMicros);
        }
        logend();
        return 0;
    }

  private:
    bool isLong() const { return work_.longFrame != 0 && index_ == 0; }

    // Half of the writers would be ended by the signal, the others count it.
    void watchSigpipe() const {
        sigpipes = &counts_.sigpipes;
        signal(SIGPIPE, index_ % 2 == 0 ? countSigpipe : SIG_DFL);
    }

    void start() {
        for (const char *name : {"LOGROOT", "LOGDSTRULES", "OLD_LOGPERROR", "MAXMSGSIZE"})
            unsetenv(name);
        setenv("LOGDSTPRISHMKEY", std::to_string(NO_TABLE_KEY).c_str(), 1);
        // The one report of the missing table, while no message number is good: no record of it.
        logMsg(MESSAGE, FILE_NAME, LINE, "");
        loginit(("fire" + std::to_string(index_)).c_str(), 1, 0, work_.root.c_str());
        if (fmtMax != MESSAGES) {
            fprintf(stderr, "fire: the compressed formats cannot be read\n");
            _exit(1);
        }
        for (const int number : {MESSAGE, FIRST_SYSTEM_ERROR + ERRNO_BEFORE})
            overhead_[number == MESSAGE ? 0 : 1] =
                strlen(fmtEvent(number, 1, 0, FILE_NAME, LINE, ""));
    }

    uint32_t frameWanted() {
        constexpr uint32_t ATOMIC = 4096;
        if (isLong())
            return work_.longFrame;
        switch (sizes_.below(64)) {
        case 0:
            return ATOMIC;
        case 1:
            return sizes_.between(ATOMIC - 16, ATOMIC);
        case 2:
            return sizes_.between(990, 1020); // about where the header gets longer
        case 3:
            return sizes_.between(120, ATOMIC);
        default:
            return sizes_.between(120, 300);
        }
    }

    static size_t headerBytes(size_t body) {
        return body <= 999 ? 3 : 3 + std::to_string(body).size();
    }

    size_t textLength() {
        const size_t wanted = frameWanted();
        const size_t head = overhead_[calls_ % CALLS >= LOG_PERROR ? 1 : 0];
        for (size_t header = 3;; header++) { // as many bytes as the body then needs
            const size_t body = wanted - header;
            if (headerBytes(body) <= header)
                return std::max(LEAST_TEXT, body - head);
        }
    }

    char *call() {
        const char *text = text_.c_str();
        switch (calls_ % CALLS) {
        case V_LOG_MSG:
            return logThroughList(MESSAGE, text);
        case LOG_EVENT:
            return logEvent(MESSAGE, 1, 0, FILE_NAME, LINE, text);
        case RELOG:
            relogged_ = fmtEvent(MESSAGE, 1, 0, FILE_NAME, LINE, text) + 8;
            return relogCmpMsg(relogged_.data(), 0x80000001);
        case LOG_PERROR:
            return logperror(1, 0, FILE_NAME, LINE, "%s", text);
        case LOG_SYS_ERROR:
            return logSysError(FILE_NAME, LINE, "%s", text);
        default:
            return logMsg(MESSAGE, FILE_NAME, LINE, text);
        }
    }

    bool tellsFailure() const { return calls_ % CALLS == LOG_EVENT || calls_ % CALLS == RELOG; }

    void noteRefusal(int error) {
        Refusals &refused = counts_.refused;
        if (!tellsFailure()) {
            refused.unknown++;
            counts_.wrongErrno += error == ERRNO_BEFORE ? 0U : 1U;
        } else if (error == EAGAIN) {
            refused.full++;
        } else if (error == ENXIO || error == EPIPE) {
            refused.noReader++;
        } else if (error == ENOENT) {
            refused.noPipe++;
        } else if (error == 0) {
            refused.part++;
        } else {
            counts_.wrongErrno++;
        }
    }

    // One call; whether the record was taken.
    bool tryOnce(LedgerLine &line) {
        const uint64_t begin = microsecondsNow();
        line.epochBefore = static_cast<uint16_t>(ledger_.head().epoch.load());
        errno = ERRNO_BEFORE;
        const char *body = call();
        const int error = errno;
        const auto took = static_cast<uint32_t>(microsecondsNow() - begin);
        if (took > counts_.longestMicroseconds)
            counts_.longestMicroseconds = took;
        counts_.calls++;
        if (body == nullptr) {
            noteRefusal(error);
            return false;
        }
        counts_.wrongErrno += error == ERRNO_BEFORE ? 0U : 1U;
        line.epochAfter = static_cast<uint16_t>(ledger_.head().epoch.load());
        const size_t length = strlen(body) + 8;
        line.frameBytes = static_cast<uint32_t>(headerBytes(length) + length);
        counts_.sent++;
        return true;
    }

    bool send(uint32_t number) {
        constexpr uint64_t PATIENCE = 60000000;
        LedgerLine &line = ledger_.line(index_, number);
        const uint64_t begin = microsecondsNow();
        bool sent = tryOnce(line);
        uint32_t tries = 1;
        for (uint32_t pause = 20; !sent && work_.retry && !ledger_.head().stop; tries++) {
            if (isLong() && tries == LONG_TRIES)
                break;
            if (microsecondsNow() - begin > PATIENCE) {
                counts_.gaveUp++;
                return false;
            }
            pauseMicroseconds(pause);
            pause = std::min(2 * pause, 500U);
            sent = tryOnce(line);
        }
        calls_++;
        return true;
    }

    const Work &work_;
    const Ledger &ledger_;
    const uint32_t index_;
    WriterCounts &counts_;
    Random sizes_;
    std::string text_;
    std::string relogged_;
    size_t overhead_[2] = {0, 0}; // of a record without its text: the message's, the error's
    uint32_t calls_ = 0;          // of records, whatever the tries
};

} // namespace

void makeLogRoot(const std::string &root) {
    std::string offsets;
    for (int number = 0; number < MESSAGES; number++)
        offsets += bigEndian(number == MESSAGE || number >= FIRST_SYSTEM_ERROR ? 1 : 0, 2);
    const std::string formats("\0\x1C%s\x1D\0", 6);
    const std::string bytes = bigEndian(MESSAGES, 4) + offsets + formats;
    mkdir(root.c_str(), 0700);
    FILE *file = fopen((root + "/cmpLogFmt").c_str(), "w");
    if (file == nullptr || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() ||
        fclose(file) != 0) {
        perror(root.c_str());
        exit(1);
    }
}

std::vector<pid_t> startWriters(const Work &work, const Ledger &ledger) {
    std::vector<pid_t> writers;
    fflush(nullptr);
    for (uint32_t index = 0; index < WRITERS; index++) {
        const pid_t child = fork();
        if (child == 0)
            _exit(Writer(work, ledger, index).run());
        writers.push_back(child);
    }
    return writers;
}

void reapWriters(std::vector<pid_t> &writers, uint32_t &endedBadly) {
    for (size_t at = 0; at < writers.size();) {
        int status = 0;
        if (waitpid(writers[at], &status, WNOHANG) == 0) {
            at++;
            continue;
        }
        endedBadly += WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0U : 1U;
        writers.erase(writers.begin() + static_cast<ptrdiff_t>(at));
    }
}

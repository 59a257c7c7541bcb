/* The logging client and the expansion, against the system calls and the formatting that they
   cannot do without and against the loggers that people have. */
#include "support/pipeLog.h"

#include "log/expandLog.h"
#include "log/log.h"
#include "log/logMsg.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#ifndef QN_PLAIN_BENCHMARK
#include <fmt/core.h>
#include <fmt/format.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

QN_BENCHMARK("logMsg/library", logMsgIntoPipe);
QN_BENCHMARK("logMsg/write", writeSameBytes);

void fprintfAndFlush(benchmark::State &state) {
    static FILE *file = fopen(root().file("plain.log").c_str(), "w");
    for (auto _ : state) {
        fprintf(file, "%d %s:%d channel %d: %s (%u s)\n", BenchRoot::NUMBER, SOURCE, LINE, 7, TEXT,
                SECONDS);
        fflush(file);
    }
    if (ftruncate(fileno(file), 0) != 0)
        state.SkipWithError("the file stays");
}
QN_BENCHMARK("logMsg/fprintf", fprintfAndFlush);

// Where nobody reads /dev/log, the benchmark does itself: the cost of the call without a daemon's.
class LogSocket {
  public:
    LogSocket() {
        if (access(PATH, F_OK) == 0)
            return;
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, PATH);
        if (bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            abort();
    }
    ~LogSocket() {
        if (fd_ >= 0)
            unlink(PATH);
    }
    void drain() {
        char datagram[1024];
        while (fd_ >= 0 && read(fd_, datagram, sizeof datagram) > 0) {
        }
    }

  private:
    static constexpr const char *PATH = "/dev/log";
    int fd_ = -1;
};

void syslogToSocket(benchmark::State &state) {
    static LogSocket socket;
    openlog("callFlow", LOG_NDELAY, LOG_LOCAL0);
    int sent = 0;
    for (auto _ : state) {
        syslog(LOG_INFO, "%d %s:%d channel %d: %s (%u s)", BenchRoot::NUMBER, SOURCE, LINE, 7, TEXT,
               SECONDS);
        if (++sent % 8 != 0) // a local socket holds ten
            continue;
        state.PauseTiming();
        socket.drain();
        state.ResumeTiming();
    }
    socket.drain();
}
QN_BENCHMARK("logMsg/syslog", syslogToSocket);

void formatEvent(benchmark::State &state) {
    startLogging();
    for (auto _ : state)
        benchmark::DoNotOptimize(fmtEvent(BenchRoot::NUMBER, 1, 0, SOURCE, LINE, 7, TEXT, SECONDS));
}
QN_BENCHMARK("fmtEvent/library", formatEvent);

// As a client without a formatter of its own does it: the header first, which is the format of the
// rest.
void twoPasses(benchmark::State &state) {
    startLogging();
    char header[512], record[512];
    for (auto _ : state) {
        snprintf(header, sizeof header, "%.8lX%d %c%1d%.8lX%s %s:%d%s", 1UL, BenchRoot::NUMBER,
                 0x1C, 0, static_cast<unsigned long>(static_cast<uint32_t>(time(nullptr))),
                 "callFlow", SOURCE, LINE, getCmpFmt(BenchRoot::NUMBER));
        snprintf(record, sizeof record, header, 7, TEXT, SECONDS);
        benchmark::DoNotOptimize(record);
        benchmark::ClobberMemory();
    }
}
QN_BENCHMARK("fmtEvent/snprintf", twoPasses);

// Records a second apart, as a log has them.
std::string recordAt(uint32_t second) {
    char record[512];
    snprintf(record, sizeof record, "%d \x1C\x30%.8XcallFlow %s:%d\x1C%d\x1C%s\x1C%u\x1D",
             BenchRoot::NUMBER, 0x65920080 + second, SOURCE, LINE, 7, TEXT, SECONDS);
    return record;
}

void expandRecords(benchmark::State &state) {
    startLogging();
    setenv("LOGROOT", root().path(), 1);
    uint32_t second = 0;
    std::string record = recordAt(0);
    const size_t timeAt = record.find('\x1C') + 2;
    for (auto _ : state) {
        char digits[16];
        snprintf(digits, sizeof digits, "%.8X", 0x65920080 + second++ / 20);
        memcpy(&record[timeAt], digits, 8);
        benchmark::DoNotOptimize(expandLog(record.data()));
    }
}
QN_BENCHMARK("expandLog/library", expandRecords);

void sameLineBySnprintf(benchmark::State &state) {
    char text[1024], timeText[32] = "", digits[16];
    time_t shown = -1;
    uint32_t second = 0;
    for (auto _ : state) {
        snprintf(digits, sizeof digits, "%.8X", 0x65920080 + second); // the record's own time field
        const time_t now = 0x65920080 + second++ / 20;
        if (now != shown) {
            tm parts;
            localtime_r(&now, &parts);
            asctime_r(&parts, timeText);
            timeText[24] = '\0';
            shown = now;
        }
        snprintf(text, sizeof text, "%s %s %s %s:%d\nchannel %s: %s (%s s)\n", "", timeText,
                 "callFlow", SOURCE, LINE, "7", TEXT, "45");
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    }
}
QN_BENCHMARK("expandLog/snprintf", sameLineBySnprintf);

void parseRecord(benchmark::State &state) {
    std::string record = recordAt(0);
    for (auto _ : state) {
        LogMsg *msg = parseCmpLog(record.data(), 0);
        benchmark::DoNotOptimize(msg);
        freeLogMsg(msg);
    }
}
QN_BENCHMARK("parseCmpLog/library", parseRecord);

void scanRecord(benchmark::State &state) {
    const std::string record = recordAt(0);
    for (auto _ : state) {
        int number, line;
        char priority, producer[64], file[64], arguments[3][128];
        unsigned seconds;
        sscanf(record.c_str(),
               "%d \x1C%c%8x%63s %63[^:]:%d\x1C%127[^\x1C]\x1C%127[^\x1C]\x1C%127[^\x1D]", &number,
               &priority, &seconds, producer, file, &line, arguments[0], arguments[1],
               arguments[2]);
        const auto when = static_cast<time_t>(seconds);
        tm parts;
        benchmark::DoNotOptimize(localtime_r(&when, &parts));
        benchmark::ClobberMemory();
    }
}
QN_BENCHMARK("parseCmpLog/sscanf", scanRecord);

#ifndef QN_PLAIN_BENCHMARK
void spdlogToFile(benchmark::State &state) {
    static const auto logger = [] {
        auto made = spdlog::basic_logger_st("bench", root().file("spd.log"), true);
        made->flush_on(spdlog::level::info);
        return made;
    }();
    for (auto _ : state)
        logger->info("{} {}:{} channel {}: {} ({} s)", BenchRoot::NUMBER, SOURCE, LINE, 7, TEXT,
                     SECONDS);
}
QN_BENCHMARK("logMsg/spdlog", spdlogToFile);

// The same record, its layout known at run time only, as the library's is.
void fmtRunTime(benchmark::State &state) {
    const std::string layout = "{:08X}{} {}{}{:08X}{} {}:{}\x1C{}\x1C{}\x1C{}\x1D";
    fmt::memory_buffer out;
    for (auto _ : state) {
        out.clear();
        fmt::format_to(std::back_inserter(out), fmt::runtime(layout), 1U, BenchRoot::NUMBER, '\x1C',
                       0, static_cast<uint32_t>(time(nullptr)), "callFlow", SOURCE, LINE, 7, TEXT,
                       SECONDS);
        benchmark::DoNotOptimize(out.data());
    }
}
QN_BENCHMARK("fmtEvent/fmt", fmtRunTime);
#endif

} // namespace

BENCHMARK_MAIN();

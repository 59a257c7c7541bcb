/* What a call costs as its subject grows: one line "series size nanoseconds" for each point, the
   median of so many rounds. Each series runs in a process of its own, for the catalogue, the clock
   and the array table are the process's; the sizes of a series take turns, so that the machine's
   other work falls on each. bench/scale draws the lines and holds their growth against the
   documented algorithm's. */
#include "support/largeRoot.h"

#include "buffers/arrays.h"
#include "clipboard/clipboard.h"
#include "clock/clock.h"
#include "log/expandLog.h"
#include "log/log.h"
#include "log/logSyms.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

int rounds = 9;

double secondsOf(auto &&work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A subject of one size, and what is measured of it so many times.
struct Point {
    int size;
    int times; // calls a round
    std::vector<double> nanoseconds = {};
};

void measure(const char *series, std::vector<Point> points, auto &&work) {
    for (int round = 0; round < rounds; ++round)
        for (Point &point : points)
            point.nanoseconds.push_back(work(point) / point.times * 1e9);
    for (const Point &point : points)
        printf("%s %d %.1f\n", series, point.size, median(point.nanoseconds));
}

void require(bool held, const char *what) {
    if (held)
        return;
    fprintf(stderr, "scaling: %s\n", what);
    exit(1);
}

// ---- records

const LargeRoot &root() {
    static const LargeRoot made(20000);
    return made;
}

void startLogging(const LargeRoot &of) {
    setenv("LOGROOT", of.path(), 1);
    loginit("callFlow", 1, 0, of.path()); // nobody reads the pipe: only the formats are needed
    require(fmtMax > 0, "no formats");
}

const char *build(int number, const char *text) {
    // More arguments than any of these messages has.
    return fmtEvent(number, 1, 0, "callFlow.cpp", 217, text, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13,
                    14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33,
                    34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53,
                    54, 55, 56, 57, 58, 59, 60, 61, 62, 63, 64);
}

double buildTimes(const Point &point, int number, const char *text) {
    return secondsOf([&] {
        for (int i = 0; i < point.times; ++i)
            require(build(number, text) != nullptr, "no record");
    });
}

double expandTimes(const Point &point, int number, const char *text) {
    std::string record = build(number, text) + 8;
    return secondsOf([&] {
        for (int i = 0; i < point.times; ++i)
            require(expandLog(record.data()) != nullptr, "no expansion");
    });
}

void recordLength(double (*work)(const Point &, int, const char *), const char *series) {
    startLogging(root());
    measure(series, {{16, 4000}, {64, 4000}, {256, 2000}, {1024, 1000}, {4096, 400}, {16384, 100}},
            [&](const Point &point) {
                return work(point, LargeRoot::TEXT,
                            std::string(static_cast<size_t>(point.size), 'a').c_str());
            });
}

void argumentCount(double (*work)(const Point &, int, const char *), const char *series) {
    startLogging(root());
    measure(series, {{1, 4000}, {2, 4000}, {4, 4000}, {8, 2000}, {16, 1000}, {32, 1000}, {64, 500}},
            [&](const Point &point) { return work(point, LargeRoot::counted(point.size), "1"); });
}

void messageNumber(double (*work)(const Point &, int, const char *), const char *series) {
    startLogging(root());
    measure(series,
            {{100, 4000}, {300, 4000}, {1000, 4000}, {3000, 4000}, {10000, 4000}, {19999, 4000}},
            [&](const Point &point) { return work(point, point.size, "alpha"); });
}

// ---- the catalogue

double secondsInChild(auto &&work) {
    int answer[2];
    require(pipe(answer) == 0, "no pipe");
    const pid_t child = fork();
    if (child == 0) {
        const double seconds = work();
        _exit(write(answer[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
    }
    close(answer[1]);
    double seconds = 0;
    require(read(answer[0], &seconds, sizeof seconds) == sizeof seconds, "a child failed");
    close(answer[0]);
    waitpid(child, nullptr, 0);
    return seconds;
}

constexpr int CATALOGUE_SIZES[] = {100, 300, 1000, 3000, 10000, 20000};

std::vector<std::unique_ptr<LargeRoot>> catalogues() {
    std::vector<std::unique_ptr<LargeRoot>> made;
    for (const int size : CATALOGUE_SIZES)
        made.push_back(std::make_unique<LargeRoot>(size));
    return made;
}

const LargeRoot &ofSize(const std::vector<std::unique_ptr<LargeRoot>> &made, int size) {
    const auto at = std::find(std::begin(CATALOGUE_SIZES), std::end(CATALOGUE_SIZES), size);
    return *made[static_cast<size_t>(at - std::begin(CATALOGUE_SIZES))];
}

std::vector<Point> cataloguePoints(int times) {
    std::vector<Point> points;
    for (const int size : CATALOGUE_SIZES)
        points.push_back({size, times});
    return points;
}

constexpr int BEHIND_COUNTED = LargeRoot::counted(LargeRoot::MOST_ARGUMENTS) + 1;

// Records of 25 messages all over the catalogue, so that no single look-up stays warm.
void catalogueExpansion(const char *series) {
    const auto made = catalogues();
    measure(series, cataloguePoints(2000), [&](const Point &point) {
        return secondsInChild([&] {
            startLogging(ofSize(made, point.size));
            chgExpansionFmt("@symbol@ @class@ @field@[host]");
            std::vector<std::string> records;
            for (int i = 0; i < 25; ++i)
                records.push_back(build((BEHIND_COUNTED + i) * (point.size / 100), "alpha") + 8);
            for (std::string &record : records) // what is read once is read now
                require(expandLog(record.data()) != nullptr, "no expansion");
            return secondsOf([&] {
                for (int i = 0; i < point.times; ++i)
                    expandLog(records[static_cast<size_t>(i) % records.size()].data());
            });
        });
    });
}

void catalogueLoad(const char *series) {
    const auto made = catalogues();
    measure(series, cataloguePoints(1), [&](const Point &point) {
        return secondsInChild([&] {
            setenv("LOGROOT", ofSize(made, point.size).path(), 1);
            return secondsOf([] { logReadSymbols(nullptr); });
        });
    });
}

// ---- the clock

void *nothing(intptr_t, uint32_t) {
    return nullptr;
}

// One more behind all that are pending, and its cancellation.
void pendingCallouts(const char *series) {
    measure(series,
            {{5, 1000}, {20, 1000}, {60, 1000}, {200, 1000}, {1000, 500}, {2000, 200}, {5000, 100}},
            [](const Point &point) {
                return secondsInChild([&] {
                    clkinit(point.size + 8);
                    for (int i = 0; i < point.size; ++i)
                        require(clkTimeout(nothing, i, 1000 + static_cast<uint32_t>(i)) !=
                                    UINT32_MAX,
                                "the table is full");
                    return secondsOf([&] {
                        for (int i = 0; i < point.times; ++i)
                            clkUntimeout(clkTimeout(nothing, 0, 100000));
                    });
                });
            });
}

// ---- arrays

void arrayElements(const char *series) {
    measure(series, {{10, 10}, {100, 100}, {1000, 1000}, {10000, 10000}, {100000, 100000}},
            [](const Point &point) {
                const uint32_t array = arrayOpen(0, 16);
                const char element[16] = {};
                const double seconds = secondsOf([&] {
                    for (int i = 0; i < point.times; ++i)
                        require(arrayPut(array, element) != nullptr, "no room for an element");
                });
                arrayClose(array);
                return seconds;
            });
}

// ---- the clipboard

std::string entryName(int i) {
    return "ENTRY_" + std::to_string(i);
}

// A clipboard of its own with so many entries.
class FilledClipboard {
  public:
    explicit FilledClipboard(int entries) {
        const int fd = mkstemp(path_.data());
        require(fd >= 0, "no file");
        FILE *const file = fdopen(fd, "w");
        for (int i = 0; i < entries; ++i)
            fprintf(file, "%s=value of %d\n", entryName(i).c_str(), i);
        fclose(file);
    }
    ~FilledClipboard() { unlink(path_.c_str()); }
    FilledClipboard(const FilledClipboard &) = delete;
    FilledClipboard &operator=(const FilledClipboard &) = delete;
    Clipboard *open() const {
        Clipboard *const clipboard = modifyClipboard(path_.c_str());
        require(clipboard != nullptr, "no clipboard");
        getClipboard(clipboard);
        return clipboard;
    }

  private:
    std::string path_ = "/tmp/qnscalingXXXXXX";
};

void clipboardLookup(const char *series) {
    measure(series, {{10, 1000}, {100, 1000}, {1000, 300}, {10000, 50}}, [](const Point &point) {
        const FilledClipboard file(point.size);
        Clipboard *const clipboard = file.open();
        const double seconds = secondsOf([&] {
            for (int i = 0; i < point.times; ++i) {
                const std::string name =
                    entryName(static_cast<int>(int64_t{i} * 7919 % point.size));
                require(findClipEntryValue(clipboard, name.c_str()) != nullptr, "an entry is gone");
            }
        });
        closeClipboard(clipboard);
        return seconds;
    });
}

void clipboardRewrite(const char *series) {
    measure(series, {{10, 20}, {100, 10}, {1000, 5}, {10000, 1}}, [](const Point &point) {
        const FilledClipboard file(point.size);
        return secondsOf([&] {
            for (int i = 0; i < point.times; ++i) {
                Clipboard *const clipboard = file.open();
                addClipEntry(clipboard, nullptr, entryName(i).c_str(), "changed", nullptr);
                closeClipboard(clipboard);
            }
        });
    });
}

const std::pair<const char *, void (*)(const char *)> ALL[] = {
    {"build-by-length", [](const char *series) { recordLength(buildTimes, series); }},
    {"expand-by-length", [](const char *series) { recordLength(expandTimes, series); }},
    {"build-by-arguments", [](const char *series) { argumentCount(buildTimes, series); }},
    {"expand-by-arguments", [](const char *series) { argumentCount(expandTimes, series); }},
    {"build-by-number", [](const char *series) { messageNumber(buildTimes, series); }},
    {"expand-by-number", [](const char *series) { messageNumber(expandTimes, series); }},
    {"expand-by-catalogue", catalogueExpansion},
    {"load-by-catalogue", catalogueLoad},
    {"timeout-by-pending", pendingCallouts},
    {"put-by-elements", arrayElements},
    {"lookup-by-entries", clipboardLookup},
    {"rewrite-by-entries", clipboardRewrite},
};

} // namespace

int main(int argc, char **argv) {
    if (argc > 1)
        rounds = std::max(1, atoi(argv[1]));
    for (const auto &[series, run] : ALL) {
        fflush(stdout);
        const pid_t child = fork();
        if (child == 0) {
            run(series);
            exit(0); // the folders of the series go with it
        }
        int status = 0;
        waitpid(child, &status, 0);
        require(WIFEXITED(status) && WEXITSTATUS(status) == 0, series);
    }
    return 0;
}

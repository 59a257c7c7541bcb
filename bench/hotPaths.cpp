/* Does one of the hottest paths, or the reference that it is held against, so many times: for
   counting instructions, not time (bench/instructions). */
#include "support/logRoot.h"

#include "log/expandLog.h"
#include "log/log.h"
#include "log/logMsg.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr const char *TEXT = "no answer from the far end within the time set";
constexpr const char *HEADER = "%.8lX%d %c%1d%.8lX%s %s:%d%s";

char record[512], header[512], text[1024];

void buildRecord(uint32_t) {
    if (fmtEvent(BenchRoot::NUMBER, 1, 0, "callFlow.cpp", 217, 7, TEXT, 45U) == nullptr)
        abort();
}

void printRecord(uint32_t) {
    snprintf(header, sizeof header, HEADER, 1UL, BenchRoot::NUMBER, 0x1C, 0,
             static_cast<unsigned long>(static_cast<uint32_t>(time(nullptr))), "callFlow",
             "callFlow.cpp", 217, getCmpFmt(BenchRoot::NUMBER));
    snprintf(record, sizeof record, header, 7, TEXT, 45U);
}

// Twenty records a second, as a busy platform writes them.
void makeRecord(uint32_t turn) {
    char digits[16];
    snprintf(digits, sizeof digits, "%.8X", 0x65920080 + turn / 20);
    memcpy(strchr(record, 0x1C) + 2, digits, 8);
}

void expandRecord(uint32_t turn) {
    makeRecord(turn);
    if (expandLog(record) == nullptr)
        abort();
}

void parseRecord(uint32_t turn) {
    makeRecord(turn);
    freeLogMsg(parseCmpLog(record, 0));
}

void printLine(uint32_t turn) {
    makeRecord(turn);
    snprintf(text, sizeof text, "%s %s %s %s:%d\nchannel %s: %s (%s s)\n", "",
             "Mon Jan  1 00:00:00 2024", "callFlow", "callFlow.cpp", 217, "7", TEXT, "45");
}

constexpr struct {
    const char *name;
    void (*work)(uint32_t turn);
} PATHS[] = {{"fmtEvent", buildRecord},    {"fmtEvent-reference", printRecord},
             {"expandLog", expandRecord},  {"expandLog-reference", printLine},
             {"parseCmpLog", parseRecord}, {"parseCmpLog-reference", printLine}};

} // namespace

int main(int argc, char **argv) {
    const BenchRoot root;
    setenv("TZ", "Europe/Berlin", 1);
    setenv("LOGROOT", root.path(), 1);
    loginit("callFlow", 1, 0, root.path()); // without a reader: only the formats are needed
    strcpy(record, "101 \x1C\x30"
                   "65920080callFlow callFlow.cpp:217\x1C"
                   "7\x1C"
                   "no answer from the far end within the time set\x1C"
                   "45\x1D");
    for (const auto &path : PATHS) {
        if (argc != 3 || strcmp(argv[1], path.name) != 0)
            continue;
        const unsigned long times = strtoul(argv[2], nullptr, 10);
        for (uint32_t turn = 0; turn < times; ++turn)
            path.work(turn);
        return 0;
    }
    fprintf(stderr, "usage: hotPaths PATH TIMES\n");
    return 2;
}

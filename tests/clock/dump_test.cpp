/* The dump of the table, byte for byte, and every way in which a broken table ends the process: the
   list is damaged in a child process, which then runs the operation that must find it. */
#include "clockCases.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// An address as rows show it: eight digits at least.
std::string wide(const void *address) {
    char text[40];
    snprintf(text, sizeof text, "0x%8.8lx", reinterpret_cast<unsigned long>(address));
    return text;
}

std::string plain(const void *address) {
    char text[40];
    snprintf(text, sizeof text, "0x%lx", reinterpret_cast<unsigned long>(address));
    return text;
}

const void *record(int index) {
    return callouts + index;
}

const void *const STRAY = reinterpret_cast<const void *>(0x1234);

ListItem *link(const void *address) {
    return reinterpret_cast<ListItem *>(reinterpret_cast<uintptr_t>(address));
}

constexpr char HEADING_4[] =
    "       adr        next     increment         ID   argument  function\n";

// A row of a table of four, whose callouts all call note: "[0] address next ..." with the
// increment and the ID as they stand in the row.
std::string row(int index, const void *next, const char *increment, const char *id,
                const char *argument) {
    return "[" + std::to_string(index) + "] " + wide(record(index)) + " " + wide(next) + " " +
           increment + " " + id + " " + argument + " " +
           wide(reinterpret_cast<const void *>(note)) + "\n";
}

std::string headers(const void *head, const void *tail, const char *count, const void *freeHead,
                    const void *freeTail, const char *freeCount) {
    return "maxcallouts: 4   callouts: " + plain(callouts) + "\n" +
           "activeCallouts - head: " + plain(head) + " tail: " + plain(tail) + " cnt: " + count +
           "\nfreeCallouts -   head: " + plain(freeHead) + " tail: " + plain(freeTail) +
           " cnt: " + freeCount + "\n" + HEADING_4;
}

// --- The dump ---

std::string printed;
int flushes;

void collect(const char *text) {
    if (text == nullptr)
        ++flushes;
    else
        printed += text;
}

SIMULATED(Dump, withoutATableIsTwoLines) {
    setClockPrintFunc(collect);
    dumpClockCallOuts("why", "who", 12);
    EXPECT_EQ(printed, "why\nwho - Line: 12\nmaxcallouts: 0   callouts: 0x0\n");
    EXPECT_EQ(flushes, 1);
}

SIMULATED(Dump, emptyAndMissingTextsPrintNothing) {
    setClockPrintFunc(collect);
    dumpClockCallOuts("", "who", -1);
    dumpClockCallOuts(nullptr, nullptr, 0);
    EXPECT_EQ(printed, "who - Line: -1\nmaxcallouts: 0   callouts: 0x0\n"
                       " - Line: 0\nmaxcallouts: 0   callouts: 0x0\n");
}

SIMULATED(Dump, nameIsCutAfterFortyBytes) {
    setClockPrintFunc(collect);
    dumpClockCallOuts("", "1234567890123456789012345678901234567890X", 1);
    EXPECT_EQ(printed.substr(0, 51), "1234567890123456789012345678901234567890 - Line: 1\n");
}

SIMULATED(Dump, overlongMessageIsCutNotOverrun) {
    setClockPrintFunc(collect);
    dumpClockCallOuts(std::string(5000, 'x').c_str(), "who", 1);
    EXPECT_EQ(printed, std::string(1023, 'x') + "who - Line: 1\nmaxcallouts: 0   callouts: 0x0\n");
}

SIMULATED(Dump, emptyListSaysSo) {
    clkinit(4);
    setClockPrintFunc(collect);
    dumpClockCallOuts("", "who", 1);
    EXPECT_EQ(printed, "who - Line: 1\n" +
                           headers(nullptr, nullptr, "0", record(0), record(3), "4") +
                           "NO TIMEOUTS\n");
}

SIMULATED(Dump, showsTheActiveInTheOrderOfExpiry) {
    clkinit(4);
    clkTimeout(note, 0x2A, 1500000000);
    clkTimeout(note, 7, 5);
    setClockPrintFunc(collect);
    dumpClockCallOuts("", "who", 1);
    EXPECT_EQ(printed, "who - Line: 1\n" +
                           headers(record(1), record(0), "2", record(2), record(3), "2") +
                           row(1, record(0), "         5", "         1", "0x00000007") +
                           row(0, LIST_END, "1499999995", "         0", "0x0000002a"));
}

SIMULATED(Dump, numbersAreSigned) {
    clkinit(4);
    clkTimeout(note, 0, UINT32_MAX);
    setClockPrintFunc(collect);
    dumpClockCallOuts("", "who", 1);
    EXPECT_NE(printed.find(row(0, LIST_END, "        -1", "         0", "0x00000000")),
              std::string::npos)
        << printed;
}

SIMULATED(Dump, tableOfAHundredHasThreeDigitIndexes) {
    clkinit(100);
    clkTimeout(note, 0, 5);
    setClockPrintFunc(collect);
    dumpClockCallOuts("", "who", 1);
    EXPECT_NE(printed.find("\n         adr        next     increment         ID   argument  "
                           "function\n[000] " +
                           wide(record(0)) + " 0x00000001 "),
              std::string::npos)
        << printed;
}

SIMULATED(Dump, endsAtAPointerThatIsNoRecords) {
    clkinit(4);
    clkTimeout(note, 0, 5);
    ListItem *const last = callouts[0].next;
    const std::string start =
        "who - Line: 1\n" + headers(record(0), record(0), "1", record(1), record(3), "3");
    setClockPrintFunc(collect);
    const char *const base = reinterpret_cast<const char *>(callouts);
    for (const void *stray :
         {static_cast<const void *>(base + 5 * sizeof(Callout)),
          static_cast<const void *>(base - sizeof(Callout)), static_cast<const void *>(base + 1),
          STRAY, static_cast<const void *>(nullptr)}) {
        printed.clear();
        callouts[0].next = link(stray);
        dumpClockCallOuts("", "who", 1);
        EXPECT_EQ(printed, start + row(0, stray, "         5", "         0", "0x00000000") +
                               "POINTER OUT OF BOUNDS!!!\n");
    }
    callouts[0].next = last;
}

SIMULATED(Dump, indexOneBeyondTheTableIsAccepted) {
    clkinit(4);
    clkTimeout(note, 0, 5);
    ListItem *const last = callouts[0].next;
    callouts[0].next = link(record(4));
    setClockPrintFunc(collect);
    dumpClockCallOuts("", "who", 1);
    callouts[0].next = last;
    EXPECT_EQ(printed, "who - Line: 1\n" +
                           headers(record(0), record(0), "1", record(1), record(3), "3") +
                           row(0, record(4), "         5", "         0", "0x00000000") + "[4] " +
                           wide(record(4)) +
                           " 0x00000000          0          0 0x00000000 0x00000000\n"
                           "POINTER OUT OF BOUNDS!!!\n");
}

SIMULATED(Dump, ringEndsAfterOneRowMoreThanTheTableHas) {
    clkinit(4);
    clkTimeout(note, 0, 5);
    ListItem *const last = callouts[0].next;
    callouts[0].next = link(record(0));
    setClockPrintFunc(collect);
    dumpClockCallOuts("", "who", 1);
    callouts[0].next = last;
    const std::string one = row(0, record(0), "         5", "         0", "0x00000000");
    EXPECT_EQ(printed, "who - Line: 1\n" +
                           headers(record(0), record(0), "1", record(1), record(3), "3") + one +
                           one + one + one + one);
}

SIMULATED(Dump, goesToStandardErrorUnlessToldOtherwise) {
    const ChildResult result = runInChild([] {
        dumpClockCallOuts("why", "who", 1);
        const ClkPrintFunc standard = setClockPrintFunc(collect);
        EXPECT_NE(standard, nullptr);
        EXPECT_EQ(setClockPrintFunc(nullptr), collect);
        dumpClockCallOuts("again", "who", 2); // nobody was set: the standard one is put in
        EXPECT_EQ(setClockPrintFunc(nullptr), standard);
    });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "why\nwho - Line: 1\nmaxcallouts: 0   callouts: 0x0\n"
                          "again\nwho - Line: 2\nmaxcallouts: 0   callouts: 0x0\n");
}

SIMULATED(Dump, printFunctionStartsAsNone) {
    EXPECT_EQ(setClockPrintFunc(collect), nullptr);
}

SIMULATED(Dump, standardPrintFlushesForNoTextAndTheEmptyOne) {
    for (const char *flushing : {static_cast<const char *>(nullptr), ""}) {
        const ChildResult result = runInChild([flushing] {
            setvbuf(stderr, nullptr, _IOFBF, 4096);
            dumpClockCallOuts("", "who", 1); // installs it
            const ClkPrintFunc standard = setClockPrintFunc(nullptr);
            fputs("waiting", stderr);
            standard(flushing);
            fputs("left behind", stderr);
            syscall(SYS_exit_group, 0); // _exit is made to flush by the thread sanitizer
        });
        EXPECT_EQ(result.err, "who - Line: 1\nmaxcallouts: 0   callouts: 0x0\nwaiting");
    }
}

// --- Panics ---

constexpr char PANIC_LINE[] = "PANIC! Clock Functions Terminating Process.\n";

// A table of four with callouts 0, 1 and 2, at 10, 15 and 20 seconds, damaged and then used in a
// process of its own, which must end with that text.
void expectPanic(const std::function<void()> &damageAndUse, const std::string &site,
                 const std::string &table) {
    const ChildResult result = runInChild([&] {
        clkTimeout(note, 0x64, 10);
        clkTimeout(note, 0x65, 15);
        clkTimeout(note, 0x66, 20);
        damageAndUse();
    });
    EXPECT_EQ(result.signal, SIGABRT) << site;
    EXPECT_EQ(result.err, site + table + PANIC_LINE);
}

// The rows of the three callouts with those increments, the last linked to what is given.
std::string rows(const char *first, const char *second, const char *third, const void *end) {
    return row(0, record(1), first, "         0", "0x00000064") +
           row(1, record(2), second, "         1", "0x00000065") +
           row(2, end, third, "         2", "0x00000066");
}

// A ring of them: five rows.
std::string ringRows(const char *first, const char *second, const char *third) {
    return rows(first, second, third, record(0)) +
           row(0, record(1), first, "         0", "0x00000064") +
           row(1, record(2), second, "         1", "0x00000065");
}

std::string listOf3(const char *count = "3") {
    return headers(record(0), record(2), count, record(3), record(3), "1");
}

// The same while a new callout holds the last free record.
std::string listOf3AndNoneFree(const char *count = "3") {
    return headers(record(0), record(2), count, nullptr, nullptr, "0");
}

std::string strayAfterFirst(const char *increment) {
    return row(0, STRAY, increment, "         0", "0x00000064") + "POINTER OUT OF BOUNDS!!!\n";
}

std::string strayAfterSecond() {
    return row(0, record(1), "        10", "         0", "0x00000064") +
           row(1, STRAY, "         5", "         1", "0x00000065") + "POINTER OUT OF BOUNDS!!!\n";
}

void makeRing() {
    callouts[2].next = link(record(0));
}

void makeAllDue() {
    for (int i = 0; i < 3; ++i)
        callouts[i].increment = 0;
}

void alarmArrives() {
    simulated->signalArrives();
}

#define LOOP_AT(site) "Loop In Clock CallOut List!!\n" site "\n"
#define MANGLED_AT(site) "Clock CallOut List Mangled!!\n" site "\n"
constexpr char ZERO[] = "         0";
constexpr char FIVE[] = "         5";
constexpr char TEN[] = "        10";

SIMULATED(Panic, handlerFindsARingOfDueOnes) {
    clkinit(4);
    expectPanic(
        [] {
            makeRing();
            makeAllDue();
            alarmArrives();
        },
        LOOP_AT("clk - Line: 246"), listOf3() + ringRows(ZERO, ZERO, ZERO));
}

SIMULATED(Panic, handlerTakesANegativeCountForARing) {
    clkinit(4);
    expectPanic(
        [] {
            activeCallouts.count = -1;
            alarmArrives();
        },
        LOOP_AT("clk - Line: 273"), listOf3("-1") + rows(ZERO, FIVE, FIVE, LIST_END));
}

SIMULATED(Panic, handlerFindsTheFirstTimedOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[0].increment = 0;
            callouts[0].next = link(STRAY);
            alarmArrives();
        },
        MANGLED_AT("clk - Line: 251"), listOf3() + strayAfterFirst(ZERO));
}

SIMULATED(Panic, handlerFindsTheHeadOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            activeCallouts.head = link(STRAY);
            alarmArrives();
        },
        MANGLED_AT("clk - Line: 251"),
        headers(STRAY, record(2), "3", record(3), record(3), "1") + "POINTER OUT OF BOUNDS!!!\n");
}

SIMULATED(Panic, handlerFindsARingBehindTheFirstTimed) {
    clkinit(4);
    expectPanic(
        [] {
            makeRing();
            makeAllDue();
            callouts[0].increment = 10;
            alarmArrives();
        },
        LOOP_AT("clk - Line: 273"), listOf3() + ringRows(ZERO, ZERO, ZERO));
}

SIMULATED(Panic, handlerFindsTheNextTimedOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[0].next = link(STRAY);
            alarmArrives();
        },
        MANGLED_AT("clk - Line: 279"), listOf3() + strayAfterFirst(ZERO));
}

void foreignHandler(int) {}

SIMULATED(Panic, applicationThatTookTheSignalAwayIsTold) {
    clkinit(4);
    const auto address = reinterpret_cast<const void *>(foreignHandler);
    expectPanic(
        [] {
            simulated->disposition = foreignHandler;
            clkTimeout(note, 0, 1);
        },
        "Application is mixing alarm()/sig*(SIGALRM...) calls with\n"
        "sleep()/clkTimeout()/clkKillTimeout() calls in an incompatible fashion.  At\n"
        "least one callout remained in the callout table when the application\n"
        "took SIGALRM away from clk().  See \"clock(3x)\" manual page.\n"
        "Improper SIGALRM handler: " +
            plain(address) + "\n\nsetAlarmHdlr - Line: 625\n",
        listOf3() + rows(TEN, FIVE, FIVE, LIST_END));
}

SIMULATED(Panic, queueingFindsARingOfDueOnes) {
    clkinit(4);
    expectPanic(
        [] {
            makeRing();
            makeAllDue();
            clkTimeout(note, 0, 1);
        },
        LOOP_AT("queueTimeout - Line: 756"), listOf3AndNoneFree() + ringRows(ZERO, ZERO, ZERO));
}

SIMULATED(Panic, queueingFindsTheFirstTimedOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[0].increment = 0;
            callouts[0].next = link(STRAY);
            clkTimeout(note, 0, 1);
        },
        MANGLED_AT("queueTimeout - Line: 768"), listOf3AndNoneFree() + strayAfterFirst(ZERO));
}

SIMULATED(Panic, queueingFindsANegativeCount) {
    clkinit(4);
    expectPanic(
        [] {
            activeCallouts.count = -1;
            clkTimeout(note, 0, 1);
        },
        LOOP_AT("queueTimeout - Line: 797"),
        listOf3AndNoneFree("-1") + rows(TEN, FIVE, FIVE, LIST_END));
}

SIMULATED(Panic, queueingFindsARing) {
    clkinit(4);
    expectPanic(
        [] {
            makeRing();
            clkTimeout(note, 0, 1000);
        },
        LOOP_AT("queueTimeout - Line: 797"), listOf3AndNoneFree() + ringRows(TEN, FIVE, FIVE));
}

SIMULATED(Panic, queueingFindsTheNextOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[1].next = link(STRAY);
            clkTimeout(note, 0, 1000);
        },
        MANGLED_AT("queueTimeout - Line: 807"), listOf3AndNoneFree() + strayAfterSecond());
}

SIMULATED(Panic, recordBeyondTheTablesLastIsOutside) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[1].next = link(record(4));
            callouts[4].increment = 5000; // were it taken for a record, the walk would end there
            clkTimeout(note, 0, 1000);
        },
        MANGLED_AT("queueTimeout - Line: 807"),
        listOf3AndNoneFree() + row(0, record(1), TEN, ZERO, "0x00000064") +
            row(1, record(4), FIVE, "         1", "0x00000065") + "[4] " + wide(record(4)) +
            " 0x00000000       5000          0 0x00000000 0x00000000\n"
            "POINTER OUT OF BOUNDS!!!\n");
}

SIMULATED(Panic, missingLinkIsOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[1].next = nullptr;
            clkUntimeout(99);
        },
        MANGLED_AT("clkUntimeout - Line: 1083"),
        listOf3() + row(0, record(1), TEN, ZERO, "0x00000064") +
            row(1, nullptr, FIVE, "         1", "0x00000065") + "POINTER OUT OF BOUNDS!!!\n");
}

SIMULATED(Panic, cancelByIdFindsARing) {
    clkinit(4);
    expectPanic(
        [] {
            makeRing();
            clkUntimeout(99);
        },
        LOOP_AT("clkUntimeout - Line: 1077"), listOf3() + ringRows(TEN, FIVE, FIVE));
}

SIMULATED(Panic, cancelByCallFindsARing) {
    clkinit(4);
    expectPanic(
        [] {
            makeRing();
            clkKillTimeout(note, 0);
        },
        LOOP_AT("clkKillTimeout - Line: 1077"), listOf3() + ringRows(TEN, FIVE, FIVE));
}

SIMULATED(Panic, cancelByIdFindsARecordOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[1].next = link(STRAY);
            clkUntimeout(99);
        },
        MANGLED_AT("clkUntimeout - Line: 1083"), listOf3() + strayAfterSecond());
}

SIMULATED(Panic, cancelByCallFindsARecordOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[1].next = link(STRAY);
            clkKillTimeout(note, 0);
        },
        MANGLED_AT("clkKillTimeout - Line: 1083"), listOf3() + strayAfterSecond());
}

SIMULATED(Panic, cancelFindsTheSuccessorOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[1].next = link(STRAY);
            clkUntimeout(1);
        },
        MANGLED_AT("clkUntimeout - Line: 1083"), listOf3() + strayAfterSecond());
}

SIMULATED(Panic, catchingUpFindsARing) {
    clkinit(4);
    expectPanic(
        [] {
            makeRing();
            clkHold();
            clkCatchup(1000);
        },
        LOOP_AT("clkCatchup - Line: 1327"), listOf3() + ringRows(TEN, ZERO, ZERO));
}

SIMULATED(Panic, catchingUpFindsANegativeCount) {
    clkinit(4);
    expectPanic(
        [] {
            clkHold();
            activeCallouts.count = -1;
            clkCatchup(1);
        },
        LOOP_AT("clkCatchup - Line: 1327"), listOf3("-1") + rows(TEN, FIVE, FIVE, LIST_END));
}

SIMULATED(Panic, catchingUpNeverReadsOutsideTheTable) {
    clkinit(4);
    expectPanic(
        [] {
            callouts[1].next = link(STRAY);
            clkHold();
            clkCatchup(1000);
        },
        LOOP_AT("clkCatchup - Line: 1327"),
        listOf3() + row(0, record(1), TEN, ZERO, "0x00000064") +
            row(1, STRAY, ZERO, "         1", "0x00000065") + "POINTER OUT OF BOUNDS!!!\n");
}

SIMULATED(Panic, goesToTheApplicationsPrintFunction) {
    const ChildResult result = runInChild([] {
        clkinit(4);
        clkTimeout(note, 0, 10);
        setClockPrintFunc([](const char *text) {
            fputs(text == nullptr ? "<flush>" : text, stdout);
            fflush(stdout);
        });
        activeCallouts.count = -1;
        clkTimeout(note, 0, 1);
    });
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.rfind("Loop In Clock CallOut List!!\n", 0), 0U);
    const std::string end = std::string("<flush>") + PANIC_LINE + "<flush>";
    ASSERT_GT(result.out.size(), end.size());
    EXPECT_EQ(result.out.substr(result.out.size() - end.size()), end);
}

void collectOnce(const char *text) {
    collect(text);
    setClockPrintFunc(nullptr);
}

SIMULATED(Dump, printFunctionMayTakeItselfBack) {
    setClockPrintFunc(collectOnce);
    dumpClockCallOuts("why", "who", 1);
    EXPECT_EQ(printed, "why\n");
    EXPECT_EQ(flushes, 0);
}

SIMULATED(Panic, headThatIsNoRecordsEndsTheProcess) {
    clkinit(4);
    const char *const base = reinterpret_cast<const char *>(callouts);
    for (const char *stray : {base + 4 * sizeof(Callout), base + 1, base - sizeof(Callout)}) {
        const ChildResult result = runInChild([&] {
            clkTimeout(note, 1, 10);
            activeCallouts.head = link(stray);
            alarmArrives();
        });
        EXPECT_EQ(result.signal, SIGABRT);
        EXPECT_EQ(result.err.rfind(MANGLED_AT("clk - Line: 251"), 0), 0U) << result.err;
    }
}

} // namespace

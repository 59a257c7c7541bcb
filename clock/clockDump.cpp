// Showing the callout table, and the fatal end of a clock whose table is broken.
#include "clockState.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

static ClkPrintFunc clockPrintFunc;

// Holds the longest message that the clock makes itself, about 330 bytes, with room for a caller's.
static constexpr size_t PRINT_BUFFER_SIZE = 1024;

static unsigned long word(const void *pointer) {
    return reinterpret_cast<unsigned long>(pointer);
}

__attribute__((format(printf, 1, 2))) static void clkPrint(const char *format, ...) {
    ClockLock lock;
    if (clockPrintFunc == nullptr)
        return;
    char text[PRINT_BUFFER_SIZE];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (length >= 0) // else there is no text
        clockPrintFunc(text);
}

static void flushPrint() {
    if (clockPrintFunc != nullptr)
        clockPrintFunc(nullptr);
}

static void defaultClockPrint(const char *text) {
    ClockLock lock;
    if (text != nullptr && *text != '\0')
        fputs(text, stderr);
    fflush(stderr);
}

ClkPrintFunc setClockPrintFunc(ClkPrintFunc function) {
    ClockLock lock;
    const ClkPrintFunc previous = clockPrintFunc;
    clockPrintFunc = function;
    return previous;
}

static int digitsOf(int32_t number) {
    int digits = 1;
    for (; number >= 10; number /= 10)
        ++digits;
    return digits;
}

// The record's index in the table; -1 if the address is none of a record's. Kept: the index one
// beyond the last is accepted; the table has a spare record there.
static int32_t indexOf(const ListItem *link) {
    const uintptr_t start = reinterpret_cast<uintptr_t>(callouts);
    const uintptr_t address = reinterpret_cast<uintptr_t>(link);
    if (address < start || (address - start) % sizeof(Callout) != 0)
        return -1;
    const uintptr_t index = (address - start) / sizeof(Callout);
    return index > static_cast<uintptr_t>(maxcallouts) ? -1 : static_cast<int32_t>(index);
}

static void printCallout(int32_t index, int digits) {
    const Callout &callout = callouts[index];
    clkPrint("[%*.*d] 0x%8.8lx 0x%8.8lx %10d %10d 0x%8.8lx 0x%8.8lx\n", digits, digits, index,
             word(&callout), word(callout.next), static_cast<int>(callout.increment),
             static_cast<int>(callout.ID), static_cast<unsigned long>(callout.argument),
             reinterpret_cast<unsigned long>(callout.function));
}

static void printActiveCallouts(int digits) {
    const ListItem *link = activeCallouts.head;
    if (link == nullptr) {
        clkPrint("NO TIMEOUTS\n");
        return;
    }
    // A ring in the list ends the rows too: no sound list has more.
    for (int32_t rows = 0; link != LIST_END && rows <= maxcallouts; ++rows) {
        const int32_t index = indexOf(link);
        if (index < 0) {
            clkPrint("POINTER OUT OF BOUNDS!!!\n");
            return;
        }
        printCallout(index, digits);
        link = callouts[index].next;
    }
}

static void printTable() {
    clkPrint("activeCallouts - head: 0x%lx tail: 0x%lx cnt: %d\n", word(activeCallouts.head),
             word(activeCallouts.tail), activeCallouts.count);
    clkPrint("freeCallouts -   head: 0x%lx tail: 0x%lx cnt: %d\n", word(freeCallouts.head),
             word(freeCallouts.tail), freeCallouts.count);
    const int digits = digitsOf(maxcallouts);
    clkPrint("%*.*s    adr        next     increment         ID   argument  function\n", digits + 2,
             digits + 2, "  ");
    printActiveCallouts(digits);
}

void dumpClockCallOuts(const char *message, const char *name, int32_t line) {
    ClockLock lock;
    if (clockPrintFunc == nullptr)
        clockPrintFunc = defaultClockPrint;
    if (message != nullptr && *message != '\0')
        clkPrint("%s\n", message);
    clkPrint("%.40s - Line: %d\n", name == nullptr ? "" : name, line);
    clkPrint("maxcallouts: %d   callouts: 0x%lx\n", maxcallouts, word(callouts));
    if (maxcallouts > 0 && callouts != nullptr)
        printTable();
    flushPrint();
}

void clkPanic(const char *message, const char *name, int32_t line) {
    ClockLock lock;
    dumpClockCallOuts(message, name, line);
    clkPrint("PANIC! Clock Functions Terminating Process.\n");
    flushPrint();
    abort();
}

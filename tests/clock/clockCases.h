/* What the clock's cases share: each runs in a child of its own on the simulated system, since the
   table lasts as long as its process. */
#ifndef TESTS_CLOCK_CLOCKCASES_H
#define TESTS_CLOCK_CLOCKCASES_H

#include "clock/clock.h"

#include "simulatedSystem.h"
#include "support/childProcess.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// What a sound list holds, in order; fails the case where it is not sound.
inline std::vector<const Callout *> recordsOf(const ListHeader &header, const char *name) {
    std::vector<const Callout *> records;
    const ListItem *last = header.tail;
    for (const ListItem *link = header.head; link != nullptr && link != LIST_END;) {
        const auto *record = reinterpret_cast<const Callout *>(link);
        if (record < callouts || record >= callouts + maxcallouts ||
            records.size() >= static_cast<size_t>(maxcallouts) || record->next == nullptr) {
            ADD_FAILURE() << name << ": stray link or ring";
            return records;
        }
        records.push_back(record);
        last = link;
        link = record->next;
    }
    if (static_cast<size_t>(header.count) != records.size() || header.tail != last)
        ADD_FAILURE() << name << ": count " << header.count << " of " << records.size()
                      << ", or a wrong tail";
    return records;
}

// Every record is on exactly one list, and every list is what its header says.
inline bool tableIsSound() {
    std::vector<bool> seen(static_cast<size_t>(maxcallouts));
    size_t total = 0;
    const auto take = [&](const ListHeader &header, const char *name) {
        for (const Callout *record : recordsOf(header, name)) {
            const auto index = static_cast<size_t>(record - callouts);
            if (seen[index])
                ADD_FAILURE() << name << ": a record is on two lists";
            seen[index] = true;
            ++total;
        }
    };
    take(activeCallouts, "active");
    take(freeCallouts, "free");
    for (const Suspension *frame = suspensions; frame < clksptr; ++frame)
        take(frame->active, "suspended");
    if (total != static_cast<size_t>(maxcallouts))
        ADD_FAILURE() << total << " of " << maxcallouts << " records are on a list";
    return !testing::Test::HasFailure();
}

inline std::vector<uint32_t> activeIncrements() {
    std::vector<uint32_t> increments;
    for (const Callout *record : recordsOf(activeCallouts, "active"))
        increments.push_back(record->increment);
    return increments;
}

inline std::vector<uint32_t> activeIds() {
    std::vector<uint32_t> ids;
    for (const Callout *record : recordsOf(activeCallouts, "active"))
        ids.push_back(record->ID);
    return ids;
}

// What the callouts of a case leave: one entry a call.
inline std::vector<intptr_t> calls;

inline void *note(intptr_t argument, uint32_t) {
    calls.push_back(argument);
    return nullptr;
}

using Arguments = std::vector<intptr_t>;
using Increments = std::vector<uint32_t>;

// The clock's handler, as the simulated system knows it.
inline SignalHandler clockHandler() {
    return simulated->disposition;
}

inline void inSimulation(void (*body)(SimulatedSystem &)) {
    expectChildPasses([body] {
        SimulatedSystem &system = beginSimulation();
        body(system);
        tableIsSound();
        EXPECT_EQ(system.endlessWaits, 0);
        simulated = nullptr;
    });
}

// A case on the simulated system; SIGALRM's default action, which would end the process, is counted
// in system.deaths.
#define SIMULATED(suite, name)                                                                     \
    static void suite##_##name(SimulatedSystem &system);                                           \
    TEST(suite, name) {                                                                            \
        inSimulation(suite##_##name);                                                              \
    }                                                                                              \
    static void suite##_##name([[maybe_unused]] SimulatedSystem &system)

#endif

/* A writing process: an application that logs through the library and notes what it is told. */
#ifndef TESTS_FIRE_WRITER_H
#define TESTS_FIRE_WRITER_H

#include "ledger.h"

#include <string>
#include <sys/types.h>
#include <vector>

struct Work {
    std::string root;
    uint64_t seed = 0;
    uint32_t records = 0;     // of each writer
    bool retry = true;        // a refused record is tried again until it is taken; else passed over
    uint32_t longFrame = 0;   // the first writer's frames, in bytes; 0: as the others'
    uint32_t longRecords = 0; // of that writer then, each tried LONG_TRIES times at most
    uint32_t pauseMicros = 0; // between records
};

constexpr uint32_t LONG_TRIES = 50;
constexpr uint32_t NO_TABLE_KEY = 0x7E57F12E; // that no segment has

/* Makes the root with its compressed formats. */
void makeLogRoot(const std::string &root);

/* Starts the writers, who wait for nothing: the daemon may come later. */
std::vector<pid_t> startWriters(const Work &work, const Ledger &ledger);

/* Takes those away that ended; how many ended by a signal or with an error is added. */
void reapWriters(std::vector<pid_t> &writers, uint32_t &endedBadly);

#endif

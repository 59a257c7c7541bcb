/* What the pipe is put through. Each scenario prints its figures, a line "FAILED: ..." for each
   promise that was not kept, and answers how many were not. */
#ifndef TESTS_FIRE_SCENARIOS_H
#define TESTS_FIRE_SCENARIOS_H

#include "verify.h"

#include <cstdint>
#include <string>

struct Settings {
    std::string folder; // the runs' own
    uint64_t seed = 0;
    uint32_t records = 2000000; // of all writers
    uint32_t kills = 200;
    uint32_t lanes = 4;        // runs of killed daemons side by side
    std::string means = "any"; // of filling the disk: tmpfs, limit, or what can be had
};

/* The daemon is stopped and continued; then writers find nobody who reads. */
int underLoad(const Settings &settings);
/* The daemon is also ended and started anew, its pipe removed and made anew in between. */
int restarted(const Settings &settings);
/* The daemon is killed at random moments. */
int killed(const Settings &settings);
/* The disk of the log file is full again and again. */
int diskFull(const Settings &settings);
/* Records longer than the atomic size, and their neighbours. */
int longRecords(const Settings &settings);

/* Counts and tells what does not hold. */
class Checks {
  public:
    explicit Checks(std::string name) : name_(std::move(name)) {}
    void hold(bool condition, const std::string &promise);
    int broken() const { return broken_; }

  private:
    std::string name_;
    int broken_ = 0;
};

/* What holds of every run: no record doubled, torn, out of order or read without being sent, and no
   writer harmed. */
void checkWriters(Checks &checks, const Ledger &ledger, uint32_t endedBadly);
void checkSound(Checks &checks, const Verdict &verdict);
void checkNothingLost(Checks &checks, const Verdict &verdict);
void tellFigures(const char *name, const Ledger &ledger, const Verdict &verdict);

/* Bytes in the pipe with that writing end; 0 for none. */
uint32_t bytesIn(int pipe);
int openWriting(const std::string &pipe); // without waiting; -1 where nobody reads

/* How full the pipe is found. */
struct Fullness {
    uint32_t looks = 0;
    uint32_t full = 0; // of these, those that found three quarters of it taken, or more
    bool look(const std::string &pipe);
    uint32_t percent() const { return looks == 0 ? 0 : 100 * full / looks; }
};

#endif

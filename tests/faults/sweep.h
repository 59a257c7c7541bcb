/* Sweeps: an operation is run with its first call of a kind failing, then with its second, and so
   on until it succeeds without a fault. Each run starts from a fresh state. */
#ifndef TESTS_FAULTS_SWEEP_H
#define TESTS_FAULTS_SWEEP_H

#include "faults/faultLib.h"

#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

// A kind of fault. Once: the call that is told alone; gone: it and all that follow.
struct Kind {
    const char *name;
    const char *calls;
    int effect;
    int onward;
};

constexpr Kind MEMORY_ONCE = {"memoryOnce", "memory", ENOMEM, 0};
constexpr Kind MEMORY_GONE = {"memoryGone", "memory", ENOMEM, 1};
constexpr Kind INTERRUPTED = {"EINTR", "system", EINTR, 0};
constexpr Kind WOULD_BLOCK = {"EAGAIN", "transfers", EAGAIN, 1};
constexpr Kind NO_SPACE = {"ENOSPC", "system", ENOSPC, 0};
constexpr Kind IO_ERROR = {"EIO", "system", EIO, 0};
constexpr Kind IO_GONE = {"EIOGone", "system", EIO, 1};
constexpr Kind SHORT_ONE = {"shortOne", "transfers", FAULT_SHORT_ONE, 1};
constexpr Kind SHORT_HALF = {"shortHalf", "transfers", FAULT_SHORT_HALF, 1};

using Kinds = std::vector<Kind>;
Kinds operator+(Kinds left, const Kinds &right);

// What most operations are swept with.
inline const Kinds MEMORY = {MEMORY_ONCE, MEMORY_GONE};
inline const Kinds CALLS = {INTERRUPTED, WOULD_BLOCK, NO_SPACE, IO_ERROR, IO_GONE};
inline const Kinds TRANSFERS = {SHORT_ONE, SHORT_HALF};

// One run of an operation with one fault.
class Attempt {
  public:
    Attempt(const Kind &kind, int nth) : kind_(kind), nth_(nth) {}

    // Runs the operation alone with the fault armed; once in a run. errno is 0 before it.
    template<typename Operation>
    auto under(Operation operation) {
        begin();
        const auto result = operation();
        end();
        return result;
    }
    // Whether the fault was given, and to which call first.
    bool faulted() const { return given_ != nullptr; }
    bool at(const char *call) const { return faulted() && strcmp(given_, call) == 0; }
    // Whether it was any of these calls.
    bool atAny(std::initializer_list<const char *> calls) const;
    // The number that the fault gives errno; 0 for a short transfer and when none was given.
    int effect() const { return faulted() && kind_.effect > 0 ? kind_.effect : 0; }
    bool isShort() const { return kind_.effect < 0; }
    bool effectIs(int effect) const { return kind_.effect == effect; }
    bool isMemory() const { return strcmp(kind_.calls, "memory") == 0; }
    bool isOnward() const { return kind_.onward != 0; }
    int nth() const { return nth_; }
    // errno as the operation left it.
    int error() const { return error_; }
    std::string described() const;

  private:
    void begin();
    void end();

    Kind kind_;
    int nth_;
    int error_ = 0;
    const char *given_ = nullptr;
};

// Where each run takes place.
enum class Fresh {
    IN_PLACE,  // in one child for the sweep: the operation keeps no state, or the body clears it
    IN_THREAD, // in a thread each, in one child: its state is the thread's
    IN_CHILD   // in a child each: its state is the process's
};

struct Sweep {
    const char *operation; // the public name, with what is special about the case behind "_"
    Fresh fresh;
    void (*body)(Attempt &attempt);
    Kind kind;
};

// The rows of one operation, one for each kind.
struct Rows {
    const char *operation;
    Fresh fresh;
    void (*body)(Attempt &attempt);
    Kinds kinds;
};

inline void PrintTo(const Sweep &sweep, std::ostream *out) {
    *out << sweep.operation << " with " << sweep.kind.name;
}

std::vector<Sweep> eachKind(const std::vector<Rows> &rows);
std::string caseName(const testing::TestParamInfo<Sweep> &info);

class Faults : public testing::TestWithParam<Sweep> {};

// Runs the sweep. It fails when no run met a fault, and when the faults do not end.
void runSweep(const Sweep &sweep);

/* In a test file: the cases of its rows. */
#define QN_SWEEPS(rows)                                                                            \
    TEST_P(Faults, areSurvived) {                                                                  \
        runSweep(GetParam());                                                                      \
    }                                                                                              \
    INSTANTIATE_TEST_SUITE_P(Sweep, Faults, testing::ValuesIn(eachKind(rows)), caseName)

// The text or "(null)", so that results compare by value and print.
inline std::string shown(const char *text) {
    return text == nullptr ? "(null)" : text;
}

#endif

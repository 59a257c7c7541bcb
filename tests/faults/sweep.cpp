#include "faults/sweep.h"

#include <functional>
#include <thread>

static constexpr int MOST_FAULTS = 400;  // of one operation: a sweep that gets there does not end
static constexpr int CHILD_FAULTED = 61; // a child's exit code: all is well, and a fault was given
static constexpr int SECONDS_ALLOWED = 60;

Kinds operator+(Kinds left, const Kinds &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// ---- one run

void Attempt::begin() {
    ASSERT_EQ(faultsArm(kind_.calls, nth_, kind_.effect, kind_.onward), 0);
    errno = 0;
}

void Attempt::end() {
    error_ = errno;
    faultsDisarm();
    given_ = faultsGiven();
}

bool Attempt::atAny(std::initializer_list<const char *> calls) const {
    for (const char *call : calls)
        if (at(call))
            return true;
    return false;
}

std::string Attempt::described() const {
    return std::string(kind_.name) + " from call " + std::to_string(nth_) +
           (faulted() ? std::string(", given to ") + given_ : ", not given");
}

// Every failure of the run names the fault that it met.
static bool runOnce(const Sweep &sweep, int nth) {
    Attempt attempt(sweep.kind, nth);
    sweep.body(attempt);
    if (testing::Test::HasFailure())
        ADD_FAILURE() << sweep.operation << ": " << attempt.described();
    return attempt.faulted();
}

// ---- a sweep

static void expectEnds(int nth, bool atAll) {
    EXPECT_LT(nth, MOST_FAULTS) << "the faults do not end";
    EXPECT_TRUE(atAll) << "no call of this kind was made: the sweep shows nothing";
}

static void sweepHere(const std::function<bool(int nth)> &run) {
    expectChildPasses(
        [&] {
            int nth = 1;
            while (nth < MOST_FAULTS && run(nth) && !testing::Test::HasFailure())
                ++nth;
            if (!testing::Test::HasFailure())
                expectEnds(nth, nth > 1);
        },
        SECONDS_ALLOWED);
}

static bool runInThread(const Sweep &sweep, int nth) {
    bool faulted = false;
    std::thread([&] { faulted = runOnce(sweep, nth); }).join();
    return faulted;
}

// Whether the child met a fault; what is wrong with it fails the test.
static bool runInItsChild(const Sweep &sweep, int nth) {
    const ChildResult result = runInChild(
        [&] {
            if (runOnce(sweep, nth) && !testing::Test::HasFailure())
                exit(CHILD_FAULTED);
        },
        SECONDS_ALLOWED);
    const bool faulted = result.exited && result.exitCode == CHILD_FAULTED;
    EXPECT_TRUE(faulted || (result.exited && result.exitCode == 0))
        << sweep.operation << ", " << sweep.kind.name << ", call " << nth << ": "
        << (result.timedOut ? "timed out" : "ended badly") << ", exit code " << result.exitCode
        << ", signal " << result.signal << "\n"
        << result.out << result.err;
    return faulted;
}

void runSweep(const Sweep &sweep) {
    if (sweep.fresh == Fresh::IN_PLACE)
        return sweepHere([&](int nth) { return runOnce(sweep, nth); });
    if (sweep.fresh == Fresh::IN_THREAD)
        return sweepHere([&](int nth) { return runInThread(sweep, nth); });
    int nth = 1;
    while (nth < MOST_FAULTS && runInItsChild(sweep, nth))
        ++nth;
    if (!testing::Test::HasFailure())
        expectEnds(nth, nth > 1);
}

std::vector<Sweep> eachKind(const std::vector<Rows> &rows) {
    std::vector<Sweep> sweeps;
    for (const Rows &row : rows)
        for (const Kind &kind : row.kinds)
            sweeps.push_back({row.operation, row.fresh, row.body, kind});
    return sweeps;
}

std::string caseName(const testing::TestParamInfo<Sweep> &info) {
    return std::string(info.param.operation) + "_" + info.param.kind.name;
}

/* What the benchmarks use of Google Benchmark, as a plain loop, for a word size that Debian has no
   build of it for: the same sources, the same names, and the figures in the same JSON. Rounds of
   all benchmarks alternate, so that the machine's other work falls on each. */
#ifndef BENCH_SUPPORT_PLAINBENCHMARK_H
#define BENCH_SUPPORT_PLAINBENCHMARK_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace benchmark {

class State {
  public:
    explicit State(int64_t iterations) : iterations_(iterations) {}
    struct Nothing {
        ~Nothing() {} // not trivial: an unused loop variable is no warning
    };
    struct Iterator {
        State *state;
        int64_t left;
        bool operator!=(const Iterator &) const {
            if (left > 0)
                return true;
            state->PauseTiming();
            return false;
        }
        void operator++() { --left; }
        Nothing operator*() const { return {}; }
    };
    Iterator begin() {
        ResumeTiming();
        return {this, iterations_};
    }
    Iterator end() { return {this, 0}; }
    void PauseTiming() { seconds_ += secondsSince(start_); }
    void ResumeTiming() { start_ = std::chrono::steady_clock::now(); }
    void SkipWithError(const char *reason) {
        fprintf(stderr, "benchmark: %s\n", reason);
        exit(1);
    }
    double seconds() const { return seconds_; }

  private:
    using Moment = std::chrono::steady_clock::time_point;
    static double secondsSince(Moment start) {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    int64_t iterations_;
    double seconds_ = 0;
    Moment start_;
};

template<typename Value>
inline void DoNotOptimize(Value &&value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

inline void ClobberMemory() {
    asm volatile("" : : : "memory");
}

struct Registered {
    const char *name;
    void (*function)(State &);
    int64_t iterations = 1;
    std::vector<double> nanoseconds = {}; // of one iteration, by round
};

inline std::vector<Registered> &registered() {
    static std::vector<Registered> all;
    return all;
}

inline int add(const char *name, void (*function)(State &)) {
    registered().push_back({name, function});
    return 0;
}

inline int addWhole(const char *name, void (*function)(State &)) {
    return add(name, function); // which goes by the clock on the wall
}

inline double run(const Registered &each) {
    State state(each.iterations);
    each.function(state);
    return state.seconds();
}

// As many iterations as take the time of a round.
inline void settleIterations(Registered &each, double roundSeconds) {
    for (double seconds = run(each); seconds < roundSeconds; seconds = run(each)) {
        const double wanted = seconds <= 0 ? 10 : 1.2 * roundSeconds / seconds;
        each.iterations = static_cast<int64_t>(static_cast<double>(each.iterations) *
                                               (wanted > 10 ? 10 : wanted)) +
                          1;
    }
}

inline void printAll() {
    printf("{\"benchmarks\": [");
    const char *separator = "\n";
    for (const Registered &each : registered())
        for (const double value : each.nanoseconds) {
            printf("%s{\"name\": \"%s\", \"run_type\": \"iteration\", \"real_time\": %.4f}",
                   separator, each.name, value);
            separator = ",\n";
        }
    printf("\n]}\n");
}

inline int runAll(int argc, char **argv) {
    int rounds = 9;
    double roundSeconds = 0.05;
    for (int i = 1; i < argc; ++i) {
        if (strncmp(argv[i], "--benchmark_repetitions=", 24) == 0)
            rounds = atoi(argv[i] + 24);
        if (strncmp(argv[i], "--benchmark_min_time=", 21) == 0)
            roundSeconds = atof(argv[i] + 21);
    }
    for (Registered &each : registered())
        settleIterations(each, roundSeconds);
    for (int round = 0; round < rounds; ++round)
        for (Registered &each : registered())
            each.nanoseconds.push_back(run(each) / static_cast<double>(each.iterations) * 1e9);
    printAll();
    return 0;
}

} // namespace benchmark

#define BENCHMARK_MAIN()                                                                           \
    int main(int argc, char **argv) {                                                              \
        return benchmark::runAll(argc, argv);                                                      \
    }

#endif

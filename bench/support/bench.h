/* The benchmarks' frame: Google Benchmark, or its plain stand-in. A name is "<row>/<variant>";
   bench/run puts variants of a row against each other. */
#ifndef BENCH_SUPPORT_BENCH_H
#define BENCH_SUPPORT_BENCH_H

#ifdef QN_PLAIN_BENCHMARK
#include "support/plainBenchmark.h"
#else
#include <benchmark/benchmark.h>
namespace benchmark {
inline int add(const char *name, void (*function)(State &)) {
    RegisterBenchmark(name, function);
    return 0;
}
// By the clock on the wall: another process does the work.
inline int addWhole(const char *name, void (*function)(State &)) {
    RegisterBenchmark(name, function)->UseRealTime();
    return 0;
}
} // namespace benchmark
#endif

#define QN_BENCH_NAME2(count) benchmark_##count
#define QN_BENCH_NAME(count) QN_BENCH_NAME2(count)
#define QN_BENCHMARK(name, function)                                                               \
    [[maybe_unused]] static const int QN_BENCH_NAME(__COUNTER__) = benchmark::add(name, function)
#define QN_BENCHMARK_WHOLE(name, function)                                                         \
    [[maybe_unused]] static const int QN_BENCH_NAME(__COUNTER__) =                                 \
        benchmark::addWhole(name, function)

#endif

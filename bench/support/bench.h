/* The benchmarks' frame: Google Benchmark, or its plain stand-in. A name is "<row>/<variant>";
   bench/run puts variants of a row against each other. */
#ifndef BENCH_SUPPORT_BENCH_H
#define BENCH_SUPPORT_BENCH_H

#ifdef QN_PLAIN_BENCHMARK
#include "support/plainBenchmark.h"
#else
#include <benchmark/benchmark.h>
#define QN_BENCHMARK(name, function) BENCHMARK(function)->Name(name)
#endif

#endif

// The benchmark program; scripts/bench.sh runs it and prints the table of ratios.

#include <benchmark/benchmark.h>

BENCHMARK_MAIN();

#include <benchmark/benchmark.h>

const bool IS_COMPILER_SHOWN = (benchmark::AddCustomContext("compiler", COMPILER), true);

BENCHMARK_MAIN();

#include <benchmark/benchmark.h>

int main(int argc, char** argv)
{
    benchmark::AddCustomContext("compiler", COMPILER);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

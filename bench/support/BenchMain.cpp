// Entry point of the benchmarks that need nothing else: the runtime comes up
// first, so they measure our code on our own heap as the tool runs it.
#include <benchmark/benchmark.h>

#include "core/Core.h"

int main(int argc, char** argv) {
    coreInit();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    coreShutdown();
    return 0;
}

// HeapBench: allocate+release pairs on a mixed workload, the same precomputed
// sequence for a private Heap and for the platform's malloc/free in one run.
// Time is per pair; the heap also reports bytes mapped (segments and the free
// lists' index) against peak live bytes. The private heap lives across
// repetitions, as the platform's arena does, so that after the first neither
// pays for touching freshly mapped pages.
// Run with --benchmark_enable_random_interleaving=true on a busy machine, and
// with --with-second-thread to see both allocators with their locks taken.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "core/Heap.h"

namespace {

constexpr int32_t liveBlocks = 10000;
constexpr int32_t pairs = 1 << 21;      // one pass over the sequence per run
constexpr uint32_t bufferOneIn = 1000;  // how often a large buffer is asked for
constexpr double smallLog2[2] = {3, 12};   // 8 B to 4 KiB, log-uniform
constexpr double bufferLog2[2] = {16, 23};  // 64 KiB to 8 MiB, log-uniform
constexpr uint32_t seed = 20261121;

struct Step {
    uint32_t slot;  // whose block is released, then replaced
    uint32_t size;  // by a block of this size
};

struct Workload {
    std::vector<uint32_t> initialSizes;
    std::vector<Step> steps;
    uint64_t peakLiveBytes = 0;
};

uint32_t drawSize(std::mt19937& random) {
    const double* range = random() % bufferOneIn == 0 ? bufferLog2 : smallLog2;
    return uint32_t(std::exp2(std::uniform_real_distribution<double>(range[0], range[1])(random)));
}

const Workload& workload() {
    static const Workload built = [] {
        Workload w;
        std::mt19937 random(seed);
        uint64_t live = 0;
        for (int32_t i = 0; i < liveBlocks; i++)
            live += w.initialSizes.emplace_back(drawSize(random));
        std::vector<uint32_t> sizes = w.initialSizes;
        w.peakLiveBytes = live;
        for (int32_t i = 0; i < pairs; i++) {
            Step step{uint32_t(random() % liveBlocks), drawSize(random)};
            live += uint64_t(step.size) - sizes[step.slot];
            sizes[step.slot] = step.size;
            w.peakLiveBytes = std::max(w.peakLiveBytes, live);
            w.steps.push_back(step);
        }
        return w;
    }();
    return built;
}

struct HeapAllocator {
    Heap heap;
    void* allocate(size_t size) { return heap.allocate(size, size < 16 ? 8 : 16); }
    void release(void* memory) { heap.release(memory); }
};

struct PlatformAllocator {
    void* allocate(size_t size) { return std::malloc(size); }
    void release(void* memory) { std::free(memory); }
};

// Each block carries its slot number, checked when it is released, so that a
// fast but wrong allocator cannot look like a win.
template <class Allocator>
void runWorkload(benchmark::State& state, Allocator& allocator) {
    const Workload& w = workload();
    std::vector<void*> slots(liveBlocks);
    for (int32_t i = 0; i < liveBlocks; i++) {
        slots[i] = allocator.allocate(w.initialSizes[i]);
        std::memcpy(slots[i], &i, sizeof i);
    }
    uint64_t mismatches = 0;
    size_t next = 0;
    for (auto _ : state) {
        const Step& step = w.steps[next++];
        uint32_t owner;
        std::memcpy(&owner, slots[step.slot], sizeof owner);
        mismatches += owner != step.slot;
        allocator.release(slots[step.slot]);
        void* memory = allocator.allocate(step.size);
        std::memcpy(memory, &step.slot, sizeof step.slot);
        slots[step.slot] = memory;
    }
    for (void* memory : slots)
        allocator.release(memory);
    if (mismatches)
        state.SkipWithError("a block lost its content");
    state.counters["peakLiveMiB"] = double(w.peakLiveBytes) / (1 << 20);
}

void heapPairs(benchmark::State& state) {
    static auto* allocator = new HeapAllocator;  // never freed, like the platform's arena
    runWorkload(state, *allocator);
    HeapStatistics s = allocator->heap.statistics();
    if (!allocator->heap.verify() || s.allocBlocks != 0)
        state.SkipWithError("heap inconsistent after the run");
    state.counters["mappedMiB"] = double(s.totalSize) / (1 << 20);
    state.counters["indexMiB"] = double(allocator->heap.indexSize()) / (1 << 20);
    state.counters["mappedPerLive"] = double(s.totalSize + allocator->heap.indexSize()) / double(workload().peakLiveBytes);
    state.counters["slowBucket"] = double(s.slowBucket);
    // What the blocks handed out held at their peak, against what was asked
    // for: the price of leaving small leftovers with the blocks.
    state.counters["allocPerLive"] = double(s.peakAllocSize) / double(workload().peakLiveBytes);
}

void platformPairs(benchmark::State& state) {
    PlatformAllocator allocator;
    runWorkload(state, allocator);
}

}  // namespace

BENCHMARK(heapPairs)->Iterations(pairs)->Repetitions(5)->Unit(benchmark::kNanosecond);
BENCHMARK(platformPairs)->Iterations(pairs)->Repetitions(5)->Unit(benchmark::kNanosecond);

// A thread that has come and gone leaves the process multi-threaded for good:
// from then on both allocators take their locks.
int main(int argc, char** argv) {
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--with-second-thread") == 0) {
            std::thread([] {}).join();
            argv[i--] = argv[--argc];
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

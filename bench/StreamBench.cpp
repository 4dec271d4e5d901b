// StreamBench: 4-byte reads and writes through an 8192-byte BufferedStream
// over a real file, against one large read or write of the same file.
// Target: the small accesses reach at least half the large ones' throughput.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/BufferedStream.h"
#include "core/FileStream.h"

namespace {

constexpr int32_t FileBytes = 16 << 20;
constexpr int32_t BufferBytes = 8192;

// The file is made once and removed when the benchmark process ends.
std::string benchFile() {
    static std::string path = [] {
        std::string p = "/tmp/oxa-stream-bench-" + std::to_string(getpid());
        FileStream file(p.c_str(), FileWrite | FileCreate | FileTruncate, 7);
        std::vector<uint8_t> bytes(FileBytes, 0x5A);
        file.writeAll(bytes.data(), FileBytes);
        std::atexit([] { unlink(benchFile().c_str()); });
        return p;
    }();
    return path;
}

void largeRead(benchmark::State& state) {
    std::vector<uint8_t> bytes(FileBytes);
    for (auto _ : state) {
        FileStream file(benchFile().c_str(), FileRead, 7);
        benchmark::DoNotOptimize(file.readExactly(bytes.data(), FileBytes));
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * FileBytes);
}

void smallBufferedReads(benchmark::State& state) {
    for (auto _ : state) {
        FileStream file(benchFile().c_str(), FileRead, 7);
        BufferedStream buffered(&file, BufferBytes);
        uint32_t word = 0, sum = 0, count = 0;
        for (int32_t i = 0; i < FileBytes / 4; ++i) {
            buffered.read(&word, 4, count);
            sum += word;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * FileBytes);
}

void largeWrite(benchmark::State& state) {
    std::vector<uint8_t> bytes(FileBytes, 7);
    std::string path = benchFile() + ".out";
    for (auto _ : state) {
        FileStream file(path.c_str(), FileWrite | FileCreate | FileTruncate, 7);
        benchmark::DoNotOptimize(file.writeAll(bytes.data(), FileBytes));
    }
    unlink(path.c_str());
    state.SetBytesProcessed(int64_t(state.iterations()) * FileBytes);
}

void smallBufferedWrites(benchmark::State& state) {
    std::string path = benchFile() + ".out";
    for (auto _ : state) {
        FileStream file(path.c_str(), FileWrite | FileCreate | FileTruncate, 7);
        BufferedStream buffered(&file, BufferBytes);
        uint32_t count = 0;
        for (uint32_t i = 0; i < uint32_t(FileBytes / 4); ++i)
            buffered.write(&i, 4, count);
        buffered.flush();
    }
    unlink(path.c_str());
    state.SetBytesProcessed(int64_t(state.iterations()) * FileBytes);
}

}  // namespace

BENCHMARK(largeRead)->Unit(benchmark::kMillisecond);
BENCHMARK(smallBufferedReads)->Unit(benchmark::kMillisecond);
BENCHMARK(largeWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(smallBufferedWrites)->Unit(benchmark::kMillisecond);

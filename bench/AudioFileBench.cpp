// AudioFileBench: reading 10 s of stereo WAV from memory in 4096-frame calls.
// Targets: a 16-bit file read in its own layout costs no more than copying its
// bytes through the same stream; 24-bit and float files convert to Int16 at
// 200 million samples/s or more. Every read is checked for its frame count.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "audio/AudioFile.h"
#include "audio/pcm/SampleFormat.h"
#include "core/MemoryStream.h"

namespace {

constexpr int32_t Rate = 44100;
constexpr int32_t Channels = 2;
constexpr int32_t Frames = Rate * 10;
constexpr int32_t CallFrames = 4096;

// A WAV file of the test signal in `format`, built once per format.
const std::vector<uint8_t>& wavFile(uint32_t format) {
    static std::vector<uint8_t> files[5];
    std::vector<uint8_t>& file = files[format];
    if (!file.empty())
        return file;
    std::vector<float> signal(size_t(Frames) * Channels);
    for (size_t i = 0; i < signal.size(); ++i)
        signal[i] = 0.7f * std::sin(0.001f * float(i));
    MemoryStream stream;
    AudioFile writer;
    uint32_t written = 0;
    writer.create(&stream, format, Rate, Channels, format == Float32 ? 3 : 1);
    std::vector<uint8_t> samples(size_t(Frames) * Channels * bytesPerSample(format));
    convertSamples(Float32, Channels, format, Channels, signal.data(), samples.data(), Frames);
    writer.write(samples.data(), Frames, Channels, written, format);
    writer.close();
    file.assign(stream.data(), stream.data() + stream.length());
    return file;
}

void readWav(benchmark::State& state, uint32_t fileFormat, uint32_t requested) {
    const std::vector<uint8_t>& bytes = wavFile(fileFormat);
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    std::vector<uint8_t> buffer(size_t(CallFrames) * Channels * bytesPerSample(requested));
    for (auto _ : state) {
        stream.rewind();
        AudioFile file;
        if (!file.open(&stream)) {
            state.SkipWithError("open failed");
            return;
        }
        int64_t total = 0;
        for (uint32_t got = 1; got > 0; total += got)
            if (!file.read(buffer.data(), CallFrames, Channels, got, requested)) {
                state.SkipWithError("read failed");
                return;
            }
        if (total != Frames) {
            state.SkipWithError("wrong frame count");
            return;
        }
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * Frames * Channels * bytesPerSample(fileFormat));
    state.counters["Msamples/s"] = benchmark::Counter(double(state.iterations()) * Frames * Channels / 1e6,
                                                      benchmark::Counter::kIsRate);
}

// The floor for the 16-bit fast path: the same bytes read through the same
// stream in the same call sizes, with no parsing at all.
void plainStreamRead(benchmark::State& state) {
    const std::vector<uint8_t>& bytes = wavFile(Int16);
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    std::vector<uint8_t> buffer(size_t(CallFrames) * Channels * 2);
    for (auto _ : state) {
        stream.rewind();
        uint32_t got = 1;
        int64_t total = 0;
        while (got > 0 && stream.read(buffer.data(), int32_t(buffer.size()), got))
            total += got;
        if (total != int64_t(bytes.size())) {
            state.SkipWithError("short read");
            return;
        }
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * Frames * Channels * 2);
}

void read16BitOwnLayout(benchmark::State& state) { readWav(state, Int16, Int16); }
void read24BitAsInt16(benchmark::State& state) { readWav(state, Int24, Int16); }
void readFloatAsInt16(benchmark::State& state) { readWav(state, Float32, Int16); }
void read16BitAsFloat(benchmark::State& state) { readWav(state, Int16, Float32); }

}  // namespace

BENCHMARK(plainStreamRead)->Unit(benchmark::kMicrosecond);
BENCHMARK(read16BitOwnLayout)->Unit(benchmark::kMicrosecond);
BENCHMARK(read24BitAsInt16)->Unit(benchmark::kMicrosecond);
BENCHMARK(readFloatAsInt16)->Unit(benchmark::kMicrosecond);
BENCHMARK(read16BitAsFloat)->Unit(benchmark::kMicrosecond);

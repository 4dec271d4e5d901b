// DeflateBench: our DeflateStream and InflateStream against the system zlib
// (level 9) in the same run, on two inputs:
//   codec: what the codec compresses: per block and channel a float peak and
//          2048 code bytes, mostly the silence code 16, small values around
//          it at low indices (about 5 MB);
//   mixed: about 1 MB of text and 16-bit PCM in alternating stretches.
// Counters: ratio = compressed / input size. Every round trip is checked
// once before timing, so a fast wrong answer never looks like a win.
// Targets at level 9: size <= 1.01 x zlib-9 on both inputs; compression
// >= 2 x zlib-9 on codec, >= 1 x on mixed; inflate at least as fast as zlib.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/Core.h"
#include "core/MemoryStream.h"
#include "core/deflate/DeflateStream.h"
#include "core/deflate/InflateStream.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int codesPerBlock = 2048;
constexpr int silenceCode = 16;
constexpr size_t codecBytes = 5 << 20;
constexpr size_t mixedBytes = 1 << 20;
constexpr int level = 9;

// Code bytes of a music-like signal: a few partials that persist from block
// to block with slowly changing strength, over noise that decays with the
// coefficient index; above index ~600 everything is silence.
Bytes codecPayload() {
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0.0, 1.0);
    Bytes out;
    double loudness = 0.5;
    int partials[6] = {12, 24, 37, 49, 75, 98};
    for (int block = 0; out.size() < codecBytes; ++block) {
        loudness = std::clamp(loudness + 0.05 * noise(random), 0.1, 1.0);
        for (int channel = 0; channel < 2; ++channel) {
            float peak = float(loudness * 20000.0 * (channel ? 0.9 : 1.0));
            uint8_t peakBytes[4];
            std::memcpy(peakBytes, &peak, 4);
            out.insert(out.end(), peakBytes, peakBytes + 4);
            for (int i = 0; i < codesPerBlock; ++i) {
                double spread = i < 600 ? 5.0 * loudness * std::exp(-i / 90.0) : 0.0;
                double value = spread * noise(random);
                for (int p : partials)
                    if (std::abs(i - p * (1 + block % 3 / 8)) <= 1)
                        value += 6.0 * loudness * (i == p ? 1.0 : 0.4);
                int code = silenceCode + int(std::lround(value));
                out.push_back(uint8_t(std::clamp(code, 1, 31)));
            }
        }
    }
    out.resize(codecBytes);
    return out;
}

// Prose from a Zipf-distributed vocabulary, alternating with 16-bit PCM.
Bytes mixedPayload() {
    std::mt19937 random(2);
    std::vector<std::string> words;
    const char* letters = "etaoinshrdlcumwfgypbvkjxqz";
    for (int w = 0; w < 3000; ++w) {
        std::string word;
        for (int n = 1 + int(random() % 9); n > 0; --n)
            word += letters[std::min<uint32_t>(25, uint32_t(std::abs(std::normal_distribution<double>(0, 7)(random))))];
        words.push_back(word);
    }
    std::vector<double> weights;
    for (int w = 0; w < 3000; ++w)
        weights.push_back(1.0 / (w + 1));
    std::discrete_distribution<int> pick(weights.begin(), weights.end());
    std::normal_distribution<double> noise(0.0, 1.0);
    Bytes out;
    for (int stretch = 0; out.size() < mixedBytes; ++stretch) {
        size_t end = out.size() + 32768;
        if (stretch % 2 == 0) {
            for (int n = 0; out.size() < end; ++n) {
                const std::string& w = words[size_t(pick(random))];
                out.insert(out.end(), w.begin(), w.end());
                out.push_back(n % 12 == 11 ? '\n' : n % 7 == 6 ? ',' : ' ');
            }
        } else {
            for (size_t i = 0; out.size() < end; ++i) {
                double t = double(stretch * 16384 + i);
                int v = int(6000 * std::sin(t * 0.0313) + 3000 * std::sin(t * 0.0471) +
                            1500 * std::sin(t * 0.113) + 200 * noise(random));
                out.push_back(uint8_t(v));
                out.push_back(uint8_t(v >> 8));
            }
        }
    }
    out.resize(mixedBytes);
    return out;
}

const Bytes& payload(int which) {
    static const Bytes codec = codecPayload();
    static const Bytes mixed = mixedPayload();
    return which == 0 ? codec : mixed;
}

Bytes ourDeflate(const Bytes& input) {
    MemoryStream output;
    DeflateStream deflater(&output, FramingZlib);
    deflater.setLevel(level);
    // The codec writes one block and channel at a time.
    for (size_t at = 0; at < input.size(); at += 4 + codesPerBlock)
        deflater.writeAll(input.data() + at, int32_t(std::min<size_t>(4 + codesPerBlock, input.size() - at)));
    deflater.flush();
    return Bytes(output.data(), output.data() + output.length());
}

Bytes zlibDeflate(const Bytes& input) {
    uLongf size = compressBound(uLong(input.size()));
    Bytes out(size);
    compress2(out.data(), &size, input.data(), uLong(input.size()), level);
    out.resize(size);
    return out;
}

bool ourInflate(const Bytes& compressed, Bytes& out) {
    MemoryStream source(compressed.data(), int32_t(compressed.size()));
    InflateStream inflater(FramingZlib);
    inflater.open(&source, nullptr, false);
    return inflater.readExactly(out.data(), int32_t(out.size()));
}

bool zlibInflate(const Bytes& compressed, Bytes& out) {
    uLongf size = uLongf(out.size());
    return uncompress(out.data(), &size, compressed.data(), uLong(compressed.size())) == Z_OK &&
           size == out.size();
}

const Bytes& compressedBy(bool ours, int which) {
    static const Bytes streams[2][2] = {{zlibDeflate(payload(0)), zlibDeflate(payload(1))},
                                        {ourDeflate(payload(0)), ourDeflate(payload(1))}};
    return streams[ours][which];
}

void checkRoundTrips() {
    for (int which = 0; which < 2; ++which) {
        for (bool ours : {false, true}) {
            Bytes out(payload(which).size()), peer(payload(which).size());
            if (!ourInflate(compressedBy(ours, which), out) || out != payload(which) ||
                !zlibInflate(compressedBy(ours, which), peer) || peer != payload(which)) {
                std::fprintf(stderr, "round trip failed: input %d, %s stream\n", which, ours ? "our" : "zlib");
                std::exit(1);
            }
        }
    }
}

void report(benchmark::State& state, int which, bool ours) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(payload(which).size()));
    state.counters["ratio"] = double(compressedBy(ours, which).size()) / double(payload(which).size());
    state.counters["bytes"] = double(compressedBy(ours, which).size());
}

void oursDeflate(benchmark::State& state) {
    int which = int(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(ourDeflate(payload(which)).size());
    report(state, which, true);
}

void zlibDeflate9(benchmark::State& state) {
    int which = int(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(zlibDeflate(payload(which)).size());
    report(state, which, false);
}

// Both inflaters read both streams; the rows name the reader.
void oursInflate(benchmark::State& state) {
    int which = int(state.range(0));
    bool ourStream = state.range(1);
    Bytes out(payload(which).size());
    for (auto _ : state)
        benchmark::DoNotOptimize(ourInflate(compressedBy(ourStream, which), out));
    report(state, which, ourStream);
}

void zlibInflate(benchmark::State& state) {
    int which = int(state.range(0));
    bool ourStream = state.range(1);
    Bytes out(payload(which).size());
    for (auto _ : state)
        benchmark::DoNotOptimize(zlibInflate(compressedBy(ourStream, which), out));
    report(state, which, ourStream);
}

}  // namespace

// Argument 0: input (0 codec, 1 mixed); argument 1: whose stream is read (1 ours).
BENCHMARK(oursDeflate)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(zlibDeflate9)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(oursInflate)->Args({0, 1})->Args({0, 0})->Args({1, 1})->Args({1, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(zlibInflate)->Args({0, 1})->Args({0, 0})->Args({1, 1})->Args({1, 0})->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    coreInit();
    checkRoundTrips();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    coreShutdown();
    return 0;
}

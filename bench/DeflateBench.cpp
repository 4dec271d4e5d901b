// DeflateBench: our DeflateStream and InflateStream against the system zlib
// (levels 9 and 6) in the same run, on the same bytes:
//   music: the codec's real payload (peak and code bytes per block and
//          channel) for the two bench tracks, made at start-up by running
//          the encoder over them exactly as the compress command does;
//   text:  about 1 MB of prose from a Zipf-distributed vocabulary;
//   mixed: about 1 MB of that prose and 16-bit PCM in alternating stretches.
// Speed is input MB per CPU second; counters: bytes = compressed size, ratio
// = compressed / input size. Each row runs `repetitions` times: read the
// medians. Every round trip is checked once before timing, so a fast wrong
// answer never looks like a win.
// Targets at level 9 on the music: at least 100 MB/s, and no more bytes than
// zlib level 9.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "audio/SoundSource.h"
#include "codec/OxaCodec.h"
#include "codec/OxaFormat.h"
#include "core/Core.h"
#include "core/FileStream.h"
#include "core/MemoryStream.h"
#include "core/deflate/DeflateStream.h"
#include "core/deflate/InflateStream.h"

#ifndef OXA_BENCH_MUSIC_DIR
#define OXA_BENCH_MUSIC_DIR "../bench-music"
#endif

namespace {

using Bytes = std::vector<uint8_t>;

// The compress command's defaults: qbits 5, window 2048, threshold offset 0.
constexpr uint8_t musicQbits = 5;
constexpr int32_t musicWindow = 2048;
constexpr int32_t codecWriteSize = OxaPeakSize + musicWindow;  // the codec writes a channel's peak and codes at once
constexpr size_t textBytes = 1 << 20;
constexpr size_t mixedBytes = 1 << 20;
constexpr int ourLevel = 9;
constexpr int repetitions = 5;

enum Input { MusicMain, MusicIntro, Text, Mixed, inputCount };
const char* const inputNames[inputCount] = {"mainzik-60s", "introzik", "text", "mixed"};
const char* const musicFiles[2] = {OXA_BENCH_MUSIC_DIR "/mainzik-60s.wav", OXA_BENCH_MUSIC_DIR "/introzik.wav"};

bool zlibInflate(const uint8_t* compressed, size_t length, Bytes& out) {
    z_stream z{};
    if (inflateInit(&z) != Z_OK)
        return false;
    z.next_in = const_cast<uint8_t*>(compressed);
    z.avail_in = uInt(length);
    uint8_t chunk[65536];
    int status = Z_OK;
    while (status == Z_OK) {
        z.next_out = chunk;
        z.avail_out = sizeof chunk;
        status = inflate(&z, Z_NO_FLUSH);
        out.insert(out.end(), chunk, chunk + (sizeof chunk - z.avail_out));
    }
    inflateEnd(&z);
    return status == Z_STREAM_END;
}

// The code bytes the encoder sends through its deflate stream for one WAV
// file: the file is encoded into memory, then the payload behind the header
// is inflated. Empty when the file is missing or unreadable.
Bytes musicPayload(const char* path) {
    FileStream input(path, FileRead, 7);
    SoundSource source;
    if (!input.isOpen() || !source.open(&input))
        return {};
    const int32_t channels = source.channels();
    source.setLooping(false);
    source.setOutputFormat(Int16, channels);
    source.setOutputRate(source.sampleRate());
    MemoryStream encoded;
    OxaCodec codec;
    if (!codec.openEncoder(&encoded, Int16, source.sampleRate(), channels, musicQbits, musicWindow, 0.0f))
        return {};
    std::vector<int16_t> samples(size_t(1024 * channels));
    for (uint32_t frames = 1; frames > 0;) {
        if (!source.read(samples.data(), 1024, frames) ||
            (frames > 0 && !codec.encode(samples.data(), int32_t(frames), channels, Int16)))
            return {};
    }
    if (!codec.close())
        return {};
    Bytes payload;
    if (!zlibInflate(encoded.data() + OxaHeaderSize, size_t(encoded.length()) - OxaHeaderSize, payload))
        return {};
    return payload;
}

std::vector<std::string> zipfWords(std::mt19937& random) {
    std::vector<std::string> words;
    const char* letters = "etaoinshrdlcumwfgypbvkjxqz";
    for (int w = 0; w < 3000; ++w) {
        std::string word;
        for (int n = 1 + int(random() % 9); n > 0; --n)
            word += letters[std::min<uint32_t>(25, uint32_t(std::abs(std::normal_distribution<double>(0, 7)(random))))];
        words.push_back(word);
    }
    return words;
}

// Prose from a Zipf-distributed vocabulary, alternating (when pcmStretches)
// with 32 KB stretches of 16-bit PCM.
Bytes prosePayload(size_t size, bool pcmStretches) {
    std::mt19937 random(2);
    std::vector<std::string> words = zipfWords(random);
    std::vector<double> weights;
    for (int w = 0; w < 3000; ++w)
        weights.push_back(1.0 / (w + 1));
    std::discrete_distribution<int> pick(weights.begin(), weights.end());
    std::normal_distribution<double> noise(0.0, 1.0);
    Bytes out;
    for (int stretch = 0; out.size() < size; ++stretch) {
        size_t end = out.size() + 32768;
        if (stretch % 2 == 0 || !pcmStretches) {
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
    out.resize(size);
    return out;
}

const Bytes& payload(int which) {
    static const Bytes inputs[inputCount] = {musicPayload(musicFiles[0]), musicPayload(musicFiles[1]),
                                             prosePayload(textBytes, false), prosePayload(mixedBytes, true)};
    return inputs[which];
}

Bytes ourDeflate(const Bytes& input) {
    MemoryStream output;
    DeflateStream deflater(&output, FramingZlib);
    deflater.setLevel(ourLevel);
    for (size_t at = 0; at < input.size(); at += codecWriteSize)
        deflater.writeAll(input.data() + at, int32_t(std::min<size_t>(codecWriteSize, input.size() - at)));
    deflater.flush();
    return Bytes(output.data(), output.data() + output.length());
}

Bytes zlibDeflate(const Bytes& input, int level) {
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

// Who compressed a stream: us at ourLevel, or zlib at 9 or 6.
enum Compressor { Ours, Zlib9, Zlib6, compressorCount };
const char* const compressorNames[compressorCount] = {"ours", "zlib9", "zlib6"};

Bytes compress(Compressor who, const Bytes& input) {
    return who == Ours ? ourDeflate(input) : zlibDeflate(input, who == Zlib9 ? 9 : 6);
}

const Bytes& compressedBy(Compressor who, int which) {
    static Bytes streams[compressorCount][inputCount];
    static bool made[compressorCount][inputCount];
    if (!made[who][which]) {
        streams[who][which] = compress(who, payload(which));
        made[who][which] = true;
    }
    return streams[who][which];
}

bool checkRoundTrips() {
    for (int which = 0; which < inputCount; ++which) {
        if (payload(which).empty())
            continue;
        for (int who = 0; who < compressorCount; ++who) {
            Bytes out(payload(which).size()), peer(payload(which).size());
            const Bytes& stream = compressedBy(Compressor(who), which);
            if (!ourInflate(stream, out) || out != payload(which) || !zlibInflate(stream, peer) ||
                peer != payload(which)) {
                std::fprintf(stderr, "round trip failed: %s, %s stream\n", inputNames[which], compressorNames[who]);
                return false;
            }
        }
    }
    return true;
}

bool available(benchmark::State& state, int which) {
    if (!payload(which).empty())
        return true;
    state.SkipWithError(which <= MusicIntro ? "bench music missing: run ../shared/tools/make-bench-music.sh "
                                              OXA_BENCH_MUSIC_DIR " (make bench does)"
                                            : "no input");
    return false;
}

void report(benchmark::State& state, int which, Compressor who) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(payload(which).size()));
    state.counters["bytes"] = double(compressedBy(who, which).size());
    state.counters["ratio"] = double(compressedBy(who, which).size()) / double(payload(which).size());
}

void deflateBy(benchmark::State& state, int which, Compressor who) {
    if (!available(state, which))
        return;
    for (auto _ : state)
        benchmark::DoNotOptimize(compress(who, payload(which)).size());
    report(state, which, who);
}

// Both inflaters read our stream and zlib level 9's; the rows name the reader.
void inflateBy(benchmark::State& state, int which, Compressor stream, bool ourReader) {
    if (!available(state, which))
        return;
    Bytes out(payload(which).size());
    for (auto _ : state)
        benchmark::DoNotOptimize(ourReader ? ourInflate(compressedBy(stream, which), out)
                                           : zlibInflate(compressedBy(stream, which), out));
    report(state, which, stream);
}

void configure(benchmark::internal::Benchmark* b) {
    b->Unit(benchmark::kMillisecond)->Repetitions(repetitions)->ReportAggregatesOnly(true);
}

void registerAll() {
    for (int which = 0; which < inputCount; ++which) {
        for (int who = 0; who < compressorCount; ++who) {
            std::string name = std::string("deflate/") + inputNames[which] + "/" + compressorNames[who];
            configure(benchmark::RegisterBenchmark(name.c_str(), deflateBy, which, Compressor(who)));
        }
        for (Compressor stream : {Ours, Zlib9}) {
            for (bool ourReader : {true, false}) {
                std::string name = std::string("inflate/") + inputNames[which] + "/" + compressorNames[stream] +
                                   "-stream/" + (ourReader ? "ours" : "zlib");
                configure(benchmark::RegisterBenchmark(name.c_str(), inflateBy, which, stream, ourReader));
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    coreInit();
    if (!checkRoundTrips())
        return 1;
    registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    coreShutdown();
    return 0;
}

// CodecBench: encode, then decode, 60 s of fixed synthetic stereo music at
// 44100 Hz with the default settings (q5, window 2048, ATH offset 0), in
// memory, on one thread. Reports times real time; the encoder's three stages
// (transform, quantiser, DEFLATE) are also timed on their own. Every round
// trip is checked against an SNR floor so that a fast wrong answer fails.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "audio/pcm/SampleFormat.h"
#include "codec/Mdct.h"
#include "codec/OxaCodec.h"
#include "codec/Quantiser.h"
#include "core/MemoryStream.h"
#include "core/deflate/DeflateStream.h"

namespace {

constexpr uint32_t Rate = 44100;
constexpr int32_t Channels = 2;
constexpr int32_t Seconds = 60;
constexpr int32_t Frames = Rate * Seconds;
constexpr uint8_t Qbits = 5;
constexpr int32_t Window = 2048;
constexpr double MinSnrDb = 14.0;  // measured 17.5 dB on this signal

// Chords of decaying harmonic tones with a slow stereo drift and faint noise.
const std::vector<int16_t>& music() {
    static const std::vector<int16_t> pcm = [] {
        std::vector<int16_t> samples(size_t(Frames) * Channels);
        uint32_t noise = 12345;
        for (int32_t i = 0; i < Frames; ++i) {
            double t = double(i) / Rate, beat = std::fmod(t, 0.5);
            int32_t chord = int32_t(t / 2) % 4;
            double value = 0;
            for (int32_t voice = 0; voice < 3; ++voice) {
                double f = 130.8 * std::pow(2.0, (chord * 5 + voice * 4) % 24 / 12.0);
                for (int32_t h = 1; h <= 5; ++h)
                    value += std::sin(2 * M_PI * f * h * t) / (h * h) * std::exp(-beat * (2 + h));
            }
            noise = noise * 1664525u + 1013904223u;
            double hiss = (int32_t(noise >> 16) - 32768) / 32768.0 * 0.002;
            double pan = 0.5 + 0.4 * std::sin(t * 0.7);
            samples[size_t(i) * 2] = int16_t(std::lround((value * 0.2 * pan + hiss) * 32767));
            samples[size_t(i) * 2 + 1] = int16_t(std::lround((value * 0.2 * (1 - pan) + hiss) * 32767));
        }
        return samples;
    }();
    return pcm;
}

bool encodeMusic(MemoryStream& file) {
    OxaCodec codec;
    const std::vector<int16_t>& pcm = music();
    return codec.openEncoder(&file, Int16, Rate, Channels, Qbits, Window, 0.0f) &&
           codec.encode(pcm.data(), Frames, Channels, Int16) && codec.close();
}

const MemoryStream& encodedMusic() {
    static MemoryStream file;
    static bool done = encodeMusic(file);
    (void)done;
    return file;
}

bool decodeMusic(const MemoryStream& encoded, std::vector<int16_t>& out) {
    MemoryStream file(encoded.data(), encoded.length());
    OxaCodec codec;
    if (!codec.openDecoder(&file))
        return false;
    uint32_t delivered = 0;
    size_t used = 0;
    do {
        if (!codec.decode(out.data() + used * Channels, 1024, Channels, Int16, delivered))
            return false;
        used += delivered;
    } while (delivered > 0);
    return used == size_t(Frames) / Window * Window;
}

double snrDb(const std::vector<int16_t>& decoded) {
    const std::vector<int16_t>& pcm = music();
    double signal = 0, noise = 0;
    for (size_t i = 0; i < size_t(Frames) / Window * Window * Channels; ++i) {
        signal += double(pcm[i]) * pcm[i];
        noise += (double(pcm[i]) - decoded[i]) * (double(pcm[i]) - decoded[i]);
    }
    return 10 * std::log10(signal / noise);
}

void reportRealTime(benchmark::State& state) {
    state.counters["xRealTime"] =
        benchmark::Counter(double(Seconds), benchmark::Counter::kIsIterationInvariantRate);
}

// The coefficients of every block and channel, as the encoder computes them.
const std::vector<float>& allSpectra() {
    static const std::vector<float> spectra = [] {
        const std::vector<int16_t>& pcm = music();
        const int32_t blocks = Frames / Window;
        std::vector<float> result(size_t(blocks) * Channels * Window), previous(Channels * Window, 0.0f), current(Window);
        SharedRef<Mdct> transform(Mdct::create(Window, true));
        for (int32_t b = 0; b < blocks; ++b)
            for (int32_t c = 0; c < Channels; ++c) {
                for (int32_t i = 0; i < Window; ++i)
                    current[i] = pcm[(size_t(b) * Window + i) * Channels + c] * (1.0f / 32768);
                transform->forward(&previous[c * Window], current.data(), &result[(size_t(b) * Channels + c) * Window]);
                std::memcpy(&previous[c * Window], current.data(), Window * sizeof(float));
            }
        return result;
    }();
    return spectra;
}

void encode(benchmark::State& state) {
    size_t bytes = 0;
    for (auto _ : state) {
        MemoryStream file;
        if (!encodeMusic(file))
            state.SkipWithError("encoding failed");
        bytes = size_t(file.length());
    }
    std::vector<int16_t> decoded(size_t(Frames) * Channels);
    if (!decodeMusic(encodedMusic(), decoded) || snrDb(decoded) < MinSnrDb)
        state.SkipWithError("round trip below the SNR floor");
    state.counters["ratio"] = double(Frames) * Channels * 2 / double(bytes);
    reportRealTime(state);
}

void decode(benchmark::State& state) {
    const MemoryStream& encoded = encodedMusic();
    std::vector<int16_t> decoded(size_t(Frames) * Channels);
    for (auto _ : state)
        if (!decodeMusic(encoded, decoded))
            state.SkipWithError("decoding failed");
    state.counters["snrDb"] = snrDb(decoded);
    if (snrDb(decoded) < MinSnrDb)
        state.SkipWithError("round trip below the SNR floor");
    reportRealTime(state);
}

// Encoder stage: window, fold, FFT, twiddles for every block and channel.
void encodeTransform(benchmark::State& state) {
    SharedRef<Mdct> transform(Mdct::create(Window, true));
    std::vector<float> previous(Window), current(Window), spectrum(Window);
    const std::vector<int16_t>& pcm = music();
    for (auto _ : state)
        for (int32_t b = 0; b < Frames / Window; ++b)
            for (int32_t c = 0; c < Channels; ++c) {
                for (int32_t i = 0; i < Window; ++i)
                    current[i] = pcm[(size_t(b) * Window + i) * Channels + c] * (1.0f / 32768);
                transform->forward(previous.data(), current.data(), spectrum.data());
                benchmark::DoNotOptimize(spectrum.data());
            }
    reportRealTime(state);
}

// Encoder stage: threshold test, peak and power law for every block and channel.
void encodeQuantiser(benchmark::State& state) {
    Quantiser quantiser;
    quantiser.build(Window, Rate, 0.0f, Qbits);
    const std::vector<float>& spectra = allSpectra();
    std::vector<uint8_t> codes(Window);
    for (auto _ : state)
        for (size_t offset = 0; offset < spectra.size(); offset += Window) {
            benchmark::DoNotOptimize(quantiser.quantise(&spectra[offset], codes.data()));
            benchmark::ClobberMemory();
        }
    reportRealTime(state);
}

// The uncompressed payload: peak and codes of every block and channel.
const std::vector<uint8_t>& payload() {
    static const std::vector<uint8_t> bytes = [] {
        Quantiser quantiser;
        quantiser.build(Window, Rate, 0.0f, Qbits);
        const std::vector<float>& spectra = allSpectra();
        std::vector<uint8_t> result, record(4 + Window);
        for (size_t offset = 0; offset < spectra.size(); offset += Window) {
            float peak = quantiser.quantise(&spectra[offset], record.data() + 4);
            std::memcpy(record.data(), &peak, 4);
            result.insert(result.end(), record.begin(), record.end());
        }
        return result;
    }();
    return bytes;
}

// Encoder stage: DEFLATE of the finished payload, written as the encoder
// writes it, at the level of the argument (the codec uses the default, 9).
void encodeDeflate(benchmark::State& state) {
    const std::vector<uint8_t>& bytes = payload();
    int64_t compressed = 0;
    for (auto _ : state) {
        MemoryStream file;
        DeflateStream deflate(&file, 2);
        deflate.setLevel(int32_t(state.range(0)));
        for (size_t offset = 0; offset < bytes.size(); offset += 4 + Window)
            deflate.writeAll(&bytes[offset], 4 + Window);
        deflate.flush();
        compressed = file.length();
    }
    state.counters["bytes"] = double(compressed);
    reportRealTime(state);
}

// The same payload through zlib at the same level, the reference peer for the stage above.
void encodeDeflateZlibPeer(benchmark::State& state) {
    const std::vector<uint8_t>& bytes = payload();
    std::vector<uint8_t> out(compressBound(uLong(bytes.size())));
    uLongf length = 0;
    for (auto _ : state) {
        length = uLongf(out.size());
        compress2(out.data(), &length, bytes.data(), uLong(bytes.size()), int(state.range(0)));
    }
    state.counters["bytes"] = double(length);
    reportRealTime(state);
}

}  // namespace

BENCHMARK(encode)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(decode)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(encodeTransform)->Unit(benchmark::kMillisecond);
BENCHMARK(encodeQuantiser)->Unit(benchmark::kMillisecond);
BENCHMARK(encodeDeflate)->Unit(benchmark::kMillisecond)->Arg(9)->Arg(6)->Arg(1);
BENCHMARK(encodeDeflateZlibPeer)->Unit(benchmark::kMillisecond)->Arg(9)->Arg(6)->Arg(1);

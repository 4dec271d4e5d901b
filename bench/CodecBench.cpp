// CodecBench: the codec in memory on one thread, on real music (the 60 s
// bench track of make-bench-music.sh, 44100 Hz stereo; a synthetic stand-in
// labelled "synthetic" when the track is missing), default settings (q5,
// window 2048, threshold offset 0). Reports times real time (CPU time):
//   encode, decode:        the whole encoder and decoder;
//   encodeWithoutDeflate:  everything the encoder does but DEFLATE (loading
//                          the samples, the transform, the quantiser);
//   encodeTransform, encodeQuantiser, decodeTransform, decodeInt16: stages.
// Every round trip is checked against an SNR floor, so that a fast wrong
// answer fails; bit-exactness is the tests' and scripts/codec-identity's job.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "audio/SoundSource.h"
#include "audio/pcm/SampleFormat.h"
#include "codec/Int16Frames.h"
#include "codec/Mdct.h"
#include "codec/OxaCodec.h"
#include "codec/OxaFormat.h"
#include "codec/Quantiser.h"
#include "core/FileStream.h"
#include "core/MemoryStream.h"

#ifndef OXA_BENCH_MUSIC_DIR
#define OXA_BENCH_MUSIC_DIR "../bench-music"
#endif

namespace {

constexpr int32_t Channels = 2;
constexpr uint8_t Qbits = 5;
constexpr int32_t Window = 2048;
constexpr float AthOffset = 0.0f;
constexpr double MinSnrDb = 13.0;  // measured 15.3 dB on the bench track, 17.5 dB on the synthetic one

struct Music {
    std::vector<int16_t> pcm;  // interleaved stereo
    uint32_t rate = 44100;
    bool real = false;
    int32_t frames() const { return int32_t(pcm.size() / Channels); }
    double seconds() const { return double(frames()) / rate; }
};

// Chords of decaying harmonic tones with a slow stereo drift and faint noise.
Music syntheticMusic() {
    Music music;
    const int32_t frames = 60 * 44100;
    music.pcm.resize(size_t(frames) * Channels);
    uint32_t noise = 12345;
    for (int32_t i = 0; i < frames; ++i) {
        double t = double(i) / music.rate, beat = std::fmod(t, 0.5), value = 0;
        int32_t chord = int32_t(t / 2) % 4;
        for (int32_t voice = 0; voice < 3; ++voice) {
            double f = 130.8 * std::pow(2.0, (chord * 5 + voice * 4) % 24 / 12.0);
            for (int32_t h = 1; h <= 5; ++h)
                value += std::sin(2 * M_PI * f * h * t) / (h * h) * std::exp(-beat * (2 + h));
        }
        noise = noise * 1664525u + 1013904223u;
        double hiss = (int32_t(noise >> 16) - 32768) / 32768.0 * 0.002, pan = 0.5 + 0.4 * std::sin(t * 0.7);
        music.pcm[size_t(i) * 2] = int16_t(std::lround((value * 0.2 * pan + hiss) * 32767));
        music.pcm[size_t(i) * 2 + 1] = int16_t(std::lround((value * 0.2 * (1 - pan) + hiss) * 32767));
    }
    return music;
}

// The bench track as the compress command reads it, or the stand-in.
const Music& music() {
    static const Music track = [] {
        Music real;
        FileStream input(OXA_BENCH_MUSIC_DIR "/mainzik-60s.wav", FileRead, 7);
        SoundSource source;
        if (!input.isOpen() || !source.open(&input) || source.channels() != Channels)
            return syntheticMusic();
        source.setOutputFormat(Int16, Channels);
        source.setOutputRate(source.sampleRate());
        std::vector<int16_t> chunk(1024 * Channels);
        for (uint32_t frames = 1; frames > 0;) {
            if (!source.read(chunk.data(), 1024, frames))
                return syntheticMusic();
            real.pcm.insert(real.pcm.end(), chunk.begin(), chunk.begin() + frames * Channels);
        }
        real.rate = source.sampleRate();
        real.real = true;
        return real;
    }();
    return track;
}

void describe(benchmark::State& state) {
    state.SetLabel(music().real ? "mainzik-60s" : "synthetic");
    state.counters["xRealTime"] =
        benchmark::Counter(music().seconds(), benchmark::Counter::kIsIterationInvariantRate);
}

bool encodeMusic(MemoryStream& file) {
    OxaCodec codec;
    const Music& m = music();
    return codec.openEncoder(&file, Int16, m.rate, Channels, Qbits, Window, AthOffset) &&
           codec.encode(m.pcm.data(), m.frames(), Channels, Int16) && codec.close();
}

const MemoryStream& encodedMusic() {
    static MemoryStream file;
    static bool done = encodeMusic(file);
    (void)done;
    return file;
}

bool decodeMusic(std::vector<int16_t>& out) {
    const MemoryStream& encoded = encodedMusic();
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
    return used == size_t(music().frames()) / Window * Window;
}

// SNR of the round trip in dB; -inf when decoding fails.
double roundTripSnrDb() {
    std::vector<int16_t> decoded(music().pcm.size());
    if (!decodeMusic(decoded))
        return -INFINITY;
    const std::vector<int16_t>& pcm = music().pcm;
    double signal = 0, noise = 0;
    for (size_t i = 0; i < size_t(music().frames()) / Window * Window * Channels; ++i) {
        signal += double(pcm[i]) * pcm[i];
        noise += (double(pcm[i]) - decoded[i]) * (double(pcm[i]) - decoded[i]);
    }
    return 10 * std::log10(signal / noise);
}

// One channel's N new samples of block b, scaled as the encoder scales them.
void loadBlock(int32_t block, int32_t channel, float* samples) {
    const int16_t* pcm = music().pcm.data() + size_t(block) * Window * Channels + channel;
    for (int32_t i = 0; i < Window; ++i)
        samples[i] = float(pcm[i * Channels]) * (1.0f / 32768.0f);
}

int32_t blockCount() { return music().frames() / Window; }

// The coefficients of every block and channel, as the encoder computes them.
const std::vector<float>& allSpectra() {
    static const std::vector<float> spectra = [] {
        std::vector<float> result(size_t(blockCount()) * Channels * Window);
        std::vector<float> previous(Channels * Window), current(Window);
        SharedRef<Mdct> transform(Mdct::create(Window, true));
        for (int32_t b = 0; b < blockCount(); ++b)
            for (int32_t c = 0; c < Channels; ++c) {
                loadBlock(b, c, current.data());
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
    if (roundTripSnrDb() < MinSnrDb)
        state.SkipWithError("round trip below the SNR floor");
    state.counters["ratio"] = double(music().pcm.size() * 2) / double(bytes);
    describe(state);
}

void decode(benchmark::State& state) {
    std::vector<int16_t> decoded(music().pcm.size());
    for (auto _ : state)
        if (!decodeMusic(decoded))
            state.SkipWithError("decoding failed");
    const double snr = roundTripSnrDb();
    if (snr < MinSnrDb)
        state.SkipWithError("round trip below the SNR floor");
    state.counters["snrDb"] = snr;
    describe(state);
}

// The encoder's work but DEFLATE: each channel's samples out of the frames,
// the transform and the quantiser, block after block.
void encodeWithoutDeflate(benchmark::State& state) {
    SharedRef<Mdct> transform(Mdct::create(Window, true));
    Quantiser quantiser;
    quantiser.build(Window, music().rate, AthOffset, Qbits);
    std::vector<float> previous(Channels * Window), current(Window), spectrum(Window);
    std::vector<uint8_t> codes(Window);
    for (auto _ : state)
        for (int32_t b = 0; b < blockCount(); ++b)
            for (int32_t c = 0; c < Channels; ++c) {
                loadBlock(b, c, current.data());
                transform->forward(&previous[c * Window], current.data(), spectrum.data());
                std::memcpy(&previous[c * Window], current.data(), Window * sizeof(float));
                benchmark::DoNotOptimize(quantiser.quantise(spectrum.data(), codes.data()));
                benchmark::ClobberMemory();
            }
    describe(state);
}

void encodeTransform(benchmark::State& state) {
    SharedRef<Mdct> transform(Mdct::create(Window, true));
    std::vector<float> previous(Window), current(Window), spectrum(Window);
    for (auto _ : state)
        for (int32_t b = 0; b < blockCount(); ++b)
            for (int32_t c = 0; c < Channels; ++c) {
                loadBlock(b, c, current.data());
                transform->forward(previous.data(), current.data(), spectrum.data());
                benchmark::DoNotOptimize(spectrum.data());
            }
    describe(state);
}

void encodeQuantiser(benchmark::State& state) {
    Quantiser quantiser;
    quantiser.build(Window, music().rate, AthOffset, Qbits);
    const std::vector<float>& spectra = allSpectra();
    std::vector<uint8_t> codes(Window);
    for (auto _ : state)
        for (size_t offset = 0; offset < spectra.size(); offset += Window) {
            benchmark::DoNotOptimize(quantiser.quantise(&spectra[offset], codes.data()));
            benchmark::ClobberMemory();
        }
    describe(state);
}

// Synthesis and overlap-add of every block and channel. Each block's
// coefficients are first copied into one small buffer, as the decoder
// dequantises into one (the work does not depend on the values).
void decodeTransform(benchmark::State& state) {
    SharedRef<Mdct> transform(Mdct::create(Window, true));
    const std::vector<float>& spectra = allSpectra();
    std::vector<float> tails(2 * Channels * Window), spectrum(Window), out(Window);
    for (auto _ : state)
        for (size_t offset = 0, block = 0; offset < spectra.size(); offset += Window, ++block) {
            float* tail = &tails[(block / Channels % 2) * Channels * Window + block % Channels * Window];
            float* nextTail = &tails[(1 - block / Channels % 2) * Channels * Window + block % Channels * Window];
            std::memcpy(spectrum.data(), &spectra[offset], Window * sizeof(float));
            transform->synthesise(spectrum.data(), tail, out.data(), nextTail);
            benchmark::DoNotOptimize(out.data());
        }
    describe(state);
}

// The last step of decoding: float rows to interleaved Int16 frames.
void decodeInt16(benchmark::State& state) {
    const std::vector<float>& spectra = allSpectra();  // as stand-in rows: the values do not matter
    std::vector<int16_t> frames(Window * Channels);
    for (auto _ : state)
        for (size_t offset = 0; offset < spectra.size(); offset += Channels * Window) {
            writeInt16Frames(&spectra[offset], Window, Channels, Channels, Window,
                             reinterpret_cast<uint8_t*>(frames.data()));
            benchmark::DoNotOptimize(frames.data());
        }
    describe(state);
}

}  // namespace

BENCHMARK(encode)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(decode)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(encodeWithoutDeflate)->Unit(benchmark::kMillisecond);
BENCHMARK(encodeTransform)->Unit(benchmark::kMillisecond);
BENCHMARK(encodeQuantiser)->Unit(benchmark::kMillisecond);
BENCHMARK(decodeTransform)->Unit(benchmark::kMillisecond);
BENCHMARK(decodeInt16)->Unit(benchmark::kMillisecond);

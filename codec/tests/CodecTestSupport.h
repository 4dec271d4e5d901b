// Test helpers of the codec tests: generated music-like signals, the plain,
// unoptimised evaluation of the encoder's formulas used as an oracle, and
// in-memory encoding and decoding with zlib as the reference inflater.
#pragma once

#include <cstdint>
#include <vector>

#include "OxaFormat.h"
#include "SampleFormat.h"

// Interleaved Int16 frames: a few notes, each a sum of harmonics under an
// attack/decay envelope, plus a little noise. Fixed by the seed.
std::vector<int16_t> musicLikeSignal(int32_t frames, int32_t channels, uint32_t rate, uint32_t seed);

// X[k] = (4/(2N)) sum x[j] w[j] cos(pi/N (j + 0.5 + N/2)(k + 0.5)) in double,
// over the 2N samples at `input` (windowed products taken in float).
std::vector<double> directMdct(const float* input, int32_t n, const float* window);

// The encoder's quantiser as written: drop when ath > 8.685889 ln|c|,
// peak normalisation, y = x^0.2 in double, q = floor(y sign m + 0.5) clamped.
// Returns the peak; `codes` gets N bytes.
float plainQuantise(const float* coefficients, int32_t n, const float* athTable, int32_t qbits, uint8_t* codes);

using Bytes = std::vector<uint8_t>;

struct Settings {
    int32_t channels = 2;
    uint8_t qbits = 5;
    int32_t window = 2048;
    float ath = 0.0f;
    uint32_t rate = 44100;
};

// A whole stream encoded in one call from Int16 frames.
Bytes encodeInt16(const std::vector<int16_t>& pcm, const Settings& settings);
// Everything the decoder delivers as `channels` channels of `format`, 1000 frames per call.
Bytes decodeAll(const Bytes& stream, int32_t channels, uint32_t format = Int16);
std::vector<int16_t> asInt16(const Bytes& bytes);
OxaHeader headerOf(const Bytes& stream);
// The payload behind the header, inflated by zlib; and the reverse, by zlib's deflate.
Bytes inflatePayload(const Bytes& stream);
Bytes withPayload(const Bytes& stream, const Bytes& payload);

// Test helpers of the codec tests: generated music-like signals, the plain,
// unoptimised evaluation of the encoder's formulas used as an oracle, and
// in-memory encoding and decoding with zlib as the reference inflater.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

using Bytes = std::vector<uint8_t>;

// Interleaved Int16 frames: notes of an eighth of a second, each a sum of
// harmonics under an attack/decay envelope, plus a little noise. Fixed by the seed.
std::vector<int16_t> musicLikeSignal(int32_t frames, int32_t channels, uint32_t rate, uint32_t seed);

// X[k] = (4/(2N)) sum x[j] w[j] cos(pi/N (j + 0.5 + N/2)(k + 0.5)) in double,
// window included, over the 2N samples at `input`.
std::vector<double> directMdct(const float* input, int32_t n);

// The threshold of hearing in dB at coefficient i of n, as the encoder's formula reads.
float plainThreshold(int32_t i, int32_t n, uint32_t rate, float athOffset);

// One channel's record as the encoder's formulas read: the threshold of
// hearing per index, drop when ath > 8.685889 ln|c|, peak normalisation,
// y = x^0.2 in double, q = floor(y sign m + 0.5) clamped. Peak, then N codes.
Bytes plainRecord(const float* coefficients, int32_t n, uint32_t rate, float athOffset, int32_t qbits);

struct Settings {
    int32_t channels = 2;
    uint8_t qbits = 5;
    int32_t window = 2048;
    float ath = 0.0f;
    uint32_t rate = 44100;
};

// A whole stream encoded in one call from Int16 frames.
Bytes encodeInt16(const std::vector<int16_t>& pcm, const Settings& settings);
// Everything the decoder delivers as `channels` channels of Int16 (int16_t)
// or Float32 (float) samples, 1000 frames per call.
template <typename Sample = int16_t>
std::vector<Sample> decodeAll(const Bytes& stream, int32_t channels);
// The payload behind the header, inflated by zlib; and the reverse, by zlib's deflate.
Bytes inflatePayload(const Bytes& stream);
Bytes withPayload(const Bytes& stream, const Bytes& payload);

template <typename Reference, typename Actual>
double snrDb(const Reference& reference, const Actual& actual) {
    double signal = 0, noise = 0;
    for (size_t i = 0; i < reference.size(); ++i) {
        signal += double(reference[i]) * reference[i];
        noise += (double(reference[i]) - actual[i]) * (double(reference[i]) - actual[i]);
    }
    return noise == 0 ? 999.0 : 10 * std::log10(signal / noise);
}

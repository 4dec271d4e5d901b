// Quantiser: threshold table, decision bounds and the per-block coder.
#include "codec/Quantiser.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace {

float floatFromBits(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, 4);
    return value;
}

uint32_t bitsOfFloat(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    return bits;
}

// Smallest non-negative float (0 .. infinity) for which `holds` is true;
// `holds` must be monotone and true at infinity. Non-negative floats order
// like their bit patterns, so the search runs over the patterns.
template <typename Predicate>
float smallestFloatWhere(Predicate holds) {
    uint32_t low = 0, high = 0x7F800000u;
    while (low < high) {
        uint32_t middle = low + (high - low) / 2;
        if (holds(floatFromBits(middle)))
            high = middle;
        else
            low = middle + 1;
    }
    return floatFromBits(low);
}

// The level in dB the threshold is compared with: 20 log10 |c|, in single precision.
inline float levelDb(float magnitude) { return 8.685889f * std::log(magnitude); }

}  // namespace

bool Quantiser::build(int32_t length, uint32_t rate, float athOffset, uint8_t qbits) {
    n = length;
    half = (1 << qbits) / 2;
    if (!ath.resize(n) || !keepFrom.resize(n) || !upBucketStart.resize(BucketCount) ||
        !downBucketStart.resize(BucketCount))
        return false;

    // Frequencies span 0 Hz to just below Nyquist; F is clamped to 16 Hz .. 16 kHz.
    for (int32_t i = 0; i < n; ++i) {
        float f = float(i) * (0.5f * float(rate)) / float(n);
        float khz = f <= 16.0f ? 0.016f : f > 16000.0f ? 16.0f : 0.001f * f;
        double d = double(khz) - 3.3;
        ath[i] = 3.64f * float(std::pow(double(khz), -0.8)) - 6.5f * float(std::exp(-0.6 * d * d)) +
                 0.001f * float(std::pow(double(khz), 4.0)) - 96.5f + athOffset;
        const float threshold = ath[i];
        keepFrom[i] = smallestFloatWhere([threshold](float a) { return !(threshold > levelDb(a)); });
    }

    // q = floor(x^0.2 * sign * m + 0.5) with x^0.2 in double; the bounds are
    // where q steps, found with that very expression. Unused entries are NaN,
    // which no magnitude reaches.
    const double m = (half - 1) + 0.5;
    const float never = std::numeric_limits<float>::quiet_NaN();
    for (float& bound : upBounds)
        bound = never;
    for (float& bound : downBounds)
        bound = never;
    for (int32_t j = 1; j < half; ++j)
        upBounds[j - 1] = smallestFloatWhere(
            [m, j](float x) { return std::floor(std::pow(double(x), 0.2) * m + 0.5) >= j; });
    for (int32_t j = 1; j <= half; ++j)
        downBounds[j - 1] = smallestFloatWhere(
            [m, j](float x) { return std::floor(-std::pow(double(x), 0.2) * m + 0.5) <= -j; });

    for (int32_t b = 0; b < BucketCount; ++b) {
        float lowest = floatFromBits(uint32_t(b) << BucketShift);
        uint8_t up = 0, down = 0;
        while (lowest >= upBounds[up])
            ++up;
        while (lowest >= downBounds[down])
            ++down;
        upBucketStart[b] = up;
        downBucketStart[b] = down;
    }
    return true;
}

inline int32_t Quantiser::countReached(const float* bounds, const uint8_t* bucketStart, float x) {
    int32_t count = bucketStart[bitsOfFloat(x) >> BucketShift];
    while (x >= bounds[count])  // a bucket is narrower than the gap between bounds: rarely more than once
        ++count;
    return count;
}

float Quantiser::quantise(const float* c, uint8_t* codes) const {
    float peak = 0.0f;
    for (int32_t i = 0; i < n; ++i) {
        float a = std::fabs(c[i]);
        peak = a > peak ? a : peak;
    }
    if (peak == 0.0f)
        peak = 1.0f;
    const float s = 1.0f / peak;
    const float* keep = keepFrom.data();
    for (int32_t i = 0; i < n; ++i) {
        if (!(std::fabs(c[i]) >= keep[i])) {
            codes[i] = uint8_t(half);  // under the threshold of hearing: silence
            continue;
        }
        float x = std::fabs(s * c[i]);
        if (c[i] > 0)
            codes[i] = uint8_t(half + countReached(upBounds, upBucketStart.data(), x));
        else if (c[i] < 0)
            codes[i] = uint8_t(half - countReached(downBounds, downBucketStart.data(), x));
        else
            codes[i] = uint8_t(half);
    }
    return peak;
}
